// Changing a folder's index: the commit of a held StoreIndex, and the
// transaction that the Direct_StoreIndex_* calls run against the file (lock
// and load, change, save and close), which detects a writer that rewrote
// the file without taking the block file and marks the folder dirty.
#pragma once

#include <cstdint>
#include <string>

#include "index/store_index.h"
#include "locks/block_file.h"
#include "qaaisp/qaaisp.h"

namespace qaaisp {

// Saves a changed index and refreshes the folder's status file. 2 when
// nothing changed (nothing is touched), 1 saved, 0 failed.
int StoreIndex_Commit(StoreIndex* index);
// Saves under the block file. 1 saved (or nothing to save), 0 when the index
// is unloaded, the block file could not be had or the write failed (the
// folder is then marked dirty). A file rewritten since the load is saved
// over all the same, and the folder is marked dirty so the next open
// re-scans it.
int StoreIndex_Save(StoreIndex* index);

// Names the index, takes the block file (kept open with wait_flag 1, left
// in place without a handle with 0) and loads at mode. On success the block
// file stays held for StoreIndex_SaveAndClose. Gives the load's result.
int StoreIndex_LockAndLoadEx(StoreIndex* index, const char* postoffice, const char* mailbox,
                             const char* folder, int wait_flag, BlockHandle* handle, int mode);
// With commit, saves and gives 0 if the file changed since the load or the
// write failed (the folder is then marked dirty), and writes the status file from details,
// or from the rows of a whole index when details is null. Always drops the
// block file. 1 otherwise.
int StoreIndex_SaveAndClose(StoreIndex* index, int commit, int wait_flag, BlockHandle* handle,
                            const FolderDetails* details);

// Removes the rows of the comma-separated identifiers. Adds the "SIZE" of
// each row found to *size_sum, and with details lowers its counters by the
// rows' flags. Gives the number of rows found.
int RemoveStoreItemByMessageID(StoreIndex* index, const std::string& identifiers,
                               int32_t item_class, int64_t* size_sum, FolderDetails* details);

// Fills a message summary from the row with this identifier; 1 if found.
int GetStoreItemByMessageID(StoreIndex* index, const char* identifier, int32_t item_class,
                            MessageSummaryRecord* out);

// Inserts a row made from an item file of the folder; 1 if one went in.
int StoreIndex_InsertItem(StoreIndex* index, const char* file_name, int flag);
// Removes rows by identifier; 1, or 0 for a null index.
int StoreIndex_RemoveItem(StoreIndex* index, const char* identifiers);

}  // namespace qaaisp
