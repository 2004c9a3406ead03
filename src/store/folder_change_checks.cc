#include "store/folder_change_checks.h"

#include <cstdlib>
#include <vector>

#include "base/store_files.h"
#include "notify/dirty_flags.h"
#include "platform/path_case.h"
#include "platform/win32_error.h"
#include "store/folder_status_file.h"

namespace qaaisp {
namespace {

// The number between the leading underscore and the first ".", as atol
// reads it.
long InjectionNumber(const std::string& name) {
  std::string digits =
      name.substr(1, name.find('.') == std::string::npos ? std::string::npos : name.find('.') - 1);
  return std::atol(digits.c_str());
}

}  // namespace

long ConsumeInjectionFiles(platform::Env* env, const std::string& mailbox_directory) {
  std::vector<platform::DirEntry> entries;
  if (!env->ListDirectory(mailbox_directory, false, &entries)) return 0;
  long best = 0;
  std::string best_name;
  for (const platform::DirEntry& entry : entries) {
    if (entry.is_directory || !platform::MatchPattern("_*.NEW", entry.name)) continue;
    long number = InjectionNumber(entry.name);
    if (number <= best) {
      env->RemoveFile(mailbox_directory + "/" + entry.name);
      continue;
    }
    // Files go by the name they were found under, so "_007.NEW" is consumed
    // as surely as "_7.NEW".
    if (!best_name.empty()) env->RemoveFile(mailbox_directory + "/" + best_name);
    best = number;
    best_name = entry.name;
  }
  if (!best_name.empty()) env->RemoveFile(mailbox_directory + "/" + best_name);
  return best;
}

bool FolderNeedsScan(platform::Env* env, const std::string& folder_path) {
  ClearCachedIndexFlag(folder_path);
  std::string change_flag = folder_path + "/" + files::kChangeFlag;
  // One call both tests and deletes; a flag that is there but cannot be
  // deleted still counts.
  bool was_dirty =
      env->RemoveFile(change_flag) || (platform::LastError() != platform::kErrorFileNotFound &&
                                       platform::LastError() != platform::kErrorPathNotFound);
  if (!kCachedStatusEnabled) return true;
  if (was_dirty) return true;
  return !platform::FileExists(env, folder_path + "/" + files::kIndexXml);
}

}  // namespace qaaisp
