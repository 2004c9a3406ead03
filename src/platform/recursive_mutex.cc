#include "platform/recursive_mutex.h"

#include <chrono>

#include "platform/win32_error.h"

namespace qaaisp::platform {

WaitResult RecursiveMutex::Acquire(uint32_t timeout_ms) {
  std::unique_lock<std::mutex> lock(m_);
  auto self = std::this_thread::get_id();
  if (count_ > 0 && owner_ == self) {
    ++count_;
    return WaitResult::kSignaled;
  }
  auto free = [this] { return count_ == 0; };
  if (timeout_ms == kInfinite) {
    cv_.wait(lock, free);
  } else if (!cv_.wait_for(lock, std::chrono::milliseconds(timeout_ms), free)) {
    return WaitResult::kTimeout;
  }
  owner_ = self;
  count_ = 1;
  if (abandoned_) {
    abandoned_ = false;
    return WaitResult::kAbandoned;
  }
  return WaitResult::kSignaled;
}

bool RecursiveMutex::Release() {
  std::lock_guard<std::mutex> lock(m_);
  if (count_ == 0 || owner_ != std::this_thread::get_id()) {
    SetLastErrorCode(kErrorNotOwner);
    return false;
  }
  if (--count_ == 0) {
    owner_ = std::thread::id();
    cv_.notify_one();
  }
  return true;
}

bool RecursiveMutex::OwnedByCurrentThread() {
  std::lock_guard<std::mutex> lock(m_);
  return count_ > 0 && owner_ == std::this_thread::get_id();
}

void RecursiveMutex::AbandonIfOwnedBy(std::thread::id id) {
  std::lock_guard<std::mutex> lock(m_);
  if (count_ > 0 && owner_ == id) {
    count_ = 0;
    owner_ = std::thread::id();
    abandoned_ = true;
    cv_.notify_one();
  }
}

}  // namespace qaaisp::platform
