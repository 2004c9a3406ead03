#include "index/id_batch.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <functional>
#include <stdexcept>

namespace qaaisp {
namespace {

uint64_t BigEndianWord(std::string_view id, size_t from) {
  uint64_t word = 0;
  for (size_t i = 0; i < 8; ++i) {
    const size_t at = from + i;
    const uint8_t byte = at < id.size() ? static_cast<uint8_t>(id[at]) : 0;
    word = (word << 8) | byte;
  }
  return word;
}

}  // namespace

uint32_t IdBatch::Hash(std::string_view id) {
  const size_t h = std::hash<std::string_view>{}(id);
  return static_cast<uint32_t>(h ^ (h >> 32));
}

void IdBatch::Reserve(size_t rows) {
  entries_.reserve(rows);
  ids_.reserve(rows * 24);
  const size_t wanted = std::bit_ceil(rows * 2 + 16);
  if (wanted > slots_.size()) Rehash(wanted);
}

void IdBatch::Rehash(size_t slots) {
  slots_.assign(slots, 0);
  const size_t mask = slots - 1;
  for (size_t i = 0; i < entries_.size(); ++i) {
    const uint32_t hash = Hash(IdOf(entries_[i]));
    size_t at = hash & mask;
    while (slots_[at] != 0) at = (at + 1) & mask;
    slots_[at] = (static_cast<uint64_t>(hash) << 32) | (i + 1);
  }
}

bool IdBatch::Contains(std::string_view id) const {
  if (entries_.empty()) return false;
  const uint32_t hash = Hash(id);
  const size_t mask = slots_.size() - 1;
  for (size_t at = hash & mask; slots_[at] != 0; at = (at + 1) & mask) {
    const uint64_t slot = slots_[at];
    if (slot >> 32 == hash && IdOf(entries_[(slot & 0xFFFFFFFFu) - 1]) == id) return true;
  }
  return false;
}

void IdBatch::Prefetch(std::string_view id) const {
  if (slots_.empty()) return;
  __builtin_prefetch(&slots_[Hash(id) & (slots_.size() - 1)]);
}

void IdBatch::Add(std::string_view id, Row* row) {
  // At most half full, so that probes stay short.
  if ((entries_.size() + 1) * 2 > slots_.size()) Rehash(std::max<size_t>(slots_.size() * 2, 64));
  if (ids_.size() + id.size() > UINT32_MAX || entries_.size() >= UINT32_MAX - 1) {
    throw std::length_error("IdBatch");
  }
  const uint32_t hash = Hash(id);
  entries_.push_back({BigEndianWord(id, 0), BigEndianWord(id, 8),
                      static_cast<uint32_t>(ids_.size()), static_cast<uint32_t>(id.size()), row});
  ids_.append(id);
  const size_t mask = slots_.size() - 1;
  size_t at = hash & mask;
  while (slots_[at] != 0) at = (at + 1) & mask;
  slots_[at] = (static_cast<uint64_t>(hash) << 32) | entries_.size();
}

void IdBatch::MergeInto(Map* map) {
  std::sort(entries_.begin(), entries_.end(), [this](const Entry& a, const Entry& b) {
    if (a.high != b.high) return a.high < b.high;
    if (a.low != b.low) return a.low < b.low;
    return IdOf(a) < IdOf(b);
  });
  if (map->empty()) {
    for (const Entry& e : entries_) map->emplace_hint(map->end(), IdOf(e), e.row);
  } else {
    // Rows loaded beside rows already there: each finds its own place.
    for (const Entry& e : entries_) map->emplace(IdOf(e), e.row);
  }
  Clear();
}

void IdBatch::Clear() {
  // The table keeps no memory of a load once it is over.
  std::vector<Entry>().swap(entries_);
  std::string().swap(ids_);
  std::vector<uint64_t>().swap(slots_);
}

}  // namespace qaaisp
