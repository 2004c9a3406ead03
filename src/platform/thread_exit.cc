#include "platform/thread_exit.h"

#include <mutex>
#include <vector>

namespace qaaisp::platform {
namespace {

std::mutex& HooksMutex() {
  static std::mutex* m = new std::mutex;
  return *m;
}

std::vector<ThreadExitHook>& Hooks() {
  static auto* hooks = new std::vector<ThreadExitHook>;
  return *hooks;
}

struct ThreadGuard {
  bool armed = false;
  ~ThreadGuard() {
    if (!armed) return;
    std::vector<ThreadExitHook> copy;
    {
      std::lock_guard<std::mutex> lock(HooksMutex());
      copy = Hooks();
    }
    for (ThreadExitHook hook : copy) hook();
  }
};

thread_local ThreadGuard t_guard;

}  // namespace

void AddThreadExitHook(ThreadExitHook hook) {
  std::lock_guard<std::mutex> lock(HooksMutex());
  Hooks().push_back(hook);
}

void NoteThreadUse() { t_guard.armed = true; }

}  // namespace qaaisp::platform
