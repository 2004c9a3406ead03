#include "index/index_block.h"

#include <string>

#include "base/store_files.h"
#include "index/store_index.h"
#include "index/store_paths.h"
#include "locks/block_file.h"

namespace qaaisp {
namespace {

std::string BlockFilePath(const StoreIndex& index) {
  std::string path = index.folder_path.str() + "/" + files::kIndexBlk;
  if (path.size() > kMaxPathLength) path.resize(kMaxPathLength);
  return path;
}

}  // namespace

bool BlockIndexFile(StoreIndex* index) {
  if (!index) return false;
  return WaitForAccessToIndexFileEx(BlockFilePath(*index), 1, &index->block_handle) == 1;
}

void UnBlockIndexFile(StoreIndex* index) {
  if (!index) return;
  UnBlockIndexFileAccessEx(BlockFilePath(*index), 1, &index->block_handle);
}

}  // namespace qaaisp
