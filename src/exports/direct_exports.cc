// Direct index exports: one-call insert, update and remove for services
// that hold no index of their own.
#include "exports/caller_names.h"
#include "qaaisp/qaaisp.h"
#include "store/direct_store_index.h"

extern "C" {

int Direct_StoreIndex_InsertItemEx(const char* po, const char* mbox, const char* folder,
                                   const char* fileNames, const char* flags) {
  if (!folder || !qaaisp::NamesAFolder(po, mbox, folder) || !qaaisp::IsPlainNameList(fileNames))
    return 0;
  try {
    return qaaisp::Direct_StoreIndex_InsertItemEx(po, mbox, folder, fileNames, flags) > 0 ? 1 : 0;
  } catch (...) {
    return 0;
  }
}

int Direct_StoreIndex_InsertItem(const char* po, const char* mbox, const char* folder,
                                 const char* fileNames) {
  return Direct_StoreIndex_InsertItemEx(po, mbox, folder, fileNames, nullptr);
}

int Direct_StoreIndex_UpdateItem(const char* po, const char* mbox, const char* folder,
                                 const char* ids, const char* update) {
  if (!folder || !qaaisp::NamesAFolder(po, mbox, folder) || !qaaisp::IsPlainNameList(ids)) return 0;
  try {
    return qaaisp::Direct_StoreIndex_UpdateItem(po, mbox, folder, ids, update);
  } catch (...) {
    return 0;
  }
}

int Direct_StoreIndex_RemoveItem(const char* po, const char* mbox, const char* folder,
                                 const char* ids) {
  if (!folder || !qaaisp::NamesAFolder(po, mbox, folder) || !qaaisp::IsPlainNameList(ids)) return 0;
  try {
    return qaaisp::Direct_StoreIndex_RemoveItem(po, mbox, folder, ids);
  } catch (...) {
    return 0;
  }
}

}  // extern "C"
