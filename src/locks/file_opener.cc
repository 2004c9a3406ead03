#include "locks/file_opener.h"

#include "platform/win32_error.h"

namespace qaaisp {
namespace {

constexpr uint32_t kFailedOpenPauseMs = 1000;

struct ParsedMode {
  bool valid = false;
  bool append = false;
  platform::OpenOptions options;
};

// "r", "w" or "a", then any of "+", "b", "t" and "x" ("wx": create only if
// absent), as fopen reads them.
ParsedMode ParseMode(const char* mode) {
  ParsedMode m;
  if (!mode || !*mode) return m;
  bool plus = false;
  bool exclusive = false;
  for (const char* p = mode + 1; *p; ++p) {
    if (*p == '+') {
      plus = true;
    } else if (*p == 'x') {
      exclusive = true;
    } else if (*p != 'b' && *p != 't') {
      return m;
    }
  }
  auto& o = m.options;
  switch (mode[0]) {
    case 'r':
      o.read = true;
      o.write = plus;
      o.disposition = platform::OpenDisposition::kOpenExisting;
      break;
    case 'w':
      o.read = plus;
      o.write = true;
      o.disposition = exclusive ? platform::OpenDisposition::kCreateNew
                                : platform::OpenDisposition::kCreateAlways;
      break;
    case 'a':
      o.read = plus;
      o.write = true;
      o.disposition = platform::OpenDisposition::kOpenAlways;
      m.append = true;
      break;
    default:
      return m;
  }
  m.valid = true;
  return m;
}

}  // namespace

FileOpener::FileOpener(const std::string& path, const char* mode, bool secure) : path_(path) {
  ParsedMode m = ParseMode(mode);
  if (!m.valid) {
    error_ = platform::kErrorInvalidParameter;
    platform::SetLastErrorCode(error_);
    return;
  }
  if (secure) {
    m.options.share =
        m.options.write ? platform::ShareMode::kShareNone : platform::ShareMode::kShareRead;
  } else {
    m.options.share = platform::ShareMode::kShareReadWrite;
  }
  append_ = m.append;
  platform::Env* env = platform::Env::Default();
  file_ = env->OpenFile(path, m.options);
  if (file_) return;
  error_ = platform::LastError();
  if (error_ != platform::kErrorFileNotFound) {
    env->SleepMs(kFailedOpenPauseMs);
    platform::SetLastErrorCode(error_);
  }
}

int64_t FileOpener::Read(void* buffer, size_t n) {
  if (!file_) return -1;
  int64_t r = file_->ReadAt(position_, buffer, n);
  if (r > 0) position_ += static_cast<uint64_t>(r);
  return r;
}

bool FileOpener::Write(const void* data, size_t n) {
  if (!file_) return false;
  if (append_) {
    int64_t size = file_->Size();
    if (size < 0) return false;
    position_ = static_cast<uint64_t>(size);
  }
  if (!file_->WriteAt(position_, data, n)) return false;
  position_ += n;
  return true;
}

}  // namespace qaaisp
