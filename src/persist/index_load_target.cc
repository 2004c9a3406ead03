#include "persist/index_load_target.h"

#include <algorithm>

#include "persist/index_text.h"
#include "platform/env.h"

namespace qaaisp::persist {
namespace {

// Names beyond this many are still found, just without the order guess.
constexpr size_t kGuessedNames = 64;

}  // namespace

IndexLoadTarget::IndexLoadTarget(SORTEDSTOREINDEXTYPE* index, std::string folder,
                                 size_t expected_rows)
    : index_(index), folder_(std::move(folder)) {
  index_->BeginBulkInsert(expected_rows);
  bool local = IndexUsesLocalProperties();
  if (local) CloneGlobalPropertyMap(&private_map_);
  row_map_ = local ? &private_map_ : nullptr;
  final_map_ = local ? index->local_map() : nullptr;
  idx_key_ = LookupProperty("IDX", row_map_);
  seq_key_ = LookupProperty("SEQ", row_map_);
}

IndexLoadTarget::~IndexLoadTarget() {
  delete row_;
  try {
    Finish();
  } catch (...) {
    // Out of memory while unwinding: the table ends its batch again at its
    // next lookup or teardown, and rows outside the sequence are still
    // reached through the maps.
  }
}

bool IndexLoadTarget::ItemFileExists(std::string_view id) {
  return platform::FileExists(platform::Env::Default(), JoinPath(folder_, id));
}

PropertyKey IndexLoadTarget::KeyFor(std::string_view name) {
  // Rows of one file hold their tags in the same order, so the entry after
  // the last one used is nearly always the one wanted.
  if (next_key_ < keys_.size() && keys_[next_key_].first == name) {
    return keys_[next_key_++].second;
  }
  for (size_t i = 0; i < keys_.size(); ++i) {
    if (keys_[i].first == name) {
      next_key_ = i + 1;
      return keys_[i].second;
    }
  }
  PropertyKey key = LookupProperty(name, row_map_);
  if (keys_.size() < kGuessedNames) {
    keys_.emplace_back(std::string(name), key);
    next_key_ = keys_.size();
  }
  return key;
}

void IndexLoadTarget::BeginRow(uint32_t file_offset) {
  delete row_;
  row_ = new IndexItemPropertyContainer(slots_hint_);
  row_->set_local_map(row_map_);
  row_->FileOffset = static_cast<int32_t>(file_offset);
  next_key_ = 0;
}

void IndexLoadTarget::SetRowProperty(std::string_view name, std::string_view value) {
  if (!row_ || value.empty()) return;
  PropertyKey key = KeyFor(name);
  if (!key.valid()) return;
  if (key.slot == kIdSlot) index_->PrefetchId(value);
  row_->LoadValueAt(key, value, index_->text_pool());
}

void IndexLoadTarget::DropRow() {
  delete row_;
  row_ = nullptr;
}

bool IndexLoadTarget::InsertRow(uint32_t file_length, uint32_t idx, bool refuse_duplicates,
                                bool sequence, uint32_t seq) {
  if (!row_) return false;
  IndexItemPropertyContainer* row = row_;
  row_ = nullptr;
  row->FileLength = file_length;
  row->SetIntegerAt(idx_key_, static_cast<int32_t>(idx), false);
  slots_hint_ = std::max(slots_hint_, row->slot_count());
  row->set_local_map(final_map_);
  // The row joins the sequence here rather than in the table's insert, so
  // that "SEQ" is set once, through the key looked up for the whole load.
  if (!index_->InsertRow(row, refuse_duplicates ? UidClash::kRefuse : UidClash::kNextFree,
                         /*append=*/false)) {
    delete row;
    return false;
  }
  if (sequence) {
    index_->AppendRow(row);
    row->SetIntegerAt(seq_key_, static_cast<int32_t>(seq), false);
  } else {
    unsequenced_.insert(row);
    unsequenced_order_.push_back(row);
  }
  return true;
}

void IndexLoadTarget::Clear() {
  DropRow();
  unsequenced_.clear();
  unsequenced_order_.clear();
  index_->UnInit();
}

void IndexLoadTarget::SequenceByUid(uint32_t first) {
  if (unsequenced_.empty()) return;
  for (const auto& [uid, row] : index_->by_uid()) {
    if (unsequenced_.erase(row) == 0) continue;
    index_->AppendRow(row);
    row->SetIntegerAt(seq_key_, static_cast<int32_t>(first++), false);
  }
  unsequenced_order_.clear();
}

void IndexLoadTarget::Finish() {
  for (IndexItemPropertyContainer* row : unsequenced_order_) {
    if (unsequenced_.erase(row) > 0) index_->AppendRow(row);
  }
  unsequenced_.clear();
  unsequenced_order_.clear();
  index_->EndBulkInsert();
}

}  // namespace qaaisp::persist
