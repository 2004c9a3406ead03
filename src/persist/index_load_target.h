// Builds rows in a SORTEDSTOREINDEXTYPE from what a stream pass reads: the
// rows point at a private copy of the property map while they are built, so
// the process-wide map's guard is not taken per row, and each tag name is
// looked up once per load rather than once per row.
#pragma once

#include <string>
#include <unordered_set>
#include <vector>

#include "index/property_map.h"
#include "index/sorted_store_index.h"
#include "persist/stream_index_reader.h"

namespace qaaisp::persist {

class IndexLoadTarget : public StreamIndexTarget {
 public:
  // folder is where verified item files are looked for; expected_rows
  // sizes the table's work for the rows to come (a guess is fine).
  IndexLoadTarget(SORTEDSTOREINDEXTYPE* index, std::string folder, size_t expected_rows = 0);
  ~IndexLoadTarget() override;

  uint32_t LastUid() const override { return index_->LastUID; }
  void SetLastUid(uint32_t uid) override { index_->LastUID = uid; }
  bool FullRewriteRequired() const override { return index_->FullRewriteRequired; }
  void SetFullRewriteRequired() override { index_->FullRewriteRequired = true; }
  void ClearItemFilter() override { index_->ItemFilter.clear(); }
  void ClearFieldFilter() override { index_->FieldFilter.clear(); }
  bool ItemFileExists(std::string_view id) override;

  void BeginRow(uint32_t file_offset) override;
  void SetRowProperty(std::string_view name, std::string_view value) override;
  void DropRow() override;
  bool InsertRow(uint32_t file_length, uint32_t idx, bool refuse_duplicates, bool sequence,
                 uint32_t seq) override;
  void Clear() override;
  void SequenceByUid(uint32_t first) override;

  // Puts rows that were never given a place in the sequence at its end (a
  // malformed file can leave some), so that every row of the maps is owned
  // through the sequence too, and enters the rows into the by-ID map.
  void Finish();

 private:
  PropertyKey KeyFor(std::string_view name);

  SORTEDSTOREINDEXTYPE* index_;
  std::string folder_;
  PropertyMap private_map_;
  PropertyMap* row_map_;    // the private map, or null for the global one
  PropertyMap* final_map_;  // what inserted rows point at afterwards
  IndexItemPropertyContainer* row_ = nullptr;
  // Tag names in the order rows usually hold them, with a cursor that
  // guesses the next one.
  std::vector<std::pair<std::string, PropertyKey>> keys_;
  size_t next_key_ = 0;
  uint32_t slots_hint_ = 0;
  PropertyKey idx_key_;
  PropertyKey seq_key_;
  std::unordered_set<IndexItemPropertyContainer*> unsequenced_;
  std::vector<IndexItemPropertyContainer*> unsequenced_order_;
};

}  // namespace qaaisp::persist
