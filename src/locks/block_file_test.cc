#include "locks/block_file.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/setting_names.h"
#include "platform/registry.h"
#include "platform/win32_error.h"
#include "test_env.h"

namespace qaaisp {
namespace {

using testing::Exists;
using testing::FakeClockEnv;
using testing::ReadFile;
using testing::ScopedDefaultEnv;
using testing::ScopedRegistry;
using testing::TempDir;
using testing::WriteFile;

// The process registry keeps the Env it was first made with, so it is made
// before a test's fake Env is installed and outlives it.
bool PinRegistry() {
  platform::Registry::Process();
  return true;
}

class BlockFileTest : public ::testing::Test {
 protected:
  BlockFileTest() : scoped_env_(&env_) { ResetIndexUnblockModeForTesting(); }
  ~BlockFileTest() override { ResetIndexUnblockModeForTesting(); }

  // Holds path open exclusively, as a holder with a kept handle does.
  std::unique_ptr<platform::File> HoldOpen(const std::string& path) {
    platform::OpenOptions o;
    o.write = true;
    o.disposition = platform::OpenDisposition::kOpenAlways;
    o.share = platform::ShareMode::kShareNone;
    return env_.OpenFile(path, o);
  }

  bool pinned_ = PinRegistry();
  TempDir dir_;
  FakeClockEnv env_;
  ScopedDefaultEnv scoped_env_;
  std::string blk_ = dir_.Sub("_index.blk");
};

std::string UnblockModeRegistry(int mode) {
  return testing::RegText({{settings::kProvidersKey,
                            {std::string("\"") + settings::kIndexUnblockMode + "\"=dword:0000000" +
                             std::to_string(mode)}}});
}

TEST_F(BlockFileTest, FreeLockIsTakenAtOnceAndLeftEmpty) {
  BlockHandle handle = reinterpret_cast<BlockHandle>(1);
  EXPECT_EQ(WaitForAccessToIndexFileEx(blk_, 1, &handle, 8), 1);
  EXPECT_NE(handle, nullptr);
  EXPECT_EQ(env_.sleep_count(), 0);
  EXPECT_EQ(ReadFile(blk_), "");  // even at a detailed level
  EXPECT_EQ(UnBlockIndexFileAccessEx(blk_, 1, &handle), 1);
  EXPECT_EQ(handle, nullptr);
  EXPECT_FALSE(Exists(blk_));

  // Backslash paths are native; a caller that keeps no handle leaves the file.
  handle = reinterpret_cast<BlockHandle>(1);
  EXPECT_EQ(WaitForAccessToIndexFileEx(dir_.path() + "\\_index.blk", 0, &handle), 1);
  EXPECT_EQ(handle, nullptr);
  EXPECT_TRUE(Exists(blk_));
}

std::vector<std::string> g_broken_blocks;
void RecordBrokenBlock(const std::string& path) { g_broken_blocks.push_back(path); }

TEST_F(BlockFileTest, ABlockTakenByForceIsReportedToTheRegisteredRoutine) {
  g_broken_blocks.clear();
  SetBrokenBlockRoutine(RecordBrokenBlock);
  BlockHandle handle = nullptr;
  ASSERT_EQ(WaitForAccessToIndexFileEx(blk_, 1, &handle), 1);
  EXPECT_FALSE(LastWaitBrokeBlock());
  UnBlockIndexFileAccessEx(blk_, 1, &handle);
  EXPECT_TRUE(g_broken_blocks.empty());

  WriteFile(blk_, "");  // left by a holder that is gone: forced after 61 polls
  ASSERT_EQ(WaitForAccessToIndexFileEx(blk_, 1, &handle), 1);
  EXPECT_EQ(env_.sleep_count(), 61);
  EXPECT_NE(handle, nullptr);
  EXPECT_TRUE(LastWaitBrokeBlock());
  EXPECT_EQ(g_broken_blocks, std::vector<std::string>{blk_});
  UnBlockIndexFileAccessEx(blk_, 1, &handle);
  SetBrokenBlockRoutine(nullptr);
}

TEST_F(BlockFileTest, FileGoneJustBeforeTheForcedDeleteStillFails) {
  WriteFile(blk_, "");
  env_.OnSleep([&](int n) {
    if (n == 61) std::remove(blk_.c_str());
  });
  BlockHandle handle = nullptr;
  EXPECT_EQ(WaitForAccessToIndexFileEx(blk_, 1, &handle), 0);
  EXPECT_EQ(env_.sleep_count(), 61);
  EXPECT_FALSE(Exists(blk_));
}

TEST_F(BlockFileTest, PathsThatCannotExistFailWithoutWaiting) {
  BlockHandle handle = reinterpret_cast<BlockHandle>(7);
  for (const std::string& path :
       {dir_.Sub("missing/_index.blk"), std::string("\\_index.blk"), std::string("_index.blk"),
        dir_.Sub(std::string(300, 'x') + "/_index.blk"), dir_.Sub(std::string(300, 'x'))}) {
    EXPECT_EQ(WaitForAccessToIndexFileEx(path, 1, &handle), 0) << path;
    EXPECT_EQ(WaitForAccessToIndexFileEx(path, 1, &handle, 8), 0) << path;
  }
  EXPECT_EQ(env_.sleep_count(), 0);
  EXPECT_EQ(handle, reinterpret_cast<BlockHandle>(7));  // untouched on failure
}

TEST_F(BlockFileTest, UnblockModeDeletesOnlyIndexOrphansForHandleKeepers) {
  ScopedRegistry registry(UnblockModeRegistry(1));
  WriteFile(blk_, "");
  BlockHandle handle = nullptr;
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(WaitForAccessToIndexFileEx(blk_, 1, &handle), 1);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "deleted orphan\n");
  EXPECT_EQ(env_.sleep_count(), 1);
  UnBlockIndexFileAccessEx(blk_, 1, &handle);

