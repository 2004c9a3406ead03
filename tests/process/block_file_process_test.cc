// Index block files between real processes: each side is a separate helper
// process working through the library's exports. Sleeps in the helpers are
// scaled down to a thousandth, so a minute of polling takes 61 ms.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "test_env.h"

extern char** environ;

namespace qaaisp {
namespace {

using testing::Exists;
using testing::TempDir;
using testing::WriteFile;

// A helper process with its standard input and output on pipes.
class Helper {
 public:
  Helper(const std::vector<std::string>& args, const std::string& registry = "") {
    int in[2];
    int out[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) std::abort();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);

    pid_ = testing::SpawnWithActions(
        QAAISP_PROCESS_HELPER, args,
        testing::EnvironmentWith({"QAAISP_SLEEP_SCALE=0.001", "QAAISP_REGISTRY=" + registry}),
        &actions);
    if (pid_ <= 0) std::abort();
    posix_spawn_file_actions_destroy(&actions);
    ::close(in[0]);
    ::close(out[1]);
    to_child_ = in[1];
    from_child_ = out[0];
  }

  ~Helper() {
    if (pid_ > 0) {
      ::kill(pid_, SIGKILL);
      Wait();
    }
    ::close(to_child_);
    ::close(from_child_);
  }

  // The next line of output, without its line end; "" once the helper has
  // closed its output. The bound is only there so a broken helper cannot
  // hang the suite.
  std::string ReadLine() {
    std::string line;
    for (;;) {
      size_t nl = pending_.find('\n');
      if (nl != std::string::npos) {
        line = pending_.substr(0, nl);
        pending_.erase(0, nl + 1);
        return line;
      }
      pollfd p{from_child_, POLLIN, 0};
      if (::poll(&p, 1, 60000) <= 0) return "timeout";
      char buffer[256];
      ssize_t n = ::read(from_child_, buffer, sizeof buffer);
      if (n <= 0) return pending_.empty() ? "" : std::exchange(pending_, "");
      pending_.append(buffer, static_cast<size_t>(n));
    }
  }

  // Reads lines until one that is not "deleted orphan"; says whether that
  // line was seen.
  std::string ReadResult(bool* deleted_orphan) {
    *deleted_orphan = false;
    for (;;) {
      std::string line = ReadLine();
      if (line != "deleted orphan") return line;
      *deleted_orphan = true;
    }
  }

  void WriteLine(const std::string& line) {
    std::string text = line + "\n";
    ASSERT_EQ(::write(to_child_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }

  // Waits for the helper to end; gives its wait status.
  int Wait() {
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
    return status;
  }

 private:
  pid_t pid_ = -1;
  int to_child_ = -1;
  int from_child_ = -1;
  std::string pending_;
};

std::string UnblockModeRegistry(TempDir& dir) {
  std::string path = dir.Sub("unblock.reg");
  WriteFile(path,
            "Windows Registry Editor Version 5.00\r\n\r\n"
            "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Wow6432Node\\Quill Arbor\\Quill Arbor\\Providers]\r\n"
            "\"Index Unblock Mode\"=dword:00000001\r\n");
  return path;
}

// Leaves an orphan: a holder that kept its handle is killed, so the system
// closes the handle and the file stays behind.
void LeaveOrphan(const std::string& path) {
  Helper holder({"orphan", path});
  ASSERT_EQ(holder.ReadLine(), "held 1");
  int status = holder.Wait();
  ASSERT_TRUE(WIFSIGNALED(status));
  ASSERT_TRUE(Exists(path));
}

TEST(BlockFileProcessTest, WaiterBlocksWhileHeldAndGetsTheLockOnRelease) {
  TempDir dir;
  std::string blk = dir.Sub("_index.blk");
  Helper holder({"hold", blk});
  ASSERT_EQ(holder.ReadLine(), "held 1");

  Helper waiter({"step", blk});
  // The waiter found the lock taken and is between two polls.
  ASSERT_EQ(waiter.ReadLine(), "sleep 1");
  waiter.WriteLine("go");
  ASSERT_EQ(waiter.ReadLine(), "sleep 2");

  holder.WriteLine("release");
  EXPECT_EQ(holder.ReadLine(), "released 1");
  EXPECT_EQ(holder.Wait(), 0);
  EXPECT_FALSE(Exists(blk));

  waiter.WriteLine("go");
  EXPECT_EQ(waiter.ReadLine(), "result 1 sleeps 2");
  EXPECT_EQ(waiter.Wait(), 0);
  EXPECT_FALSE(Exists(blk));  // the waiter dropped it again
}

TEST(BlockFileProcessTest, LiveHolderWithAHandleOutlastsTheForcedDelete) {
  TempDir dir;
  std::string blk = dir.Sub("_index.blk");
  Helper holder({"hold", blk});
  ASSERT_EQ(holder.ReadLine(), "held 1");

  // 61 polls, then 81 refused deletes, and the waiter gives up.
  Helper waiter({"wait", blk, "1"});
  EXPECT_EQ(waiter.ReadLine(), "result 0 sleeps 142");
  EXPECT_TRUE(Exists(blk));
  holder.WriteLine("release");
  EXPECT_EQ(holder.ReadLine(), "released 1");
}

TEST(BlockFileProcessTest, OrphanOfAKilledHolderIsBrokenAfterSixtyOnePolls) {
  TempDir dir;
  std::string blk = dir.Sub("_index.blk");
  LeaveOrphan(blk);
  Helper waiter({"wait", blk, "1"});
  bool deleted_orphan = false;
  EXPECT_EQ(waiter.ReadResult(&deleted_orphan), "result 1 sleeps 61");
  EXPECT_FALSE(deleted_orphan);
}

TEST(BlockFileProcessTest, UnblockModeBreaksAnIndexOrphanAtTheFirstRetry) {
  TempDir dir;
  std::string registry = UnblockModeRegistry(dir);
  std::string blk = dir.Sub("_index.blk");
  LeaveOrphan(blk);
  bool deleted_orphan = false;
  {
    Helper waiter({"wait", blk, "1"}, registry);
    EXPECT_EQ(waiter.ReadResult(&deleted_orphan), "result 1 sleeps 1");
    EXPECT_TRUE(deleted_orphan);
  }

  // Only for "_index.blk", and only for a caller that keeps a handle.
  std::string groups = dir.Sub("_groups.blk");
  LeaveOrphan(groups);
  {
    Helper waiter({"wait", groups, "1"}, registry);
    EXPECT_EQ(waiter.ReadResult(&deleted_orphan), "result 1 sleeps 61");
    EXPECT_FALSE(deleted_orphan);
  }
  LeaveOrphan(blk);
  {
    Helper waiter({"wait", blk, "0"}, registry);
    EXPECT_EQ(waiter.ReadResult(&deleted_orphan), "result 1 sleeps 61");
    EXPECT_FALSE(deleted_orphan);
  }
}

TEST(BlockFileProcessTest, ImpossiblePathsAndMissingFilesFailWithoutSleeping) {
  TempDir dir;
  Helper impossible({"wait", dir.Sub("no/such/folder/_index.blk"), "1"});
  EXPECT_EQ(impossible.ReadLine(), "result 0 sleeps 0");
  Helper empty_folder({"wait", "\\_index.blk", "1"});
  EXPECT_EQ(empty_folder.ReadLine(), "result 0 sleeps 0");
  Helper missing({"unblock", dir.Sub("_index.blk")});
  EXPECT_EQ(missing.ReadLine(), "result 0 sleeps 0");
}

}  // namespace
}  // namespace qaaisp
