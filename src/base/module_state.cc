#include "base/module_state.h"

#include <atomic>

namespace qaaisp {
namespace {

platform::RecursiveMutex* MakeOnce(platform::RecursiveMutex** slot) {
  // A compare-exchange keeps exactly one mutex when threads race here.
  std::atomic_ref<platform::RecursiveMutex*> ref(*slot);
  platform::RecursiveMutex* current = ref.load();
  if (current) return current;
  auto* made = new platform::RecursiveMutex;
  if (ref.compare_exchange_strong(current, made)) return made;
  delete made;
  return current;
}

}  // namespace

ModuleState& Module() {
  static ModuleState* state = new ModuleState;
  return *state;
}

platform::RecursiveMutex* RegistryMutex() { return MakeOnce(&Module().registry_mutex); }
platform::RecursiveMutex* CloseMutex() { return MakeOnce(&Module().close_mutex); }

}  // namespace qaaisp
