// StoreIndex: the in-memory index of one folder as callers work on it, with
// its names, its table of rows, the row being worked on, its reference count,
// the folder's status record and the mutex that guards it all. Opening,
// caching and committing work on these fields from the layers above.
#pragma once

#include <cstdint>

#include "index/index_item.h"
#include "index/name_text.h"
#include "index/sorted_store_index.h"
#include "locks/mutex.h"
#include "qaaisp/qaaisp.h"

struct StoreIndex {
  // Constructs the table and an empty current item, with no mutex: the owner
  // makes one (NewStoreIndex does).
  StoreIndex();
  // Destroys the rows and closes the mutex if it is still there.
  ~StoreIndex();
  StoreIndex(const StoreIndex&) = delete;
  StoreIndex& operator=(const StoreIndex&) = delete;

  qaaisp::NameText reserved_text;
  qaaisp::NameText postoffice;
  qaaisp::NameText mailbox;
  qaaisp::NameText folder;
  // Size of the row vector as of the last open.
  int32_t row_count = 0;
  qaaisp::SORTEDSTOREINDEXTYPE table;
  qaaisp::NameText folder_path;
  // 1 when rows changed since the last commit.
  int32_t changed = 0;
  int32_t reserved1 = 0;
  int32_t reserved2 = 0;
  // LastUID as of the last open.
  uint32_t last_uid_at_open = 0;
  // The row being worked on.
  IndexItem current_item;
  // Size of the index file at load.
  uint32_t IndexFileSize = 0;
  int32_t item_class = 0;
  // FolderHandle records that use this object.
  int32_t reference_count = 0;
  FolderDetails folder_details{};
  // The block file while held.
  QA_HANDLE block_handle = nullptr;
  // Unnamed, made by the owner; null until then.
  qaaisp::MutexHandle hMutex = nullptr;
  // Thread that holds the mutex through a StoreIndexMutexLock, 0 when free.
  uint32_t lock_owner = 0;
};

namespace qaaisp {

// A StoreIndex as an owner makes one: constructed, with its mutex made.
StoreIndex* NewStoreIndex();
// Closes the mutex (clearing the handle and the lock owner).
void CloseStoreIndexMutex(StoreIndex* index);

// Sets the three names (cut at 1023 bytes; null is empty) and the class.
void SetStoreIndexNames(StoreIndex* index, const char* postoffice, const char* mailbox,
                        const char* folder, int32_t item_class);

}  // namespace qaaisp
