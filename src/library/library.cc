#include "library/library.h"

#include <atomic>
#include <cstdio>
#include <memory>
#include <mutex>
#include <vector>

#include "base/library_settings.h"
#include "base/module_state.h"
#include "base/setting_names.h"
#include "base/settings.h"
#include "library/folder_handle.h"
#include "platform/env.h"
#include "platform/modules.h"
#include "platform/path_case.h"
#include "platform/thread_exit.h"

namespace qaaisp {
namespace {

thread_local ThreadSlots t_slots;
std::atomic<int> g_live_handles{0};
std::atomic<HandleIndexReleaser> g_handle_releaser{nullptr};
std::atomic<SearchTableReleaser> g_search_releaser{nullptr};

// Providers stay mapped until the process ends.
std::mutex g_provider_mutex;
platform::Module* g_options_provider = nullptr;
platform::Module* g_postoffice_provider = nullptr;

constexpr const char* kServiceProcesses[] = {
    "QASMTPC.EXE", "QASMSC.EXE",  "QALDAPS.EXE", "QAIMAPS.EXE", "QAMAPIS.EXE",
    "QAMTA.EXE",   "QAPOC.EXE",   "QAPOPS.EXE",  "QALCS.EXE",   "QAHTTPS.EXE",
    "QAPOPC.EXE",  "OUTLOOK.EXE", "QARADMS.EXE"};

FolderHandle* NewHandle() {
  ++g_live_handles;
  return new FolderHandle;
}

void DestroyHandle(FolderHandle* h) {
  if (!h) return;
  --g_live_handles;
  delete h;
}

void FreeSearchTable(ThreadSlots& slots) {
  if (slots.search_table) {
    if (auto releaser = g_search_releaser.load()) releaser(slots.search_table);
  }
  slots.search_table = nullptr;
}

std::string ApplicationDirectory() {
  std::string dir;
  ReadStringSetting(settings::kProductKey, settings::kApplicationDirectory, &dir, true);
  return dir;
}

platform::Module* LoadProvider(const std::string& windows_path) {
  auto module = platform::Env::Default()->LoadModule(platform::ProviderFileName(windows_path));
  return module.release();
}

void ThreadExitHook() { ThreadDetach(); }

}  // namespace

ThreadSlots& CurrentThreadSlots() { return t_slots; }

FolderHandle* ThreadHandle() {
  platform::NoteThreadUse();
  if (!t_slots.handle) t_slots.handle = NewHandle();
  return t_slots.handle;
}

void SetHandleIndexReleaser(HandleIndexReleaser releaser) { g_handle_releaser = releaser; }
void SetSearchTableReleaser(SearchTableReleaser releaser) { g_search_releaser = releaser; }

int LiveHandleCount() { return g_live_handles.load(); }

bool HostIsServiceProcess(const std::string& host_path) {
  std::string path = host_path.substr(0, 259);
  for (const char* name : kServiceProcesses) {
    std::string_view n(name);
    for (size_t i = 0; i + n.size() <= path.size(); ++i) {
      if (platform::EqualsNoCase(std::string_view(path).substr(i, n.size()), n)) return true;
    }
  }
  return false;
}

bool ProcessAttach() {
  static std::once_flag hook_once;
  std::call_once(hook_once, [] { platform::AddThreadExitHook(ThreadExitHook); });
  {
    std::lock_guard<std::mutex> lock(g_provider_mutex);
    std::string app = ApplicationDirectory();
    if (!g_options_provider) {
      // A failure to load the options provider is ignored here.
      g_options_provider = LoadProvider(app + "64\\QAAISO.DLL");
    }
    if (!g_postoffice_provider) {
      g_postoffice_provider = LoadProvider(app + "\\QAAIPO.DLL");
      if (!g_postoffice_provider) {
        std::fputs("Unable to Load Postoffice Configuration Provider\n", stdout);
        std::fflush(stdout);
      }
    }
  }
  return LibraryInit() != 0;
}

void ProcessDetach() {
  LibraryUnInit();
  // The providers' release step leaves a loaded provider loaded.
}

void* OptionsProviderSymbol(const char* name) {
  std::lock_guard<std::mutex> lock(g_provider_mutex);
  return g_options_provider ? g_options_provider->Symbol(name) : nullptr;
}

void* PostofficeProviderSymbol(const char* name) {
  std::lock_guard<std::mutex> lock(g_provider_mutex);
  return g_postoffice_provider ? g_postoffice_provider->Symbol(name) : nullptr;
}

int LibraryInit() {
  ReadLibrarySettings(&ModuleSettings());
  // Thread-local slots cannot fail to allocate here; the mutexes are made if
  // they are still null.
  CloseMutex();
  RegistryMutex();
  return 1;
}

int LibraryUnInit() {
  ThreadSlots& slots = t_slots;
  if (slots.handle && slots.handle->index) {
    if (auto releaser = g_handle_releaser.load()) releaser(slots.handle);
  }
  slots.message_cursor = nullptr;
  // The close mutex is closed; the registry mutex stays open. A later user
  // makes a fresh close mutex on first need.
  // A thread of the host may still be inside it, so the old mutex is kept
  // (reachable) rather than destroyed.
  static std::mutex retired_mutex;
  static auto* retired = new std::vector<platform::RecursiveMutex*>;
  ModuleState& m = Module();
  platform::RecursiveMutex* old =
      std::atomic_ref<platform::RecursiveMutex*>(m.close_mutex).exchange(nullptr);
  if (old) {
    std::lock_guard<std::mutex> lock(retired_mutex);
    retired->push_back(old);
  }
  return 1;
}

int ThreadRelease() {
  ThreadSlots& slots = t_slots;
  if (slots.handle && Module().affinity != 0) {
    if (auto releaser = g_handle_releaser.load()) releaser(slots.handle);
    DestroyHandle(slots.handle);
    slots.handle = nullptr;
  }
  FreeSearchTable(slots);
  return 1;
}

void ThreadDetach() {
  ThreadSlots& slots = t_slots;
  if (!slots.handle) {
    FreeSearchTable(slots);
    return;
  }
  if (Module().affinity == 1) {
    ThreadRelease();
    return;
  }
  // Shared indexes outlive the thread: drop the record only.
  DestroyHandle(slots.handle);
  slots.handle = nullptr;
  FreeSearchTable(slots);
}

}  // namespace qaaisp
