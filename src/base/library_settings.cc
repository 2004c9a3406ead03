#include "base/library_settings.h"

#include "base/setting_names.h"
#include "base/settings.h"
#include "platform/path_case.h"

namespace qaaisp {

LibrarySettings& ModuleSettings() {
  static LibrarySettings* settings = new LibrarySettings;
  return *settings;
}

std::string ReadMailRoot() {
  std::string root;
  if (ReadStringSetting(settings::kMapiKey, settings::kMailRootDirectory, &root, true)) {
    return platform::ToNativeSeparators(root);
  }
  if (ReadStringSetting(settings::kProductKey, settings::kMailRoot, &root, true)) {
    return platform::ToNativeSeparators(root);
  }
  std::string data;
  ReadStringSetting(settings::kProductKey, settings::kDataDirectory, &data, true);
  return platform::ToNativeSeparators(data + "\\POSTOFFICES");
}

void ReloadPathSettings(LibrarySettings* s) {
  s->mail_root = ReadMailRoot();
  s->table_root = s->mail_root;
  s->allow_custom_paths =
      ReadDwordOr(settings::kProductKey, settings::kAllowCustomPostofficePaths, 0);
  std::string bad;
  ReadStringSetting(settings::kProductKey, settings::kBadMailDirectory, &bad, true);
  s->bad_mail_directory = platform::ToNativeSeparators(bad);
}

void ReadLibrarySettings(LibrarySettings* s) {
  s->notification_mode =
      ReadDwordOr(settings::kProductKey, settings::kStoreEventNotificationMode, 0);
  s->prevent_duplicates =
      ReadDwordOr(settings::kProductKey, settings::kPreventMessageDuplicates, 0);
  s->size_mode = ReadDwordOr(settings::kProductKey, settings::kMailboxSizeCalcMode, 0);
  ReloadPathSettings(s);
}

}  // namespace qaaisp
