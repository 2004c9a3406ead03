// Library start and stop, thread start and end, and the per-thread slots.
#pragma once

#include <cstdint>
#include <string>

struct FolderHandle;

namespace qaaisp {

// The three thread slots.
struct ThreadSlots {
  FolderHandle* handle = nullptr;  // first: this thread's FolderHandle
  void* search_table = nullptr;    // second: the folder search table
  void* message_cursor = nullptr;  // third: the message cursor
};

ThreadSlots& CurrentThreadSlots();

// This thread's handle, made (class -1, empty key, no index) if the slot is
// empty: every per-thread export fetches its handle through this.
FolderHandle* ThreadHandle();

// Upper layers register how a handle gives up its index (with the forced
// clearing of its names) and how a search table is freed.
using HandleIndexReleaser = void (*)(FolderHandle* handle);
using SearchTableReleaser = void (*)(void* table);
using CursorReleaser = void (*)(void* cursor);
void SetHandleIndexReleaser(HandleIndexReleaser releaser);
void SetSearchTableReleaser(SearchTableReleaser releaser);

// Process attach: load the option and postoffice providers, then Init.
bool ProcessAttach();
void ProcessDetach();

int LibraryInit();
int LibraryUnInit();
int ThreadRelease();
// Thread detach: the end-of-thread steps.
void ThreadDetach();

// True if the host program's path contains one of the suite's service
// process names, compared without regard to case.
bool HostIsServiceProcess(const std::string& host_path);

// Counters for tests: handles alive, search tables freed.
int LiveHandleCount();

// Provider entry points, or null when the provider is missing.
void* OptionsProviderSymbol(const char* name);
void* PostofficeProviderSymbol(const char* name);

}  // namespace qaaisp
