#include "persist/index_recovery.h"

#include <chrono>

#include "base/store_files.h"
#include "locks/file_management.h"
#include "persist/index_text.h"
#include "platform/env.h"
#include "platform/win32_error.h"

namespace qaaisp::persist {
namespace {

constexpr int kRestoreDeleteAttempts = 15;
constexpr int kQuarantineAttempts = 10;
constexpr uint32_t kQuarantineRetryMs = 1000;

platform::Env* Env() { return platform::Env::Default(); }

void SetAllTimesToNow(const std::string& path) {
  platform::OpenOptions options;
  options.read = false;
  options.write = true;
  options.disposition = platform::OpenDisposition::kOpenExisting;
  options.share = platform::ShareMode::kShareAny;
  std::unique_ptr<platform::File> file = Env()->OpenFile(path, options);
  if (!file) return;
  platform::FileTime now = Env()->NowFileTime();
  file->SetTimes(&now, &now, &now);
}

}  // namespace

void BackupIndexFile(const std::string& folder) {
  std::string backup = JoinPath(folder, files::kIndexBak);
  if (!Env()->CopyFileTo(JoinPath(folder, files::kIndexXml), backup, false)) return;
  SetAllTimesToNow(backup);
}

bool RestoreIndexBackup(const std::string& folder) {
  std::string index = JoinPath(folder, files::kIndexXml);
  std::string backup = JoinPath(folder, files::kIndexBak);
  std::string bad = JoinPath(folder, files::kIndexBad);
  if (!platform::FileExists(Env(), backup)) return false;
  DeleteWithRetry(bad, true, kRestoreDeleteAttempts);
  Env()->CopyFileTo(index, bad, false);
  DeleteWithRetry(index, true, kRestoreDeleteAttempts);
  bool restored = Env()->CopyFileTo(backup, index, false);
  uint32_t error = platform::LastError();
  // A folder left with neither file would be rebuilt from its messages
  // alone, flags lost, though the backup is still there: the damaged file
  // goes back, so that the next load tries the backup again.
  if (!restored && !platform::FileExists(Env(), index)) Env()->RenamePath(bad, index, false);
  SetAllTimesToNow(index);
  platform::SetLastErrorCode(restored ? platform::kErrorSuccess : error);
  return restored;
}

bool QuarantineIndexFile(const std::string& folder) {
  std::string index = JoinPath(folder, files::kIndexXml);
  std::string bad = JoinPath(folder, files::kIndexBad);
  bool copied = false;
  for (int attempt = 1;; ++attempt) {
    // A writer that holds the file blocks the copy as well as the delete, so
    // both are tried again until the copy is safe and the file is gone.
    if (!copied) copied = Env()->CopyFileTo(index, bad, false);
    if (Env()->RemoveFile(index)) return true;
    uint32_t error = platform::LastError();
    if (error == platform::kErrorFileNotFound || error == platform::kErrorPathNotFound) {
      return false;
    }
    if (attempt >= kQuarantineAttempts) return false;
    Env()->SleepMs(kQuarantineRetryMs);
  }
}

bool IndexBackupExists(const std::string& folder) {
  return platform::FileExists(Env(), JoinPath(folder, files::kIndexBak));
}

uint32_t IndexBackupAgeMinutes(const std::string& folder) {
  platform::FileInfo info;
  if (!Env()->Stat(JoinPath(folder, files::kIndexBak), &info) || !info.exists) return 0;
  uint64_t now = Env()->NowFileTime().ticks();
  uint64_t written = info.write_time.ticks();
  // A backup from the future (a clock set back) counts as new.
  if (written >= now) return 0;
  return ElapsedMinutesByCalendarFields(now - written);
}

void DeleteIndexBackup(const std::string& folder) {
  Env()->RemoveFile(JoinPath(folder, files::kIndexBak));
}

uint32_t ElapsedMinutesByCalendarFields(uint64_t ticks) {
  using namespace std::chrono;
  constexpr uint64_t kTicksPerMinute = 600000000ull;
  constexpr uint64_t kMinutesPerDay = 1440;
  uint64_t total_minutes = ticks / kTicksPerMinute;
  uint64_t day_count = total_minutes / kMinutesPerDay;
  uint64_t minute_of_day = total_minutes % kMinutesPerDay;
  year_month_day date{sys_days{year{1601} / January / 1} + days{static_cast<int64_t>(day_count)}};
  uint64_t years = static_cast<uint64_t>(static_cast<int>(date.year()) - 1601);
  uint64_t months = static_cast<unsigned>(date.month()) - 1;
  uint64_t day = static_cast<unsigned>(date.day()) - 1;
  uint64_t minutes = (years * 365 + months * 30 + day) * kMinutesPerDay + minute_of_day;
  return minutes > 0xFFFFFFFFull ? 0xFFFFFFFFu : static_cast<uint32_t>(minutes);
}

}  // namespace qaaisp::persist
