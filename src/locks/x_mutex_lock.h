// The scoped lock used throughout the store. It works on a raw handle, waits
// at construction and throws Exception when it cannot lock, and its
// destructor throws when the release fails (a thread releasing a mutex that
// it does not own), so such a misuse cannot go unnoticed.
#pragma once

#include <cstdint>
#include <string>

#include "locks/mutex.h"

namespace qaaisp {

// Source name of the exceptions raised here.
inline constexpr const char* kMutexLockSourceFile = "..\\SERVICES\\Library\\xMutexLock";

// A handle as the lock messages print it.
std::string MutexHandleText(MutexHandle handle);

class xMutexLock {
 public:
  // A null handle is legal: nothing is locked and the state is StatusLocked.
  explicit xMutexLock(MutexHandle handle, uint32_t timeout_ms = kInfiniteTimeout);
  virtual ~xMutexLock() noexcept(false);
  xMutexLock(const xMutexLock&) = delete;
  xMutexLock& operator=(const xMutexLock&) = delete;

  LockStatus state() const { return state_; }
  MutexHandle handle() const { return handle_; }
  // Leaves the mutex held when this lock ends.
  void Detach() { state_ = StatusDetached; }

 private:
  LockStatus state_;
  MutexHandle handle_;
  uint32_t timeout_;
};

}  // namespace qaaisp
