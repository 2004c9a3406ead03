// One row of a folder index: an array of 8-byte slots, one per property
// slot number of the property map, up to the highest slot the row uses. The
// row stores no names; the map that applies (the index's local map, or the
// global one) says what each slot is.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/array.h"
#include "index/property_map.h"
#include "index/text_record.h"

namespace qaaisp {

class SORTEDSTOREINDEXTYPE;

// A slot: a text record pointer or a 32-bit integer sign-extended.
union PropertySlot {
  TextRecord* text;
  int64_t integer;
};
static_assert(sizeof(PropertySlot) == 8);

using PropertyValues = std::map<std::string, std::string>;

class IndexItemPropertyContainer {
 public:
  static constexpr uint32_t kInitialSlots = 5;
  static constexpr uint32_t kSlotGrowth = 5;

  IndexItemPropertyContainer();
  // A row with room for this many slots from the start (a load knows how
  // many the rows before took).
  explicit IndexItemPropertyContainer(uint32_t initial_slots);
  virtual ~IndexItemPropertyContainer();
  IndexItemPropertyContainer(const IndexItemPropertyContainer&) = delete;
  IndexItemPropertyContainer& operator=(const IndexItemPropertyContainer&) = delete;

  // By name. Each looks the name up through the row's map (which may add the
  // name to the global map).

  // No value gives the empty string; an integer gives "%lu" of its 32 bits.
  void GetText(std::string_view name, std::string* out) const;
  std::string GetText(std::string_view name) const;
  // Bounded copy into buffer (size bytes with terminator); an empty string
  // when there is no value.
  void GetText(std::string_view name, char* buffer, size_t size) const;
  // 0 with no value; a text gives its leading number.
  int32_t GetInteger(std::string_view name) const;
  bool HasValue(std::string_view name) const;
  // An empty value without force changes nothing; with force it clears.
  void SetText(std::string_view name, std::string_view value, bool force);
  void SetInteger(std::string_view name, int32_t value);
  // Frees a text and zeroes the slot; the row counts as modified.
  void Remove(std::string_view name);

  // Every name with a value, or just the listed ones (empty text for those
  // without), as text.
  void Flatten(const std::vector<std::string>* names, PropertyValues* out) const;
  // Stores each entry as SetText without force would.
  void Merge(const PropertyValues& values);
  // A free-standing copy (no owner, no local map) of all values or of the
  // listed ones, with the same FileOffset and FileLength.
  IndexItemPropertyContainer* Clone(const std::vector<std::string>* names = nullptr) const;

  // By key, for bulk work (loads) that looked the key up once. mark_modified
  // false is for properties that are not changes, such as "SEQ".
  bool HasValueAt(PropertyKey key) const;
  void GetTextAt(PropertyKey key, std::string* out) const;
  // Text of a text slot without copying; empty for no value or an integer.
  std::string_view TextViewAt(PropertyKey key) const;
  int32_t GetIntegerAt(PropertyKey key) const;
  void SetTextAt(PropertyKey key, std::string_view value, bool force, bool mark_modified = true);
  struct TextAt {
    PropertyKey key;
    std::string_view value;
  };
  // Stores each text in turn as SetTextAt with force would, but makes the
  // records of all of them in one block, which the row keeps until it is
  // destroyed or reset: a row built whole costs one allocation rather than
  // one per value. A row that has such a block already stores one by one.
  void SetTextsAt(std::span<const TextAt> texts, bool mark_modified = true);
  void SetIntegerAt(PropertyKey key, int32_t value, bool mark_modified = true);
  // A value read from a file: stored as SetTextAt without force and
  // without marking the row, its record made in the pool of the table the
  // row is going into (a text slot) or parsed (an integer slot).
  void LoadValueAt(PropertyKey key, std::string_view value, TextPool* pool);
  void RemoveAt(PropertyKey key);
  // Room for slots below n, so that a row built in bulk grows once.
  void ReserveSlots(uint32_t n) { slots_.Reserve(n); }
  uint32_t slot_count() const { return slots_.size(); }

  // The keys of the fixed names, which need no lookup.
  static constexpr PropertyKey IdKey() { return {kIdSlot, kPropertyText}; }
  static constexpr PropertyKey UidKey() { return {kUidSlot, kPropertyInteger}; }
  // "UID" as unsigned, 0 when the row has none.
  uint32_t Uid() const;
  std::string_view IdView() const { return TextViewAt(IdKey()); }

  // Keeps only "ID" and "UID" (the reset of an item's row).
  void ResetKeepingKeys();

  SORTEDSTOREINDEXTYPE* owner() const { return owner_; }
  void set_owner(SORTEDSTOREINDEXTYPE* owner) { owner_ = owner; }
  PropertyMap* local_map() const { return local_map_; }
  // The map is not owned; null means the global map.
  void set_local_map(PropertyMap* map) { local_map_ = map; }

  // Where the row's element lies in the stream index file; 0 for a row never
  // written.
  int32_t FileOffset = 0;
  uint32_t FileLength = 0;

 private:
  PropertyKey Lookup(std::string_view name) const;
  void MarkModified();
  void EnsureSlot(int32_t slot);
  void StoreText(int32_t slot, std::string_view value);
  void FreeTexts(const PropertyMap& map);

  SORTEDSTOREINDEXTYPE* owner_ = nullptr;
  Array<PropertySlot> slots_;
  void* text_block_ = nullptr;  // the records SetTextsAt made, all in one
  PropertyMap* local_map_ = nullptr;
};

// The 32-bit value of a text's leading decimal number (as atol on 32 bits):
// white space, a sign and digits; larger values wrap, so "4294967295" reads
// back as -1.
int32_t TextToInteger(std::string_view text);

}  // namespace qaaisp
