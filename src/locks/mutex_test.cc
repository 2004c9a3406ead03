#include "locks/mutex.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>

#include "base/exception.h"
#include "locks/x_mutex_lock.h"
#include "platform/win32_error.h"
#include "test_env.h"

namespace qaaisp {
namespace {

// Whether another thread could take the mutex right now (without waiting).
bool FreeForOtherThreads(MutexHandle handle) {
  bool acquired = false;
  std::thread([&] {
    acquired = handle->Acquire(0) == platform::WaitResult::kSignaled;
    if (acquired) handle->Release();
  }).join();
  return acquired;
}

// Leaves the mutex abandoned: a thread takes it and ends holding it.
void Abandon(MutexHandle handle) {
  std::thread::id owner;
  std::thread([&] {
    handle->Acquire();
    owner = std::this_thread::get_id();
  }).join();
  handle->AbandonIfOwnedBy(owner);
}

std::string ExceptionText(const std::function<void()>& f) {
  try {
    f();
  } catch (const Exception& e) {
    EXPECT_EQ(e.source_file(), "..\\SERVICES\\Library\\xMutexLock");
    return e.message();
  }
  return "(nothing thrown)";
}

TEST(MutexTest, DescriptiveNamesMakeNoNamedMutex) {
  Mutex a("FileManagement::fileMutexesMutex");
  Mutex b("FileManagement::fileMutexesMutex");
  ASSERT_NE(a.handle(), b.handle());
  MutexLock hold(&a);
  EXPECT_EQ(hold.state(), StatusLocked);
  EXPECT_FALSE(FreeForOtherThreads(a.handle()));
  EXPECT_TRUE(FreeForOtherThreads(b.handle()));

  // A system name does make one mutex per name, until its last handle closes.
  Mutex named1("x", "Global\\qaaisp-test");
  Mutex named2("y", "Global\\qaaisp-test");
  EXPECT_EQ(named1.handle(), named2.handle());
}

TEST(MutexTest, MutexLockReleasesOnlyWhatItLocked) {
  Mutex m("test");
  {
    MutexLock lock(&m);
    EXPECT_EQ(lock.state(), StatusLocked);
    EXPECT_FALSE(FreeForOtherThreads(m.handle()));
  }
  EXPECT_TRUE(FreeForOtherThreads(m.handle()));

  // An abandoned wait hands the mutex over, but the lock does not count it
  // as locked and leaves it held.
  Abandon(m.handle());
  {
    MutexLock lock(&m);
    EXPECT_EQ(lock.state(), StatusAbandoned);
  }
  EXPECT_FALSE(FreeForOtherThreads(m.handle()));
  EXPECT_TRUE(ReleaseRawMutex(m.handle()));
}

TEST(MutexTest, WaitForMutexReportsEachOutcome) {
  EXPECT_EQ(WaitForMutex(nullptr, kInfiniteTimeout), StatusError);
  MutexHandle h = OpenOrCreateMutex(nullptr);
  EXPECT_EQ(WaitForMutex(h, 0), StatusLocked);
  EXPECT_EQ(WaitForMutex(h, 0), StatusLocked) << "recursive for the owner";
  LockStatus other = StatusError;
  std::thread([&] { other = WaitForMutex(h, 0); }).join();
  EXPECT_EQ(other, StatusTimedOut);
  EXPECT_TRUE(ReleaseRawMutex(h));
  EXPECT_TRUE(ReleaseRawMutex(h));
  EXPECT_FALSE(ReleaseRawMutex(h));
  EXPECT_EQ(platform::LastError(), 288u);
  EXPECT_EQ(CloseRawMutex(h), 1);
  EXPECT_EQ(CloseRawMutex(nullptr), 1);
}

TEST(MutexTest, WatchedMutexWritesToTheDebugger) {
  testing::FakeClockEnv env;
  testing::ScopedDefaultEnv scoped(&env);
  Mutex watched("watched"), other("other");
  SetWatchedMutex(watched.handle());
  { MutexLock lock(&other); }
  EXPECT_EQ(env.debug_output(), "");
  { MutexLock lock(&watched); }
  SetWatchedMutex(nullptr);
  EXPECT_EQ(env.debug_output(), "Mutex: Aquire - " + std::to_string(env.ThreadId()) + "\n");
}

TEST(XMutexLockTest, NullHandleLocksNothing) {
  xMutexLock lock(nullptr);
  EXPECT_EQ(lock.state(), StatusLocked);
}

TEST(XMutexLockTest, FailuresToLockThrowTheirTexts) {
  Mutex m("test");
  std::string p = MutexHandleText(m.handle());
  ASSERT_EQ(p.size(), 16u);

  Abandon(m.handle());
  EXPECT_EQ(ExceptionText([&] { xMutexLock lock(m.handle()); }),
            "Mutex " + p + " was abandoned by another thread");
  // The constructor did not finish, so nothing released the mutex.
  EXPECT_FALSE(FreeForOtherThreads(m.handle()));

  std::string timed_out;
  std::thread([&] { timed_out = ExceptionText([&] { xMutexLock lock(m.handle(), 0); }); }).join();
  EXPECT_EQ(timed_out, "Failed to lock mutex " + p + ": request timed out");
  EXPECT_TRUE(ReleaseRawMutex(m.handle()));
}

TEST(XMutexLockTest, ReleaseByAnotherThreadThrowsFromTheDestructor) {
  Mutex m("test");
  auto* lock = new xMutexLock(m.handle());
  std::string text;
  std::thread([&] { text = ExceptionText([&] { delete lock; }); }).join();
  EXPECT_EQ(text, "Failed to unlock mutex " + MutexHandleText(m.handle()) + " with error 288");
  EXPECT_FALSE(FreeForOtherThreads(m.handle())) << "the owner still holds it";
  EXPECT_TRUE(ReleaseRawMutex(m.handle()));
}

TEST(XMutexLockTest, DetachedLockLeavesTheMutexHeld) {
  Mutex m("test");
  {
    xMutexLock lock(m.handle());
    lock.Detach();
  }
  EXPECT_FALSE(FreeForOtherThreads(m.handle()));
  EXPECT_TRUE(ReleaseRawMutex(m.handle()));
  EXPECT_TRUE(FreeForOtherThreads(m.handle()));
}

}  // namespace
}  // namespace qaaisp
