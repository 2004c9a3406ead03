// Helpers for C callers, which cannot construct the library's objects or
// reach their fields: make and destroy a StoreIndex or an IndexItem, name an
// index, and read its row count.
#include <new>

#include "exports/caller_names.h"
#include "index/index_item.h"
#include "index/store_index.h"
#include "qaaisp/qaaisp.h"

extern "C" {

StoreIndex* StoreIndex_New(void) {
  try {
    return qaaisp::NewStoreIndex();
  } catch (...) {
    return nullptr;
  }
}

void StoreIndex_Delete(StoreIndex* ix) { delete ix; }

IndexItem* IndexItem_New(void) { return new (std::nothrow) IndexItem; }

void IndexItem_Delete(IndexItem* item) { delete item; }

int StoreIndex_SetNames(StoreIndex* ix, const char* po, const char* mbox, const char* folder,
                        int itemClass) {
  // A C caller passes "" for the inbox; null, an over-long name or one that
  // climbs out is refused, and the names stay as they were.
  if (!ix || !qaaisp::IsPlainName(po) || !qaaisp::IsPlainName(mbox) ||
      !qaaisp::IsContainedPath(folder)) {
    return 0;
  }
  qaaisp::SetStoreIndexNames(ix, po, mbox, folder, itemClass);
  return 1;
}

int StoreIndex_GetRowCount(StoreIndex* ix) { return ix ? ix->row_count : 0; }

}  // extern "C"
