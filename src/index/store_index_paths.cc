// The store path rules applied to the index objects.
#include <cstdio>

#include "base/library_settings.h"
#include "index/index_item.h"
#include "index/store_index.h"
#include "index/store_paths.h"

namespace qaaisp {

int SetStoreIndexPaths(StoreIndex* index) {
  if (!index) {
    std::fputs("WARNING!: StoreIndex is NULL when passed to StoreIndex_SetPaths\n", stdout);
    std::fflush(stdout);
    return 0;
  }
  if (!index->folder_path.empty()) return 1;
  index->folder_path = BuildIndexFolderPath(ModuleSettings().mail_root, index->postoffice.str(),
                                            index->mailbox.str(), index->folder.str());
  return 1;
}

void SetItemClassFromFileName(IndexItem* item, std::string_view file_name) {
  if (item) item->item_class = ClassByFileName(file_name);
}

}  // namespace qaaisp
