#include "store/folder_status_file.h"

#include <cstdio>
#include <cstring>

#include "base/report.h"
#include "base/store_files.h"
#include "index/store_paths.h"
#include "platform/win32_error.h"

namespace qaaisp {
namespace {

int32_t* Field(FolderDetails* d, int index) { return reinterpret_cast<int32_t*>(d) + index; }
int32_t FieldValue(const FolderDetails& d, int index) {
  return reinterpret_cast<const int32_t*>(&d)[index];
}

void TraceReadFailure(const std::string& path, uint32_t error) {
  char text[1200];
  std::snprintf(text, sizeof text, "Cache File: %s could not be opened. Error: %ld\n", path.c_str(),
                static_cast<long>(error));
  Trace(9, text);
}

void TraceWriteFailure(const std::string& path, uint32_t error) {
  char text[1200];
  std::snprintf(text, sizeof text, "Cache File: %s could not be written. Error: %d\n", path.c_str(),
                static_cast<int>(error));
  Trace(9, text);
}

}  // namespace

void SanitiseFolderDetails(FolderDetails* d) {
  if (d->Total < 0) d->Total = 0;
  for (int32_t* counter : {&d->Seen, &d->Deleted, &d->Answered, &d->Recent, &d->RecentCount}) {
    if (*counter < 1) {
      *counter = 0;
    } else if (*counter > d->Total) {
      *counter = d->Total;
    }
  }
}

void EncodeFolderDetails(const FolderDetails& details, unsigned char out[kFolderDetailsBytes]) {
  for (int i = 0; i < 13; ++i) {
    uint32_t v = static_cast<uint32_t>(FieldValue(details, i));
    out[i * 4] = static_cast<unsigned char>(v);
    out[i * 4 + 1] = static_cast<unsigned char>(v >> 8);
    out[i * 4 + 2] = static_cast<unsigned char>(v >> 16);
    out[i * 4 + 3] = static_cast<unsigned char>(v >> 24);
  }
}

bool DecodeFolderDetails(std::string_view bytes, FolderDetails* out) {
  if (bytes.size() != kFolderDetailsBytes) return false;
  const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
  for (int i = 0; i < 13; ++i) {
    uint32_t v = static_cast<uint32_t>(p[i * 4]) | static_cast<uint32_t>(p[i * 4 + 1]) << 8 |
                 static_cast<uint32_t>(p[i * 4 + 2]) << 16 |
                 static_cast<uint32_t>(p[i * 4 + 3]) << 24;
    *Field(out, i) = static_cast<int32_t>(v);
  }
  return true;
}

void ReadFolderStatusFile(platform::Env* env, const std::string& path, FolderDetails* out) {
  std::memset(out, 0, sizeof *out);
  platform::OpenOptions options;
  options.share = platform::ShareMode::kShareAny;
  std::unique_ptr<platform::File> file = env->OpenFile(path, options);
  if (!file) {
    uint32_t error = platform::LastError();
    if (error != platform::kErrorFileNotFound) {
      TraceReadFailure(path, error);
    }
    return;
  }
  // One byte more than a record, so a longer file is told from a whole one.
  char buffer[kFolderDetailsBytes + 1];
  int64_t n = file->ReadAt(0, buffer, sizeof buffer);
  if (n < 0 || !DecodeFolderDetails(std::string_view(buffer, static_cast<size_t>(n)), out)) {
    std::memset(out, 0, sizeof *out);
    TraceReadFailure(path, n < 0 ? platform::LastError() : platform::kErrorHandleEof);
    return;
  }
  SanitiseFolderDetails(out);
}

bool WriteFolderStatusFile(platform::Env* env, const std::string& path,
                           const FolderDetails& details) {
  FolderDetails clean = details;
  SanitiseFolderDetails(&clean);
  unsigned char bytes[kFolderDetailsBytes];
  EncodeFolderDetails(clean, bytes);
  // Written in place: one write of one small record is whole to readers,
  // and a commit should not cost the folder a new file each time.
  platform::OpenOptions options;
  options.write = true;
  options.disposition = platform::OpenDisposition::kOpenAlways;
  options.share = platform::ShareMode::kShareAny;
  std::unique_ptr<platform::File> file = env->OpenFile(path, options);
  if (!file || !file->WriteAt(0, bytes, sizeof bytes) ||
      (file->Size() > static_cast<int64_t>(sizeof bytes) && !file->Truncate(sizeof bytes))) {
    const uint32_t error = platform::LastError();
    // A write that stopped half-way leaves a record of old and new fields
    // that would read as valid; no record at all reads as zeros.
    if (file) {
      file.reset();
      env->RemoveFile(path);
    }
    TraceWriteFailure(path, error);
    return false;
  }
  return true;
}

std::string FolderStatusPathIn(const std::string& folder_directory) {
  return folder_directory + "/" + files::kFolderDat;
}

std::string FolderStatusPath(const std::string& postoffice, const std::string& mailbox,
                             const std::string& folder) {
  // An empty folder name stands for the mailbox itself here, not its inbox.
  return FolderStatusPathIn(
      FolderPath(postoffice, mailbox, folder.empty() ? nullptr : folder.c_str()));
}

void GetCachedStatus(const char* postoffice, const char* mailbox, const char* folder,
                     FolderDetails* out) {
  if (!kCachedStatusEnabled || !out) return;
  ReadFolderStatusFile(
      platform::Env::Default(),
      FolderStatusPath(postoffice ? postoffice : "", mailbox ? mailbox : "", folder ? folder : ""),
      out);
}

void SetCachedStatus(const char* postoffice, const char* mailbox, const char* folder,
                     const FolderDetails& in) {
  if (!postoffice || !*postoffice || !mailbox || !*mailbox || !folder || !*folder) return;
  WriteFolderStatusFile(platform::Env::Default(), FolderStatusPath(postoffice, mailbox, folder),
                        in);
}

}  // namespace qaaisp
