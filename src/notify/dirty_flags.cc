#include "notify/dirty_flags.h"

#include <cstring>
#include <string_view>

#include "base/library_settings.h"
#include "base/store_files.h"
#include "locks/block_file.h"
#include "platform/env.h"
#include "platform/path_case.h"

namespace qaaisp {
namespace {

using platform::Env;

// Gates kept as the store has them: dirty marking is always on, and the
// cached flag is never opened by anything in this library.
constexpr bool kDirtyNotificationEnabled = true;
constexpr bool kCachedFlagEnabled = false;

constexpr std::string_view kPublicPrefix = "Public/";

std::string Resolve(const std::string& path) {
  return platform::ResolveCaseInsensitive(Env::Default(), platform::ToNativeSeparators(path));
}

std::string FlagPath(const std::string& dir, const char* name) {
  std::string native = Resolve(dir);
  if (!native.empty() && native.back() != '/') native += '/';
  return native + name;
}

bool WriteFlag(const std::string& dir, const char* name, const char* text) {
  platform::OpenOptions options;
  options.read = false;
  options.write = true;
  options.disposition = platform::OpenDisposition::kCreateAlways;
  auto file = Env::Default()->OpenFile(FlagPath(dir, name), options);
  if (!file) return false;
  return file->WriteAt(0, text, std::strlen(text));
}

size_t FindNoCase(std::string_view text, std::string_view part) {
  for (size_t i = 0; i + part.size() <= text.size(); ++i) {
    if (platform::EqualsNoCase(text.substr(i, part.size()), part)) return i;
  }
  return std::string_view::npos;
}

}  // namespace

bool SetDirtyPathNotification(const std::string& path) {
  return WriteFlag(path, files::kChangeFlag, kChangeFlagText);
}

bool SetCachedIndexFlag(const std::string& path) {
  if (!kCachedFlagEnabled) return false;
  return WriteFlag(path, files::kCachedFlag, kCachedFlagText);
}

int ClearCachedIndexFlag(const std::string& path) {
  if (!kCachedFlagEnabled || path.empty()) return 0;
  Env::Default()->RemoveFile(FlagPath(path, files::kCachedFlag));
  return 1;
}

int IsPublicFolder(const std::string& folder) {
  std::string_view name = folder;
  if (platform::EqualsNoCase(name, "Public")) return kPublicRoot;
  if (name.size() >= kPublicPrefix.size() &&
      platform::EqualsNoCase(name.substr(0, kPublicPrefix.size()), kPublicPrefix)) {
    return kPublicSubfolder;
  }
  return kMailboxFolder;
}

std::string GetDirtyFolderPath(int scope, const std::string& postoffice, const std::string& mailbox,
                               const std::string& folder) {
  const std::string po_root = ModuleSettings().mail_root + "/" + postoffice;
  switch (scope) {
    case kPublicSubfolder:
      return Resolve(po_root + "/" + files::kPubRootDir + "/" +
                     folder.substr(std::min(folder.size(), kPublicPrefix.size())));
    case kPublicRoot:
      return Resolve(po_root + "/" + files::kPubRootDir);
    default:
      return Resolve(po_root + "/" + files::kMailRootDir + "/" + mailbox + "/" + folder);
  }
}

namespace {

// An index block file broken by force may hide a write that never finished,
// so the folder it guards is re-scanned at its next open.
void MarkBrokenBlockFolder(const std::string& block_path) {
  const size_t slash = block_path.find_last_of('/');
  if (slash == std::string::npos) return;
  const std::string_view name = std::string_view(block_path).substr(slash + 1);
  if (name != files::kIndexBlk && name != files::kGroupsBlk) return;
  SetDirtyPathNotification(block_path.substr(0, slash));
}

[[maybe_unused]] const bool kBrokenBlocksMarkFolders =
    (SetBrokenBlockRoutine(MarkBrokenBlockFolder), true);

}  // namespace

bool SetDirtyFolderNotification(const std::string& postoffice, const std::string& mailbox,
                                const std::string& folder) {
  if (!kDirtyNotificationEnabled) return false;
  std::string dir;
  size_t at = FindNoCase(folder, "$FILEROOT");
  if (at != std::string::npos) {
    dir = ModuleSettings().mail_root + "/" + postoffice + "/" + files::kFileRootDir + "/" + mailbox;
    // A sub-path is what follows the word; a lone separator is none.
    std::string_view rest = std::string_view(folder).substr(at + 9);
    if (rest.find_first_not_of("/\\") != std::string_view::npos) {
      if (rest[0] != '/' && rest[0] != '\\') dir += '/';
      dir += rest;
    }
    dir = Resolve(dir);
  } else {
    dir = GetDirtyFolderPath(IsPublicFolder(folder), postoffice, mailbox, folder);
  }
  return SetDirtyPathNotification(dir);
}

}  // namespace qaaisp
