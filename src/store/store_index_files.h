// Small pieces shared by the open and commit paths of a StoreIndex: the
// names of its index and block files, file times, and the warnings that the
// store prints on standard output.
#pragma once

#include <cstdint>
#include <string>

#include "index/store_index.h"
#include "platform/env.h"

namespace qaaisp {

// Source name of the guards of the index core.
inline constexpr const char* kStoreCoreSource = "..\\SERVICES\\Library\\LIBStoreIndexCore";

// "<folder>/_groups.xml" for groups, "<folder>/_index.xml" for all others.
std::string IndexFilePath(const std::string& folder_path, int32_t item_class);
// "<folder>/_groups.blk" for groups, "<folder>/_index.blk" for all others.
std::string BlockFilePath(const std::string& folder_path, int32_t item_class);

// Last-write time of a file as FILETIME ticks, 0 when it cannot be read.
uint64_t FileWriteTicks(platform::Env* env, const std::string& path);

// The mailbox directory of a folder path: the path up to the separator
// behind "MAILROOT/" and the mailbox's name. Empty when the path is not
// below a MAILROOT.
std::string MailboxDirectoryOf(const std::string& folder_path);

// Raises "COMMIT" for a mailbox directory.
void NotifyCommit(const std::string& mailbox_directory, const StoreIndex& index);

// Prints a "WARNING!:" line on standard output, where it leaves the process.
void PrintWarning(const char* text);

}  // namespace qaaisp
