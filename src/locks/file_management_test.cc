#include "locks/file_management.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>

#include "base/exception.h"
#include "test_env.h"

namespace qaaisp {
namespace {

using testing::Exists;
using testing::FakeClockEnv;
using ::testing::HasSubstr;
using testing::MakeDirs;
using testing::ReadFile;
using testing::ScopedDefaultEnv;
using testing::TempDir;
using testing::WriteFile;

// The message of the Exception that run throws, or "no exception"; source
// receives the source file it names.
std::string ThrownMessage(const std::function<void()>& run, std::string* source = nullptr) {
  try {
    run();
  } catch (const Exception& e) {
    if (source) *source = e.source_file();
    return e.message();
  }
  return "no exception";
}

class FileManagementTest : public ::testing::Test {
 protected:
  FileManagementTest() : scoped_env_(&env_) {}

  // Another handle on path, which keeps deletes and moves of it failing
  // with a sharing violation while it lives.
  std::unique_ptr<platform::File> Hold(const std::string& path) {
    return env_.OpenFile(path, platform::OpenOptions{});
  }

  TempDir dir_;
  FakeClockEnv env_;
  ScopedDefaultEnv scoped_env_;
};

TEST_F(FileManagementTest, DeleteWithRetryOnAMissingFileSaysNothing) {
  EXPECT_TRUE(DeleteWithRetry(dir_.Sub("none"), true, 15));
  EXPECT_TRUE(DeleteWithRetry(dir_.Sub("no/such/dir"), true, 15));
  EXPECT_EQ(env_.debug_output(), "");
  EXPECT_EQ(env_.sleep_count(), 0);
}

TEST_F(FileManagementTest, DeleteWithRetryWarnsEveryFifthAttemptThenAbandons) {
  std::string path = dir_.Sub("held");
  WriteFile(path, "x");
  auto holder = Hold(path);

  EXPECT_FALSE(DeleteWithRetry(path, false, 15));
  std::string warning =
      "QA-WXXXX: DeleteWithRetry Warning: An error occurred when attempting to delete file " +
      path + ". Error: 32\n";
  EXPECT_EQ(env_.debug_output(), warning);
  EXPECT_EQ(env_.sleep_count(), 0);

  env_.DebugOutput("|");
  std::string before = env_.debug_output();
  EXPECT_FALSE(DeleteWithRetry(path, true, 15));
  EXPECT_EQ(env_.sleep_count(), 16);
  std::string abandon = "QA-WXXXX: DeleteWithRetry Error:  Abandoning attempts to delete file " +
                        path + ". Error: 32\n";
  // Warnings at attempts 0, 5, 10 and 15, then the error past 15.
  EXPECT_EQ(env_.debug_output(), before + warning + warning + warning + warning + abandon);
  EXPECT_TRUE(Exists(path));
}

TEST_F(FileManagementTest, DeleteWithRetrySucceedsOnceTheHolderLetsGo) {
  std::string path = dir_.Sub("held");
  WriteFile(path, "x");
  auto holder = Hold(path);
  env_.OnSleep([&](int n) {
    if (n == 7) holder.reset();
  });
  EXPECT_TRUE(DeleteWithRetry(path, true, 15));
  // It deletes before it sleeps, so the pause after the good delete counts.
  EXPECT_EQ(env_.sleep_count(), 8);
  EXPECT_FALSE(Exists(path));
  const std::string out = env_.debug_output();
  EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 2);  // warnings at attempts 0 and 5
}

TEST_F(FileManagementTest, MoveWithRetrySleepsBeforeEachRetry) {
  std::string from = dir_.Sub("_activity.tmp");
  std::string to = dir_.Sub("_activity.tab");
  WriteFile(from, "new");
  auto holder = Hold(from);

  EXPECT_FALSE(MoveWithRetry(from, to, false, 15));
  EXPECT_EQ(env_.sleep_count(), 0);
  std::string warning = "QA-WXXXX: Warning: Unable to move " + from + " Activity File to " + to +
                        " at this time (but will keep retrying). Error: 32\n";
  EXPECT_EQ(env_.debug_output(), warning);

  EXPECT_FALSE(MoveWithRetry(from, to, true, 10));
  EXPECT_EQ(env_.sleep_count(), 11);
  std::string timeout = "QA-WXXXX: Warning: A Timeout occurred when attempting to move " + from +
                        " Activity File to " + to + ". Error: 32\n";
  EXPECT_EQ(env_.debug_output(), warning + warning + warning + warning + timeout);

  env_.OnSleep([&](int n) {
    if (n == 11 + 2) holder.reset();
  });
  EXPECT_TRUE(MoveWithRetry(from, to, true, 10));
  EXPECT_EQ(env_.sleep_count(), 13);
  EXPECT_EQ(ReadFile(to), "new");

  // A source that is gone ends the retries at once, quietly.
  std::string before = env_.debug_output();
  EXPECT_FALSE(MoveWithRetry(from, dir_.Sub("other"), true, 15));
  EXPECT_EQ(env_.sleep_count(), 13);
  EXPECT_EQ(env_.debug_output(), before);
  EXPECT_EQ(ParentDirectory("/a/b//c/"), "/a/b");
  EXPECT_EQ(ParentDirectory("/a"), "/");
}

TEST_F(FileManagementTest, EnsureDirectoryMakesEveryLevelAndReusesAnyCase) {
  EnsureDirectory(dir_.Sub("a/b/c/d"));
  EXPECT_TRUE(DirectoryExists(dir_.Sub("a/b/c/d")));
  EnsureDirectory(dir_.path() + "\\A\\B\\c\\E\\");
  EXPECT_TRUE(DirectoryExists(dir_.Sub("a/b/c/E")));
  EXPECT_FALSE(Exists(dir_.Sub("A")));
}

TEST_F(FileManagementTest, EnsureDirectoryThrowsWithItsTexts) {
  auto message_of = [](const std::string& path) {
    std::string source;
    std::string message = ThrownMessage([&] { EnsureDirectory(path); }, &source);
    EXPECT_EQ(source, kFileManagementSource);
    return message;
  };
  EXPECT_EQ(message_of(""), "Empty path");
  EXPECT_EQ(message_of(dir_.Sub("a?b")), "Invalid path: " + dir_.Sub("a?b"));
  WriteFile(dir_.Sub("file"), "");
  EXPECT_EQ(message_of(dir_.Sub("file/sub")),
            "Failed to create directory (" + dir_.Sub("file/sub") + ")");
}

TEST_F(FileManagementTest, DeleteTreeResults) {
  EXPECT_EQ(DeleteTree(dir_.Sub("none"), true, true), kDeleteTreeNothing);

  WriteFile(dir_.Sub("f"), "x");
  EXPECT_EQ(DeleteTree(dir_.Sub("f"), false, false), kDeleteTreeDone);
  EXPECT_TRUE(Exists(dir_.Sub("f")));
  EXPECT_EQ(DeleteTree(dir_.Sub("f"), false, true), kDeleteTreeDone);
  EXPECT_FALSE(Exists(dir_.Sub("f")));

  // Without recursion only the files go, so the root cannot.
  WriteFile(dir_.Sub("t/a.MAI"), "x");
  WriteFile(dir_.Sub("t/sub/b.MAI"), "x");
  EXPECT_EQ(DeleteTree(dir_.Sub("t"), false, true), kDeleteTreePartial);
  EXPECT_FALSE(Exists(dir_.Sub("t/a.MAI")));
  EXPECT_TRUE(Exists(dir_.Sub("t/sub/b.MAI")));
  auto events = env_.events();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_THAT(events[0].first, HasSubstr("Call to RemoveDirectory failed for " + dir_.Sub("t") +
                                         " (GetLastError() returned 145)"));

  EXPECT_EQ(DeleteTree(dir_.Sub("t"), true, true), kDeleteTreeDone);
  EXPECT_FALSE(Exists(dir_.Sub("t")));
}

TEST_F(FileManagementTest, DeleteTreeReportsAHeldFile) {
  WriteFile(dir_.Sub("t/held"), "x");
  WriteFile(dir_.Sub("t/free"), "x");
  auto holder = Hold(dir_.Sub("t/held"));
  EXPECT_EQ(DeleteTree(dir_.Sub("t"), true, true), kDeleteTreePartial);
  EXPECT_FALSE(Exists(dir_.Sub("t/free")));
  auto events = env_.events();
  ASSERT_EQ(events.size(), 1u);  // the root's failure is not reported after a bad walk
  EXPECT_EQ(events[0].first, "Call to DeleteFile failed for " + dir_.Sub("t/held") +
                                 " (GetLastError() returned 32)");
}

TEST_F(FileManagementTest, MoveTreeReplacesOnlyWhenAsked) {
  WriteFile(dir_.Sub("src/a"), "new");
  WriteFile(dir_.Sub("dst/old"), "old");
  EXPECT_EQ(ThrownMessage([&] { MoveTree(dir_.Sub("src"), dir_.Sub("dst"), false); }),
            "Call to MoveFile failed (GetLastError() returned 183)");
  MoveTree(dir_.Sub("src"), dir_.Sub("dst"), true);
  EXPECT_EQ(ReadFile(dir_.Sub("dst/a")), "new");
  EXPECT_FALSE(Exists(dir_.Sub("dst/old")));

  MoveTree(dir_.Sub("dst"), dir_.Sub("deep/er/dst"), false);  // makes the parents
  EXPECT_EQ(ReadFile(dir_.Sub("deep/er/dst/a")), "new");
  EXPECT_THROW(MoveTree(dir_.Sub("dst"), dir_.Sub("x"), true), Exception);
}

TEST_F(FileManagementTest, CopyTreeCopiesNestedFiles) {
  WriteFile(dir_.Sub("src/a"), "1");
  WriteFile(dir_.Sub("src/s/b"), "2");
  MakeDirs(dir_.Sub("src/empty"));
  CopyTree(dir_.Sub("src"), dir_.Sub("to/copy"), false);
  EXPECT_EQ(ReadFile(dir_.Sub("to/copy/a")), "1");
  EXPECT_EQ(ReadFile(dir_.Sub("to/copy/s/b")), "2");
  EXPECT_TRUE(DirectoryExists(dir_.Sub("to/copy/empty")));
  EXPECT_TRUE(Exists(dir_.Sub("src/s/b")));

  WriteFile(dir_.Sub("src/a"), "changed");
  EXPECT_EQ(ThrownMessage([&] { CopyTree(dir_.Sub("src"), dir_.Sub("to/copy"), false); }),
            "Call to CopyFile failed (GetLastError() returned 80)");
  CopyTree(dir_.Sub("src"), dir_.Sub("to/copy"), true);
  EXPECT_EQ(ReadFile(dir_.Sub("to/copy/a")), "changed");
  EXPECT_EQ(ThrownMessage([&] { CopyTree(dir_.Sub("none"), dir_.Sub("x"), true); }),
            "File not found: " + dir_.Sub("none"));
}

TEST_F(FileManagementTest, WholeFileWriteAndRead) {
  std::string path = dir_.Sub("x/y/_FOLDER.DAT");
  std::string bytes("a\0b\r\n", 5);
  EXPECT_TRUE(WriteWholeFile(path, bytes, false));
  EXPECT_EQ(ReadFile(path), bytes);
  EXPECT_TRUE(WriteWholeFile(path, "z", false));  // replaces, never appends
  EXPECT_EQ(ReadFile(path), "z");

  char fixed[5];
  WriteWholeFile(path, bytes, false);
  EXPECT_TRUE(ReadWholeFile(path, fixed, 5));
  EXPECT_EQ(std::string(fixed, 5), bytes);
  char more[6];
  EXPECT_FALSE(ReadWholeFile(path, more, 6));

  char* buffer = nullptr;
  EXPECT_EQ(ReadFileIntoBuffer(path, &buffer), 5);
  ASSERT_NE(buffer, nullptr);
  EXPECT_EQ(std::string(buffer, 6), bytes + std::string(1, '\0'));
  std::free(buffer);
  EXPECT_EQ(ReadFileIntoBuffer(dir_.Sub("none"), &buffer), -1);
  EXPECT_EQ(buffer, nullptr);

  // A directory in the way: quiet gives false, loud throws with the text.
  MakeDirs(dir_.Sub("d"));
  EXPECT_FALSE(WriteWholeFile(dir_.Sub("d"), "x", true));
  EXPECT_EQ(ThrownMessage([&] { WriteWholeFile(dir_.Sub("d"), "x", false); }),
            "Failed to open file " + dir_.Sub("d") + " for output");
}

}  // namespace
}  // namespace qaaisp
