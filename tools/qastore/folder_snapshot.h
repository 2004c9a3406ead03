// A read-only look at one folder: its index rows as the stream reader takes
// them, its item files, and its side files. Nothing is locked, created or
// written, so a look can never disturb a running server; what it sees may
// be a moment old, as with any reader that holds no block file.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "index/sorted_store_index.h"
#include "platform/env.h"
#include "qastore/output.h"

namespace qaaisp::qastore {

struct IndexSnapshot {
  std::string path;
  bool present = false;
  uint64_t file_size = 0;
  platform::FileTime write_time;
  // The first fault of a malformed file; empty when it is well formed.
  std::string fault;
  // Rows in the reader's order, owned by the table.
  std::unique_ptr<SORTEDSTOREINDEXTYPE> table = std::make_unique<SORTEDSTOREINDEXTYPE>();
};

// Reads the index file of a folder ("_index.xml", "_groups.xml" for groups)
// without lock or change. False only when a present file cannot be read.
bool ReadIndexSnapshot(platform::Env* env, const std::string& folder_path, int32_t item_class,
                       IndexSnapshot* out);

// The same for an index file named directly.
bool ReadIndexFile(platform::Env* env, const std::string& index_path, IndexSnapshot* out);

// The item files of a message folder as a re-scan takes them: "*.MAI",
// leaving out names that begin with "_" or ".", in name order without
// regard to case, with sizes and times.
struct ItemFiles {
  std::vector<platform::DirEntry> files;
  // Names a scan never indexes: 64 characters or longer.
  std::vector<std::string> too_long;
  bool listed = false;
};
ItemFiles ListMessageFiles(const std::string& folder_path);

// Longest item file name a scan indexes, plus one.
inline constexpr size_t kIndexableNameLimit = 64;

// A row as a record: "ID" and "UID" first, then every other property in
// name order. The position properties "SEQ" and "IDX" are left out unless
// with_positions.
Json RowRecord(const IndexItemPropertyContainer& row, bool with_positions);

// The value of one property of a row, or null when it has none.
Json RowValue(const IndexItemPropertyContainer& row, const std::string& name);

// The words of a flag list, split at blanks.
std::vector<std::string> SplitFlags(const std::string& flags);

}  // namespace qaaisp::qastore
