#include "store/store_index_commit.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <set>
#include <string_view>

#include "base/failure_guard.h"
#include "base/report.h"
#include "index/store_index_lock.h"
#include "index/store_paths.h"
#include "notify/dirty_flags.h"
#include "persist/index_serialiser.h"
#include "persist/index_text.h"
#include "platform/env.h"
#include "platform/path_case.h"
#include "platform/win32_error.h"
#include "store/flag_update.h"
#include "store/folder_status_file.h"
#include "store/store_hooks.h"
#include "store/store_index_files.h"

namespace qaaisp {
namespace {

std::string Format(const char* format, const std::string& path) {
  std::string text(std::strlen(format) + path.size(), '\0');
  int n = std::snprintf(text.data(), text.size() + 1, format, path.c_str());
  text.resize(n > 0 ? static_cast<size_t>(n) : 0);
  return text;
}

std::set<std::string, std::less<>> SplitIdentifiers(std::string_view text) {
  std::set<std::string, std::less<>> ids;
  while (!text.empty()) {
    size_t comma = text.find(',');
    std::string_view id = text.substr(0, comma);
    if (!id.empty()) ids.emplace(id);
    if (comma == std::string_view::npos) break;
    text.remove_prefix(comma + 1);
  }
  return ids;
}

void CopyText(const IndexItemPropertyContainer& row, const char* name, char* out, size_t size) {
  row.GetText(name, out, size);
}

// Runs the chosen writer and tells whether the file took the changes.
// SaveIndexFile itself reports success whatever the writer did; the marks it
// leaves cannot tell either, since a save of removals alone sets none.
bool SaveRows(StoreIndex* index, const std::string& path) {
  bool written = false;
  SaveIndexFile(&index->table, path, index->item_class, &written);
  return written;
}

// The save under the block file.
int SaveUnderBlock(platform::Env* env, StoreIndex* index) {
  StoreIndexMutexLock lock(index);
  if (index->table.LoadState == LoadFailed) return 0;
  int result = 1;
  const std::string path = index->folder_path.str();
  if (path.empty()) {
    index->changed = 0;
    return 1;
  }
  env->MakeDirectory(path);
  const std::string block = BlockFilePath(path, kClassMessage);
  BlockHandle handle = nullptr;
  if (!WaitForAccessToIndexFileEx(block, 1, &handle)) {
    Trace(8, Format("StoreIndex_Save::Error - Unable to lock index for folder %s\n", path));
    return 0;
  }
  bool changed_under_us = false;
  if (FileWriteTicks(env, IndexFilePath(path, index->item_class)) != index->table.IndexFileDate) {
    Trace(8, Format("StoreIndex_Save::Warning: Store Index was modified while being transacted "
                    "for folder: %s\n",
                    path));
    // Rows added since our load may be lost by this write, but never their
    // UIDs: the save keeps the file's higher LastUID.
    changed_under_us = true;
  }
  result = SaveRows(index, path) ? 1 : 0;
  // The write went ahead over somebody else's; the next open re-scans.
  if (changed_under_us) SetDirtyPathNotification(path);
  if (result == 0) {
    Trace(8, Format("StoreIndex_Save::Error - Unable to save index for folder %s\n", path));
    SetDirtyPathNotification(path);
  } else {
    index->changed = 0;
  }
  UnBlockIndexFileAccessEx(block, 1, &handle);
  return result;
}

}  // namespace

int StoreIndex_Save(StoreIndex* index) {
  if (!index) return 0;
  return SaveUnderBlock(platform::Env::Default(), index);
}

int StoreIndex_Commit(StoreIndex* index) {
  if (!index) {
    PrintWarning("WARNING!: StoreIndex is NULL when passed to StoreIndex_Commit\n");
    return 0;
  }
  if (index->changed != 1) return 2;
  const std::string path = index->folder_path.str();
  if (path.empty()) {
    PrintWarning("WARNING!: StoreIndex Folder has not been set. Commit is ignored\n");
    return 0;
  }
  if (!index->hMutex) {
    Trace(8, Format("StoreIndex_Commit:: WARNING: StoreIndex->hMutex for %s was not constructed, "
                    "but the folder has been marked as changed.\n",
                    path));
    return 0;
  }
  platform::Env* env = platform::Env::Default();
  LineTrace line = 0;
  return Guarded("StoreIndex_Commit", kStoreCoreSource, __LINE__, line, [&] {
    LockStatus status = WaitForMutex(index->hMutex, kInfiniteTimeout);
    if (status != StatusLocked && status != StatusAbandoned) {
      char text[1200];
      std::snprintf(text, sizeof text,
                    "StoreIndex_Commit:: Could not lock mutex for %s. Reason: %ld\n", path.c_str(),
                    static_cast<long>(platform::LastError()));
      Trace(8, text);
      ReportEvent(env, platform::kEventWarning, kDefaultEventSource, text);
      return 0;
    }
    struct Release {
      MutexHandle handle;
      ~Release() { ReleaseRawMutex(handle); }
    } release{index->hMutex};
    int result = SaveUnderBlock(env, index);
    if (index->table.ItemFilter.empty()) {
      index->table.GetFolderDetails(&index->folder_details);
      qaaisp::SetCachedStatus(index->postoffice.c_str(), index->mailbox.c_str(),
                              index->folder.c_str(), index->folder_details);
    }
    Trace(8, Format("StoreIndex_Commit::Committed Index for folder %s\n", path));
    return result;
  });
}

int StoreIndex_LockAndLoadEx(StoreIndex* index, const char* postoffice, const char* mailbox,
                             const char* folder, int wait_flag, BlockHandle* handle, int mode) {
  platform::Env* env = platform::Env::Default();
  if (!postoffice || !*postoffice) {
    const char* text =
        "StoreIndex_LockAndLoadEx:: Empty postoffice name was passed when attempting to access "
        "notification file\n";
    Trace(8, text);
    ReportEvent(env, platform::kEventInformation, kDefaultEventSource, text);
    return 0;
  }
  index->postoffice = postoffice;
  index->mailbox = mailbox ? mailbox : "";
  index->folder = folder ? folder : "";
  if (index->item_class != kClassGroup) {
    index->item_class = FolderClass(postoffice, mailbox, folder);
  }
  index->changed = 0;
  index->folder_path.clear();
  SetStoreIndexPaths(index);
  if (!index->mailbox.empty()) {
    NotifyCommit(PostofficeRoot(postoffice) + "/MAILROOT/" + index->mailbox.str(), *index);
  }
  const std::string path = index->folder_path.str();
  const std::string block = BlockFilePath(path, index->item_class);
  if (!WaitForAccessToIndexFileEx(block, wait_flag, handle)) return 0;

  StoreIndexMutexLock lock(index);
  if (index->item_class == kClassMessage && mode == LoadFieldFiltered) {
    index->table.FieldFilter = "ID,MODIFIEDDATE,RECEIVED,FLAGSTATUS";
  }
  bool loaded = LoadIndexForClass(&index->table, index, path, index->item_class,
                                  index->postoffice.str(), index->mailbox.str(),
                                  /*only_if_unloaded=*/false, /*lock_held=*/true, mode,
                                  /*verify_files=*/0, /*rebuild=*/false, /*force_rebuild=*/false,
                                  /*report_failures=*/true, /*keep=*/false);
  if (!loaded) UnBlockIndexFileAccessEx(block, wait_flag, handle);
  return loaded ? 1 : 0;
}

int StoreIndex_SaveAndClose(StoreIndex* index, int commit, int wait_flag, BlockHandle* handle,
                            const FolderDetails* details) {
  platform::Env* env = platform::Env::Default();
  SetStoreIndexPaths(index);
  const std::string path = index->folder_path.str();
  const std::string block = BlockFilePath(path, index->item_class);
  int result = 1;
  if (commit) {
    ClearCachedIndexFlag(path);
    Trace(8, Format("StoreIndex_SaveAndClose::Committing Index for folder %s\n", path));
    StoreIndexMutexLock lock(index);
    uint64_t on_disk = FileWriteTicks(env, IndexFilePath(path, index->item_class));
    uint64_t at_load = index->table.IndexFileDate;
    if (!SaveRows(index, path)) result = 0;
    if (on_disk != at_load) {
      result = 0;
      Trace(8, Format("StoreIndex_SaveAndClose::Failed to commit index for folder %s. Index was "
                      "changed while being transacted. Folder will be marked as dirty.\n",
                      path));
    }
  }
  UnBlockIndexFileAccessEx(block, wait_flag, handle);
  if (!commit) return result;
  if (result == 0) {
    Trace(8, Format("StoreIndex_SaveAndClose::Failed to commit index for folder %s. Folder will "
                    "be marked as dirty.\n",
                    path));
    SetDirtyPathNotification(path);
    return result;
  }
  if (ContainsNoCase(index->folder.view(), "$FILEROOT")) return result;
  const std::string status_file =
      FolderStatusPath(index->postoffice.str(), index->mailbox.str(), index->folder.str());
  if (details) {
    WriteFolderStatusFile(env, status_file, *details);
  } else if (index->table.ItemFilter.empty()) {
    FolderDetails computed{};
    index->table.GetFolderDetails(&computed);
    WriteFolderStatusFile(env, status_file, computed);
  }
  Trace(8, Format("StoreIndex_SaveAndClose::SetCacheDetailsToFile for folder %s\n", path));
  return result;
}

int RemoveStoreItemByMessageID(StoreIndex* index, const std::string& identifiers,
                               int32_t /*item_class*/, int64_t* size_sum, FolderDetails* details) {
  if (!index) {
    PrintWarning("WARNING!: StoreIndex is NULL when passed to RemoveStoreItemByMessageID\n");
    return 0;
  }
  const auto ids = SplitIdentifiers(identifiers);
  int found = 0;
  for (const std::string& id : ids) {
    auto it = index->table.by_id().find(id);
    if (it == index->table.by_id().end()) continue;
    ++found;
    const IndexItemPropertyContainer& row = *it->second;
    if (size_sum && row.HasValue("SIZE"))
      *size_sum += static_cast<uint32_t>(row.GetInteger("SIZE"));
    if (!details) continue;
    const std::string flags = row.GetText("FLAGSTATUS");
    if (details->Total > 0) --details->Total;
    if (ContainsNoCase(flags, "SEEN") && details->Seen >= 1) --details->Seen;
    if (ContainsNoCase(flags, "RECENT")) {
      if (details->RecentCount > 0) --details->RecentCount;
      if (details->RecentCount2 > 0) --details->RecentCount2;
    }
  }
  index->table.Remove(ids);
  return found;
}

int GetStoreItemByMessageID(StoreIndex* index, const char* identifier, int32_t /*item_class*/,
                            MessageSummaryRecord* out) {
  if (!index) {
    PrintWarning("WARNING!: StoreIndex is NULL when passed to GetStoreItemByMessageID\n");
    return 0;
  }
  if (index->table.LoadState == LoadFailed || !identifier || !out) return 0;
  IndexItem item;
  if (!index->table.FindById(identifier, &item, false) || !item.HasItem()) return 0;
  const IndexItemPropertyContainer& row = *item.container();
  out->SEQ = row.GetInteger("SEQ");
  out->UID = row.GetInteger("UID");
  out->IDX = row.GetInteger("IDX");
  CopyText(row, "FROM", out->From, sizeof out->From);
  CopyText(row, "SUBJECT", out->Subject, sizeof out->Subject);
  CopyText(row, "RECEIVED", out->Received, sizeof out->Received);
  CopyText(row, "MESSAGEDATE", out->MessageDate, sizeof out->MessageDate);
  out->Attachments = row.GetInteger("ATTACHMENTS");
  out->Importance = row.GetInteger("IMPORTANCE");
  CopyText(row, "FLAGSTATUS", out->FlagStatus, sizeof out->FlagStatus);
  item.Detach();
  return 1;
}

int StoreIndex_InsertItem(StoreIndex* index, const char* file_name, int /*flag*/) {
  if (!index || !file_name) return 0;
  StoreIndexMutexLock lock(index);
  IndexItem row;
  int result = Hooks().insert_from_file(index, file_name, nullptr, &row);
  row.Detach();
  if (result <= 0) return 0;
  index->changed = 1;
  return 1;
}

int StoreIndex_RemoveItem(StoreIndex* index, const char* identifiers) {
  if (!index) return RemoveStoreItemByMessageID(index, "", 0, nullptr, nullptr);
  StoreIndexMutexLock lock(index);
  if (RemoveStoreItemByMessageID(index, identifiers ? identifiers : "", index->item_class, nullptr,
                                 nullptr) > 0) {
    index->changed = 1;
  }
  return 1;
}

}  // namespace qaaisp
