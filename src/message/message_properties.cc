#include "message/message_properties.h"

#include <algorithm>
#include <array>
#include <initializer_list>

#include "index/index_item.h"
#include "index/property_map.h"
#include "message/message_index.h"
#include "message/message_settings.h"

namespace qaaisp {
namespace {

// The keys of the message fields, looked up once: slot numbers never change
// for the life of the process, so rows of every index can share them and a
// row costs no lookup under the global map's guard.
struct MessageKeys {
  PropertyKey id, uid, message_date, modified_date, importance, flag_status, attachments, from, to,
      cc, subject, received, read, state, message_class, categories, attributes, thread, size,
      message_id;
  // Not set here: the table numbers every row it takes, and counting the
  // slot in lets a row grow to its full size at once.
  PropertyKey seq;
  uint32_t slot_count = 0;
};

const MessageKeys& Keys() {
  static const MessageKeys keys = [] {
    MessageKeys k;
    const std::initializer_list<std::pair<PropertyKey*, const char*>> names = {
        {&k.id, "ID"},
        {&k.uid, "UID"},
        {&k.message_date, "MESSAGEDATE"},
        {&k.modified_date, "MODIFIEDDATE"},
        {&k.importance, "IMPORTANCE"},
        {&k.flag_status, "FLAGSTATUS"},
        {&k.attachments, "ATTACHMENTS"},
        {&k.from, "FROM"},
        {&k.to, "TO"},
        {&k.cc, "CC"},
        {&k.subject, "SUBJECT"},
        {&k.received, "RECEIVED"},
        {&k.read, "READ"},
        {&k.state, "STATE"},
        {&k.message_class, "CLASS"},
        {&k.categories, "CATEGORIES"},
        {&k.attributes, "ATTRIBUTES"},
        {&k.thread, "THREAD"},
        {&k.size, "SIZE"},
        {&k.message_id, "MSGID"},
        {&k.seq, "SEQ"},
    };
    for (const auto& [key, name] : names) {
      *key = LookupProperty(name, nullptr);
      k.slot_count = std::max(k.slot_count, static_cast<uint32_t>(key->slot) + 1);
    }
    return k;
  }();
  return keys;
}

// Every value is stored with force, so that a refresh clears what the file
// no longer says. Texts are held back and stored together by Flush, so that
// their records take one allocation; integers are stored at once.
class RowWriter {
 public:
  explicit RowWriter(IndexItem* row) : row_(row->container()) {
    if (row_) row_->ReserveSlots(Keys().slot_count);
  }
  explicit operator bool() const { return row_ != nullptr; }

  void Text(PropertyKey key, std::string_view value) {
    if (held_ == kMaxHeld) Flush();
    texts_[held_++] = {key, value};
  }
  void Flush() {
    row_->SetTextsAt(std::span(texts_.data(), held_));
    held_ = 0;
  }
  void Integer(PropertyKey key, int64_t value) {
    row_->SetIntegerAt(key, static_cast<int32_t>(value));
  }
  void TextIfAny(PropertyKey key, std::string_view value) {
    if (!value.empty()) Text(key, value);
  }
  // "READ" follows "FLAGSTATUS", as on every store of it.
  void FlagStatus(std::string_view flags) {
    Text(Keys().flag_status, flags);
    Integer(Keys().read, HoldsNoCase(flags, "\\SEEN") ? 1 : 0);
  }
  void MessageIdIfKept(std::string_view message_id) {
    if (MessageDuplicatesSetting() != 0) Text(Keys().message_id, message_id);
  }

 private:
  static constexpr size_t kMaxHeld = 16;

  IndexItemPropertyContainer* row_;
  std::array<IndexItemPropertyContainer::TextAt, kMaxHeld> texts_;
  size_t held_ = 0;
};

// A message with no flags at all is recent, whatever its read state;
// otherwise the read state joins its flags.
std::string_view FlagStatusText(MessageHeaderInfo* info) {
  if (info->Flags.empty()) return "\\RECENT";
  info->AddFlag(info->Read == 1 ? "SEEN" : "RECENT");
  return info->Flags;
}

// The run of properties that a first indexing and a re-indexing set in the
// same order.
void WriteHeaderSummary(RowWriter& w, const MessageKeys& k, MessageHeaderInfo* info) {
  w.FlagStatus(FlagStatusText(info));
  w.Integer(k.attachments, info->Attachments);
  w.Text(k.from, info->From);
  w.Text(k.to, info->To);
  w.Text(k.cc, info->Cc);
  w.Text(k.subject, info->Subject);
  w.Text(k.received, info->Received);
  w.Integer(k.read, info->Read);
  w.Integer(k.state, 0);
}

}  // namespace

void SetMessageProperties(IndexItem* row, MessageHeaderInfo* info, bool keys_only) {
  RowWriter w(row);
  if (!w) return;
  const MessageKeys& k = Keys();
  w.Text(k.id, info->FileName);
  w.Integer(k.uid, info->Uid);
  if (keys_only) {
    w.Flush();
    return;
  }
  w.Text(k.message_date, info->MessageDate);
  w.Integer(k.modified_date, info->ModifiedDate);
  w.Integer(k.importance, info->Importance);
  WriteHeaderSummary(w, k, info);
  w.Text(k.message_class, info->Class);
  w.Text(k.categories, info->Keywords);
  w.TextIfAny(k.attributes, info->Attributes);
  w.TextIfAny(k.thread, info->Thread);
  w.Integer(k.size, info->Size);
  w.MessageIdIfKept(info->MessageId);
  w.Flush();
}

void UpdateMessageProperties(IndexItem* row, MessageHeaderInfo* info) {
  RowWriter w(row);
  if (!w) return;
  const MessageKeys& k = Keys();
  w.Integer(k.modified_date, info->ModifiedDate);
  w.Text(k.message_date, info->MessageDate);
  w.Integer(k.importance, info->Importance);
  WriteHeaderSummary(w, k, info);
  w.Integer(k.size, info->Size);
  w.Text(k.message_class, info->Class);
  w.TextIfAny(k.thread, info->Thread);
  w.TextIfAny(k.attributes, info->Attributes);
  w.MessageIdIfKept(info->MessageId);
  w.Flush();
}

void UpdateMessageSummaryProperties(IndexItem* row, const MessageHeaderInfo& info) {
  RowWriter w(row);
  if (!w) return;
  const MessageKeys& k = Keys();
  w.Text(k.message_date, info.MessageDate);
  w.Text(k.subject, info.Subject);
  w.Text(k.received, info.Received);
  w.Integer(k.modified_date, info.ModifiedDate);
  w.Integer(k.attachments, info.Attachments);
  w.Integer(k.read, info.Read);
  w.Integer(k.size, info.Size);
  w.MessageIdIfKept(info.MessageId);
  w.Flush();
}

int ReindexMessage(IndexItem* row, const std::string& folder, const platform::DirEntry& entry,
                   uint32_t stamp, bool refresh_all) {
  thread_local MessageHeaderInfo info;
  info.Reset();
  info.FolderStamp = stamp;
  SetBounded(&info.FileName, entry.name, kFileNameFieldSize);
  if (!IndexMessage(folder + "/" + entry.name, &info, /*clear_flags=*/true, UidBrandingSetting(),
                    kAttachmentsVerified, /*ignore_read=*/false)) {
    return 0;
  }
  info.Size = static_cast<uint32_t>(entry.size);
  if (refresh_all) {
    UpdateMessageProperties(row, &info);
  } else {
    UpdateMessageSummaryProperties(row, info);
  }
  return 1;
}

}  // namespace qaaisp
