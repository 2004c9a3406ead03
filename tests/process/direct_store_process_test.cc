// Direct index calls from several real processes at once on one folder:
// the block file serialises them, so every delivery and every flag change
// lands, with unique UIDs and nothing marked dirty. Sleeps in the helpers
// are scaled down to a thousandth.
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "test_env.h"

extern char** environ;

namespace qaaisp {
namespace {

using testing::Exists;
using testing::ReadFile;
using testing::TempDir;
using testing::WriteFile;

std::vector<std::string> HelperEnvironment(const std::string& registry) {
  // Waits for the block file stay short, but long enough for a loaded
  // machine: a delivery now parses its message while it holds the block.
  return testing::EnvironmentWith({"QAAISP_SLEEP_SCALE=0.01", "QAAISP_REGISTRY=" + registry});
}

// Starts the helper with its output going to out_file; gives its pid.
pid_t Start(const std::vector<std::string>& args, const std::string& registry,
            const std::string& out_file = "/dev/null") {
  return testing::SpawnProcess(QAAISP_PROCESS_HELPER, args, HelperEnvironment(registry), out_file);
}

int ExitCode(pid_t pid) {
  int status = 0;
  if (::waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

TEST(DirectStoreProcessTest, ConcurrentDeliveriesAndFlagChangesAllLand) {
  TempDir root;
  const std::string registry = root.Sub("settings.reg");
  WriteFile(registry,
            "Windows Registry Editor Version 5.00\r\n\r\n"
            "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Wow6432Node\\Quill Arbor\\Quill Arbor]\r\n"
            "\"Mail Root\"=\"" +
                root.path() +
                "\"\r\n"
                "\"Use XML Stream Index Deserialisation\"=dword:00000001\r\n"
                "\"Use XML Stream Index Serialisation\"=dword:00000001\r\n\r\n");
  const std::string inbox = root.Sub("po/MAILROOT/box/Inbox");
  WriteFile(inbox + "/_index.xml",
            "<BASEELEMENT LASTUID=\"x00000001\"><ELEMENT ID=\"old.MAI\" UID=\"1\">"
            "<FLAGSTATUS>\\Recent</FLAGSTATUS></ELEMENT></BASEELEMENT>\r\n");
  constexpr int kProcesses = 3;
  constexpr int kEach = 15;
  constexpr int kFlagChanges = 20;
  for (int p = 0; p < kProcesses; ++p) {
    for (int i = 1; i <= kEach; ++i) {
      WriteFile(inbox + "/p" + std::to_string(p) + "_" + std::to_string(i) + ".MAI",
                "Subject: hello\r\n\r\nbody\r\n");
    }
  }

  std::vector<pid_t> helpers;
  for (int p = 0; p < kProcesses; ++p) {
    helpers.push_back(Start(
        {"deliver", "po", "box", "Inbox", "p" + std::to_string(p) + "_", std::to_string(kEach)},
        registry));
  }
  helpers.push_back(
      Start({"flag", "po", "box", "Inbox", "old.MAI", std::to_string(kFlagChanges)}, registry));
  for (pid_t pid : helpers) {
    ASSERT_GT(pid, 0);
    EXPECT_EQ(ExitCode(pid), 0);
  }
  EXPECT_FALSE(Exists(inbox + "/_index.blk"));
  EXPECT_FALSE(Exists(inbox + "/_CHANGE.DTY"));

  const std::string listing = root.Sub("list.txt");
  ASSERT_EQ(ExitCode(Start({"list", "po", "box", "Inbox"}, registry, listing)), 0);
  std::istringstream lines(ReadFile(listing));
  std::string line;
  std::set<std::string> ids;
  std::set<unsigned> uids;
  unsigned last_uid = 0;
  while (std::getline(lines, line)) {
    std::istringstream words(line);
    std::string word, id, flags;
    unsigned number = 0;
    words >> word;
    if (word == "lastuid") words >> last_uid;
    if (word != "row") continue;
    words >> id >> number;
    std::getline(words, flags);
    ids.insert(id);
    uids.insert(number);
    // An even number of set-and-clear pairs leaves the row unseen.
    if (id == "old.MAI") {
      EXPECT_EQ(flags.find("Seen"), std::string::npos) << flags;
    }
  }
  EXPECT_EQ(ids.size(), 1u + kProcesses * kEach);
  EXPECT_EQ(uids.size(), ids.size());
  EXPECT_EQ(last_uid, 1u + kProcesses * kEach);
  EXPECT_TRUE(ids.count("old.MAI"));
  EXPECT_TRUE(ids.count("p2_15.MAI"));
}

}  // namespace
}  // namespace qaaisp
