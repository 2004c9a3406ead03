#include "index/store_paths.h"

#include <algorithm>
#include <atomic>

#include "base/library_settings.h"
#include "base/setting_names.h"
#include "base/settings.h"
#include "base/store_files.h"
#include "platform/env.h"
#include "platform/path_case.h"

namespace qaaisp {
namespace {

using platform::Env;

std::atomic<ProviderOptionReader> g_provider_option_reader{nullptr};
std::atomic<FolderOptionReader> g_folder_option_reader{nullptr};

bool IsSeparator(char c) { return c == '/' || c == '\\'; }

bool StartsWithNoCase(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() &&
         platform::EqualsNoCase(text.substr(0, prefix.size()), prefix);
}

bool EndsWith(std::string_view text, std::string_view suffix, bool ignore_case) {
  if (text.size() < suffix.size()) return false;
  std::string_view tail = text.substr(text.size() - suffix.size());
  return ignore_case ? platform::EqualsNoCase(tail, suffix) : tail == suffix;
}

// A word at the first or second character, followed by the end or a
// separator.
bool WordAtStart(std::string_view name, std::string_view word) {
  for (size_t at = 0; at <= 1; ++at) {
    if (name.size() < at + word.size()) break;
    if (!platform::EqualsNoCase(name.substr(at, word.size()), word)) continue;
    size_t next = at + word.size();
    if (next == name.size() || IsSeparator(name[next])) return true;
  }
  return false;
}

std::string_view Tail(std::string_view text, size_t from) {
  return from < text.size() ? text.substr(from) : std::string_view();
}

std::string Cut(std::string path) {
  if (path.size() > kMaxPathLength) path.resize(kMaxPathLength);
  return path;
}

// Native form of a joined path, each existing component matched without
// regard to case.
std::string Resolve(Env* env, const std::string& path) {
  return platform::ResolveCaseInsensitive(env, Cut(platform::ToNativeSeparators(path)));
}

// Makes one directory level if it is missing; a failure is left for the
// later open to report.
void MakeIfMissing(Env* env, const std::string& dir) {
  platform::FileInfo info;
  if (!env->Stat(dir, &info)) env->MakeDirectory(dir);
}

std::string MailRootOrSetting() {
  std::string root = ModuleSettings().mail_root;
  if (root.empty()) {
    ReadStringSetting(settings::kProductKey, settings::kMailRoot, &root);
    root = platform::ToNativeSeparators(root);
  }
  return root;
}

}  // namespace

void SetProviderOptionReader(ProviderOptionReader reader) {
  g_provider_option_reader.store(reader);
}

void SetFolderOptionReader(FolderOptionReader reader) { g_folder_option_reader.store(reader); }

bool PublicFoldersEnabled() {
  return ReadDwordOr(settings::kProductKey, settings::kPublicFoldersEnabled, 1) != 0;
}

bool IsPublicForm(std::string_view folder) { return WordAtStart(folder, "Public"); }

bool IsFileRootForm(std::string_view folder) { return WordAtStart(folder, "$FILEROOT"); }

std::string BuildIndexFolderPath(const std::string& mail_root, const std::string& postoffice,
                                 const std::string& mailbox, const std::string& folder) {
  Env* env = Env::Default();
  const std::string_view field = folder;
  size_t lead = field.find_first_not_of("/\\");
  const std::string_view f =
      lead == std::string_view::npos ? std::string_view() : field.substr(lead);
  const std::string po_root = mail_root + "/" + postoffice;

  if (StartsWithNoCase(f, "$VCFROOT")) {
    // The sub-path is taken from the tenth character of the field itself,
    // not of the name after its leading separators: callers rely on it.
    std::string path = po_root + "/" + files::kVcfRootDir;
    if (f.size() > 8 && IsSeparator(f[8])) path += "/" + std::string(Tail(field, 9));
    path = Resolve(env, path);
    MakeIfMissing(env, path);
    return path;
  }

  if (StartsWithNoCase(f, "$FILEROOT")) {
    std::string path = Resolve(env, po_root + "/" + files::kFileRootDir);
    MakeIfMissing(env, path);
    path = Resolve(env, path + "/" + mailbox);
    MakeIfMissing(env, path);
    if (StartsWithNoCase(f, "$FILEROOT/") ||
        (StartsWithNoCase(f, "$FILEROOT\\") && f.size() > 10)) {
      path += Tail(field, 9);  // begins with the separator itself
    }
    if (!path.empty() && IsSeparator(path.back())) path.pop_back();
    path = Resolve(env, path);
    MakeIfMissing(env, path);
    return path;
  }

  if (IsPublicForm(field) && PublicFoldersEnabled()) {
    std::string path = po_root + "/" + files::kPubRootDir;
    size_t n = (!f.empty() && f[0] == '$') ? 7 : 6;
    if (n < f.size() && IsSeparator(f[n])) path += "/" + std::string(f.substr(n + 1));
    path = Resolve(env, path);
    MakeIfMissing(env, path);
    return path;
  }

  std::string mailbox_dir = po_root + "/" + files::kMailRootDir + "/" + mailbox;
  if (!field.empty()) return Resolve(env, mailbox_dir + "/" + folder);
  return Resolve(env, mailbox_dir + "/INBOX");
}

std::string PostofficeRoot(const std::string& postoffice) {
  Env* env = Env::Default();
  if (ModuleSettings().allow_custom_paths == 1) {
    ProviderOptionReader reader = g_provider_option_reader.load();
    std::string root;
    if (reader && reader(kOptionScopePostoffice, postoffice, "PostofficeRoot", &root) &&
        !root.empty()) {
      return Resolve(env, root);
    }
  }
  return Resolve(env, MailRootOrSetting() + "/" + postoffice);
}

std::string FolderPath(const std::string& postoffice, const std::string& mailbox,
                       const char* folder) {
  Env* env = Env::Default();
  const std::string root = PostofficeRoot(postoffice);
  if (!folder) return Resolve(env, root + "/" + files::kMailRootDir + "/" + mailbox);
  const std::string_view name = folder;

  if (IsPublicForm(name) && PublicFoldersEnabled()) {
    std::string_view rest = (!name.empty() && IsSeparator(name[0])) ? name.substr(1) : name;
    std::string path = root + "/" + files::kPubRootDir;
    if (StartsWithNoCase(rest, "Public/") || StartsWithNoCase(rest, "Public\\")) {
      path += "/" + std::string(rest.substr(7));
    }
    return Resolve(env, path);
  }
  if (IsFileRootForm(name)) {
    std::string path = root + "/" + files::kFileRootDir + "/" + mailbox;
    if (StartsWithNoCase(name, "$FILEROOT/") || StartsWithNoCase(name, "$FILEROOT\\")) {
      path += "/" + std::string(name.substr(10));
    }
    return Resolve(env, path);
  }
  return Resolve(env, root + "/" + files::kMailRootDir + "/" + mailbox + "/" + folder);
}

int32_t FolderClass(const char* postoffice, const char* mailbox, const char* folder) {
  if (SameFolder(folder, "CALENDAR")) return kClassAppointment;
  if (SameFolder(folder, "TASKS")) return kClassTask;
  if (SameFolder(folder, "$VCFROOT") || SameFolder(folder, "CONTACTS")) return kClassContact;
  if (SameFolder(folder, "$FILEROOT")) return kClassFile;
  if (!postoffice || !*postoffice || !mailbox || !*mailbox) return kClassMessage;
  FolderOptionReader reader = g_folder_option_reader.load();
  std::string value;
  if (!reader || !reader(postoffice, mailbox, folder, "container-class", &value)) {
    return kClassMessage;
  }
  if (value == "IPF.Contact") return kClassContact;
  if (value == "IPF.Appointment") return kClassAppointment;
  if (value == "IPF.Task") return kClassTask;
  return kClassMessage;
}

int32_t ClassByFileName(std::string_view name) {
  if (EndsWith(name, ".CAL", /*ignore_case=*/false)) return kClassAppointment;
  if (EndsWith(name, ".TSK", true)) return kClassTask;
  if (EndsWith(name, ".MAI", true)) return kClassMessage;
  if (EndsWith(name, ".VCF", true)) return kClassContact;
  if (EndsWith(name, ".GRP", true)) return kClassContactsAndGroups;
  return kClassMessage;
}

bool SameFolder(const char* a, const char* b) {
  if (!a || !b) return true;
  auto normal = [](std::string_view name) {
    name.remove_prefix(std::min(name.find_first_not_of("/\\"), name.size()));
    std::string out(name);
    for (char& c : out) {
      if (c == '/') c = '\\';
    }
    return out;
  };
  return platform::EqualsNoCase(normal(a), normal(b));
}

}  // namespace qaaisp
