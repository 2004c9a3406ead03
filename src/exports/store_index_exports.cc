// Index exports: open, cache, close, save and the row calls on a held
// StoreIndex, and the folder status cache.
#include "exports/caller_names.h"
#include "index/store_index.h"
#include "qaaisp/qaaisp.h"
#include "store/folder_status_file.h"
#include "store/store_index_commit.h"
#include "store/store_index_open.h"

namespace {

// Runs an export's body; a failure that escaped the guards is a 0.
template <typename Body>
int Shield(Body&& body) {
  try {
    return body();
  } catch (...) {
    return 0;
  }
}

}  // namespace

extern "C" {

int StoreIndex_Init(StoreIndex* ix) {
  return Shield([&] { return qaaisp::StoreIndex_Init(ix); });
}

int StoreIndex_Open(StoreIndex* ix, int mode) {
  return Shield([&] { return qaaisp::StoreIndex_Open(ix, mode); });
}

int StoreIndex_Get(StoreIndex* ix) {
  return Shield([&] { return qaaisp::StoreIndex_Get(ix); });
}

int StoreIndex_Scan(StoreIndex* ix) {
  return Shield([&] { return qaaisp::StoreIndex_Scan(ix); });
}

int StoreIndex_Close(StoreIndex* ix) {
  return Shield([&] { return qaaisp::StoreIndex_Close(ix); });
}

int StoreIndex_Release(StoreIndex* ix) {
  return Shield([&] { return qaaisp::StoreIndex_Release(ix); });
}

int StoreIndex_Save(StoreIndex* ix) {
  return Shield([&] { return qaaisp::StoreIndex_Save(ix); });
}

int StoreIndex_InsertItem(StoreIndex* ix, const char* fileName, int flag) {
  if (!qaaisp::IsPlainName(fileName)) return 0;
  return Shield([&] { return qaaisp::StoreIndex_InsertItem(ix, fileName, flag); });
}

int StoreIndex_RemoveItem(StoreIndex* ix, const char* identifiers) {
  if (!identifiers) return 0;
  return Shield([&] { return qaaisp::StoreIndex_RemoveItem(ix, identifiers); });
}

int GetStoreItemByMessageID(StoreIndex* ix, const char* id, int itemClass,
                            MessageSummaryRecord* out) {
  return Shield([&] { return qaaisp::GetStoreItemByMessageID(ix, id, itemClass, out); });
}

void GetCachedStatus(const char* po, const char* mbox, const char* folder, FolderDetails* out) {
  if (!out) return;
  if (!qaaisp::NamesAFolder(po, mbox, folder)) {
    *out = FolderDetails{};  // as for a status file that cannot be read
    return;
  }
  Shield([&] {
    qaaisp::GetCachedStatus(po, mbox, folder, out);
    return 1;
  });
}

void SetCachedStatus(const char* po, const char* mbox, const char* folder,
                     const FolderDetails* in) {
  if (!in || !qaaisp::NamesAFolder(po, mbox, folder)) return;
  Shield([&] {
    qaaisp::SetCachedStatus(po, mbox, folder, *in);
    return 1;
  });
}

}  // extern "C"