  // The name test ignores case.
  std::string upper = dir_.Sub("_INDEX.BLK");
  WriteFile(upper, "");
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(WaitForAccessToIndexFileEx(upper, 1, &handle), 1);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "deleted orphan\n");
  EXPECT_EQ(env_.sleep_count(), 2);
  UnBlockIndexFileAccessEx(upper, 1, &handle);

  // Not a groups lock, and not for a caller that keeps no handle.
  std::string groups = dir_.Sub("_groups.blk");
  WriteFile(groups, "");
  EXPECT_EQ(WaitForAccessToIndexFileEx(groups, 1, &handle), 1);
  EXPECT_EQ(env_.sleep_count(), 2 + 61);
  UnBlockIndexFileAccessEx(groups, 1, &handle);
  WriteFile(blk_, "");
  EXPECT_EQ(WaitForAccessToIndexFileEx(blk_, 0, &handle), 1);
  EXPECT_EQ(env_.sleep_count(), 2 + 61 + 61);
}

TEST_F(BlockFileTest, UnblockModeCannotDeleteALiveHolder) {
  ScopedRegistry registry(UnblockModeRegistry(1));
  auto holder = HoldOpen(blk_);
  env_.OnSleep([&](int n) {
    if (n == 5) holder.reset();  // the holder closes but leaves the file
  });
  BlockHandle handle = nullptr;
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(WaitForAccessToIndexFileEx(blk_, 1, &handle), 1);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "deleted orphan\n");
  EXPECT_EQ(env_.sleep_count(), 5);
  UnBlockIndexFileAccessEx(blk_, 1, &handle);
}

TEST_F(BlockFileTest, DetailedLevelRecordsTheOwnerAfterAWait) {
  WriteFile(blk_, "");
  env_.OnSleep([&](int n) {
    if (n == 2) std::remove(blk_.c_str());
  });
  BlockHandle handle = nullptr;
  ASSERT_EQ(WaitForAccessToIndexFileEx(blk_, 1, &handle, 8), 1);
  EXPECT_EQ(ReadFile(blk_), "File Locked by Process: " + std::to_string(env_.ProcessId()) +
                                ", thread: " + std::to_string(env_.ThreadId()) + "\n");
  UnBlockIndexFileAccessEx(blk_, 1, &handle);

  // Not at the library's own level, nor without a kept handle.
  WriteFile(blk_, "");
  env_.OnSleep([&](int n) {
    if (n == 3) std::remove(blk_.c_str());
  });
  ASSERT_EQ(WaitForAccessToIndexFileEx(blk_, 1, &handle), 1);
  EXPECT_EQ(ReadFile(blk_), "");
  UnBlockIndexFileAccessEx(blk_, 1, &handle);
}

// Refuses the first opens of a path with access denied.
class DenyingEnv : public FakeClockEnv {
 public:
  std::unique_ptr<platform::File> OpenFile(const std::string& path,
                                           const platform::OpenOptions& o) override {
    if (denials_ > 0) {
      --denials_;
      platform::SetLastErrorCode(platform::kErrorAccessDenied);
      return nullptr;
    }
    return FakeClockEnv::OpenFile(path, o);
  }
  int denials_ = 0;
};

