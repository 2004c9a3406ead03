#include "store/store_hooks.h"

#include <atomic>

#include "index/index_item.h"
#include "index/store_index.h"
#include "message/folder_rescan.h"
#include "message/message_insert.h"
#include "platform/env.h"

namespace qaaisp {
namespace {

int NoScan(StoreIndex*, int) { return 1; }
void NoNotify(const std::string&, const std::string&, const std::string&, const char*) {}
void NoRowFileStep(StoreIndex*, IndexItem*) {}

// Messages get their rows from the message indexer; other classes keep the
// plain row until their own indexer is registered.
int InsertFromFile(StoreIndex* index, const std::string& file_name, const char* flags,
                   IndexItem* row) {
  if (IsMessageClass(index->item_class)) return InsertMessageFromFile(index, file_name, flags, row);
  return InsertRowWithFileSize(index, file_name, flags, row);
}

std::atomic<FolderScanRoutine> g_scan_folder{ScanStoreIndex};
std::atomic<FolderScanRoutine> g_scan_contacts{NoScan};
std::atomic<NotifyRoutine> g_notify{NoNotify};
std::atomic<InsertFromFileRoutine> g_insert_from_file{InsertFromFile};
std::atomic<MessageIdRoutine> g_message_id{ReadMessageIdForDuplicates};
std::atomic<RowFileStepRoutine> g_row_file_step{NoRowFileStep};

}  // namespace

StoreHooks Hooks() {
  return StoreHooks{g_scan_folder.load(),      g_scan_contacts.load(), g_notify.load(),
                    g_insert_from_file.load(), g_message_id.load(),    g_row_file_step.load()};
}

void SetFolderScanRoutine(FolderScanRoutine r) { g_scan_folder.store(r ? r : ScanStoreIndex); }
void SetContactScanRoutine(FolderScanRoutine r) { g_scan_contacts.store(r ? r : NoScan); }
void SetNotifyRoutine(NotifyRoutine r) { g_notify.store(r ? r : NoNotify); }
void SetInsertFromFileRoutine(InsertFromFileRoutine r) {
  g_insert_from_file.store(r ? r : InsertFromFile);
}
void SetMessageIdRoutine(MessageIdRoutine r) {
  g_message_id.store(r ? r : ReadMessageIdForDuplicates);
}
void SetRowFileStepRoutine(RowFileStepRoutine r) { g_row_file_step.store(r ? r : NoRowFileStep); }

int InsertRowWithFileSize(StoreIndex* index, const std::string& file_name, const char* /*flags*/,
                          IndexItem* row) {
  platform::Env* env = platform::Env::Default();
  platform::FileInfo info;
  std::string path = index->folder_path.str() + "/" + file_name;
  if (!env->Stat(path, &info) || info.is_directory) return 0;
  IndexItem item;
  item.Create();
  item.SetPropertyForced("ID", file_name);
  item.SetIntegerForced("SIZE", static_cast<int32_t>(info.size));
  IndexItem::Container* inserted = item.container();
  if (!index->table.Insert(&item, UidClash::kNextFree)) return 0;
  row->Attach(inserted, false);
  row->set_owned(false);
  return 1;
}

}  // namespace qaaisp
