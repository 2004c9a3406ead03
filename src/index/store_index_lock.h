// StoreIndexMutexLock: holds a StoreIndex's mutex and records the holding
// thread in the index for diagnosis. The record is not a count: a nested
// lock on the same thread clears it on leaving while the outer one still
// holds the mutex.
#pragma once

#include "index/store_index.h"
#include "locks/x_mutex_lock.h"

namespace qaaisp {

class StoreIndexMutexLock {
 public:
  // Waits without limit; throws as xMutexLock does.
  explicit StoreIndexMutexLock(StoreIndex* index);
  virtual ~StoreIndexMutexLock() noexcept(false);
  StoreIndexMutexLock(const StoreIndexMutexLock&) = delete;
  StoreIndexMutexLock& operator=(const StoreIndexMutexLock&) = delete;

  LockStatus state() const { return lock_.state(); }

 private:
  StoreIndex* index_;
  xMutexLock lock_;
};

}  // namespace qaaisp
