#include "qastore/store_walk.h"

#include <algorithm>

#include "base/library_settings.h"
#include "base/store_files.h"
#include "index/store_paths.h"
#include "platform/path_case.h"

namespace qaaisp::qastore {
namespace {

// Subdirectories of dir that can be store names, sorted without regard to
// case as the store lists them.
std::vector<std::string> Subdirectories(platform::Env* env, const std::string& dir) {
  std::vector<platform::DirEntry> entries;
  std::vector<std::string> names;
  if (!env->ListDirectory(dir, false, &entries)) return names;
  for (const platform::DirEntry& e : entries) {
    if (!e.is_directory || e.name.empty() || e.name[0] == '_' || e.name[0] == '.') continue;
    names.push_back(e.name);
  }
  std::sort(names.begin(), names.end(), [](const std::string& a, const std::string& b) {
    const int c = platform::CompareNoCase(a, b);
    return c != 0 ? c < 0 : a < b;
  });
  return names;
}

// The name of an existing entry of dir matching name without regard to
// case; empty if there is none.
std::string ExistingName(platform::Env* env, const std::string& dir, const std::string& name) {
  const std::string resolved = platform::ResolveCaseInsensitive(env, dir + "/" + name);
  if (!platform::DirectoryExists(env, resolved)) return "";
  return resolved.substr(resolved.find_last_of('/') + 1);
}

void AddFoldersBelow(platform::Env* env, const MailboxRef& box, const std::string& relative,
                     std::vector<FolderRef>* out) {
  const std::string dir = box.path + (relative.empty() ? "" : "/" + relative);
  for (const std::string& name : Subdirectories(env, dir)) {
    FolderRef f;
    f.postoffice = box.postoffice;
    f.mailbox = box.mailbox;
    f.folder = relative.empty() ? name : relative + "/" + name;
    f.path = dir + "/" + name;
    f.item_class = FolderClass(f.postoffice.c_str(), f.mailbox.c_str(), f.folder.c_str());
    out->push_back(f);
    AddFoldersBelow(env, box, f.folder, out);
  }
}

}  // namespace

std::string FolderRef::Label() const { return postoffice + "/" + mailbox + "/" + folder; }

bool FindMailboxes(platform::Env* env, const Place& place, std::vector<MailboxRef>* out,
                   std::string* error) {
  out->clear();
  const std::string root = ModuleSettings().mail_root;
  std::vector<std::string> postoffices;
  if (place.postoffice.empty()) {
    postoffices = Subdirectories(env, root);
  } else {
    const std::string name = ExistingName(env, root, place.postoffice);
    if (name.empty()) {
      *error = "no postoffice \"" + place.postoffice + "\" under " + root;
      return false;
    }
    postoffices.push_back(name);
  }
  for (const std::string& po : postoffices) {
    const std::string mail_root_name = ExistingName(env, root + "/" + po, files::kMailRootDir);
    if (mail_root_name.empty()) continue;
    const std::string boxes_dir = root + "/" + po + "/" + mail_root_name;
    std::vector<std::string> boxes;
    if (place.mailbox.empty()) {
      boxes = Subdirectories(env, boxes_dir);
    } else {
      const std::string name = ExistingName(env, boxes_dir, place.mailbox);
      if (name.empty()) {
        *error = "no mailbox \"" + place.mailbox + "\" in postoffice " + po;
        return false;
      }
      boxes.push_back(name);
    }
    for (const std::string& box : boxes) out->push_back({po, box, boxes_dir + "/" + box});
  }
  if (!place.mailbox.empty() && out->empty()) {
    *error = "no mailbox \"" + place.mailbox + "\" in postoffice " + place.postoffice;
    return false;
  }
  return true;
}

bool FindFolders(platform::Env* env, const Place& place, std::vector<FolderRef>* out,
                 std::string* error) {
  out->clear();
  std::vector<MailboxRef> boxes;
  if (!FindMailboxes(env, place, &boxes, error)) return false;
  if (place.folder_given) {
    for (const MailboxRef& box : boxes) {
      FolderRef f;
      f.postoffice = box.postoffice;
      f.mailbox = box.mailbox;
      f.folder = place.folder;
      f.path = FolderDirectory({box.postoffice, box.mailbox, place.folder, true});
      if (!platform::DirectoryExists(env, f.path)) {
        *error = "no folder \"" + f.folder + "\" in " + box.postoffice + "/" + box.mailbox;
        return false;
      }
      f.item_class = FolderClass(f.postoffice.c_str(), f.mailbox.c_str(), f.folder.c_str());
      out->push_back(f);
    }
    return true;
  }
  for (const MailboxRef& box : boxes) AddFoldersBelow(env, box, "", out);
  return true;
}

}  // namespace qaaisp::qastore
