// _FOLDER.DAT: the status record of a folder (FolderDetails), 52 bytes of
// thirteen little-endian 32-bit integers with no header, read and written
// whole. It is a cache that may always be absent: a failed read gives zeros,
// and a failed write never fails the caller.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/env.h"
#include "qaaisp/qaaisp.h"

namespace qaaisp {

inline constexpr size_t kFolderDetailsBytes = 52;
static_assert(sizeof(FolderDetails) == kFolderDetailsBytes);

// Whether the status cache is used at all. On in this library; the open's
// dirty test and GetCachedStatus both honour it.
inline constexpr bool kCachedStatusEnabled = true;

// A negative total becomes 0; seen, deleted, answered, recent and the
// recent count are then each held between 0 and the total. The second
// recent count and the other fields are left as they are.
void SanitiseFolderDetails(FolderDetails* details);

// The wire form, independent of the host's byte order.
void EncodeFolderDetails(const FolderDetails& details, unsigned char out[kFolderDetailsBytes]);
// False unless bytes is exactly one record.
bool DecodeFolderDetails(std::string_view bytes, FolderDetails* out);

// Reads and sanitises the record at path. Any failure gives zeros; failures
// other than a missing file go to the trace.
void ReadFolderStatusFile(platform::Env* env, const std::string& path, FolderDetails* out);
// Sanitises a copy and writes it whole, in place. False (traced) on failure.
bool WriteFolderStatusFile(platform::Env* env, const std::string& path,
                           const FolderDetails& details);

// The file in a folder directory ("<dir>/_FOLDER.DAT").
std::string FolderStatusPathIn(const std::string& folder_directory);
// The file of a folder named by its three names, by the folder-path builder;
// an empty folder name gives the mailbox's own file.
std::string FolderStatusPath(const std::string& postoffice, const std::string& mailbox,
                             const std::string& folder);

// The two exports' logic. Get gives zeros when the file cannot be read, and
// does nothing at all with the cache switched off; Set does nothing unless
// all three names are given.
void GetCachedStatus(const char* postoffice, const char* mailbox, const char* folder,
                     FolderDetails* out);
void SetCachedStatus(const char* postoffice, const char* mailbox, const char* folder,
                     const FolderDetails& in);

}  // namespace qaaisp
