// The indexer's walk over a message's leaves must list exactly what the
// MIME reader lists: the same parts, fields and limits, on the project's own
// messages, on crafted edge cases and on the real-world corpus when present.
#include "message/message_leaf_scan.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "mime/message_reader.h"
#include "mime/mime_test_paths.h"

namespace qaaisp {
namespace {

void ExpectSameLeaves(std::string_view text, const std::string& label) {
  MessageReader reader(text, false, true, false);
  const int expected = reader.ParseParts();
  std::vector<MessageLeaf> leaves;
  EXPECT_EQ(ScanMessageLeaves(reader.message(), &leaves), expected) << label;
  const std::vector<MessagePart>& parts = reader.parts();
  ASSERT_EQ(leaves.size(), parts.size()) << label;
  for (size_t i = 0; i < parts.size(); ++i) {
    const MessagePart& want = parts[i];
    const MessageLeaf& got = leaves[i];
    EXPECT_EQ(got.body, want.Body) << label << " part " << i;
    EXPECT_EQ(static_cast<int32_t>(got.body.size()), want.BodyLength) << label;
    EXPECT_EQ(got.number, want.Number) << label;
    EXPECT_EQ(got.kind, want.Kind) << label;
    EXPECT_EQ(got.content_type, want.ContentType) << label;
    EXPECT_EQ(got.disposition, want.Disposition) << label;
    EXPECT_EQ(got.header, want.HeaderText) << label;
  }
}

TEST(MessageLeafScanTest, ListsWhatTheReaderLists) {
  const std::string mixed = "Content-Type: multipart/mixed; boundary=m\r\n\r\npreamble\r\n--m\r\n";
  std::string many = "Content-Type: multipart/mixed; boundary=z\r\n\r\n";
  for (int i = 0; i < 205; ++i) many += "--z\r\nContent-Type: text/plain\r\n\r\npart\r\n";
  many += "--z--\r\n";
  std::string deep;
  for (int i = 0; i < 80; ++i) {
    deep += "Content-Type: multipart/mixed; boundary=d" + std::to_string(i) + "\r\n\r\n--d" +
            std::to_string(i) + "\r\n";
  }
  const std::pair<const char*, std::string> cases[] = {
      {"plain", "Subject: x\r\n\r\nbody\r\n"},
      {"no blank line", "Subject: x\r\n"},
      {"empty", ""},
      {"mixed", mixed + "Content-Type: text/plain\r\n\r\na\r\n--m\r\n\r\nheaderless\r\n--m\r\n"
                        "Content-Disposition: attachment; filename=f\r\n\r\nb\r\n--m--\r\nepi"},
      {"empty body", mixed + "Content-Type: text/plain\r\n\r\n--m--\r\n"},
      {"unclosed", mixed + "Content-Type: text/plain\r\n\r\nnever closed\r\n"},
      {"nested",
       "Content-Type: multipart/mixed; boundary=o\r\n\r\n--o\r\n"
       "Content-Type: multipart/alternative; boundary=i\r\n\r\n--i\r\n\r\nt\r\n--i\r\n"
       "Content-Type: text/html\r\n\r\n<p>\r\n--i--\r\n--o\r\n"
       "Content-Type: text/calendar; method=REQUEST\r\n\r\nBEGIN\r\n--o--\r\n"},
      {"bare line feeds", "Content-Type: multipart/mixed; boundary=m\n\n--m\n\nx\n--m--\n"},
      {"too many parts", many},
      {"too deep", deep},
  };
  for (const auto& [label, text] : cases) ExpectSameLeaves(text, label);
}

TEST(MessageLeafScanTest, AgreesWithTheReaderOnEveryTestMessage) {
  namespace fs = std::filesystem;
  int files = 0;
  for (const std::string& dir : {testing::MimeTestData(""), testing::MimeCorpusDirectory()}) {
    std::error_code ec;
    if (!fs::is_directory(dir, ec)) continue;
    for (const auto& entry : fs::directory_iterator(dir, ec)) {
      if (!entry.is_regular_file()) continue;
      MessageReader file(entry.path().string(), true, false, false);
      ASSERT_TRUE(file.loaded());
      ExpectSameLeaves(file.message(), entry.path().filename().string());
      ++files;
    }
  }
  EXPECT_GE(files, 3);
}

}  // namespace
}  // namespace qaaisp
