#include "locks/block_file.h"

#include <atomic>
#include <cstdio>
#include <memory>
#include <mutex>
#include <unordered_set>

#include "base/setting_names.h"
#include "base/settings.h"
#include "platform/env.h"
#include "platform/path_case.h"
#include "platform/win32_error.h"

namespace qaaisp {
namespace {

using platform::Env;

constexpr uint32_t kPollIntervalMs = 1000;
// A wait polls 61 times (60 further create attempts) before forcing.
constexpr int kWaitPolls = 60;
// An unblock makes 81 delete attempts in all.
constexpr int kUnblockPolls = 80;
// Level from which the detail branches run.
constexpr int kDetailLevel = 8;
// Access-denied attempts after which a detailed wait reports.
constexpr int kAccessDeniedReportAfter = 10;

LazySetting& UnblockModeSetting() {
  static LazySetting* setting =
      new LazySetting(settings::kProvidersKey, settings::kIndexUnblockMode, 0);
  return *setting;
}

// A kept block file. Handles given out are remembered, so that closing one
// twice, or closing something that never was one, fails as closing a stale
// handle does instead of touching freed memory.
struct BlockFile {
  std::unique_ptr<platform::File> file;
};

std::mutex g_handles_mutex;
std::unordered_set<void*>& LiveHandles() {
  static auto* handles = new std::unordered_set<void*>;
  return *handles;
}

BlockHandle Keep(std::unique_ptr<platform::File> file) {
  auto* block = new BlockFile{std::move(file)};
  std::lock_guard<std::mutex> lock(g_handles_mutex);
  LiveHandles().insert(block);
  return block;
}

bool CloseBlockHandle(BlockHandle handle) {
  {
    std::lock_guard<std::mutex> lock(g_handles_mutex);
    if (LiveHandles().erase(handle) == 0) {
      platform::SetLastErrorCode(platform::kErrorInvalidHandle);
      return false;
    }
  }
  delete static_cast<BlockFile*>(handle);
  return true;
}

bool ContainsNoCase(std::string_view text, std::string_view part) {
  for (size_t i = 0; i + part.size() <= text.size(); ++i) {
    if (platform::EqualsNoCase(text.substr(i, part.size()), part)) return true;
  }
  return false;
}

std::atomic<BrokenBlockRoutine> g_broken_block_routine{nullptr};
thread_local bool t_last_wait_broke_block = false;

void NoteBrokenBlock(const std::string& path) {
  t_last_wait_broke_block = true;
  if (BrokenBlockRoutine routine = g_broken_block_routine.load()) routine(path);
}

// Create-new, write access, no sharing.
std::unique_ptr<platform::File> CreateBlockFile(Env* env, const std::string& path) {
  // A block path with no folder before its name was formed from an empty
  // folder path; it can never be a store folder's lock.
  size_t slash = path.find_last_of('/');
  if (slash == std::string::npos || slash == 0) {
    platform::SetLastErrorCode(platform::kErrorPathNotFound);
    return nullptr;
  }
  platform::OpenOptions options;
  options.read = false;
  options.write = true;
  options.disposition = platform::OpenDisposition::kCreateNew;
  options.share = platform::ShareMode::kShareNone;
  return env->OpenFile(path, options);
}

void PrintLine(const char* text) {
  std::fputs(text, stdout);
  std::fflush(stdout);
}

}  // namespace

void SetBrokenBlockRoutine(BrokenBlockRoutine routine) { g_broken_block_routine.store(routine); }

bool LastWaitBrokeBlock() { return t_last_wait_broke_block; }

uint32_t IndexUnblockMode() { return UnblockModeSetting().Get(); }

void ResetIndexUnblockModeForTesting() { UnblockModeSetting().Reset(); }

int WaitForAccessToIndexFileEx(const std::string& raw_path, int keep_handle, BlockHandle* handle,
                               int diagnostic_level) {
  Env* env = Env::Default();
  const std::string path = platform::ToNativeSeparators(raw_path);
  const bool detail = diagnostic_level >= kDetailLevel;
  t_last_wait_broke_block = false;

  std::unique_ptr<platform::File> file = CreateBlockFile(env, path);
  if (file) {
    // The fast path writes nothing into the file, at any level.
    *handle = keep_handle ? Keep(std::move(file)) : nullptr;
    return 1;
  }

  int attempts = 0;
  for (;;) {
    uint32_t error = platform::LastError();
    if (!detail || error != platform::kErrorAccessDenied) {
      if (error == platform::kErrorPathNotFound || error == platform::kErrorFilenameExcedRange ||
          error == platform::kErrorInvalidName) {
        return 0;
      }
    }
    if (detail && error == platform::kErrorAccessDenied && attempts > kAccessDeniedReportAfter) {
      char text[1400];
      std::snprintf(text, sizeof text,
                    "[%ld] Access Denied occurred in WaitForAccessToIndexFileEx for block file: "
                    "%s. Number of attempts: %ld\r\n",
                    static_cast<long>(env->ThreadId()), path.c_str(), static_cast<long>(attempts));
      ReportEvent(env, platform::kEventInformation, "", text);
    }
    env->SleepMs(kPollIntervalMs);
    ++attempts;
    const uint32_t mode = IndexUnblockMode();

    bool deleted_orphan = false;
    if (mode != 0 && error == platform::kErrorFileExists && ContainsNoCase(path, "/_index.blk") &&
        keep_handle == 1) {
      if (env->RemoveFile(path)) {
        PrintLine("deleted orphan\n");
        deleted_orphan = true;
        NoteBrokenBlock(path);
      }
    }
    if (!deleted_orphan && attempts > kWaitPolls) break;
    file = CreateBlockFile(env, path);
    if (file) break;
  }

  if (!file) {
    // Nobody let go within the minute: break the lock, whoever holds it.
    if (!RemoveBlockFile(path)) return 0;
    NoteBrokenBlock(path);
    file = CreateBlockFile(env, path);
    if (!file) return 0;
  }

  if (keep_handle) {
    if (detail) {
      char line[96];
      int n =
          std::snprintf(line, sizeof line, "File Locked by Process: %ld, thread: %ld\n",
                        static_cast<long>(env->ProcessId()), static_cast<long>(env->ThreadId()));
      file->WriteAt(0, line, static_cast<size_t>(n));
    }
    *handle = Keep(std::move(file));
  } else {
    *handle = nullptr;
  }
  return 1;
}

int UnBlockIndexFileAccessEx(const std::string& raw_path, int close_handle, BlockHandle* handle) {
  Env* env = Env::Default();
  const std::string path = platform::ToNativeSeparators(raw_path);
  BlockHandle none = nullptr;
  if (!handle) handle = &none;

  if (close_handle == 1) {
    // Both notes are composed and go no further: a failed close must not
    // change the outcome, which rests on the delete alone.
    char note[1200];
    if (*handle) {
      if (!CloseBlockHandle(*handle)) {
        std::snprintf(note, sizeof note,
                      "An error occurred closing the handle of a block file (%s): %ld\n",
                      path.c_str(), static_cast<long>(platform::LastError()));
      }
    } else {
      std::snprintf(note, sizeof note, "Attempt to close empty handle for block file (%s)\n",
                    path.c_str());
    }
    *handle = nullptr;
  }

  if (env->RemoveFile(path)) return 1;
  for (int count = 0;;) {
    uint32_t error = platform::LastError();
    if (error == platform::kErrorFileNotFound || error == platform::kErrorPathNotFound) return 0;
    env->SleepMs(kPollIntervalMs);
    if (++count > kUnblockPolls) return 0;
    if (env->RemoveFile(path)) return 1;
  }
}

int WaitForIndexFileReleased(const std::string& path) {
  BlockHandle handle = nullptr;
  return WaitForAccessToIndexFileEx(path, 0, &handle);
}

int RemoveBlockFile(const std::string& path) {
  BlockHandle handle = nullptr;
  return UnBlockIndexFileAccessEx(path, 0, &handle);
}

}  // namespace qaaisp
