#include "persist/stream_index_serialiser.h"

#include <algorithm>

#include "base/report.h"
#include "base/store_files.h"
#include "index/store_index.h"
#include "persist/index_load_target.h"
#include "persist/index_recovery.h"
#include "persist/index_report.h"
#include "persist/index_text.h"
#include "persist/persist_settings.h"
#include "platform/env.h"
#include "platform/win32_error.h"

namespace qaaisp {
namespace {

using persist::NameSet;

constexpr int kOpenAttempts = 20;
constexpr uint32_t kOpenRetryMs = 2000;
// The stream's own buffer when "Index Read Cache Size" is 0.
constexpr size_t kDefaultReadBuffer = 8192;
constexpr char kTimestampText[] = "Index Timestamp file";

class FileSource : public persist::IndexByteSource {
 public:
  explicit FileSource(platform::File* file) : file_(file) {}
  int64_t ReadAt(uint64_t offset, char* buffer, size_t n) override {
    return file_->ReadAt(offset, buffer, n);
  }

 private:
  platform::File* file_;
};

std::unique_ptr<platform::File> OpenShared(const std::string& path) {
  platform::OpenOptions options;
  options.read = true;
  options.disposition = platform::OpenDisposition::kOpenExisting;
  options.share = platform::ShareMode::kShareReadWrite;
  return platform::Env::Default()->OpenFile(path, options);
}

// The C library's text for why a file would not open.
const char* OpenErrorText(uint32_t error) {
  switch (error) {
    case platform::kErrorFileNotFound:
    case platform::kErrorPathNotFound:
      return "No such file or directory";
    case platform::kErrorAccessDenied:
    case platform::kErrorSharingViolation:
    case platform::kErrorLockViolation:
      return "Permission denied";
    case platform::kErrorTooManyOpenFiles:
      return "Too many open files";
    case platform::kErrorFilenameExcedRange:
      return "Filename too long";
    case platform::kErrorInvalidName:
      return "Invalid argument";
    case platform::kErrorNotEnoughMemory:
      return "Not enough space";
    default:
      return "Unknown error";
  }
}

// Opens the index for reading while a writer may hold it exclusively:
// 20 attempts two seconds apart, then a report.
std::unique_ptr<platform::File> OpenWithRetries(const std::string& path, const char* failure,
                                                int* wait_counter) {
  platform::Env* env = platform::Env::Default();
  for (int attempt = 1;; ++attempt) {
    std::unique_ptr<platform::File> file = OpenShared(path);
    if (file) return file;
    if (attempt >= kOpenAttempts) break;
    env->SleepMs(kOpenRetryMs);
    *wait_counter += 2;
  }
  ReportIndexEvent(failure + path + " (" + OpenErrorText(platform::LastError()) + ").");
  return nullptr;
}

void SplitList(const std::string& list, NameSet* out) {
  out->clear();
  if (list.empty()) return;
  size_t start = 0;
  for (;;) {
    size_t comma = list.find(',', start);
    out->emplace(
        list.substr(start, comma == std::string::npos ? std::string::npos : comma - start));
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
}

void EnsureTimestampFile(const std::string& folder) {
  if (persist::TimestampFileSetting() != 1) return;
  platform::Env* env = platform::Env::Default();
  std::string path = persist::JoinPath(folder, files::kIndexDat);
  if (platform::FileExists(env, path)) return;
  platform::OpenOptions options;
  options.read = false;
  options.write = true;
  options.disposition = platform::OpenDisposition::kCreateNew;
  std::unique_ptr<platform::File> file = env->OpenFile(path, options);
  if (file) file->WriteAt(0, kTimestampText, sizeof kTimestampText - 1);
}

size_t ReadBufferSize(int64_t file_length) {
  size_t size = persist::IndexReadCacheSizeSetting();
  if (size == 0) size = kDefaultReadBuffer;
  // Never more than the file needs: a huge setting costs nothing then.
  size_t needed = static_cast<size_t>(std::max<int64_t>(file_length, 0)) + 1;
  return std::min(size, std::max<size_t>(needed, 64));
}

}  // namespace

void StreamXMLStoreIndexSerialiser::BackupSerialisation(const std::string& folder) {
  persist::BackupIndexFile(folder);
}
bool StreamXMLStoreIndexSerialiser::RestoreSerialisationBackup(const std::string& folder) {
  return persist::RestoreIndexBackup(folder);
}
bool StreamXMLStoreIndexSerialiser::QuarantineSerialisation(const std::string& folder) {
  return persist::QuarantineIndexFile(folder);
}
bool StreamXMLStoreIndexSerialiser::IndexXMLBackupExists(const std::string& folder) {
  return persist::IndexBackupExists(folder);
}
uint32_t StreamXMLStoreIndexSerialiser::BackupAgeMinutes(const std::string& folder) {
  return persist::IndexBackupAgeMinutes(folder);
}
void StreamXMLStoreIndexSerialiser::IndexXMLDeleteBackupSerialisation(const std::string& folder) {
  persist::DeleteIndexBackup(folder);
}

int32_t StreamXMLStoreIndexSerialiser::LoadHeaderOnly(SORTEDSTOREINDEXTYPE* index,
                                                      const std::string& path, int32_t* mode,
                                                      NameSet* filter) {
  std::unique_ptr<platform::File> file = OpenShared(path);
  if (!file) return -1;
  char head[persist::kHeaderProbeBytes];
  int64_t n = file->ReadAt(0, head, sizeof head);
  if (n <= 0) return -1;
  persist::HeaderProbe probe =
      persist::ProbeIndexHeader(std::string_view(head, static_cast<size_t>(n)));
  if (probe.has_last_uid) index->LastUID = probe.last_uid;
  switch (probe.kind) {
    case persist::HeaderProbe::kHeaderOnly:
      return LoadHeader;
    case persist::HeaderProbe::kEmpty:
      index->ItemFilter.clear();
      filter->clear();
      index->FullRewriteRequired = true;
      return LoadFull;
    case persist::HeaderProbe::kNoHeader:
      // The old form has no fixed header to trust: read it all and upgrade.
      index->ItemFilter.clear();
      filter->clear();
      index->FullRewriteRequired = true;
      *mode = LoadFull;
      return -1;
    case persist::HeaderProbe::kTooShort:
      return -1;
  }
  return -1;
}

int32_t StreamXMLStoreIndexSerialiser::DeserialiseHook(SORTEDSTOREINDEXTYPE* index,
                                                       const LoadRequest& request) {
  return GuardedOr<int32_t>(0, "StreamXMLStoreIndexSerialiser::DeserialiseHook", __LINE__, [&] {
    platform::Env* env = platform::Env::Default();
    uint64_t started = env->TickCountMs();
    NameSet filter, fields;
    SplitList(index->ItemFilter, &filter);
    SplitList(index->FieldFilter, &fields);
    const std::string path = persist::IndexFilePath(request.folder, request.item_class);
    EnsureTimestampFile(request.folder);
    if (!request.keep) index->UnInit();

    int32_t mode = request.mode;
    int32_t result = -1;
    int wait_counter = 0;
    if (mode == LoadHeader) result = LoadHeaderOnly(index, path, &mode, &filter);
    if (result < 0) {
      std::unique_ptr<platform::File> file =
          OpenWithRetries(path, "Failed to open index ", &wait_counter);
      if (!file) return int32_t{0};
      int64_t length = file->Size();
      FileSource source(file.get());
      int pass = DeserialiseKeysOrBetter(index, &source, ReadBufferSize(length), length, mode,
                                         &filter, &fields, request.folder, request.verify_files,
                                         request.quiet, request.keep);
      file.reset();
      if (pass == 2) {
        mode = LoadFull;
        index->ItemFilter.clear();
        filter.clear();
        index->FieldFilter.clear();
        fields.clear();
        file = OpenWithRetries(path, "Failed to re-open index ", &wait_counter);
        if (!file) return int32_t{0};
        length = file->Size();
        FileSource again(file.get());
        pass = DeserialiseKeysOrBetter(index, &again, ReadBufferSize(length), length, mode, &filter,
                                       &fields, request.folder, request.verify_files, request.quiet,
                                       request.keep);
      }
      result = pass == 1 ? mode : 0;
    }

    index->OffsetsValid = mode != 0;
    platform::FileInfo info;
    if (env->Stat(path, &info) && info.exists) {
      index->IndexFileDate = info.write_time.ticks();
      if (index->owner) index->owner->IndexFileSize = static_cast<uint32_t>(info.size);
    }
    Trace(8, "[Thread:" + std::to_string(env->ThreadId()) + "]" +
                 "StreamXMLStoreIndexSerialiser::DeserialiseHook Elapse: " +
                 std::to_string(env->TickCountMs() - started) + ", Item= " + path +
                 ", Count=" + std::to_string(index->size()) +
                 ", Instance=" + std::to_string(wait_counter) + "\n");
    return result;
  });
}

int StreamXMLStoreIndexSerialiser::DeserialiseKeysOrBetter(
    SORTEDSTOREINDEXTYPE* index, persist::IndexByteSource* stream, size_t buffer_size,
    int64_t file_length, int32_t mode, NameSet* filter, NameSet* fields, const std::string& folder,
    int32_t verify_files, bool quiet, bool keep) {
  return GuardedOr(0, "StreamXMLStoreIndexSerialiser::DeserialiseKeysOrBetter", __LINE__, [&] {
    index_valid_ = true;
    malformed_message_.clear();
    persist::StreamPassOptions options;
    options.mode = mode;
    options.keep = keep;
    options.verify_files = verify_files > 0;
    options.garbage_threshold = persist::IndexGarbageCollectionThresholdSetting();
    options.item_filter = filter;
    options.field_filter = fields;
    options.file_length = file_length;
    // Rows made by a load are not changes: the writer must not rewrite
    // from the first of them.
    uint32_t first_modified = index->FirstModifiedUID;
    persist::StreamPassOutcome outcome;
    {
      // About 500 bytes a row in a typical message folder.
      const size_t expected_rows = static_cast<size_t>(std::max<int64_t>(file_length, 0) / 512);
      persist::IndexLoadTarget target(index, folder, expected_rows);
      outcome = persist::RunStreamIndexPass(stream, buffer_size, options, &target);
      // Inside the guard, so that a failure to finish is reported.
      target.Finish();
    }
    index->FirstModifiedUID = first_modified;
    if (!outcome.read_ok) ReportStreamState({true, true}, __LINE__, "read");
    index_valid_ = outcome.fault.empty();
    malformed_message_ = outcome.fault;
    if (outcome.result == persist::StreamPassResult::kMalformed && !quiet) {
      ReportIndexEvent("Malformed index detected: " + outcome.fault + " (" + folder + ")\n");
    }
    return static_cast<int>(outcome.result);
  });
}

}  // namespace qaaisp
