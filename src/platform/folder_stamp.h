// The creation time of a folder, as a stable value even where the file
// system records none.
#pragma once

#include <string>

#include "platform/env.h"

namespace qaaisp::platform {

// The creation time of directory dir. Where the file system gives a birth
// time, that; otherwise the last-write time of the stamp file stamp_name in
// dir, made empty with an exclusive create the first time it is asked for
// and never written again, so that every process reads the same value for
// as long as the folder lives. False (with the last error set) if dir is not
// there or no stamp file can be made.
bool FolderCreationTime(Env* env, const std::string& dir, const char* stamp_name, FileTime* out);

}  // namespace qaaisp::platform
