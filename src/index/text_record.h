// Text values of rows: a length and the bytes with a terminator in one
// block, either a heap block of its own or a place in a pool that a table
// fills while it loads and gives back whole.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

namespace qaaisp {

struct TextRecord {
  // The top bit of the length marks a record that lives in a TextPool.
  static constexpr uint32_t kPooled = 0x80000000u;
  static constexpr uint32_t kMaxLength = kPooled - 1;

  uint32_t length_and_flag;

  uint32_t size() const { return length_and_flag & kMaxLength; }
  bool pooled() const { return (length_and_flag & kPooled) != 0; }
  const char* bytes() const { return reinterpret_cast<const char*>(this + 1); }
  char* bytes() { return reinterpret_cast<char*>(this + 1); }
  std::string_view view() const { return {bytes(), size()}; }

  // A heap record; raises bad_alloc when the value cannot be held.
  static TextRecord* Make(std::string_view value);
  // The room a record of length takes among others in one block, rounded
  // up so that the next one stays aligned.
  static size_t BlockBytes(size_t length);
  // A record placed at block, whose owner frees the block: the record is
  // marked pooled, so Free leaves it.
  static TextRecord* MakeAt(void* block, std::string_view value);
  // Frees a heap record; a pooled record goes with its pool.
  static void Free(TextRecord* record);
};

// Records carved from large blocks, freed all at once by Clear. Loading a
// big index makes a record for nearly every value of every row; one
// allocator call each would cost more than reading the file, and the
// blocks keep a row's values together in memory.
class TextPool {
 public:
  TextPool() = default;
  TextPool(const TextPool&) = delete;
  TextPool& operator=(const TextPool&) = delete;

  TextRecord* Make(std::string_view value);
  // Forgets every record. The caller must first destroy the rows that use
  // them.
  void Clear();
  size_t bytes_held() const { return bytes_held_; }

 private:
  static constexpr size_t kBlockBytes = 64 * 1024;

  std::vector<std::unique_ptr<char[]>> blocks_;
  char* next_ = nullptr;
  size_t left_ = 0;
  size_t bytes_held_ = 0;
};

}  // namespace qaaisp
