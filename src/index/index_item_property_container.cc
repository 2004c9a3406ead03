#include "index/index_item_property_container.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "index/sorted_store_index.h"

namespace qaaisp {
namespace {

constexpr std::string_view kSeqName = "SEQ";

std::string UnsignedText(int64_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "%u", static_cast<uint32_t>(value));
  return text;
}

// The map that says what the slots of a row hold: its local map, or else a
// copy of the global one, taken under the guard once rather than per slot.
// A local map that does not know all the row's slots is replaced likewise.
PropertyMap TypeMapFor(const PropertyMap* local, uint32_t slot_count) {
  if (local && local->size() >= slot_count) return *local;
  PropertyMap copy;
  CloneGlobalPropertyMap(&copy);
  return copy;
}

}  // namespace

int32_t TextToInteger(std::string_view text) {
  size_t i = 0;
  while (i < text.size() && (text[i] == ' ' || (text[i] >= '\t' && text[i] <= '\r'))) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  uint32_t value = 0;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    value = value * 10u + static_cast<uint32_t>(text[i] - '0');
  }
  return static_cast<int32_t>(negative ? 0u - value : value);
}

// No room until the first value: a row built in bulk reserves all its
// slots at once, and a block taken now would only be moved.
IndexItemPropertyContainer::IndexItemPropertyContainer()
    : slots_(0, kSlotGrowth, Array<PropertySlot>::kAdditive) {}

IndexItemPropertyContainer::IndexItemPropertyContainer(uint32_t initial_slots)
    : slots_(initial_slots > kInitialSlots ? initial_slots : kInitialSlots, kSlotGrowth,
             Array<PropertySlot>::kAdditive) {}

IndexItemPropertyContainer::~IndexItemPropertyContainer() {
  if (!slots_.empty()) {
    if (local_map_ && local_map_->size() >= slots_.size()) {
      FreeTexts(*local_map_);
    } else {
      FreeTexts(TypeMapFor(nullptr, 0));
    }
  }
  std::free(text_block_);
}

void IndexItemPropertyContainer::FreeTexts(const PropertyMap& map) {
  PropertySlot* slots = slots_.data();
  for (uint32_t i = 0; i < slots_.size(); ++i) {
    if (slots[i].text && map.SlotType(static_cast<int32_t>(i)) == kPropertyText) {
      TextRecord::Free(slots[i].text);
      slots[i].text = nullptr;
    }
  }
}

PropertyKey IndexItemPropertyContainer::Lookup(std::string_view name) const {
  return LookupProperty(name, local_map_);
}

void IndexItemPropertyContainer::MarkModified() {
  if (owner_) owner_->NoteModified(Uid());
}

void IndexItemPropertyContainer::EnsureSlot(int32_t slot) {
  if (static_cast<uint32_t>(slot) >= slots_.size()) slots_.Resize(static_cast<uint32_t>(slot) + 1);
}

uint32_t IndexItemPropertyContainer::Uid() const {
  return static_cast<uint32_t>(GetIntegerAt(UidKey()));
}

bool IndexItemPropertyContainer::HasValueAt(PropertyKey key) const {
  if (!key.valid() || static_cast<uint32_t>(key.slot) >= slots_.size()) return false;
  if (key.type == kPropertyText) return slots_.data()[key.slot].text != nullptr;
  return true;
}

std::string_view IndexItemPropertyContainer::TextViewAt(PropertyKey key) const {
  if (key.type != kPropertyText || !HasValueAt(key)) return {};
  return slots_.data()[key.slot].text->view();
}

void IndexItemPropertyContainer::GetTextAt(PropertyKey key, std::string* out) const {
  if (!HasValueAt(key)) {
    out->clear();
  } else if (key.type == kPropertyText) {
    out->assign(slots_.data()[key.slot].text->view());
  } else {
    *out = UnsignedText(slots_.data()[key.slot].integer);
  }
}

