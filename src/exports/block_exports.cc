// Index block file exports: take and drop the lock between processes on a
// folder's index (or any path a caller names).
#include "exports/caller_names.h"
#include "locks/block_file.h"
#include "qaaisp/qaaisp.h"

extern "C" {

int WaitForAccessToIndexFileEx(const char* path, int keepHandle, QA_HANDLE* handle) {
  // A kept handle needs somewhere to go; without one the lock could never
  // be closed.
  if (!qaaisp::IsContainedPath(path) || (!handle && keepHandle)) return 0;
  QA_HANDLE unused = nullptr;
  try {
    return qaaisp::WaitForAccessToIndexFileEx(path, keepHandle, handle ? handle : &unused);
  } catch (...) {
    return 0;
  }
}

int UnBlockIndexFileAccessEx(const char* path, int closeHandle, QA_HANDLE* handle) {
  if (!qaaisp::IsContainedPath(path)) return 0;
  try {
    return qaaisp::UnBlockIndexFileAccessEx(path, closeHandle, handle);
  } catch (...) {
    return 0;
  }
}

}  // extern "C"
