// SORTEDSTOREINDEXTYPE: the rows of one folder in memory, by position, by
// UID and by ID, with the load parameters and the state persistence keeps
// beside them. It has no lock: it is used under its StoreIndex's mutex,
// except for tables that only one thread knows.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "index/id_batch.h"
#include "index/index_item.h"
#include "index/index_item_property_container.h"
#include "index/property_map.h"
#include "qaaisp/qaaisp.h"

struct StoreIndex;

namespace qaaisp {

// Load levels (LoadState). A load may also ask for level 3: full rows
// limited to the properties of FieldFilter.
enum LoadLevel : int32_t {
  LoadFailed = 0,
  LoadHeader = 1,  // only LastUID is known
  LoadKeys = 2,    // rows hold "ID" and "UID"
  LoadFieldFiltered = 3,
  LoadFull = 4,
};

// A cursor over rows: the rows, a position, and whether the list owns them
// (they are clones) and destroys them with itself.
class RowList {
 public:
  RowList() = default;
  ~RowList() { Clear(); }
  RowList(const RowList&) = delete;
  RowList& operator=(const RowList&) = delete;

  void Clear();
  std::vector<IndexItemPropertyContainer*> rows;
  size_t position = 0;
  bool owns_rows = false;
};

class SORTEDSTOREINDEXTYPE;

// Persistence registers how a table is loaded: the stored load parameters
// with a new level. Gives 1 when the level was reached.
using IndexLoader = int (*)(SORTEDSTOREINDEXTYPE* table, int32_t level);
void SetIndexLoader(IndexLoader loader);

enum class UidClash {
  kRefuse,    // strict: a taken UID refuses the row (a trusted file)
  kNextFree,  // lenient: the row goes under the next free UID number
};

class SORTEDSTOREINDEXTYPE {
 public:
  using Row = IndexItemPropertyContainer;
  using ByUid = std::map<uint32_t, Row*>;
  using ById = std::map<std::string, Row*, std::less<>>;

  SORTEDSTOREINDEXTYPE() = default;
  ~SORTEDSTOREINDEXTYPE();
  SORTEDSTOREINDEXTYPE(const SORTEDSTOREINDEXTYPE&) = delete;
  SORTEDSTOREINDEXTYPE& operator=(const SORTEDSTOREINDEXTYPE&) = delete;

  // 1 if LoadState is at level or above, otherwise the result of loading
  // again with the stored parameters at that level (0 with no loader).
  int EnsureLevel(int32_t level);

  // Inserts the row an item owns. On success the table owns the row and the
  // item still points at it without owning it. Fails, leaving the row with
  // the caller, when its "ID" is taken, or its "UID" with kRefuse. A row
  // without "UID" gets LastUID + 1; a higher UID raises LastUID, also when
  // the insert then fails.
  bool Insert(IndexItem* item, UidClash clash);
  // The same for a bare row; with append false the row enters the maps but
  // not the position vector, and gets no "SEQ" (AppendRow adds it later).
  bool InsertRow(Row* row, UidClash clash, bool append = true);
  // Appends a row already in the maps to the position vector, unnumbered.
  void AppendRow(Row* row) { rows_.push_back(row); }

  // Between these, rows that InsertRow takes enter by_id() only at the end,
  // all at once (duplicates are refused as ever). A load of many rows calls
  // them; expected_rows only sizes the work. Finding, removing and UnInit
  // end the batch themselves.
  void BeginBulkInsert(size_t expected_rows);
  void EndBulkInsert();
  // Tells a batch early of a row's ID, so that the check at its insert
  // does not wait on memory.
  void PrefetchId(std::string_view id) const {
    if (bulk_insert_) pending_ids_.Prefetch(id);
  }
  // Where a load makes the text records of its rows: they stay until
  // UnInit, which destroys every row first.
  TextPool* text_pool() { return &text_pool_; }

  // Attaches the row with this "ID" to item (a clone if copy), or leaves
  // item empty. Loads fully first.
  bool FindById(std::string_view id, IndexItem* item, bool copy);
  Row* FindByUid(uint32_t uid) const;
  // Selects into item the first row of list whose "MSGID" equals id exactly.
  static bool FindByMessageId(std::string_view message_id, IndexItem* item, const RowList& list);
  // The rows in UID order (clones if copy). Loads fully first.
  void Snapshot(RowList* list, bool copy);

  // Moves the rows with these identifiers to the removed rows and numbers
  // "SEQ" of the rest afresh from 1.
  void Remove(const std::set<std::string, std::less<>>& ids);
  void Remove(std::string_view id);

  // Destroys every row and returns the table to its unloaded state.
  void UnInit();

  // Fills details from the rows' "FLAGSTATUS"; with no full load, details
  // stay as they were.
  void GetFolderDetails(FolderDetails* details);

  // Lowers FirstModifiedUID to uid (0 stands for none yet).
  void NoteModified(uint32_t uid) {
    if (FirstModifiedUID == 0 || FirstModifiedUID > uid) FirstModifiedUID = uid;
  }

  size_t size() const { return rows_.size(); }
  const std::vector<Row*>& rows() const { return rows_; }
  const ByUid& by_uid() const { return by_uid_; }
  const ById& by_id() const { return by_id_; }
  const std::vector<Row*>& removed_rows() const { return removed_; }
  PropertyMap* local_map() { return &local_map_; }

  // The owning index, or null.
  StoreIndex* owner = nullptr;

  // Load parameters, kept so that EnsureLevel can repeat a load.
  std::string folder_path;
  int32_t index_type = 0;
  std::string postoffice;
  std::string mailbox;
  bool onlyIfUnloaded = false;
  bool lockHeld = false;
  int32_t verifyFiles = 0;
  bool rebuild = true;
  bool forceRebuild = false;
  bool reportFailures = false;
  bool keep = false;

  int32_t LoadState = LoadFailed;
  uint32_t LastUID = 0;
  uint32_t FirstModifiedUID = 0;
  bool FullRewriteRequired = false;
  // Whether rows' FileOffset and FileLength still describe the file.
  bool OffsetsValid = false;
  // Last-write time of the index file as loaded or written (FILETIME ticks).
  uint64_t IndexFileDate = 0;
  // Comma-separated identifiers to load; empty for all.
  std::string ItemFilter;
  // Comma-separated property names to load; empty for all.
  std::string FieldFilter;

 private:
  // Files the row under uid, or the next free number after it with
  // kNextFree; false when refused.
  bool FileUnderUid(uint32_t uid, Row* row, UidClash clash);

  std::vector<Row*> rows_;
  ByUid by_uid_;
  ById by_id_;
  std::vector<Row*> removed_;
  PropertyMap local_map_;
  IdBatch pending_ids_;
  bool bulk_insert_ = false;
  TextPool text_pool_;
};

}  // namespace qaaisp
