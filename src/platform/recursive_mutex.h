// A recursive mutex with owner tracking, standing for a Windows mutex handle:
// the owning thread may take it again, and a release by any other thread
// fails (error 288, "not owner") instead of corrupting it.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

namespace qaaisp::platform {

inline constexpr uint32_t kErrorNotOwner = 288;

enum class WaitResult { kSignaled, kTimeout, kAbandoned, kFailed };

class RecursiveMutex {
 public:
  static constexpr uint32_t kInfinite = 0xFFFFFFFFu;

  // Waits up to timeout_ms (kInfinite for ever) to own the mutex.
  WaitResult Acquire(uint32_t timeout_ms = kInfinite);
  // Gives up one level of ownership; false with kErrorNotOwner for a thread
  // that does not own it.
  bool Release();
  bool OwnedByCurrentThread();
  // Marks the mutex abandoned when its owner thread ends while holding it.
  void AbandonIfOwnedBy(std::thread::id id);

 private:
  std::mutex m_;
  std::condition_variable cv_;
  std::thread::id owner_;
  uint32_t count_ = 0;
  bool abandoned_ = false;
};

}  // namespace qaaisp::platform
