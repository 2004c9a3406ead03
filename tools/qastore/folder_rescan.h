// Repairs of a message folder's index from its files, with the folder's
// block file held so that servers wait meanwhile:
//
// - re-scan: the index is brought in line with the files. Rows of files
//   that went are dropped, new files get rows with new UIDs, rows of
//   changed files are read again, and flags and UIDs of the rest are kept.
// - rebuild: the same through the forced rebuild of the index layer, which
//   moves a damaged index file aside (".bad") and starts from nothing where
//   the file gives nothing. With from_files the index is not read at all:
//   every row is made from its file, so only the flags the files record
//   survive, and UIDs continue above the old last UID.
//
// Both end with the index saved, the dirty flag deleted and the status file
// written.
#pragma once

#include <cstdint>
#include <string>

#include "qastore/store_walk.h"

namespace qaaisp::qastore {

struct RepairOutcome {
  bool ok = false;
  size_t rows_before = 0;
  size_t rows_after = 0;
  uint32_t last_uid = 0;
  std::string error;
};

enum class RepairKind { kRescan, kRebuild, kRebuildFromFiles };

// Runs a repair on one message folder through the library's re-scan.
RepairOutcome RepairFolder(const FolderRef& folder, RepairKind kind);

}  // namespace qaaisp::qastore
