#include "index/store_index.h"

StoreIndex::StoreIndex() { table.owner = this; }

StoreIndex::~StoreIndex() {
  // The current item may point into the table; the table destroys its rows.
  if (!current_item.owned()) current_item.Detach();
  qaaisp::CloseRawMutex(hMutex);
}

namespace qaaisp {

StoreIndex* NewStoreIndex() {
  auto* index = new StoreIndex;
  index->hMutex = OpenOrCreateMutex(nullptr);
  index->lock_owner = 0;
  return index;
}

void CloseStoreIndexMutex(StoreIndex* index) {
  CloseRawMutex(index->hMutex);
  index->hMutex = nullptr;
  index->lock_owner = 0;
}

void SetStoreIndexNames(StoreIndex* index, const char* postoffice, const char* mailbox,
                        const char* folder, int32_t item_class) {
  index->postoffice = postoffice ? postoffice : "";
  index->mailbox = mailbox ? mailbox : "";
  index->folder = folder ? folder : "";
  index->item_class = item_class;
}

}  // namespace qaaisp
