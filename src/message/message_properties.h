// From a MessageHeaderInfo to the properties of an index row, and the
// refresh of one row from its file.
#pragma once

#include <cstdint>
#include <string>

#include "message/message_header_info.h"
#include "platform/env.h"

class IndexItem;

namespace qaaisp {

// Writes every property of a new row; with keys_only only "ID" and "UID".
// Fills in info's Flags as "FLAGSTATUS" stores them.
void SetMessageProperties(IndexItem* row, MessageHeaderInfo* info, bool keys_only);

// Writes every property of an existing row except "ID", "UID" and
// "CATEGORIES".
void UpdateMessageProperties(IndexItem* row, MessageHeaderInfo* info);

// The short refresh of a row whose file changed: dates, subject,
// attachments, read state and size, leaving the flags a user has set alone.
void UpdateMessageSummaryProperties(IndexItem* row, const MessageHeaderInfo& info);

// Reads the file of a directory entry of folder again (flags cleared, with
// attachments verified) and refreshes its row: all of it with refresh_all,
// the summary otherwise. Gives 1, or 0 if the file cannot be read, in which
// case the row is left alone.
int ReindexMessage(IndexItem* row, const std::string& folder, const platform::DirEntry& entry,
                   uint32_t stamp, bool refresh_all);

}  // namespace qaaisp
