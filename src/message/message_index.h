// Reading a message file into a MessageHeaderInfo. Two readers exist: the
// MIME reader, which loads the whole message and walks its structure, and
// the older line reader, which stops at the end of the header (or after
// kMaxHeaderLines lines) and keeps the quirks stores indexed by it rely on.
// "New Indexing" chooses between them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "message/message_header_info.h"

namespace qaaisp {

// The line reader reads no more lines than this, blank line included.
inline constexpr int kMaxHeaderLines = 301;

// Attachment modes of the line reader: with kAttachmentsVerified, a header
// that promises attachments is checked against the body's parts.
inline constexpr int kAttachmentsAsHeaderSays = 0;
inline constexpr int kAttachmentsVerified = 2;

// Fills info from the message at path by the reader "New Indexing" picks:
// 0 the line reader with every argument, any other value the MIME reader,
// on which clear_flags and branding_enabled have no effect. file_size, if
// given, receives the size of the file as read. Gives 1, or 0 if the file
// cannot be read.
int IndexMessage(const std::string& path, MessageHeaderInfo* info, bool clear_flags,
                 uint32_t branding_enabled, int attachment_mode, bool ignore_read,
                 uint64_t* file_size = nullptr);

int IndexMessageByMime(const std::string& path, MessageHeaderInfo* info, bool clear_flags,
                       uint32_t branding_enabled, uint64_t* file_size = nullptr);

// With branding_enabled the header lines that carry the message's own data
// (class, temporary flags, priority, date, identifier, attachment hints) are
// not read, only "X-UID"; this exclusive choice is the reader's own.
int IndexMessageByLines(const std::string& path, MessageHeaderInfo* info, bool clear_flags,
                        uint32_t branding_enabled, int attachment_mode, bool ignore_read,
                        uint64_t* file_size = nullptr);

}  // namespace qaaisp