TEST(BlockFileAccessDenied, IsWaitedOnAndReportedOnlyWhenDetailed) {
  PinRegistry();
  TempDir dir;
  DenyingEnv env;
  ScopedDefaultEnv scoped(&env);
  std::string blk = dir.Sub("_index.blk");
  BlockHandle handle = nullptr;

  env.denials_ = 14;  // the first create and 13 polls
  ASSERT_EQ(WaitForAccessToIndexFileEx(blk, 1, &handle), 1);
  EXPECT_EQ(env.sleep_count(), 14);
  EXPECT_TRUE(env.events().empty());
  UnBlockIndexFileAccessEx(blk, 1, &handle);

  env.denials_ = 14;
  ASSERT_EQ(WaitForAccessToIndexFileEx(blk, 1, &handle, 8), 1);
  auto events = env.events();
  ASSERT_EQ(events.size(), 3u);  // after the 11th, 12th and 13th attempts
  for (size_t i = 0; i < events.size(); ++i) {
    EXPECT_EQ(events[i].type, platform::kEventInformation);
    EXPECT_EQ(events[i].first, "[" + std::to_string(env.ThreadId()) +
                                   "] Access Denied occurred in WaitForAccessToIndexFileEx for "
                                   "block file: " +
                                   blk + ". Number of attempts: " + std::to_string(11 + i) +
                                   "\r\n");
  }
  UnBlockIndexFileAccessEx(blk, 1, &handle);
}

TEST_F(BlockFileTest, UnblockFailsForAMissingFileWithoutWaiting) {
  BlockHandle handle = nullptr;
  EXPECT_EQ(UnBlockIndexFileAccessEx(blk_, 1, &handle), 0);
  EXPECT_EQ(UnBlockIndexFileAccessEx(dir_.Sub("no/such/_index.blk"), 0, nullptr), 0);
  EXPECT_EQ(RemoveBlockFile(blk_), 0);
  EXPECT_EQ(env_.sleep_count(), 0);
}

TEST_F(BlockFileTest, UnblockRetriesEightyOneTimesAgainstAnOpenHolder) {
  auto holder = HoldOpen(blk_);
  EXPECT_EQ(RemoveBlockFile(blk_), 0);
  EXPECT_EQ(env_.sleep_count(), 81);
  EXPECT_TRUE(Exists(blk_));

  env_.OnSleep([&](int n) {
    if (n == 81 + 4) holder.reset();
  });
  EXPECT_EQ(RemoveBlockFile(blk_), 1);
  EXPECT_EQ(env_.sleep_count(), 81 + 4);
}

TEST_F(BlockFileTest, StaleOrForeignHandlesDoNotDisturbTheDelete) {
  BlockHandle handle = nullptr;
  ASSERT_EQ(WaitForAccessToIndexFileEx(blk_, 1, &handle), 1);
  BlockHandle stale = handle;
  ASSERT_EQ(UnBlockIndexFileAccessEx(blk_, 1, &handle), 1);

  ASSERT_EQ(WaitForIndexFileReleased(blk_), 1);
  EXPECT_EQ(UnBlockIndexFileAccessEx(blk_, 1, &stale), 1);  // closing it fails quietly
  EXPECT_EQ(stale, nullptr);
  int not_a_handle = 0;
  BlockHandle foreign = &not_a_handle;
  ASSERT_EQ(WaitForIndexFileReleased(blk_), 1);
  EXPECT_EQ(UnBlockIndexFileAccessEx(blk_, 1, &foreign), 1);
  EXPECT_EQ(env_.sleep_count(), 0);
}

TEST_F(BlockFileTest, TwoThreadsWaitOnOneFileAsTwoProcessesDo) {
  BlockHandle held = nullptr;
  ASSERT_EQ(WaitForAccessToIndexFileEx(blk_, 1, &held), 1);
  std::mutex m;
  std::condition_variable cv;
  bool waiter_polled = false;
  bool released = false;
  env_.OnSleep([&](int n) {
    if (n != 1) return;
    std::unique_lock<std::mutex> lock(m);
    waiter_polled = true;
    cv.notify_all();
    cv.wait(lock, [&] { return released; });
  });
  int result = -1;
  std::thread waiter([&] {
    BlockHandle mine = nullptr;
    result = WaitForAccessToIndexFileEx(blk_, 1, &mine);
    UnBlockIndexFileAccessEx(blk_, 1, &mine);
  });
  {
    std::unique_lock<std::mutex> lock(m);
    cv.wait(lock, [&] { return waiter_polled; });
  }
  EXPECT_EQ(UnBlockIndexFileAccessEx(blk_, 1, &held), 1);
  {
    std::lock_guard<std::mutex> lock(m);
    released = true;
  }
  cv.notify_all();
  waiter.join();
  EXPECT_EQ(result, 1);
  EXPECT_EQ(env_.sleeps(), std::vector<uint32_t>{1000});
}

}  // namespace
}  // namespace qaaisp
