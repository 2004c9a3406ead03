// Flag files that tell other processes about a folder. "_CHANGE.DTY" says the
// folder changed outside its index and needs a re-scan; "_CACHED.DTY" would
// say that index changes wait in memory. Their time stamps also serve as the
// folder's modification date, so writing one always replaces it.
#pragma once

#include <string>

namespace qaaisp {

inline constexpr const char* kChangeFlagText =
    "This file is a flag file that denotes that this folder has been changed";
inline constexpr const char* kCachedFlagText =
    "This file is a flag file that there are cached transactions that are not written to disk.";

// Writes "_CHANGE.DTY" in the directory path. False if it could not be
// written, which callers ignore: the next commit or scan tries again.
bool SetDirtyPathNotification(const std::string& path);

// Marks a mailbox, public or file-share folder as changed.
bool SetDirtyFolderNotification(const std::string& postoffice, const std::string& mailbox,
                                const std::string& folder);

// Cached-transaction flags. Index changes are never held back in memory by
// this library, so both stay shut: nothing is written or deleted, and the
// clear gives 0.
bool SetCachedIndexFlag(const std::string& path);
int ClearCachedIndexFlag(const std::string& path);

// Scopes of a folder name, as IsPublicFolder gives them.
inline constexpr int kMailboxFolder = 0;
inline constexpr int kPublicSubfolder = 1;  // "Public/..."
inline constexpr int kPublicRoot = 2;       // "Public"

// 2 for exactly "Public", 1 for a name starting with "Public/", 0 otherwise;
// case does not matter.
int IsPublicFolder(const std::string& folder);

// The directory of a folder in a scope: the mailbox folder, the public
// folder below "Public/", or the public root, under the mail root.
std::string GetDirtyFolderPath(int scope, const std::string& postoffice, const std::string& mailbox,
                               const std::string& folder);

}  // namespace qaaisp
