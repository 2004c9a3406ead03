// _DIRSIZE.TMP: a mailbox's (or a folder's, or a file share's) size in
// kilobytes as one unsigned decimal number with no line end. Commits adjust
// it by the size of what they added or removed, so quota checks need not
// walk the mailbox on each delivery.
#pragma once

#include <cstdint>
#include <string>

#include "platform/env.h"

namespace qaaisp {

// Adds delta to the number in the file at path, holding the file
// exclusively; a result below 0 is stored as 0. A file that cannot be opened
// is deleted instead where it can be, so the next measure rebuilds it rather
// than a stale size living on; one held by a concurrent updater can be
// neither, and keeps that updater's figure. False if the file was not
// updated.
bool AdjustSizeFile(platform::Env* env, const std::string& path, int64_t delta);

// The size files of a mailbox, of one of its folders and of its file share.
std::string MailboxSizeFilePath(const std::string& postoffice, const std::string& mailbox);
std::string FolderSizeFilePath(const std::string& postoffice, const std::string& mailbox,
                               const std::string& folder);
std::string FileShareSizeFilePath(const std::string& postoffice, const std::string& mailbox);

// Adds delta (kilobytes) to the mailbox's size file, or the file share's if
// the folder is under "$FILEROOT", and then to the folder's own size file
// where it has one. A delta of 0 does nothing.
void UpdateMailboxSizeMetaData(const std::string& postoffice, const std::string& mailbox,
                               int64_t delta, const std::string& folder);

// The size of a file in kilobytes as commits count it: rounded to the
// nearest whole kilobyte.
int64_t KilobytesRounded(uint64_t bytes);

}  // namespace qaaisp
