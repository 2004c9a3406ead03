#include "index/text_record.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace qaaisp {
namespace {

size_t RecordBytes(size_t length) { return sizeof(TextRecord) + length + 1; }

TextRecord* Fill(void* block, std::string_view value, uint32_t flag) {
  auto* record = new (block) TextRecord{static_cast<uint32_t>(value.size()) | flag};
  if (!value.empty()) std::memcpy(record->bytes(), value.data(), value.size());
  record->bytes()[value.size()] = '\0';
  return record;
}

}  // namespace

TextRecord* TextRecord::Make(std::string_view value) {
  if (value.size() > kMaxLength) throw std::bad_alloc();
  void* block = std::malloc(RecordBytes(value.size()));
  if (!block) throw std::bad_alloc();
  return Fill(block, value, 0);
}

size_t TextRecord::BlockBytes(size_t length) {
  constexpr size_t kAlign = alignof(TextRecord);
  return (RecordBytes(length) + kAlign - 1) & ~(kAlign - 1);
}

TextRecord* TextRecord::MakeAt(void* block, std::string_view value) {
  return Fill(block, value, kPooled);
}

void TextRecord::Free(TextRecord* record) {
  if (record && !record->pooled()) std::free(record);
}

TextRecord* TextPool::Make(std::string_view value) {
  if (value.size() > TextRecord::kMaxLength) throw std::bad_alloc();
  // Records stay aligned for their length field.
  const size_t need = TextRecord::BlockBytes(value.size());
  if (need > left_) {
    // A value larger than a block gets a block of its own size; what was
    // left of the current block is given up.
    const size_t size = need > kBlockBytes ? need : kBlockBytes;
    blocks_.push_back(std::unique_ptr<char[]>(new char[size]));
    bytes_held_ += size;
    next_ = blocks_.back().get();
    left_ = size;
  }
  TextRecord* record = TextRecord::MakeAt(next_, value);
  next_ += need;
  left_ -= need;
  return record;
}

void TextPool::Clear() {
  blocks_.clear();
  next_ = nullptr;
  left_ = 0;
  bytes_held_ = 0;
}

}  // namespace qaaisp
