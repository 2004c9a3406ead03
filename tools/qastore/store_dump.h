// Readable forms of the store's files: index files with every row and where
// it lies, the status record, the offset table, size and flag files, what
// the indexer reads from a message file, and an overview of a folder
// directory. Files are read only.
#pragma once

#include <string>

#include "platform/env.h"
#include "qastore/output.h"

namespace qaaisp::qastore {

// Dumps the file or directory at path. False (with *error) for a path that
// cannot be read or a file of no known kind.
bool DumpPath(platform::Env* env, const std::string& path, Result* out, std::string* error);

// The 13 fields of a status record by name, from its 52 bytes.
Json FolderDetailsRecord(const std::string& bytes, std::string* error);

// The offset table: its header and one record per row.
bool OffsetTableRecords(const std::string& bytes, Json* header, Json* rows, std::string* error);

}  // namespace qaaisp::qastore
