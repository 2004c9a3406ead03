#include "message/message_insert.h"

#include "index/index_item.h"
#include "index/store_index.h"
#include "message/message_index.h"
#include "message/message_properties.h"
#include "message/message_settings.h"
#include "message/uid_branding.h"
#include "platform/env.h"

namespace qaaisp {
namespace {

// The caller's flag text stands instead of what the file records.
void ApplyFlagText(std::string_view text, MessageHeaderInfo* info) {
  info->Flags.clear();
  info->Read = HoldsNoCase(text, "SEEN") ? 1 : 0;
  while (!text.empty()) {
    const size_t blank = text.find(' ');
    info->AddFlag(text.substr(0, blank));
    if (blank == std::string_view::npos) break;
    text.remove_prefix(blank + 1);
  }
}

// Branding rewrote the file: the row takes its new size and time, so that a
// later scan finds the two in agreement.
void RefreshFileFacts(const std::string& path, IndexItem* row) {
  platform::FileInfo facts;
  if (!platform::Env::Default()->Stat(path, &facts)) return;
  row->SetIntegerForced("SIZE", static_cast<int32_t>(facts.size));
  row->SetIntegerForced("MODIFIEDDATE", static_cast<int32_t>(PackedModifiedDate(facts.write_time)));
}

}  // namespace

bool IsMessageClass(int item_class) {
  return item_class == 0 || item_class == 23 || item_class == 25;
}

int InsertMessageFromFile(StoreIndex* index, const std::string& file_name, const char* flags,
                          IndexItem* row) {
  const std::string folder = index->folder_path.str();
  const std::string path = folder + "/" + file_name;
  const uint32_t branding = UidBrandingSetting();
  thread_local MessageHeaderInfo info;
  info.Reset();
  info.FolderStamp = branding ? GetFolderStamp(folder) : 0;
  SetBounded(&info.FileName, file_name, kFileNameFieldSize);
  uint64_t size = 0;
  if (!IndexMessage(path, &info, /*clear_flags=*/false, branding, kAttachmentsVerified,
                    /*ignore_read=*/false, &size)) {
    return 0;
  }
  if (flags) ApplyFlagText(flags, &info);
  info.Size = static_cast<uint32_t>(size);
  // A delivered message always takes the next UID; an "X-UID" it carries
  // from elsewhere decides nothing here.
  info.Uid = index->table.LastUID + 1;

  if (index->table.by_id().contains(info.FileName)) return 0;
  IndexItem item;
  item.Create();
  SetMessageProperties(&item, &info, /*keys_only=*/false);
  IndexItem::Container* inserted = item.container();
  if (!index->table.Insert(&item, UidClash::kNextFree)) return 0;
  row->Attach(inserted, false);
  row->set_owned(false);
  if (branding) {
    BrandMessageUID(folder, file_name, info.FolderStamp, inserted->Uid());
    RefreshFileFacts(path, row);
  }
  return 1;
}

bool ReadMessageIdForDuplicates(const std::string& path, std::string* message_id) {
  thread_local MessageHeaderInfo info;
  info.Reset();
  if (!IndexMessage(path, &info, false, UidBrandingSetting(), kAttachmentsAsHeaderSays, false)) {
    return false;
  }
  *message_id = info.MessageId;
  return !message_id->empty();
}

}  // namespace qaaisp
