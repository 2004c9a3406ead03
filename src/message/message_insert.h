// Delivery into an index: a message file of the index's folder becomes a
// filled row with the next UID.
#pragma once

#include <string>

struct StoreIndex;
class IndexItem;

namespace qaaisp {

// Whether rows of this item class are messages.
bool IsMessageClass(int item_class);

// Reads the message file_name of the index's folder and inserts its row,
// with the next UID of the index. flags, if given, is the caller's flag text
// for the file (blank-separated flags; one holding "SEEN" marks the message
// read) and replaces the status the file itself records; null lets the file
// say. With "UID Branding Enabled" the file is then branded with its UID.
// On success *row holds the inserted row (not owned) and the result is 1;
// 0 if the file cannot be read or its "ID" is already in the index.
int InsertMessageFromFile(StoreIndex* index, const std::string& file_name, const char* flags,
                          IndexItem* row);

// The "Message-ID" of a message file as the indexer "New Indexing" picks
// reads it, for the duplicate test of a delivery. False if the file cannot
// be read or has none.
bool ReadMessageIdForDuplicates(const std::string& path, std::string* message_id);

}  // namespace qaaisp
