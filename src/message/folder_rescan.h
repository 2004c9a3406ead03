// The folder re-scan: reconciles a message folder's index with the ".MAI"
// files on disk. It is the cure for an index that is missing, damaged or
// marked dirty. A file whose time and size agree with its row costs one
// directory entry; a new file is read once; rows of vanished files go; and
// the index is saved in one pass at the end.
#pragma once

#include <cstdint>
#include <string>

#include "index/sorted_store_index.h"
#include "platform/env.h"
#include "platform/socket.h"
#include "qaaisp/qaaisp.h"

struct StoreIndex;

namespace qaaisp {

// The block mode that says the caller holds the folder's index access: no
// block file is touched.
inline constexpr int kBlockModeHeld = 99;

// Reconciles index with the message files of folder. socket, if given, is
// the connection of the client the scan runs for: the scan stops when it
// has gone. block_mode is passed to the block file calls (1 keeps a handle);
// kBlockModeHeld skips them. Gives 0 for an empty folder, 1 if the block
// file could not be had (nothing is done then) or no save was made, and
// otherwise the save's result. An aborted scan saves nothing and leaves
// "_CHANGE.DTY" in place, so that the next open scans again.
int ScanFoldersOrdered(SORTEDSTOREINDEXTYPE* index, const std::string& folder,
                       platform::SocketHandle socket, int block_mode, bool report_failures);

// Makes the row of a message file that the index lacks, with the next UID
// of *uid_counter, and inserts it. An entry listed without sizes and times
// (write time zero) takes its size from the read. Gives 1, or 0 (no row)
// if the file cannot be read.
int AddMessageRow(SORTEDSTOREINDEXTYPE* index, const std::string& folder, platform::DirEntry* entry,
                  uint32_t stamp, uint32_t* uid_counter);

// The re-scan of a StoreIndex's own folder, with no socket; 0 if it has no
// folder path.
int ScanStoreIndex(StoreIndex* index, int block_mode);

// Rebuilds the index of a message folder from its files and the index
// file it has, under the folder's block file, and saves it. True if the
// load reached full level.
bool ScanFolders(const std::string& folder);

// "Maximum Index Rows" (default 1000000): the most directory entries one
// scan takes in. Read once per process.
uint32_t MaximumIndexRowsSetting();
void ResetRescanSettingsForTesting();

// The folder's index access for a scope: the block file is waited for
// with block_mode (and not touched at all with kBlockModeHeld) and given
// back however the scope ends.
class ScopedIndexAccess {
 public:
  ScopedIndexAccess(std::string block_path, int block_mode);
  ~ScopedIndexAccess();
  ScopedIndexAccess(const ScopedIndexAccess&) = delete;
  ScopedIndexAccess& operator=(const ScopedIndexAccess&) = delete;

  // Whether the scope may work on the folder's index.
  bool held() const { return held_; }

 private:
  std::string block_path_;
  int block_mode_;
  void* handle_ = nullptr;
  bool held_ = false;
  bool taken_ = false;
};

// The status file of a folder is kept by a layer above this one, which
// registers how to write it; until then the scan writes none.
using FolderStatusWriter = void (*)(const std::string& folder, const FolderDetails& details);
void SetFolderStatusWriter(FolderStatusWriter writer);

// Gives the rebuild of an index from item files (persistence) this scan
// for message folders. Safe to call from any thread, any number of times.
void RegisterMessageRescan();

}  // namespace qaaisp
