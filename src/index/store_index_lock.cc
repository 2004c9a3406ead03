#include "index/store_index_lock.h"

#include "platform/env.h"

namespace qaaisp {

StoreIndexMutexLock::StoreIndexMutexLock(StoreIndex* index)
    : index_(index), lock_(index->hMutex, kInfiniteTimeout) {
  // Recorded only once the mutex is held.
  index_->lock_owner = platform::Env::Default()->ThreadId();
}

StoreIndexMutexLock::~StoreIndexMutexLock() noexcept(false) {
  // Cleared before the release, while this thread still holds the mutex.
  index_->lock_owner = 0;
}

}  // namespace qaaisp