int32_t IndexItemPropertyContainer::GetIntegerAt(PropertyKey key) const {
  if (!HasValueAt(key)) return 0;
  const PropertySlot& slot = slots_.data()[key.slot];
  if (key.type == kPropertyText) return TextToInteger(slot.text->view());
  return static_cast<int32_t>(slot.integer);
}

void IndexItemPropertyContainer::SetTextAt(PropertyKey key, std::string_view value, bool force,
                                           bool mark_modified) {
  if ((value.empty() && !force) || !key.valid()) return;
  EnsureSlot(key.slot);
  PropertySlot& slot = slots_.data()[key.slot];
  if (key.type == kPropertyText) {
    // Make the new record first, so a failed allocation keeps the old value.
    TextRecord* record = value.empty() ? nullptr : TextRecord::Make(value);
    if (slot.text) TextRecord::Free(slot.text);
    slot.text = record;
  } else {
    slot.integer = TextToInteger(value);
  }
  if (mark_modified) MarkModified();
}

void IndexItemPropertyContainer::SetTextsAt(std::span<const TextAt> texts, bool mark_modified) {
  size_t bytes = 0;
  for (const TextAt& t : texts) {
    if (!t.key.valid() || t.key.type != kPropertyText || t.value.empty()) continue;
    if (t.value.size() > TextRecord::kMaxLength) throw std::bad_alloc();
    bytes += TextRecord::BlockBytes(t.value.size());
  }
  if (text_block_ || bytes == 0) {
    for (const TextAt& t : texts) SetTextAt(t.key, t.value, true, mark_modified);
    return;
  }
  // Taken before any slot changes, so a failed allocation keeps every old
  // value.
  for (const TextAt& t : texts) {
    if (t.key.valid()) EnsureSlot(t.key.slot);
  }
  char* at = static_cast<char*>(std::malloc(bytes));
  if (!at) throw std::bad_alloc();
  text_block_ = at;
  for (const TextAt& t : texts) {
    if (!t.key.valid()) continue;
    PropertySlot& slot = slots_.data()[t.key.slot];
    if (t.key.type == kPropertyText) {
      TextRecord* record = nullptr;
      if (!t.value.empty()) {
        record = TextRecord::MakeAt(at, t.value);
        at += TextRecord::BlockBytes(t.value.size());
      }
      if (slot.text) TextRecord::Free(slot.text);
      slot.text = record;
    } else {
      slot.integer = TextToInteger(t.value);
    }
    if (mark_modified) MarkModified();
  }
}

void IndexItemPropertyContainer::LoadValueAt(PropertyKey key, std::string_view value,
                                             TextPool* pool) {
  if (value.empty() || !key.valid()) return;
  EnsureSlot(key.slot);
  PropertySlot& slot = slots_.data()[key.slot];
  if (key.type == kPropertyText) {
    TextRecord* record = pool->Make(value);
    TextRecord::Free(slot.text);
    slot.text = record;
  } else {
    slot.integer = TextToInteger(value);
  }
}

void IndexItemPropertyContainer::SetIntegerAt(PropertyKey key, int32_t value, bool mark_modified) {
  if (!key.valid()) return;
  if (key.type == kPropertyText) {
    SetTextAt(key, std::to_string(value), false, mark_modified);
    return;
  }
  EnsureSlot(key.slot);
  slots_.data()[key.slot].integer = value;
  if (mark_modified) MarkModified();
}

void IndexItemPropertyContainer::RemoveAt(PropertyKey key) {
  if (!key.valid()) return;
  if (static_cast<uint32_t>(key.slot) < slots_.size()) {
    PropertySlot& slot = slots_.data()[key.slot];
    if (key.type == kPropertyText && slot.text) TextRecord::Free(slot.text);
    slot.integer = 0;
  }
  MarkModified();
}

void IndexItemPropertyContainer::GetText(std::string_view name, std::string* out) const {
  GetTextAt(Lookup(name), out);
}

