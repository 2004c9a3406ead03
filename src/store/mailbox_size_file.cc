#include "store/mailbox_size_file.h"

#include <charconv>
#include <cstdio>

#include "base/failure_guard.h"
#include "base/library_settings.h"
#include "base/store_files.h"
#include "index/store_paths.h"
#include "platform/path_case.h"
#include "platform/win32_error.h"

namespace qaaisp {
namespace {

constexpr size_t kSizeFileReadLimit = 254;
constexpr const char* kStoreCoreSource = "..\\SERVICES\\Library\\LIBStoreIndexCore";

// A leading decimal number as atol reads it: blanks, a sign, digits.
int64_t LeadingNumber(std::string_view text) {
  size_t i = 0;
  while (i < text.size() && (text[i] == ' ' || text[i] == '\t' || text[i] == '\r' ||
                             text[i] == '\n' || text[i] == '\v' || text[i] == '\f')) {
    ++i;
  }
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  int64_t value = 0;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    if (value < (int64_t{1} << 40)) value = value * 10 + (text[i] - '0');
  }
  return negative ? -value : value;
}

bool UnderFileRoot(const std::string& folder) {
  static constexpr std::string_view kFileRoot = "$FILEROOT";
  if (folder.size() < kFileRoot.size()) return false;
  for (size_t i = 0; i + kFileRoot.size() <= folder.size(); ++i) {
    if (platform::EqualsNoCase(std::string_view(folder).substr(i, kFileRoot.size()), kFileRoot)) {
      return true;
    }
  }
  return false;
}

// The size file keeps its one spelling; only the directories above it are
// matched without regard to case, so a folder with no size file of its own
// is never listed to look for one.
std::string InResolvedDirectory(platform::Env* env, const std::string& path) {
  std::string native = platform::ToNativeSeparators(path);
  size_t slash = native.rfind('/');
  return platform::ResolveCaseInsensitive(env, native.substr(0, slash)) + native.substr(slash);
}

}  // namespace

int64_t KilobytesRounded(uint64_t bytes) { return static_cast<int64_t>((bytes + 512) / 1024); }

bool AdjustSizeFile(platform::Env* env, const std::string& path, int64_t delta) {
  platform::OpenOptions options;
  options.write = true;
  options.share = platform::ShareMode::kShareNone;
  std::unique_ptr<platform::File> file = env->OpenFile(path, options);
  if (!file) {
    // A missing file has nothing to delete; any other failure may leave a
    // stale figure behind, which goes.
    uint32_t error = platform::LastError();
    if (error != platform::kErrorFileNotFound && error != platform::kErrorPathNotFound) {
      env->RemoveFile(path);
    }
    return false;
  }
  char buffer[kSizeFileReadLimit];
  int64_t n = file->ReadAt(0, buffer, sizeof buffer);
  int64_t size = LeadingNumber(std::string_view(buffer, n > 0 ? static_cast<size_t>(n) : 0));
  size += delta;
  if (size < 0) size = 0;
  if (size > 0xFFFFFFFFll) size = 0xFFFFFFFFll;
  char text[24];
  auto [end, ec] = std::to_chars(text, text + sizeof text, static_cast<uint64_t>(size));
  size_t length = static_cast<size_t>(end - text);
  if (file->WriteAt(0, text, length) && file->Truncate(length)) return true;
  // A figure written in part is a wrong figure: none is measured afresh.
  file.reset();
  env->RemoveFile(path);
  return false;
}

std::string MailboxSizeFilePath(const std::string& postoffice, const std::string& mailbox) {
  return PostofficeRoot(postoffice) + "/" + files::kMailRootDir + "/" + mailbox + "/" +
         files::kDirSize;
}

std::string FileShareSizeFilePath(const std::string& postoffice, const std::string& mailbox) {
  return PostofficeRoot(postoffice) + "/" + files::kFileRootDir + "/" + mailbox + "/" +
         files::kDirSize;
}

std::string FolderSizeFilePath(const std::string& postoffice, const std::string& mailbox,
                               const std::string& folder) {
  // A folder name that starts with a separator is joined without another.
  bool leading = !folder.empty() && (folder[0] == '\\' || folder[0] == '/');
  return PostofficeRoot(postoffice) + "/" + files::kMailRootDir + "/" + mailbox +
         (leading ? "" : "/") + folder + "/" + files::kDirSize;
}

void UpdateMailboxSizeMetaData(const std::string& postoffice, const std::string& mailbox,
                               int64_t delta, const std::string& folder) {
  LineTrace line = 0;
  Guarded("UpdateMailboxSizeMetaData", kStoreCoreSource, __LINE__, line, [&] {
    bool file_root = UnderFileRoot(folder);
    if (delta == 0) return;
    platform::Env* env = platform::Env::Default();
    AdjustSizeFile(env,
                   InResolvedDirectory(env, file_root ? FileShareSizeFilePath(postoffice, mailbox)
                                                      : MailboxSizeFilePath(postoffice, mailbox)),
                   delta);
    if (folder.empty() || file_root) return;
    AdjustSizeFile(env, InResolvedDirectory(env, FolderSizeFilePath(postoffice, mailbox, folder)),
                   delta);
  });
}

}  // namespace qaaisp
