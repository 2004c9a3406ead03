#include "store/direct_store_index.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "base/library_settings.h"
#include "index/index_item.h"
#include "index/store_index.h"
#include "index/store_paths.h"
#include "notify/dirty_flags.h"
#include "platform/env.h"
#include "store/flag_update.h"
#include "store/folder_status_file.h"
#include "store/mailbox_size_file.h"
#include "store/store_hooks.h"
#include "store/store_index_commit.h"
#include "store/store_index_files.h"
#include "store/store_index_open.h"

namespace qaaisp {
namespace {

std::string Text(const char* s) { return s ? s : ""; }

std::vector<std::string> SplitAtCommas(std::string_view text) {
  std::vector<std::string> parts;
  while (true) {
    size_t comma = text.find(',');
    parts.emplace_back(text.substr(0, comma));
    if (comma == std::string_view::npos) break;
    text.remove_prefix(comma + 1);
  }
  return parts;
}

// A private index, released however the call ends.
class PrivateIndex {
 public:
  PrivateIndex() { qaaisp::StoreIndex_Init(&index_); }
  ~PrivateIndex() {
    try {
      qaaisp::StoreIndex_Release(&index_);
    } catch (...) {
      // The guard has reported it; the rows go with the object anyway.
    }
  }
  StoreIndex* get() { return &index_; }
  StoreIndex* operator->() { return &index_; }

