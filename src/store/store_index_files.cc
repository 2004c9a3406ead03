#include "store/store_index_files.h"

#include <cstdio>

#include "base/store_files.h"
#include "index/store_paths.h"
#include "platform/path_case.h"
#include "store/store_hooks.h"

namespace qaaisp {

std::string IndexFilePath(const std::string& folder_path, int32_t item_class) {
  return folder_path + "/" + (item_class == kClassGroup ? files::kGroupsXml : files::kIndexXml);
}

std::string BlockFilePath(const std::string& folder_path, int32_t item_class) {
  return folder_path + "/" + (item_class == kClassGroup ? files::kGroupsBlk : files::kIndexBlk);
}

uint64_t FileWriteTicks(platform::Env* env, const std::string& path) {
  platform::FileInfo info;
  if (!env->Stat(path, &info) || !info.exists) return 0;
  return info.write_time.ticks();
}

std::string MailboxDirectoryOf(const std::string& folder_path) {
  static constexpr std::string_view kMailRoot = "MAILROOT/";
  std::string_view path = folder_path;
  for (size_t i = 0; i + kMailRoot.size() <= path.size(); ++i) {
    if (!platform::EqualsNoCase(path.substr(i, kMailRoot.size()), kMailRoot)) continue;
    size_t end = path.find('/', i + kMailRoot.size());
    return std::string(end == std::string_view::npos ? path : path.substr(0, end));
  }
  return {};
}

void NotifyCommit(const std::string& mailbox_directory, const StoreIndex& index) {
  Hooks().notify(mailbox_directory, index.postoffice.str(), index.mailbox.str(), "COMMIT");
}

void PrintWarning(const char* text) {
  std::fputs(text, stdout);
  std::fflush(stdout);
}

}  // namespace qaaisp
