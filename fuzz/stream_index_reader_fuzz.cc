// Any bytes as an index file through the stream reader's pass: whole in
// memory, and again through a small window fed a few bytes at a time, with
// the load options taken from the first byte.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <set>
#include <string>

#include "persist/index_text.h"
#include "persist/stream_index_reader.h"

namespace {

using qaaisp::persist::StreamIndexTarget;

// Keeps what a load would keep, without an index behind it.
class CountingTarget : public StreamIndexTarget {
 public:
  uint32_t LastUid() const override { return last_uid_; }
  void SetLastUid(uint32_t uid) override { last_uid_ = uid; }
  bool FullRewriteRequired() const override { return full_rewrite_; }
  void SetFullRewriteRequired() override { full_rewrite_ = true; }
  void ClearItemFilter() override {}
  void ClearFieldFilter() override {}
  bool ItemFileExists(std::string_view id) override { return id.size() % 2 == 0; }
  void BeginRow(uint32_t) override { building_ = true; }
  void SetRowProperty(std::string_view name, std::string_view value) override {
    if (!building_) __builtin_trap();
    bytes_ += name.size() + value.size();
  }
  void DropRow() override { building_ = false; }
  bool InsertRow(uint32_t, uint32_t, bool, bool, uint32_t) override {
    if (!building_) __builtin_trap();
    building_ = false;
    return uids_.insert(last_uid_ + rows_++).second;
  }
  void Clear() override { uids_.clear(); }
  void SequenceByUid(uint32_t) override {}

 private:
  uint32_t last_uid_ = 0;
  bool full_rewrite_ = false;
  bool building_ = false;
  size_t bytes_ = 0;
  uint32_t rows_ = 0;
  std::set<uint32_t> uids_;
};

class PieceSource : public qaaisp::persist::IndexByteSource {
 public:
  PieceSource(const uint8_t* data, size_t size, size_t step)
      : data_(data), size_(size), step_(step) {}
  int64_t ReadAt(uint64_t offset, char* buffer, size_t n) override {
    if (offset >= size_) return 0;
    size_t take = n < step_ ? n : step_;
    if (take > size_ - offset) take = size_ - static_cast<size_t>(offset);
    std::memcpy(buffer, data_ + offset, take);
    return static_cast<int64_t>(take);
  }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t step_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const uint8_t flags = data[0];
  ++data;
  --size;
  std::string_view bytes(reinterpret_cast<const char*>(data), size);

  qaaisp::persist::NameSet filter{"a", "1.MAI"};
  qaaisp::persist::NameSet fields{"ID", "SIZE"};
  qaaisp::persist::StreamPassOptions options;
  options.mode = (flags & 3) + 1;
  options.keep = flags & 4;
  options.verify_files = flags & 8;
  options.garbage_threshold = (flags >> 4) & 3;
  if (flags & 64) options.item_filter = &filter;
  if (flags & 128) options.field_filter = &fields;

  CountingTarget whole;
  qaaisp::persist::RunStreamIndexPass(bytes, options, &whole);
  CountingTarget pieces;
  filter = {"a", "1.MAI"};
  PieceSource source(data, size, 1 + flags % 7);
  qaaisp::persist::RunStreamIndexPass(&source, 16 + flags % 5, options, &pieces);

  qaaisp::persist::ProbeIndexHeader(bytes);
  std::string text(bytes);
  qaaisp::persist::UnescapeIndexText(&text);
  uint32_t last_uid = 0;
  qaaisp::persist::ParseLastUID(&last_uid, bytes);
  return 0;
}
