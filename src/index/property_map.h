// Property maps: from a property name to its slot in a row and its type.
//
// One global map serves the process. It hands out slot numbers in order of
// first use and never reuses or removes one, so a slot number means the same
// name in every row for the life of the process. Looking a name up always
// gives it a slot, also when no row has it: callers never ask whether a name
// is known.
//
// A local map belongs to one index and caches the global one so that the
// thousands of lookups of a load take no process-wide lock. Its slot numbers
// are always the global ones. A local map has no lock of its own; it is used
// under the mutex of its index.
//
// Maps share immutable snapshots, so that cloning the global map (on a local
// miss, for a save, or for a teardown) costs one reference, not a copy.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qaaisp {

class Mutex;

enum PropertyType : int32_t {
  kPropertyText = 0,     // slot holds a TextRecord pointer, null for no value
  kPropertyInteger = 1,  // slot holds the value; below the row's size it counts as set
};

struct PropertyKey {
  int32_t slot = -1;  // negative: no such property
  PropertyType type = kPropertyText;

  bool valid() const { return slot >= 0; }
  friend bool operator==(const PropertyKey&, const PropertyKey&) = default;
};

struct PropertyEntry {
  std::string name;
  PropertyKey key;
};

// The three names every map starts with, in this order.
inline constexpr int32_t kIdSlot = 0;    // "ID", text
inline constexpr int32_t kUidSlot = 1;   // "UID", integer
inline constexpr int32_t kReadSlot = 2;  // "READ", integer

struct PropertySnapshot;

class PropertyMap {
 public:
  PropertyMap();
  ~PropertyMap();
  PropertyMap(const PropertyMap&);
  PropertyMap& operator=(const PropertyMap&);

  // The key of a known name, or (-1, text). Never adds.
  PropertyKey Find(std::string_view name) const;
  bool empty() const;
  size_t size() const;
  void Clear();
  // Entries in ascending byte order of their names.
  std::span<const PropertyEntry> entries() const;
  // The type of a slot. A slot this map does not know yet is looked up in the
  // global map (types never change once given).
  PropertyType SlotType(int32_t slot) const;

 private:
  friend struct PropertyMapAccess;

  std::shared_ptr<const PropertySnapshot> snapshot_;
};

// The process-wide map and its guard. Read or change the map only with the
// guard held (a MutexLock on it).
PropertyMap& GlobalPropertyMap();
Mutex& PropertyMapMutex();

// The type a new name gets: integer for the fixed numeric names, else text.
PropertyType TypeForNewProperty(std::string_view name);

// Looks a name up, giving it the next slot if it is new. A null map means the
// global map, under its guard. A local map that misses is refreshed from the
// global map, so its numbering always agrees.
PropertyKey LookupProperty(std::string_view name, PropertyMap* map);

// Replaces a local map's content with the global map's (under the guard).
// Cloning the global map onto itself does nothing.
void CloneGlobalPropertyMap(PropertyMap* local);

// The type of a slot in the global map (under the guard); text if unknown.
PropertyType GlobalSlotType(int32_t slot);

// How many times the global guard was taken: lets tests prove that bulk
// work on rows does not lock per row.
uint64_t PropertyMapGuardCount();

// "Index Uses Local Properties": whether rows of an index use its local map.
bool IndexUsesLocalProperties();

}  // namespace qaaisp
