#include "qastore/folder_rescan.h"

#include "base/store_files.h"
#include "index/store_paths.h"
#include "locks/block_file.h"
#include "message/folder_rescan.h"
#include "persist/index_serialiser.h"
#include "qastore/folder_snapshot.h"
#include "store/rescan_wiring.h"

namespace qaaisp::qastore {
namespace {

// Runs the re-scan with the folder's block file held here, so that a block
// that cannot be had is told apart from a scan that had nothing to do.
// With from_files the old index goes aside first (the administrator may
// want it back), and an empty one that carries the old last UID takes its
// place, so that the scan gives every message a UID above any a client has
// seen.
bool RescanUnderBlock(const FolderRef& folder, bool from_files, uint32_t old_last_uid,
                      std::string* error) {
  platform::Env* env = platform::Env::Default();
  const std::string block = folder.path + "/" + files::kIndexBlk;
  BlockHandle handle = nullptr;
  if (!WaitForAccessToIndexFileEx(block, 1, &handle)) {
    *error = "the folder's block file could not be taken";
    return false;
  }
  SORTEDSTOREINDEXTYPE table;
  if (from_files) {
    const std::string index_path = folder.path + "/" + files::kIndexXml;
    if (platform::FileExists(env, index_path)) {
      env->RenamePath(index_path, folder.path + "/" + files::kIndexBad, /*replace=*/true);
    }
    table.LastUID = old_last_uid;
    table.LoadState = LoadFull;
    table.FullRewriteRequired = true;
    SaveIndexFile(&table, folder.path, kClassMessage);
  }
  const int result =
      ScanFoldersOrdered(&table, folder.path, platform::kNoSocket, kBlockModeHeld, true);
  UnBlockIndexFileAccessEx(block, 1, &handle);
  if (result <= 0) *error = "the re-scan failed";
  return result > 0;
}

}  // namespace

RepairOutcome RepairFolder(const FolderRef& folder, RepairKind kind) {
  platform::Env* env = platform::Env::Default();
  WireFolderRescan();
  RepairOutcome out;
  bool index_present = false;
  {
    IndexSnapshot before;
    ReadIndexSnapshot(env, folder.path, kClassMessage, &before);
    index_present = before.present;
    out.rows_before = before.table->by_id().size();
    out.last_uid = before.table->LastUID;
  }
  bool ok = false;
  switch (kind) {
    case RepairKind::kRescan:
      ok = RescanUnderBlock(folder, false, 0, &out.error);
      break;
    case RepairKind::kRebuild:
      if (!index_present) {
        // With no index file there is nothing to merge, and the re-scan
        // builds the index without the rebuild's wait for a file that is
        // not there.
        ok = RescanUnderBlock(folder, false, 0, &out.error);
        break;
      }
      ok = ScanFolders(folder.path);
      if (!ok) out.error = "the rebuild did not reach a full index";
      break;
    case RepairKind::kRebuildFromFiles:
      ok = RescanUnderBlock(folder, true, out.last_uid, &out.error);
      break;
  }
  IndexSnapshot after;
  ReadIndexSnapshot(env, folder.path, kClassMessage, &after);
  out.rows_after = after.table->by_id().size();
  out.last_uid = after.table->LastUID;
  if (ok && (!after.present || !after.fault.empty())) {
    ok = false;
    out.error = "the saved index could not be read back";
  }
  out.ok = ok;
  return out;
}

}  // namespace qaaisp::qastore
