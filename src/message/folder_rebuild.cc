// The rebuild of a message folder's index from its files, as the export
// runs it, and the registration that lets persistence rebuild message
// folders through the re-scan.
#include <memory>
#include <mutex>

#include "base/store_files.h"
#include "index/store_index.h"
#include "message/folder_rescan.h"
#include "persist/index_serialiser.h"
#include "persist/unindexed_index_serialiser.h"
#include "platform/path_case.h"

namespace qaaisp {
namespace {

int RescanForRebuild(SORTEDSTOREINDEXTYPE* index, const std::string& folder, int block_mode) {
  return ScanFoldersOrdered(index, folder, platform::kNoSocket, block_mode,
                            /*report_failures=*/true);
}

// Callers may spell the folder with either separator, with a trailing one,
// and in any case.
std::string NativeFolder(const std::string& folder) {
  std::string native = platform::ToNativeSeparators(folder);
  while (native.size() > 1 && native.back() == '/') native.pop_back();
  if (native.empty()) return native;
  return platform::ResolveCaseInsensitive(platform::Env::Default(), native);
}

}  // namespace

void RegisterMessageRescan() {
  static std::once_flag once;
  std::call_once(once, [] {
    UnindexedScanRoutines routines = GetUnindexedScanRoutines();
    routines.scan_messages = &RescanForRebuild;
    SetUnindexedScanRoutines(routines);
  });
}

bool ScanFolders(const std::string& folder_name) {
  RegisterMessageRescan();
  const std::string folder = NativeFolder(folder_name);
  if (folder.empty()) return false;
  StoreIndex index;
  index.table.owner = &index;
  index.item_class = 0;
  ScopedIndexAccess access(folder + "/" + files::kIndexBlk, 1);
  if (!access.held()) return false;

  index.folder_path = folder;
  index.table.folder_path = folder;
  index.table.index_type = 0;
  // An index file there is read and merged with a scan of the files.
  std::unique_ptr<StoreIndexSerialiser> loader =
      CreateIndexDeserialiser(folder, /*item_class=*/0, /*rebuild=*/true, /*force_rebuild=*/true);
  LoadRequest request;
  request.folder = folder;
  request.item_class = 0;
  request.mode = LoadFull;
  request.keep = false;
  request.verify_files = 1;
  request.quiet = false;
  const bool loaded =
      loader->Deserialise(&index.table, request, /*delete_change_file=*/true) >= LoadFull;
  // The load's rebuild has just saved the table whole; unchanged since, it
  // is not written again.
  if (loaded && !IndexSavedAsItStands(index.table, folder, /*item_class=*/0)) {
    SaveIndexFile(&index.table, folder, /*item_class=*/0);
  }
  return loaded;
}

}  // namespace qaaisp
