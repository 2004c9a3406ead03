// The working record of one open folder. A thread holds one implicitly
// through its first slot; FolderIndex_Open hands out the same record.
#pragma once

#include <cstdlib>
#include <string>

struct StoreIndex;

struct FolderHandle {
  std::string postoffice;
  std::string mailbox;
  std::string folder;
  // Key of the open index in openIndexes, or empty.
  std::string key;
  // The current item's class is the handle's item class; -1 is unset.
  int item_class = -1;
  // The index in use; the handle holds one reference on it.
  StoreIndex* index = nullptr;
  // 512-byte block for the remote calendar class only.
  void* remote_calendar = nullptr;

  ~FolderHandle() { std::free(remote_calendar); }
};
