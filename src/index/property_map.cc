#include "index/property_map.h"

#include <algorithm>
#include <atomic>

#include "base/failure_guard.h"
#include "base/setting_names.h"
#include "base/settings.h"
#include "index/index_source_names.h"
#include "locks/mutex.h"

namespace qaaisp {

// An immutable state of a map, shared by every map that holds it.
struct PropertySnapshot {
  std::vector<PropertyEntry> entries;  // ascending byte order of names
  std::vector<PropertyType> types;     // by slot
};

using SnapshotPtr = std::shared_ptr<const PropertySnapshot>;

// The snapshot behind a map, for the functions of this file.
struct PropertyMapAccess {
  static SnapshotPtr& Of(PropertyMap& map) { return map.snapshot_; }
};

namespace {

std::atomic<uint64_t> g_guard_count{0};

// The global map's guard, counted.
class GlobalGuard {
 public:
  GlobalGuard() : lock_(&PropertyMapMutex()) { g_guard_count.fetch_add(1); }

 private:
  MutexLock lock_;
};

const PropertyEntry* FindEntry(const PropertySnapshot& s, std::string_view name) {
  auto it = std::lower_bound(
      s.entries.begin(), s.entries.end(), name,
      [](const PropertyEntry& e, std::string_view n) { return std::string_view(e.name) < n; });
  if (it == s.entries.end() || it->name != name) return nullptr;
  return &*it;
}

// "ID", "UID" and "READ" at slots 0, 1 and 2: every map starts with them.
const SnapshotPtr& SeedSnapshot() {
  static const SnapshotPtr* seed = [] {
    auto s = std::make_shared<PropertySnapshot>();
    s->entries = {{"ID", {kIdSlot, kPropertyText}},
                  {"READ", {kReadSlot, kPropertyInteger}},
                  {"UID", {kUidSlot, kPropertyInteger}}};
    s->types = {kPropertyText, kPropertyInteger, kPropertyInteger};
    return new SnapshotPtr(std::move(s));
  }();
  return *seed;
}

}  // namespace

PropertyMap::PropertyMap() = default;
PropertyMap::~PropertyMap() = default;
PropertyMap::PropertyMap(const PropertyMap&) = default;
PropertyMap& PropertyMap::operator=(const PropertyMap&) = default;

PropertyKey PropertyMap::Find(std::string_view name) const {
  if (!snapshot_) return {};
  const PropertyEntry* e = FindEntry(*snapshot_, name);
  return e ? e->key : PropertyKey{};
}

bool PropertyMap::empty() const { return !snapshot_ || snapshot_->entries.empty(); }

size_t PropertyMap::size() const { return snapshot_ ? snapshot_->entries.size() : 0; }

void PropertyMap::Clear() { snapshot_.reset(); }

std::span<const PropertyEntry> PropertyMap::entries() const {
  if (!snapshot_) return {};
  return snapshot_->entries;
}

PropertyType PropertyMap::SlotType(int32_t slot) const {
  if (snapshot_ && slot >= 0 && static_cast<size_t>(slot) < snapshot_->types.size()) {
    return snapshot_->types[slot];
  }
  return GlobalSlotType(slot);
}

PropertyMap& GlobalPropertyMap() {
  // Never destroyed: rows may outlive every other static at process exit.
  static PropertyMap* global = new PropertyMap;
  return *global;
}

Mutex& PropertyMapMutex() {
  static Mutex* guard = new Mutex("PropertyMapMutex");
  return *guard;
}

PropertyType TypeForNewProperty(std::string_view name) {
  static constexpr std::string_view kIntegerNames[] = {
      "SIZE", "STATE", "IMPORTANCE", "ATTACHMENTS", "MODIFIEDDATE", "IDX", "SEQ"};
  for (std::string_view n : kIntegerNames) {
    if (n == name) return kPropertyInteger;
  }
  return kPropertyText;
}

namespace {

// With the guard held: the name's key in the global map, added if new.
PropertyKey FindOrAddGlobal(std::string_view name) {
  SnapshotPtr& global = PropertyMapAccess::Of(GlobalPropertyMap());
  if (!global || global->entries.empty()) global = SeedSnapshot();
  if (const PropertyEntry* e = FindEntry(*global, name)) return e->key;
  auto next = std::make_shared<PropertySnapshot>(*global);
  PropertyKey key{static_cast<int32_t>(next->entries.size()), TypeForNewProperty(name)};
  auto at = std::lower_bound(
      next->entries.begin(), next->entries.end(), name,
      [](const PropertyEntry& e, std::string_view n) { return std::string_view(e.name) < n; });
  next->entries.insert(at, PropertyEntry{std::string(name), key});
  next->types.push_back(key.type);
  global = std::move(next);
  return key;
}

}  // namespace

PropertyKey LookupProperty(std::string_view name, PropertyMap* map) {
  PropertyMap& global = GlobalPropertyMap();
  if (!map || map == &global) {
    GlobalGuard guard;
    return FindOrAddGlobal(name);
  }
  if (map->empty()) PropertyMapAccess::Of(*map) = SeedSnapshot();
  PropertyKey key = map->Find(name);
  if (key.valid()) return key;
  // A miss: the name goes into the global map, and the local map becomes a
  // fresh copy of it, so its numbering stays the global one.
  {
    GlobalGuard guard;
    FindOrAddGlobal(name);
    map->Clear();
    PropertyMapAccess::Of(*map) = PropertyMapAccess::Of(global);
  }
  return map->Find(name);
}

void CloneGlobalPropertyMap(PropertyMap* local) {
  LineTrace trace = 0;
  Guarded("CloneGlobalPropertyMap", kStoreIndexItemSource, __LINE__, trace, [&] {
    PropertyMap& global = GlobalPropertyMap();
    if (!local || local == &global) return;
    GlobalGuard guard;
    PropertyMapAccess::Of(*local) = PropertyMapAccess::Of(global);
  });
}

PropertyType GlobalSlotType(int32_t slot) {
  GlobalGuard guard;
  const SnapshotPtr& s = PropertyMapAccess::Of(GlobalPropertyMap());
  if (s && slot >= 0 && static_cast<size_t>(slot) < s->types.size()) return s->types[slot];
  return kPropertyText;
}

uint64_t PropertyMapGuardCount() { return g_guard_count.load(); }

bool IndexUsesLocalProperties() {
  static LazySetting setting(settings::kProductKey, settings::kIndexUsesLocalProperties, 1);
  return setting.Get() != 0;
}

}  // namespace qaaisp
