#include "qastore/tool_context.h"

#include <cstdio>

#include "base/library_settings.h"
#include "base/setting_names.h"
#include "base/settings.h"
#include "index/store_paths.h"
#include "library/library.h"

namespace qaaisp::qastore {

OutputFormat ToolContext::format() const {
  OutputFormat format = OutputFormat::kTable;
  ParseOutputFormat(format_name, &format);
  return format;
}

ProgressMode ToolContext::progress() const {
  ProgressMode mode = ProgressMode::kAuto;
  ParseProgressMode(progress_name, &mode);
  return mode;
}

void ToolContext::Print(const Result& result) const {
  const std::string text = Render(result, format());
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}

bool StartLibrary(const ToolContext& context) {
  // The provider libraries are loaded only where an installation names their
  // directory: on a bare store there are none, and the attempt would only
  // print that they are missing, in the middle of the tool's output.
  std::string application_directory;
  ReadStringSetting(settings::kProductKey, settings::kApplicationDirectory, &application_directory);
  if (application_directory.empty()) {
    LibraryInit();
  } else {
    ProcessAttach();
  }
  LibrarySettings& s = ModuleSettings();
  if (!context.root.empty()) {
    s.mail_root = context.root;
    s.table_root = context.root;
  }
  // With nothing configured the library's own rule gives "\POSTOFFICES"
  // at the top of the file system, which is never a store.
  if (s.mail_root.empty() || s.mail_root == "/POSTOFFICES" || s.mail_root == "\\POSTOFFICES") {
    ReportError(
        "no mail root: give --root, or name one in the settings file that QAAISP_REGISTRY "
        "points to");
    return false;
  }
  return true;
}

void StopLibrary() { LibraryUnInit(); }

void AddPlaceOptions(CLI::App* command, Place* place, bool postoffice_required,
                     bool mailbox_required) {
  CLI::Option* po = command->add_option("-p,--postoffice", place->postoffice, "Postoffice");
  CLI::Option* mb = command->add_option("-m,--mailbox", place->mailbox, "Mailbox");
  command
      ->add_option_function<std::string>(
          "-F,--folder",
          [place](const std::string& folder) {
            place->folder = folder.empty() ? "INBOX" : folder;
            place->folder_given = true;
          },
          "Folder below the mailbox, \"/\" separated (default: INBOX)")
      ->needs(mb);
  if (postoffice_required) po->required();
  if (mailbox_required) mb->required();
  mb->needs(po);
}

std::string FolderDirectory(const Place& place) {
  return BuildIndexFolderPath(ModuleSettings().mail_root, place.postoffice, place.mailbox,
                              place.folder);
}

void ReportError(const std::string& text) {
  std::fprintf(stderr, "qastore: %s\n", text.c_str());
  std::fflush(stderr);
}

int CombinedExit(size_t ok_count, size_t failed_count) {
  if (failed_count == 0) return kExitOk;
  return ok_count == 0 ? kExitError : kExitPartial;
}

}  // namespace qaaisp::qastore