 private:
  StoreIndex index_;
};

// What "Prevent Message Duplicates" does with a file whose message is
// already in the folder: 1 deletes it, 2 sets it aside as ".DUP", any other
// value leaves it where it is, unindexed.
void SetDuplicateAside(platform::Env* env, uint32_t setting, const std::string& path) {
  if (setting == 1) {
    env->RemoveFile(path);
  } else if (setting == 2) {
    env->RenamePath(path, path + ".DUP", /*replace=*/false);
  }
}

bool IsDuplicate(StoreIndex* index, const std::string& path) {
  std::string message_id;
  if (!Hooks().message_id(path, &message_id) || message_id.empty()) return false;
  RowList rows;
  index->table.Snapshot(&rows, false);
  IndexItem match;
  bool found = SORTEDSTOREINDEXTYPE::FindByMessageId(message_id, &match, rows);
  match.Detach();
  return found;
}

}  // namespace

int Direct_StoreIndex_InsertItemEx(const char* postoffice, const char* mailbox, const char* folder,
                                   const char* file_names, const char* flags) {
  platform::Env* env = platform::Env::Default();
  PrivateIndex index;
  if (flags && std::strstr(flags, "$QAGROUP")) index->item_class = kClassGroup;
  const uint32_t prevent_duplicates = ModuleSettings().prevent_duplicates;
  // A plain delivery needs only LastUID; the duplicate test needs the rows.
  const int mode = prevent_duplicates ? LoadFull : LoadHeader;
  BlockHandle handle = nullptr;
  if (!qaaisp::StoreIndex_LockAndLoadEx(index.get(), postoffice, mailbox, folder, 1, &handle,
                                        mode)) {
    if (!index->folder_path.empty()) SetDirtyPathNotification(index->folder_path.str());
    return 0;
  }
  const std::string path = index->folder_path.str();
  const std::string names = Text(file_names);
  if (prevent_duplicates && IsDuplicate(index.get(), path + "/" + names)) {
    UnBlockIndexFileAccessEx(BlockFilePath(path, index->item_class), 1, &handle);
    SetDuplicateAside(env, prevent_duplicates, path + "/" + names);
    return 0;
  }

  const std::string status_file = FolderStatusPath(Text(postoffice), Text(mailbox), Text(folder));
  FolderDetails record;
  ReadFolderStatusFile(env, status_file, &record);
  const std::vector<std::string> flag_texts =
      flags ? SplitAtCommas(flags) : std::vector<std::string>{};
  int64_t delta = 0;
  bool last_inserted = false;
  size_t place = 0;
  for (const std::string& name : SplitAtCommas(names)) {
    const size_t i = place++;
    if (name.empty()) continue;
    // Without flags the indexer derives the status from the file itself.
    std::string flag_text;
    if (flags && i < flag_texts.size()) flag_text = flag_texts[i];
    IndexItem row;
    last_inserted =
        Hooks().insert_from_file(index.get(), name, flags ? flag_text.c_str() : nullptr, &row) > 0;
    if (!last_inserted || !row.HasItem()) {
      row.Detach();
      continue;
    }
    delta += KilobytesRounded(static_cast<uint32_t>(row.GetInteger("SIZE")));
    if (row.container()->HasValue("QA_STATUS")) row.RemoveProperty("QA_STATUS");
    row.Detach();
    record.LastUID = static_cast<int32_t>(index->table.LastUID);
    ++record.Total;
    ++record.RecentCount;
    ++record.RecentCount2;
    if (ContainsNoCase(flag_text, "SEEN")) ++record.Seen;
  }

  int result =
      qaaisp::StoreIndex_SaveAndClose(index.get(), last_inserted ? 1 : 0, 1, &handle, &record);
  if (!last_inserted) return 0;
  if (result > 0) UpdateMailboxSizeMetaData(Text(postoffice), Text(mailbox), delta, Text(folder));
  return result;
}

int Direct_StoreIndex_UpdateItem(const char* postoffice, const char* mailbox, const char* folder,
                                 const char* identifiers, const char* update) {
  platform::Env* env = platform::Env::Default();
  PrivateIndex index;
  const std::string ids = Text(identifiers);
  // Only the rows named are loaded; the writer carries the others over.
  index->table.ItemFilter = ids;
  // The block file is held open, as by every other writer: a file held
  // without a handle can be deleted by a waiter that gave up on it, and a
  // second writer would then work on the index alongside this one.
  BlockHandle handle = nullptr;
  if (!qaaisp::StoreIndex_LockAndLoadEx(index.get(), postoffice, mailbox, folder, 1, &handle,
                                        LoadFull)) {
    return 0;
  }
  const std::string status_file = FolderStatusPath(Text(postoffice), Text(mailbox), Text(folder));
  FolderDetails record;
  ReadFolderStatusFile(env, status_file, &record);

  const std::string update_text = Text(update);
  std::string_view size_value;
  const bool size_update = ParseSizeUpdate(update_text, &size_value);
  bool changed = false;
  std::vector<std::string> unique_ids = SplitAtCommas(ids);
  std::sort(unique_ids.begin(), unique_ids.end());
  unique_ids.erase(std::unique(unique_ids.begin(), unique_ids.end()), unique_ids.end());
  for (const std::string& id : unique_ids) {
    IndexItem row;
    if (id.empty() || !index->table.FindById(id, &row, false) || !row.HasItem()) continue;
    if (size_update) {
      row.SetProperty("SIZE", size_value);
      changed = true;
    } else {
      std::string merged;
      if (MergeFlagUpdate(row.container()->GetText("FLAGSTATUS"), update_text, &merged, &record)) {
        row.SetProperty("FLAGSTATUS", merged);
        changed = true;
      }
    }
    Hooks().row_file_step(index.get(), &row);
    row.Detach();
  }

  int result = qaaisp::StoreIndex_SaveAndClose(index.get(), changed ? 1 : 0, 1, &handle, nullptr);
  WriteFolderStatusFile(env, status_file, record);
  return result;
}

int Direct_StoreIndex_RemoveItem(const char* postoffice, const char* mailbox, const char* folder,
                                 const char* identifiers) {
  platform::Env* env = platform::Env::Default();
  PrivateIndex index;
  const std::string ids = Text(identifiers);
  index->table.ItemFilter = ids;
  BlockHandle handle = nullptr;
  if (!qaaisp::StoreIndex_LockAndLoadEx(index.get(), postoffice, mailbox, folder, 1, &handle,
                                        LoadFull)) {
    return 0;
  }
  const std::string status_file = FolderStatusPath(Text(postoffice), Text(mailbox), Text(folder));
  FolderDetails record;
  ReadFolderStatusFile(env, status_file, &record);
  int64_t delta = 0;
  for (const std::string& id : SplitAtCommas(ids)) {
    int64_t size = 0;
    if (RemoveStoreItemByMessageID(index.get(), id, index->item_class, &size, &record) > 0) {
      delta -= KilobytesRounded(static_cast<uint64_t>(size));
    }
  }
  int result = qaaisp::StoreIndex_SaveAndClose(index.get(), 1, 1, &handle, &record);
  UpdateMailboxSizeMetaData(Text(postoffice), Text(mailbox), delta, Text(folder));
  WriteFolderStatusFile(env, status_file, record);
  return result;
}

}  // namespace qaaisp
