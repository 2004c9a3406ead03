// UID branding: the header lines the store writes into message files so
// that a rebuilt index can tell a message of this folder from one moved in.
// Files are never edited in place: each rewrite goes to a work file named
// with a leading underscore (which listing and scanning skip), and the work
// file then replaces the message.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qaaisp {

// The texts these routines print to standard output.
inline constexpr const char* kCannotOpenForInput = "Could not open message file for input\r\n";
inline constexpr const char* kCannotOpenForWriting = "Could not open message file for writing\r\n";

// The stamp of a folder's incarnation: its creation time as Unix time, or,
// for a folder made before 1 April 2014 00:00:01 UTC, the low 32 bits of the
// creation file time (the form older stores were branded with, which must
// keep matching). 0 if the folder is not there.
uint32_t GetFolderStamp(const std::string& folder);

// The stamp and UID as they stand in a file: "X-UID: stamp.uid\r\n", or
// "X-UID: uid\r\n" for stamp 0.
std::string UidLine(uint32_t stamp, uint32_t uid);

// The three below do nothing (and MessageHasTempFlags gives 0) unless "UID
// Branding Enabled" is on.

// Replaces every "X-UID: " line of the header with the new one, or adds the
// new line before the blank line if there was none. A file whose header
// never ends keeps what it had.
void BrandMessageUID(const std::string& folder, const std::string& file, uint32_t stamp,
                     uint32_t uid);

// 1 if the header has a line starting "X-QATempFlags: ".
int MessageHasTempFlags(const std::string& folder, const std::string& file);

// Strips the "X-UID: " and "X-QATempFlags: " lines of the header. A file
// with neither keeps its bytes.
void RebrandMessage(const std::string& folder, const std::string& file, uint32_t stamp,
                    uint32_t uid);

}  // namespace qaaisp
