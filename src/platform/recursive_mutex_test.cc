#include "platform/recursive_mutex.h"

#include <gtest/gtest.h>

#include <thread>

#include "platform/win32_error.h"

namespace qaaisp::platform {
namespace {

TEST(RecursiveMutexTest, OwnerMayReenterAndOnlyOwnerMayRelease) {
  RecursiveMutex m;
  ASSERT_EQ(m.Acquire(), WaitResult::kSignaled);
  ASSERT_EQ(m.Acquire(), WaitResult::kSignaled);
  std::thread([&] {
    EXPECT_FALSE(m.Release());
    EXPECT_EQ(LastError(), kErrorNotOwner);
    EXPECT_EQ(m.Acquire(0), WaitResult::kTimeout);
  }).join();
  EXPECT_TRUE(m.Release());
  EXPECT_TRUE(m.OwnedByCurrentThread());
  EXPECT_TRUE(m.Release());
  EXPECT_FALSE(m.Release());
  std::thread([&] {
    EXPECT_EQ(m.Acquire(0), WaitResult::kSignaled);
    EXPECT_TRUE(m.Release());
  }).join();
}

TEST(RecursiveMutexTest, AbandonedMutexIsReportedToTheNextOwner) {
  RecursiveMutex m;
  std::thread::id id;
  std::thread([&] {
    id = std::this_thread::get_id();
    m.Acquire();
  }).join();
  m.AbandonIfOwnedBy(id);
  EXPECT_EQ(m.Acquire(), WaitResult::kAbandoned);
  EXPECT_TRUE(m.Release());
}

}  // namespace
}  // namespace qaaisp::platform
