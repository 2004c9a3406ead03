#include "locks/mutex.h"

#include <atomic>
#include <map>
#include <mutex>
#include <string>

#include "platform/env.h"
#include "platform/win32_error.h"

namespace qaaisp {
namespace {

// Named mutexes live in this process only: one mutex per name, with the
// number of handles open on it, gone when the last handle closes.
struct NamedMutexes {
  std::mutex guard;
  std::map<std::string, platform::RecursiveMutex*> by_name;
  std::map<platform::RecursiveMutex*, std::pair<std::string, int>> open_counts;
};

NamedMutexes& Named() {
  static NamedMutexes* named = new NamedMutexes;
  return *named;
}

std::atomic<MutexHandle> g_watched_mutex{nullptr};

}  // namespace

MutexHandle OpenOrCreateMutex(const char* system_name) {
  if (!system_name) return new platform::RecursiveMutex;
  NamedMutexes& named = Named();
  std::lock_guard<std::mutex> lock(named.guard);
  auto [it, created] = named.by_name.try_emplace(system_name, nullptr);
  if (created) {
    it->second = new platform::RecursiveMutex;
    named.open_counts[it->second] = {it->first, 0};
  }
  ++named.open_counts[it->second].second;
  return it->second;
}

bool ReleaseRawMutex(MutexHandle handle) {
  if (!handle) {
    platform::SetLastErrorCode(platform::kErrorInvalidHandle);
    return false;
  }
  return handle->Release();
}

int CloseRawMutex(MutexHandle handle) {
  if (!handle) return 1;
  NamedMutexes& named = Named();
  {
    std::lock_guard<std::mutex> lock(named.guard);
    auto it = named.open_counts.find(handle);
    if (it != named.open_counts.end()) {
      if (--it->second.second > 0) return 1;
      named.by_name.erase(it->second.first);
      named.open_counts.erase(it);
    }
  }
  delete handle;
  return 1;
}

LockStatus WaitForMutex(MutexHandle handle, uint32_t timeout_ms) {
  if (!handle) {
    platform::SetLastErrorCode(platform::kErrorInvalidHandle);
    return StatusError;
  }
  if (handle == g_watched_mutex.load(std::memory_order_relaxed)) {
    platform::Env* env = platform::Env::Default();
    env->DebugOutput("Mutex: Aquire - " + std::to_string(env->ThreadId()) + "\n");
  }
  switch (handle->Acquire(timeout_ms)) {
    case platform::WaitResult::kSignaled:
      return StatusLocked;
    case platform::WaitResult::kTimeout:
      return StatusTimedOut;
    case platform::WaitResult::kAbandoned:
      return StatusAbandoned;
    case platform::WaitResult::kFailed:
      break;
  }
  return StatusError;
}

void SetWatchedMutex(MutexHandle handle) { g_watched_mutex.store(handle); }

Mutex::Mutex(const char* /*descriptive_name*/, const char* system_name)
    : handle_(OpenOrCreateMutex(system_name)) {}

Mutex::~Mutex() {
  if (handle_) CloseRawMutex(handle_);
  handle_ = nullptr;
}

MutexLock::MutexLock(Mutex* mutex) : IMutexLock<Mutex*>(mutex) {
  if (auto_lock_ && state_ != StatusLocked) state_ = lock();
}

MutexLock::~MutexLock() {
  if (auto_lock_ && state_ == StatusLocked && unlock()) state_ = StatusReleased;
}

LockStatus MutexLock::lock() { return WaitForMutex(mutex_ ? mutex_->handle() : nullptr, timeout_); }

bool MutexLock::unlock() { return ReleaseRawMutex(mutex_ ? mutex_->handle() : nullptr); }

}  // namespace qaaisp
