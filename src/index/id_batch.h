// Rows on their way into a table's by-ID map during a load. A map insert
// per row walks a tree of scattered nodes, comparing strings that live in
// yet other blocks; at a hundred thousand rows that walk costs more than
// reading the file. The batch answers "is this ID taken?" from a hash of
// the IDs, and enters them all into the map at the end in sorted order,
// each insert then landing beside the one before it.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace qaaisp {

class IndexItemPropertyContainer;

class IdBatch {
 public:
  using Row = IndexItemPropertyContainer;
  using Map = std::map<std::string, Row*, std::less<>>;

  void Reserve(size_t rows);
  bool Contains(std::string_view id) const;
  // Starts fetching where Contains will look for id. The table is too big
  // for the cache, so a load asks as soon as it reads a row's ID and finds
  // the answer in the cache when the row ends.
  void Prefetch(std::string_view id) const;
  // Adds an ID not yet in the batch (the batch keeps a copy).
  void Add(std::string_view id, Row* row);
  // Enters every ID into map and empties the batch. An ID the map already
  // holds (from an earlier merge that failed part way) is left as it is.
  void MergeInto(Map* map);
  void Clear();
  bool empty() const { return entries_.empty(); }
  size_t size() const { return entries_.size(); }

 private:
  struct Entry {
    // The first 16 bytes, big-endian and zero-padded: most comparisons of
    // a sort end here, without touching the ID's own bytes.
    uint64_t high;
    uint64_t low;
    uint32_t offset;  // in ids_
    uint32_t size;
    Row* row;
  };

  std::string_view IdOf(const Entry& e) const { return {ids_.data() + e.offset, e.size}; }

  static uint32_t Hash(std::string_view id);
  void Rehash(size_t slots);

  std::vector<Entry> entries_;
  // The IDs' bytes side by side: the merge reads them in sorted order, and
  // close together they stay in the cache.
  std::string ids_;
  // Open addressing over entries_: 0 is a free slot, else the hash in the
  // high half and entry index + 1 in the low half, so that a probe touches
  // an entry only when the hashes agree.
  std::vector<uint64_t> slots_;
};

}  // namespace qaaisp
