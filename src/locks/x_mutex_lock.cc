#include "locks/x_mutex_lock.h"

#include <cstdio>

#include "base/exception.h"
#include "platform/win32_error.h"

namespace qaaisp {

std::string MutexHandleText(MutexHandle handle) {
  // As a 64-bit pointer prints: sixteen upper-case hexadecimal digits.
  char text[20];
  std::snprintf(text, sizeof text, "%016llX",
                static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(handle)));
  return text;
}

xMutexLock::xMutexLock(MutexHandle handle, uint32_t timeout_ms)
    : state_(StatusLocked), handle_(handle), timeout_(timeout_ms) {
  if (!handle_) return;
  state_ = WaitForMutex(handle_, timeout_);
  switch (state_) {
    case StatusTimedOut:
      throw Exception("Failed to lock mutex " + MutexHandleText(handle_) + ": request timed out",
                      kMutexLockSourceFile, __LINE__);
    case StatusAbandoned:
      // The wait handed the mutex over; as the constructor does not finish,
      // it stays owned by this thread.
      throw Exception("Mutex " + MutexHandleText(handle_) + " was abandoned by another thread",
                      kMutexLockSourceFile, __LINE__);
    case StatusLocked:
      return;
    default: {
      uint32_t error = platform::LastError();
      throw Exception("Failed to lock mutex " + MutexHandleText(handle_) + " with error " +
                          std::to_string(error),
                      kMutexLockSourceFile, __LINE__);
    }
  }
}

xMutexLock::~xMutexLock() noexcept(false) {
  if (state_ == StatusDetached || !handle_) return;
  if (ReleaseRawMutex(handle_)) {
    state_ = StatusReleased;
    return;
  }
  uint32_t error = platform::LastError();
  throw Exception(
      "Failed to unlock mutex " + MutexHandleText(handle_) + " with error " + std::to_string(error),
      kMutexLockSourceFile, __LINE__);
}

}  // namespace qaaisp
