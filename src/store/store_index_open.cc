#include "store/store_index_open.h"

#include <cstdio>
#include <string>

#include "base/failure_guard.h"
#include "base/library_settings.h"
#include "base/report.h"
#include "index/store_index_lock.h"
#include "index/store_paths.h"
#include "locks/block_file.h"
#include "persist/index_serialiser.h"
#include "platform/env.h"
#include "platform/path_case.h"
#include "store/folder_change_checks.h"
#include "store/rescan_wiring.h"
#include "store/store_hooks.h"
#include "store/store_index_files.h"

namespace qaaisp {
namespace {

bool IsCalendarOrTasks(int32_t item_class) {
  return item_class == kClassAppointment || item_class == kClassTask;
}

bool LoadForGet(StoreIndex* index, bool only_if_unloaded, bool rebuild) {
  return LoadIndexForClass(&index->table, index, index->folder_path.str(), index->item_class,
                           index->postoffice.str(), index->mailbox.str(), only_if_unloaded,
                           /*lock_held=*/false, LoadFull, /*verify_files=*/0, rebuild,
                           /*force_rebuild=*/false, /*report_failures=*/true, /*keep=*/false);
}

// Step 7 of an open: wait for any writer to finish with the folder and,
// under the block file and the mutex, bring a dirty folder's index up to
// date. True if a scan ran. A folder that cannot be blocked is not scanned
// now; the cache test and the load still follow.
bool BlockAndScan(StoreIndex* index, bool needs_scan) {
  const std::string block = BlockFilePath(index->folder_path.str(), index->item_class);
  BlockHandle handle = nullptr;
  if (!WaitForAccessToIndexFileEx(block, 1, &handle)) return false;
  // A block taken from a holder that never let go may cover a half-made
  // change, so the folder is brought up to date now.
  needs_scan = needs_scan || LastWaitBrokeBlock();
  bool scanned = false;
  {
    StoreIndexMutexLock lock(index);
    if (needs_scan && !IsCalendarOrTasks(index->item_class)) {
      qaaisp::StoreIndex_Scan_Ex(index, QA_STOREINDEX_CHECKDIRTY);
      if (index->item_class >= kClassContact && index->item_class <= kClassTask) {
        SaveIndexFile(&index->table, index->folder_path.str(), index->item_class);
      }
      Trace(8,
            "StoreIndex_Open::Performed qaaisp::StoreIndex_Scan(QA_STOREINDEX_CHECKDIRTY) on "
            "folder " +
                index->folder_path.str() + "\n");
      scanned = true;
    }
  }
  UnBlockIndexFileAccessEx(block, 1, &handle);
  return scanned;
}

// Steps 9 to 13: load the rows afresh.
int LoadRows(platform::Env* env, StoreIndex* index, int mode) {
  StoreIndexMutexLock lock(index);
  ResetStoreIndex(index);
  if (index->folder_path.empty()) {
    char text[96];
    std::snprintf(text, sizeof text,
                  "[Thread:%ld]StoreIndex_Open:: (Error) Attempted to open a blank folder name\n",
                  static_cast<long>(env->ThreadId()));
    Trace(8, text);
    return 0;
  }
  index->current_item.Detach();
  index->changed = 0;
  index->IndexFileSize = 0;
  const std::string path = index->folder_path.str();
  if (!LoadIndexForClass(&index->table, index, path, index->item_class, index->postoffice.str(),
                         index->mailbox.str(), /*only_if_unloaded=*/false, /*lock_held=*/false,
                         LoadFull, /*verify_files=*/0, /*rebuild=*/mode != kOpenLoadNow,
                         /*force_rebuild=*/false, /*report_failures=*/true, /*keep=*/false)) {
    Trace(8, "[Thread:" + std::to_string(env->ThreadId()) + "]" +
                 "StoreIndex_Open::Error opening store index in: " + path + "\n");
    return 0;
  }
  Trace(8, "StoreIndex_Open::Loaded index for folder " + path + "\n");
  platform::FileInfo info;
  if (env->Stat(IndexFilePath(path, kClassMessage), &info)) {
    index->IndexFileSize = static_cast<uint32_t>(info.size);
  }
  index->table.EnsureLevel(LoadFull);
  index->row_count = static_cast<int32_t>(index->table.size());
  index->last_uid_at_open = index->table.LastUID;
  return 1;
}

int OpenSteps(platform::Env* env, StoreIndex* index, int mode, uint32_t notification_mode) {
  const std::string path = index->folder_path.str();
  if (!platform::DirectoryExists(env, path)) return 0;

  if (mode == kOpenRescan) {
    {
      StoreIndexMutexLock lock(index);
      qaaisp::StoreIndex_Scan_Ex(index, QA_STOREINDEX_REINDEX);
      Trace(
          8,
          "StoreIndex_Open::Performing qaaisp::StoreIndex_Scan(QA_STOREINDEX_REINDEX) on folder " +
              path + "\n");
    }
    return LoadRows(env, index, mode);
  }
  if (mode == kOpenLoadNow) return LoadRows(env, index, mode);

  if (mode == kOpenFullCheck || mode == kOpenNoNotify) {
    bool notified = false;
    const std::string mailbox_directory = MailboxDirectoryOf(path);
    if (mode == kOpenFullCheck && notification_mode == 4) {
      NotifyCommit(mailbox_directory, *index);
      notified = true;
    }
    bool needs_scan = false;
    if (index->item_class == kClassMessage && SameFolder(index->folder.c_str(), "\\Inbox") &&
        notification_mode != 4 && !mailbox_directory.empty()) {
      needs_scan = ConsumeInjectionFiles(env, mailbox_directory) != 0;
    }
    if (index->item_class != kClassContactsAndGroups) {
      if (!IsCalendarOrTasks(index->item_class)) {
        needs_scan = FolderNeedsScan(env, path) || needs_scan;
        if (needs_scan && !notified && notification_mode == 4) {
          NotifyCommit(mailbox_directory, *index);
        }
      }
      if (BlockAndScan(index, needs_scan)) return LoadRows(env, index, mode);
    }
  }

  uint64_t file_time = FileWriteTicks(env, IndexFilePath(path, index->item_class));
  if (index->table.IndexFileDate != 0 && index->table.IndexFileDate == file_time) {
    Trace(8, "StoreIndex_Open::Using cached index for folder " + path + "\n");
    return 2;
  }
  return LoadRows(env, index, mode);
}

}  // namespace

void ResetStoreIndex(StoreIndex* index) {
  if (!index) {
    Trace(8,
          "StoreIndex_Release::WARNING!: StoreIndex is NULL when passed to StoreIndex_Release\n");
    return;
  }
  // The current row belongs to the table, which destroys it; a row of its
  // own would outlive the detach, so that one goes now.
  if (index->current_item.owned()) {
    index->current_item.Attach(nullptr, false);
    index->current_item.set_owned(false);
  }
  index->current_item.Detach();
  index->table.UnInit();
  index->reserved1 = 0;
  index->reserved_text.clear();
  index->IndexFileSize = 0;
}

int StoreIndex_Init(StoreIndex* index) {
  if (!index) {
    PrintWarning("WARNING!: StoreIndex is NULL when passed to StoreIndex_Init\n");
    return 0;
  }
  WireFolderRescan();
  LineTrace line = 0;
  return Guarded("StoreIndex_Init", kStoreCoreSource, __LINE__, line, [&] {
    index->table.UnInit();
    index->table.owner = index;
    index->reserved_text.clear();
    index->reserved1 = 0;
    index->reserved2 = 0;
    index->folder_details = FolderDetails{};
    return 1;
  });
}

int StoreIndex_Open(StoreIndex* index, int mode) {
  if (!index) {
    Trace(8, "StoreIndex_Open::WARNING!: StoreIndex is NULL when passed to StoreIndex_Open");
    return 0;
  }
  WireFolderRescan();
  platform::Env* env = platform::Env::Default();
  const uint32_t notification_mode = ModuleSettings().notification_mode;
  if (mode == kOpenFullCheckAlias) mode = kOpenFullCheck;
  LineTrace line = 0;
  try {
    return Guarded("StoreIndex_Open", kStoreCoreSource, __LINE__, line,
                   [&] { return OpenSteps(env, index, mode, notification_mode); });
  } catch (...) {
    return 0;
  }
}

int StoreIndex_Get(StoreIndex* index) {
  if (!index) {
    PrintWarning("WARNING!: StoreIndex is NULL when passed to StoreIndex_Get\n");
    return 0;
  }
  switch (index->item_class) {
    case kClassContact:
      LoadForGet(index, /*only_if_unloaded=*/false, /*rebuild=*/true);
      break;
    case kClassAppointment:
    case kClassTask:
      LoadForGet(index, /*only_if_unloaded=*/true, /*rebuild=*/true);
      break;
    default:
      qaaisp::StoreIndex_Open(index, kOpenLoadNow);
      break;
  }
  return 1;
}

int StoreIndex_Scan(StoreIndex* index) {
  return qaaisp::StoreIndex_Scan_Ex(index, QA_STOREINDEX_REINDEX);
}

int StoreIndex_Scan_Ex(StoreIndex* index, int scan_mode) {
  if (!index) {
    PrintWarning("WARNING!: StoreIndex is NULL when passed to StoreIndex_Scan\n");
    return 0;
  }
  WireFolderRescan();
  LineTrace line = 0;
  return Guarded("StoreIndex_Scan_Ex", kStoreCoreSource, __LINE__, line, [&] {
    platform::Env* env = platform::Env::Default();
    const std::string path = index->folder_path.str();
    if (!path.empty() && !platform::DirectoryExists(env, path)) env->MakeDirectory(path);
    index->item_class =
        FolderClass(index->postoffice.c_str(), index->mailbox.c_str(), index->folder.c_str());
    StoreIndexMutexLock lock(index);
    switch (index->item_class) {
      case kClassContact:
        return Hooks().scan_contacts(index, scan_mode);
      case kClassAppointment:
        // A calendar's index is not rebuilt by a scan.
        index->table.UnInit();
        index->table.LoadState = LoadFull;
        return 1;
      case kClassTask:
        return 1;
      default:
        return Hooks().scan_folder(index, scan_mode);
    }
  });
}

int StoreIndex_Close(StoreIndex* index) {
  if (!index) return 0;
  LineTrace line = 0;
  return Guarded("StoreIndex_Close", kStoreCoreSource, __LINE__, line, [&] {
    index->table.UnInit();
    return 1;
  });
}

int StoreIndex_Release(StoreIndex* index) {
  if (!index) {
    ResetStoreIndex(index);
    return 0;
  }
  LineTrace line = 0;
  return Guarded("StoreIndex_Release", kStoreCoreSource, __LINE__, line, [&] {
    ResetStoreIndex(index);
    CloseStoreIndexMutex(index);
    return 1;
  });
}

}  // namespace qaaisp
