// Where the MIME tests find their messages: the project's own under
// tests/data/mime, and the shared real-world corpus beside the repository
// (QAAISP_CORPUS names another one), which may be absent.
#pragma once

#include <cstdlib>
#include <string>

namespace qaaisp::testing {

inline std::string RepositoryRoot() {
  std::string here = __FILE__;  // .../src/mime/mime_test_paths.h
  return here.substr(0, here.rfind("/src/mime/"));
}

inline std::string MimeTestData(const std::string& name) {
  return RepositoryRoot() + "/tests/data/mime/" + name;
}

inline std::string MimeCorpusDirectory() {
  const char* corpus = std::getenv("QAAISP_CORPUS");
  std::string root = corpus && *corpus ? corpus : RepositoryRoot() + "/../shared/corpus";
  return root + "/mime";
}

}  // namespace qaaisp::testing
