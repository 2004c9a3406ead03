#include "platform/folder_stamp.h"

#include "platform/win32_error.h"

namespace qaaisp::platform {

bool FolderCreationTime(Env* env, const std::string& dir, const char* stamp_name, FileTime* out) {
  FileInfo info;
  if (!env->Stat(dir + "/.", &info)) return false;
  if (!info.creation_time.IsZero()) {
    *out = info.creation_time;
    return true;
  }
  const std::string stamp = dir + "/" + stamp_name;
  if (!env->Stat(stamp, &info)) {
    // Nothing is written to the file: the time the kernel gives it at
    // creation is the stamp, so a process that loses the race to create it
    // reads the same value as the one that won.
    OpenOptions create;
    create.write = true;
    create.disposition = OpenDisposition::kCreateNew;
    create.share = ShareMode::kShareAny;
    std::unique_ptr<File> file = env->OpenFile(stamp, create);
    if (!file && LastError() != kErrorFileExists) return false;
    file.reset();
    if (!env->Stat(stamp, &info)) return false;
  }
  *out = info.write_time;
  return true;
}

}  // namespace qaaisp::platform
