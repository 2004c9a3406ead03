// The lifetime of a StoreIndex: initialise, open (deciding between the
// cached rows, a fresh load and a re-scan of the folder), scan, close and
// release. Results: 1 success, 0 failure; StoreIndex_Open gives 2 when the
// rows in memory are still those of the file.
#pragma once

#include "index/store_index.h"

namespace qaaisp {

// Open modes.
inline constexpr int kOpenFullCheck = 1;       // notify, injection, dirty test, cache, load
inline constexpr int kOpenRescan = 2;          // re-scan the folder, then load
inline constexpr int kOpenNoNotify = 4;        // as 1 without the first notification
inline constexpr int kOpenLoadNow = 5;         // load at once, never rebuilding
inline constexpr int kOpenFullCheckAlias = 6;  // the same as 1

int StoreIndex_Init(StoreIndex* index);
int StoreIndex_Open(StoreIndex* index, int mode);
int StoreIndex_Get(StoreIndex* index);
int StoreIndex_Scan(StoreIndex* index);
int StoreIndex_Scan_Ex(StoreIndex* index, int scan_mode);
int StoreIndex_Close(StoreIndex* index);
int StoreIndex_Release(StoreIndex* index);

// Detaches the current row, empties the table, and forgets the file size;
// the names, the path and the mutex stay.
void ResetStoreIndex(StoreIndex* index);

}  // namespace qaaisp
