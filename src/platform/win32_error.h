// Win32 error numbering, kept per thread, as the store's logic reads it.
#pragma once

#include <cstdint>

namespace qaaisp::platform {

enum Win32Error : uint32_t {
  kErrorSuccess = 0,
  kErrorFileNotFound = 2,
  kErrorPathNotFound = 3,
  kErrorTooManyOpenFiles = 4,
  kErrorAccessDenied = 5,
  kErrorInvalidHandle = 6,
  kErrorNotEnoughMemory = 8,
  kErrorNoMoreFiles = 18,
  kErrorWriteFault = 29,
  kErrorReadFault = 30,
  kErrorGenFailure = 31,
  kErrorSharingViolation = 32,
  kErrorLockViolation = 33,
  kErrorHandleEof = 38,
  kErrorNotSupported = 50,
  kErrorFileExists = 80,
  kErrorInvalidParameter = 87,
  kErrorBrokenPipe = 109,
  kErrorDiskFull = 112,
  kErrorInvalidName = 123,
  kErrorDirNotEmpty = 145,
  kErrorBusy = 170,
  kErrorAlreadyExists = 183,
  kErrorFilenameExcedRange = 206,
  kErrorTimeout = 1460,
  kWsaEWouldBlock = 10035,
};

uint32_t LastError();
void SetLastErrorCode(uint32_t code);

// Maps an errno value onto the Win32 number. For ENOENT the caller says
// whether the parent directory exists (2) or not (3); EEXIST gives 80, or 183
// for directories.
uint32_t Win32ErrorFromErrno(int err, bool parent_missing = false, bool directory = false);

}  // namespace qaaisp::platform
