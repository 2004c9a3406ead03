// The read-only comparison of a message folder's index with its files:
// what verify reports, and what a re-scan or rebuild would do, which is how
// their dry runs are answered.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/env.h"
#include "qastore/output.h"
#include "qastore/store_walk.h"

namespace qaaisp::qastore {

struct LostFlags {
  std::string id;
  std::vector<std::string> flags;  // in the index, not in what the file would give
};

struct FolderAudit {
  bool index_present = false;
  std::string index_fault;  // a malformed index file
  size_t rows = 0;
  size_t files = 0;
  uint32_t last_uid = 0;
  std::vector<std::string> rows_without_files;
  std::vector<std::string> files_without_rows;
  // Rows whose file's size or time no longer match: a re-scan reads them
  // again.
  std::vector<std::string> changed_files;
  std::vector<std::string> unindexable_files;  // names too long to index
  // The status file disagrees with the rows on the total or the last UID.
  bool status_differs = false;
  std::string status_detail;
  bool marked_dirty = false;  // _CHANGE.DTY is waiting for the next open
  // Flags that live only in the index and that a rebuild from the files
  // alone would not restore (filled only when asked for).
  std::vector<LostFlags> flags_at_risk;
  bool flags_checked = false;

  // Differences that make verify fail: rows and files out of step, a
  // malformed index, a stale status file.
  bool HasFindings() const;
  // One record per finding ("folder", "finding", "item", "detail").
  void AppendFindings(const FolderRef& folder, Json* out) const;
};

struct AuditOptions {
  // Read each file with the message indexer to learn which flags a rebuild
  // from the files would give, and compare them with the rows.
  bool check_flags = true;
};

// Audits a message folder. False (with *error) when the index file exists
// but cannot be read at all.
bool AuditFolder(platform::Env* env, const FolderRef& folder, const AuditOptions& options,
                 FolderAudit* out, std::string* error);

// The "FLAGSTATUS" a row made from this file alone would have.
std::string FlagsFromFile(const std::string& folder_path, const std::string& file_name);

}  // namespace qaaisp::qastore
