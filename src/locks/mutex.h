// In-process locking: raw mutex handles, the anonymous Mutex object and its
// scoped lock MutexLock. Locks between processes are block files, never
// mutexes, so every mutex made here stays inside the process.
#pragma once

#include <cstdint>

#include "platform/recursive_mutex.h"

namespace qaaisp {

// A mutex handle: the platform's recursive mutex with owner tracking.
using MutexHandle = platform::RecursiveMutex*;

inline constexpr uint32_t kInfiniteTimeout = 0xFFFFFFFFu;

enum LockStatus : int32_t {
  StatusError = 0,          // the wait failed, or the handle was null
  StatusLocked = 1,         // the wait gave the mutex
  StatusTimedOut = 2,       // the wait timed out
  StatusAbandoned = 3,      // the owner ended while holding it; now ours
  StatusNotAttempted = -1,  // a MutexLock that has not yet waited
  StatusReleased = -2,      // held, then released
  StatusDetached = -3,      // an xMutexLock whose destructor must not release
};

// Opens the mutex of that name or, failing that, creates it unowned. With a
// null name (every use in the library) the result is a fresh anonymous mutex.
// Named mutexes are shared within this process only.
MutexHandle OpenOrCreateMutex(const char* system_name);
// Gives up one level of ownership; false (last error 288) for a non-owner.
bool ReleaseRawMutex(MutexHandle handle);
// Closes a handle; 1 for a null handle.
int CloseRawMutex(MutexHandle handle);

// Waits up to timeout_ms for the mutex. A null handle is StatusError with no
// wait; a failed wait is StatusError with the reason in the last error.
LockStatus WaitForMutex(MutexHandle handle, uint32_t timeout_ms);

// Debugging aid: a wait on this handle first writes "Mutex: Aquire - <thread>"
// to the debugger output. Null (the default) watches nothing.
void SetWatchedMutex(MutexHandle handle);

// An anonymous mutex. The descriptive name documents the use and reaches no
// kernel object; only a system name would make the mutex a named one.
class Mutex {
 public:
  explicit Mutex(const char* descriptive_name, const char* system_name = nullptr);
  virtual ~Mutex();
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  MutexHandle handle() const { return handle_; }

 private:
  MutexHandle handle_;
};

// The abstract scoped lock over a mutex type M.
template <typename M>
class IMutexLock {
 public:
  virtual LockStatus lock() = 0;
  virtual bool unlock() = 0;

  LockStatus state() const { return state_; }

 protected:
  explicit IMutexLock(M mutex) : mutex_(mutex) {}
  ~IMutexLock() = default;

  M mutex_;
  uint32_t timeout_ = kInfiniteTimeout;
  LockStatus state_ = StatusNotAttempted;
  bool auto_lock_ = true;
};

// Locks at construction and releases at destruction if it got the mutex. It
// never throws: a caller that cares reads state().
class MutexLock final : public IMutexLock<Mutex*> {
 public:
  explicit MutexLock(Mutex* mutex);
  virtual ~MutexLock();
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  LockStatus lock() override;
  bool unlock() override;
};

}  // namespace qaaisp
