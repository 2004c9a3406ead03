// The two cheap tests by which an open learns that a folder changed behind
// its index: injection files dropped in a mailbox by a delivery, and the
// dirty flag (or a missing index file) in the folder itself.
#pragma once

#include <string>

#include "platform/env.h"

namespace qaaisp {

// Consumes the "_<n>.NEW" files of a mailbox directory: every file but the
// one with the highest number is deleted as it is met, and that one last.
// Gives the highest number, 0 when there was none. The files only signal
// that the inbox needs a re-scan, so nothing of their content is read.
long ConsumeInjectionFiles(platform::Env* env, const std::string& mailbox_directory);

// True if the folder must be re-scanned: _CHANGE.DTY was there (it is
// deleted), or the folder has no index file. Clears the cached flag first.
bool FolderNeedsScan(platform::Env* env, const std::string& folder_path);

}  // namespace qaaisp
