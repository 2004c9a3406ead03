#include "locks/file_management.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "base/exception.h"
#include "base/report.h"
#include "platform/env.h"
#include "platform/path_case.h"
#include "platform/win32_error.h"

namespace qaaisp {
namespace {

using platform::Env;
using platform::LastError;

constexpr uint32_t kRetryIntervalMs = 1000;

[[noreturn]] void Throw(const std::string& message, int line) {
  throw Exception(message, kFileManagementSource, line);
}

// Suite log lines go to the debugger output, where the services' own lines go.
void LogLine(Env* env, const char* format, const std::string& a, uint32_t error) {
  char buffer[2400];
  std::snprintf(buffer, sizeof buffer, format, a.c_str(), static_cast<long>(error));
  env->DebugOutput(buffer);
}

void LogLine(Env* env, const char* format, const std::string& a, const std::string& b,
             uint32_t error) {
  char buffer[3400];
  std::snprintf(buffer, sizeof buffer, format, a.c_str(), b.c_str(), static_cast<long>(error));
  env->DebugOutput(buffer);
}

bool IsGone(uint32_t error) {
  return error == platform::kErrorFileNotFound || error == platform::kErrorPathNotFound;
}

// What can never name a file: control bytes and the characters the store's
// file systems reserve.
bool IsValidPath(std::string_view path) {
  for (char c : path) {
    unsigned char u = static_cast<unsigned char>(c);
    if (u < 32 || std::strchr("<>\"|?*", c) != nullptr) return false;
  }
  return true;
}

std::string StripTrailingSeparators(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

std::string Join(const std::string& dir, const std::string& name) {
  if (!dir.empty() && dir.back() == '/') return dir + name;
  return dir + "/" + name;
}

void EnsureResolvedDirectory(Env* env, const std::string& dir) {
  platform::FileInfo info;
  if (env->Stat(dir, &info)) return;
  std::string parent = ParentDirectory(dir);
  if (!parent.empty() && parent != dir) EnsureResolvedDirectory(env, parent);
  if (env->MakeDirectory(dir)) return;
  // Another process may have made it between the test and the create.
  if (LastError() == platform::kErrorAlreadyExists && platform::DirectoryExists(env, dir)) return;
  Throw("Failed to create directory (" + dir + ")", __LINE__);
}

std::string ErrorSuffix(uint32_t error) {
  return " (GetLastError() returned " + std::to_string(error) + ")";
}

}  // namespace

std::string ParentDirectory(std::string_view path) {
  std::string p = StripTrailingSeparators(std::string(path));
  size_t slash = p.find_last_of('/');
  if (slash == std::string::npos) return "";
  if (slash == 0) return "/";
  return StripTrailingSeparators(p.substr(0, slash));
}

bool DeleteWithRetry(const std::string& path, bool retry, int max_attempts) {
  Env* env = Env::Default();
  if (env->RemoveFile(path)) return true;
  uint32_t error = LastError();
  for (int attempts = 0;;) {
    if (IsGone(error)) return true;
    if (attempts > max_attempts) {
      LogLine(env,
              "QA-WXXXX: DeleteWithRetry Error:  Abandoning attempts to delete file %s. "
              "Error: %ld\n",
              path, error);
      return false;
    }
    if (attempts % 5 == 0) {
      LogLine(env,
              "QA-WXXXX: DeleteWithRetry Warning: An error occurred when attempting to delete "
              "file %s. Error: %ld\n",
              path, error);
    }
    if (!retry) return false;
    // The delete comes before the pause: a holder that let go meanwhile
    // costs one second, not two.
    bool deleted = env->RemoveFile(path);
    error = LastError();
    env->SleepMs(kRetryIntervalMs);
    ++attempts;
    if (deleted) return true;
  }
}

bool MoveWithRetry(const std::string& source, const std::string& target, bool retry,
                   int max_attempts) {
  Env* env = Env::Default();
  if (env->RenamePath(source, target, /*replace=*/false)) return true;
  uint32_t error = LastError();
  for (int attempts = 0;;) {
    if (IsGone(error)) return false;
    if (attempts > max_attempts) {
      LogLine(env,
              "QA-WXXXX: Warning: A Timeout occurred when attempting to move %s Activity File "
              "to %s. Error: %ld\n",
              source, target, error);
      return false;
    }
    if (attempts % 5 == 0) {
      LogLine(env,
              "QA-WXXXX: Warning: Unable to move %s Activity File to %s at this time (but will "
              "keep retrying). Error: %ld\n",
              source, target, error);
    }
    if (!retry) return false;
    env->SleepMs(kRetryIntervalMs);
    ++attempts;
    if (env->RenamePath(source, target, /*replace=*/false)) return true;
    error = LastError();
  }
}

void EnsureDirectory(const std::string& path) {
  if (path.empty()) Throw("Empty path", __LINE__);
  if (!IsValidPath(path)) Throw("Invalid path: " + path, __LINE__);
  Env* env = Env::Default();
  std::string native = platform::ToNativeSeparators(path);
  EnsureResolvedDirectory(env,
                          StripTrailingSeparators(platform::ResolveCaseInsensitive(env, native)));
}

int DeleteTree(const std::string& path, bool recursive, bool delete_root) {
  Env* env = Env::Default();
  platform::FileInfo info;
  if (!env->Stat(path, &info)) return kDeleteTreeNothing;
  if (!info.is_directory) {
    if (!delete_root) return kDeleteTreeDone;
    if (env->RemoveFile(path)) return kDeleteTreeDone;
    uint32_t error = LastError();
    ReportEvent(env, platform::kEventInformation, "",
                "Call to DeleteFile failed for " + path + ErrorSuffix(error));
    return kDeleteTreeNothing;
  }
  int result = kDeleteTreeDone;
  std::vector<platform::DirEntry> entries;
  if (env->ListDirectory(path, /*with_info=*/false, &entries)) {
    for (const auto& entry : entries) {
      if (entry.is_directory && !recursive) continue;
      int r = DeleteTree(Join(path, entry.name), recursive, true);
      if (result == kDeleteTreeDone && r != kDeleteTreeDone) result = kDeleteTreePartial;
    }
  }
  if (delete_root && !env->RemoveDirectory(path)) {
    uint32_t error = LastError();
    if (result == kDeleteTreeDone) {
      ReportEvent(env, platform::kEventInformation, "",
                  "Call to RemoveDirectory failed for " + path + ErrorSuffix(error));
    }
    return kDeleteTreePartial;
  }
  return result;
}

void MoveTree(const std::string& source, const std::string& target, bool replace) {
  Env* env = Env::Default();
  if (!FileExists(source)) Throw("File not found: " + source, __LINE__);
  std::string parent = ParentDirectory(target);
  if (!parent.empty()) EnsureDirectory(parent);
  if (env->RenamePath(source, target, /*replace=*/false)) return;
  uint32_t error = LastError();
  if (error == platform::kErrorAlreadyExists && replace) {
    DeleteTree(target, /*recursive=*/true, /*delete_root=*/true);
    if (env->RenamePath(source, target, /*replace=*/false)) return;
    error = LastError();
  }
  Throw("Call to MoveFile failed" + ErrorSuffix(error), __LINE__);
}

namespace {

void CopyEntry(Env* env, const std::string& source, const std::string& target, bool replace) {
  platform::FileInfo info;
  if (env->Stat(source, &info) && info.is_directory) {
    if (!platform::DirectoryExists(env, target) && !env->MakeDirectory(target) &&
        !platform::DirectoryExists(env, target)) {
      Throw("Failed to create directory (" + target + ")", __LINE__);
    }
    std::vector<platform::DirEntry> entries;
    if (!env->ListDirectory(source, /*with_info=*/false, &entries)) {
      Throw("Call to CopyFile failed" + ErrorSuffix(LastError()), __LINE__);
    }
    for (const auto& entry : entries) {
      CopyEntry(env, Join(source, entry.name), Join(target, entry.name), replace);
    }
    return;
  }
  if (!env->CopyFileTo(source, target, /*fail_if_exists=*/!replace)) {
    Throw("Call to CopyFile failed" + ErrorSuffix(LastError()), __LINE__);
  }
}

}  // namespace

void CopyTree(const std::string& source, const std::string& target, bool replace) {
  if (!FileExists(source)) Throw("File not found: " + source, __LINE__);
  std::string parent = ParentDirectory(target);
  if (!parent.empty()) EnsureDirectory(parent);
  CopyEntry(Env::Default(), source, target, replace);
}

bool WriteWholeFile(const std::string& path, std::string_view bytes, bool quiet) {
  Env* env = Env::Default();
  std::string parent = ParentDirectory(path);
  if (!parent.empty()) {
    if (quiet) {
      try {
        EnsureDirectory(parent);
      } catch (const Exception&) {
        return false;
      }
    } else {
      EnsureDirectory(parent);
    }
  }
  platform::OpenOptions options;
  options.read = false;
  options.write = true;
  options.disposition = platform::OpenDisposition::kCreateAlways;
  auto file = env->OpenFile(path, options);
  if (!file) {
    if (quiet) return false;
    Throw("Failed to open file " + path + " for output", __LINE__);
  }
  if (!file->WriteAt(0, bytes.data(), bytes.size())) {
    if (quiet) return false;
    Throw("Failed to write file " + path + ErrorSuffix(LastError()), __LINE__);
  }
  return true;
}

bool ReadWholeFile(const std::string& path, void* out, size_t size) {
  auto file = Env::Default()->OpenFile(path, platform::OpenOptions{});
  if (!file) return false;
  return file->ReadAt(0, out, size) == static_cast<int64_t>(size);
}

bool ReadWholeFile(const std::string& path, std::string* out) {
  return platform::ReadWholeFile(Env::Default(), path, out);
}

int64_t ReadFileIntoBuffer(const std::string& path, char** out) {
  *out = nullptr;
  auto file = Env::Default()->OpenFile(path, platform::OpenOptions{});
  if (!file) return -1;
  int64_t size = file->Size();
  if (size < 0) return -1;
  char* buffer = static_cast<char*>(std::malloc(static_cast<size_t>(size) + 1));
  if (!buffer) {
    platform::SetLastErrorCode(platform::kErrorNotEnoughMemory);
    return -1;
  }
  int64_t n = size ? file->ReadAt(0, buffer, static_cast<size_t>(size)) : 0;
  if (n < 0) {
    std::free(buffer);
    return -1;
  }
  buffer[n] = 0;
  *out = buffer;
  return n;
}

bool FileExists(const std::string& path) {
  platform::FileInfo info;
  return Env::Default()->Stat(path, &info);
}

bool DirectoryExists(const std::string& path) {
  return platform::DirectoryExists(Env::Default(), path);
}

}  // namespace qaaisp
