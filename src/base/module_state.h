// Process-wide shared-index state: `openIndexes`, the map from key text to
// shared StoreIndex, and the two module mutexes beside it. The registry
// mutex guards the map and each index's reference count; the close mutex is
// taken inside it when a handle gives up its index. Where both are held, the
// registry mutex comes first.
#pragma once

#include <atomic>
#include <map>
#include <string>

#include "platform/recursive_mutex.h"

struct StoreIndex;

namespace qaaisp {

struct ModuleState {
  std::map<std::string, StoreIndex*> openIndexes;
  // Made on first need; may be null until then, as each user tests.
  platform::RecursiveMutex* registry_mutex = nullptr;
  platform::RecursiveMutex* close_mutex = nullptr;
  // 1: a handle and its index belong to one thread; 0: threads share.
  std::atomic<int> affinity{1};
};

ModuleState& Module();

// The two mutexes, made if still null (no lock around the test, as every
// caller that races makes an equivalent mutex and one is kept).
platform::RecursiveMutex* RegistryMutex();
platform::RecursiveMutex* CloseMutex();

}  // namespace qaaisp
