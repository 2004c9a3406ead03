#include "index/sorted_store_index.h"

#include <atomic>
#include <unordered_set>

#include "base/failure_guard.h"
#include "index/index_source_names.h"

namespace qaaisp {
namespace {

std::atomic<IndexLoader> g_loader{nullptr};

constexpr std::string_view kSeqName = "SEQ";
constexpr std::string_view kMessageIdName = "MSGID";

}  // namespace

void SetIndexLoader(IndexLoader loader) { g_loader.store(loader); }

void RowList::Clear() {
  if (owns_rows) {
    for (IndexItemPropertyContainer* row : rows) delete row;
  }
  rows.clear();
  position = 0;
  owns_rows = false;
}

SORTEDSTOREINDEXTYPE::~SORTEDSTOREINDEXTYPE() { UnInit(); }

int SORTEDSTOREINDEXTYPE::EnsureLevel(int32_t level) {
  if (LoadState >= level) return 1;
  IndexLoader loader = g_loader.load();
  return loader ? loader(this, level) : 0;
}

bool SORTEDSTOREINDEXTYPE::Insert(IndexItem* item, UidClash clash) {
  Row* row = item ? item->container() : nullptr;
  if (!row || !InsertRow(row, clash, true)) return false;
  item->set_owned(false);
  return true;
}

bool SORTEDSTOREINDEXTYPE::FileUnderUid(uint32_t uid, Row* row, UidClash clash) {
  // Rows mostly come in UID order, so the end of the map is the place to
  // try first.
  if (by_uid_.empty() || by_uid_.rbegin()->first < uid) {
    by_uid_.emplace_hint(by_uid_.end(), uid, row);
    return true;
  }
  if (by_uid_.try_emplace(uid, row).second) return true;
  if (clash == UidClash::kRefuse) return false;
  // The row is filed under the next free number while its "UID" keeps the
  // old one; readers of old files depend on this tolerance.
  do {
    ++uid;
  } while (!by_uid_.try_emplace(uid, row).second);
  return true;
}

bool SORTEDSTOREINDEXTYPE::InsertRow(Row* row, UidClash clash, bool append) {
  uint32_t uid = row->Uid();
  if (uid == 0) {
    uid = ++LastUID;
    row->SetIntegerAt(Row::UidKey(), static_cast<int32_t>(uid), false);
  } else if (uid > LastUID) {
    LastUID = uid;
  }
  const std::string_view id = row->IdView();
  if (bulk_insert_) {
    if (pending_ids_.Contains(id) || (!by_id_.empty() && by_id_.contains(id))) return false;
    if (!FileUnderUid(uid, row, clash)) return false;
    pending_ids_.Add(id, row);
  } else {
    // IDs a failed merge left behind go in first, so none is taken twice.
    if (!pending_ids_.empty()) EndBulkInsert();
    // A rebuild brings its rows in name order: the end is then the place.
    std::pair<ById::iterator, bool> by_id;
    if (by_id_.empty() || by_id_.rbegin()->first < id) {
      by_id = {by_id_.emplace_hint(by_id_.end(), std::string(id), row), true};
    } else {
      by_id = by_id_.try_emplace(std::string(id), row);
    }
    if (!by_id.second) return false;
    if (!FileUnderUid(uid, row, clash)) {
      by_id_.erase(by_id.first);
      return false;
    }
  }
  row->set_owner(this);
  if (IndexUsesLocalProperties()) row->set_local_map(&local_map_);
  if (append) {
    rows_.push_back(row);
    row->SetIntegerAt(LookupProperty(kSeqName, &local_map_), static_cast<int32_t>(rows_.size()),
                      false);
  }
  NoteModified(row->Uid());
  return true;
}

void SORTEDSTOREINDEXTYPE::BeginBulkInsert(size_t expected_rows) {
  bulk_insert_ = true;
  pending_ids_.Reserve(expected_rows);
}

void SORTEDSTOREINDEXTYPE::EndBulkInsert() {
  bulk_insert_ = false;
  // A merge that runs out of memory keeps the batch whole; merging again
  // skips the IDs already entered.
  if (pending_ids_.empty()) {
    pending_ids_.Clear();  // gives back what a reservation took
  } else {
    pending_ids_.MergeInto(&by_id_);
  }
}

bool SORTEDSTOREINDEXTYPE::FindById(std::string_view id, IndexItem* item, bool copy) {
  EndBulkInsert();
  EnsureLevel(LoadFull);
  auto it = by_id_.find(id);
  item->Attach(it == by_id_.end() ? nullptr : it->second, copy);
  return it != by_id_.end();
}

SORTEDSTOREINDEXTYPE::Row* SORTEDSTOREINDEXTYPE::FindByUid(uint32_t uid) const {
  auto it = by_uid_.find(uid);
  return it == by_uid_.end() ? nullptr : it->second;
}

bool SORTEDSTOREINDEXTYPE::FindByMessageId(std::string_view message_id, IndexItem* item,
                                           const RowList& list) {
  for (Row* row : list.rows) {
    PropertyKey key = LookupProperty(kMessageIdName, row->local_map());
    if (row->HasValueAt(key) && row->TextViewAt(key) == message_id) {
      item->Attach(row, false);
      return true;
    }
  }
  return false;
}

void SORTEDSTOREINDEXTYPE::Snapshot(RowList* list, bool copy) {
  EnsureLevel(LoadFull);
  list->Clear();
  list->rows.reserve(by_uid_.size());
  list->owns_rows = copy;
  for (const auto& [uid, row] : by_uid_) list->rows.push_back(copy ? row->Clone() : row);
}

void SORTEDSTOREINDEXTYPE::Remove(std::string_view id) {
  std::set<std::string, std::less<>> ids;
  ids.emplace(id);
  Remove(ids);
}

void SORTEDSTOREINDEXTYPE::Remove(const std::set<std::string, std::less<>>& ids) {
  EndBulkInsert();
  EnsureLevel(LoadKeys);
  for (const std::string& id : ids) {
    auto it = by_id_.find(id);
    if (it == by_id_.end()) continue;
    Row* row = it->second;
    uint32_t uid = row->Uid();
    removed_.push_back(row);
    if (uid == FirstModifiedUID) FirstModifiedUID = 0;
    // The row outlives this table's use of its map (the writer reads it).
    row->set_local_map(nullptr);
    // A row filed under a later number than its "UID" (a lenient insert) is
    // found from its own number upward.
    for (auto u = by_uid_.lower_bound(uid); u != by_uid_.end(); ++u) {
      if (u->second == row) {
        by_uid_.erase(u);
        break;
      }
    }
    by_id_.erase(it);
  }
  PropertyKey seq = LookupProperty(kSeqName, &local_map_);
  int32_t counter = 1;
  auto kept = rows_.begin();
  for (Row* row : rows_) {
    if (ids.contains(row->IdView())) continue;
    row->SetIntegerAt(seq, counter++, false);
    *kept++ = row;
  }
  rows_.erase(kept, rows_.end());
}

void SORTEDSTOREINDEXTYPE::UnInit() {
  LineTrace trace = 0;
  Guarded("SORTEDSTOREINDEXTYPE::UnInit", kStoreIndexTypeSource, __LINE__, trace, [&] {
    // Rows of an unfinished batch are found through the map like the rest.
    EndBulkInsert();
    // Rows are pointed at a private copy of the property map before they go,
    // so that none of them takes the global map's guard.
    PropertyMap temporary;
    CloneGlobalPropertyMap(&temporary);
    auto destroy = [&temporary](Row* row) {
      row->set_local_map(&temporary);
      delete row;
    };
    if (by_id_.size() > rows_.size()) {
      // Rows entered in the maps but never appended to the vector.
      std::unordered_set<Row*> listed(rows_.begin(), rows_.end());
      for (const auto& [id, row] : by_id_) {
        if (!listed.contains(row)) destroy(row);
      }
    }
    for (Row* row : rows_) destroy(row);
    for (Row* row : removed_) destroy(row);
    rows_.clear();
    by_uid_.clear();
    by_id_.clear();
    removed_.clear();
    text_pool_.Clear();
    LoadState = LoadFailed;
    LastUID = 0;
    FirstModifiedUID = 0;
    FullRewriteRequired = false;
    FieldFilter.clear();
    IndexFileDate = 0;
  });
}

}  // namespace qaaisp
