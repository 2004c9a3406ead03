// Library lifecycle exports: start, stop, threads, affinity, memory.
#include <cstdlib>

#include "base/module_state.h"
#include "library/library.h"
#include "qaaisp/qaaisp.h"

namespace {

// Process attach and detach are the shared object's constructor and
// destructor; a failed start leaves the library unusable, as a failed load.
__attribute__((constructor)) void QaaispProcessAttach() { qaaisp::ProcessAttach(); }
__attribute__((destructor)) void QaaispProcessDetach() { qaaisp::ProcessDetach(); }

}  // namespace

extern "C" {

int StoreLibrary_Init(void) { return qaaisp::LibraryInit(); }

int StoreLibrary_UnInit(void) { return qaaisp::LibraryUnInit(); }

int StoreLibrary_ThreadInit(void) { return 1; }

int StoreLibrary_ThreadRelease(void) { return qaaisp::ThreadRelease(); }

int StoreLibrary_SetAffinity(int mode) {
  qaaisp::Module().affinity = mode == 1 ? 1 : 0;
  return 1;
}

intptr_t SetLoggingFunction(void* /*a*/, void* /*b*/, void* /*c*/, void* /*d*/) {
  // The logging module's handle is never filled, so there is nothing to
  // forward to; the export exists so that callers link.
  return 0;
}

void* Memory_Allocate(uint64_t size) { return std::malloc(static_cast<size_t>(size)); }

int Memory_Free(void* p) {
  std::free(p);
  return 1;
}

}  // extern "C"
