// The module-wide settings read when the library starts: three modes, the
// mail root and the table root, custom postoffice paths and the bad-mail
// directory. Written at load (and by the path reload step), read without a
// lock afterwards.
#pragma once

#include <cstdint>
#include <string>

struct StoreIndex;  // the C boundary's opaque type, defined by the index layer

namespace qaaisp {

struct LibrarySettings {
  uint32_t notification_mode = 0;
  uint32_t prevent_duplicates = 0;
  uint32_t size_mode = 0;
  uint32_t allow_custom_paths = 0;
  std::string mail_root;  // native separators
  std::string table_root;
  std::string bad_mail_directory;
};

// The process's settings.
LibrarySettings& ModuleSettings();

// Reads the mail root: "Mail Root Directory" (MAPI key), else "Mail Root",
// else "<Data Directory>\POSTOFFICES"; an empty value counts as absent.
std::string ReadMailRoot();

// Reads the three modes (missing ones are 0) and runs the path reload step.
void ReadLibrarySettings(LibrarySettings* s);

// The path reload step: mail root, table root, "Allow Custom Postoffice
// Paths" and "Bad Mail Directory".
void ReloadPathSettings(LibrarySettings* s);

}  // namespace qaaisp