std::string IndexItemPropertyContainer::GetText(std::string_view name) const {
  std::string out;
  GetTextAt(Lookup(name), &out);
  return out;
}

void IndexItemPropertyContainer::GetText(std::string_view name, char* buffer, size_t size) const {
  if (!buffer || size == 0) return;
  buffer[0] = '\0';
  PropertyKey key = Lookup(name);
  if (!HasValueAt(key)) return;
  std::string integer_text;
  std::string_view text;
  if (key.type == kPropertyText) {
    text = TextViewAt(key);
  } else {
    GetTextAt(key, &integer_text);
    text = integer_text;
  }
  size_t n = text.size() < size - 1 ? text.size() : size - 1;
  std::memcpy(buffer, text.data(), n);
  buffer[n] = '\0';
}

int32_t IndexItemPropertyContainer::GetInteger(std::string_view name) const {
  return GetIntegerAt(Lookup(name));
}

bool IndexItemPropertyContainer::HasValue(std::string_view name) const {
  return HasValueAt(Lookup(name));
}

void IndexItemPropertyContainer::SetText(std::string_view name, std::string_view value,
                                         bool force) {
  // "SEQ" is renumbered on every removal, so it never counts as a change.
  SetTextAt(Lookup(name), value, force, name != kSeqName);
}

void IndexItemPropertyContainer::SetInteger(std::string_view name, int32_t value) {
  SetIntegerAt(Lookup(name), value, name != kSeqName);
}

void IndexItemPropertyContainer::Remove(std::string_view name) { RemoveAt(Lookup(name)); }

void IndexItemPropertyContainer::Flatten(const std::vector<std::string>* names,
                                         PropertyValues* out) const {
  out->clear();
  if (names) {
    for (const std::string& name : *names) GetText(name, &(*out)[name]);
    return;
  }
  PropertyMap global = TypeMapFor(nullptr, 0);
  for (const PropertyEntry& e : global.entries()) {
    if (HasValueAt(e.key)) GetTextAt(e.key, &(*out)[e.name]);
  }
}

void IndexItemPropertyContainer::Merge(const PropertyValues& values) {
  for (const auto& [name, value] : values) {
    PropertyKey key = Lookup(name);
    if (key.valid()) SetTextAt(key, value, false, name != kSeqName);
  }
}

IndexItemPropertyContainer* IndexItemPropertyContainer::Clone(
    const std::vector<std::string>* names) const {
  auto* copy = new IndexItemPropertyContainer;
  copy->FileOffset = FileOffset;
  copy->FileLength = FileLength;
  auto copy_slot = [&](PropertyKey key) {
    if (!HasValueAt(key)) return;
    if (key.type == kPropertyText) {
      copy->SetTextAt(key, TextViewAt(key), false, false);
    } else {
      copy->SetIntegerAt(key, GetIntegerAt(key), false);
    }
  };
  try {
    if (names) {
      for (const std::string& name : *names) copy_slot(Lookup(name));
    } else {
      PropertyMap types = TypeMapFor(local_map_, slots_.size());
      for (uint32_t i = 0; i < slots_.size(); ++i) {
        copy_slot({static_cast<int32_t>(i), types.SlotType(static_cast<int32_t>(i))});
      }
    }
  } catch (...) {
    delete copy;
    throw;
  }
  return copy;
}

void IndexItemPropertyContainer::ResetKeepingKeys() {
  std::string id(IdView());
  std::string uid;
  GetTextAt(UidKey(), &uid);
  uint32_t uid_before = Uid();
  FreeTexts(TypeMapFor(local_map_, slots_.size()));
  slots_.Resize(0);
  std::free(text_block_);
  text_block_ = nullptr;
  // Marked by the UID it had: with the slots gone, the row would read as
  // UID 0 and wipe the table's record of earlier changes.
  if (owner_) owner_->NoteModified(uid_before);
  SetTextAt(IdKey(), id, false, false);
  SetTextAt(UidKey(), uid, false, false);
}

}  // namespace qaaisp
