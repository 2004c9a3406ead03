#include "persist/index_write_stream.h"

#include <algorithm>
#include <cstring>

namespace qaaisp::persist {
namespace {

// Saved bytes below the floor are dropped in runs of at least this much, so
// that trimming does not move the saved bytes for every row.
constexpr uint64_t kTrimRun = 64 * 1024;

}  // namespace

IndexWriteStream::IndexWriteStream(std::unique_ptr<platform::File> file, size_t buffer_size)
    : file_(std::move(file)), capacity_(buffer_size == 0 ? kDefaultBufferSize : buffer_size) {
  pending_.reserve(capacity_);
}

IndexWriteStream::~IndexWriteStream() { Close(); }

void IndexWriteStream::Seek(uint64_t position) {
  if (failed()) {
    state_.fail = true;
    return;
  }
  position_ = position;
}

void IndexWriteStream::SeekEnd() {
  if (failed()) {
    state_.fail = true;
    return;
  }
  position_ = Length();
}

void IndexWriteStream::Write(std::string_view bytes) {
  if (failed() || file_ == nullptr) {
    state_.fail = true;
    return;
  }
  if (bytes.empty()) return;
  SaveBeforeWrite(position_ + bytes.size());
  const bool contiguous = position_ == pending_start_ + pending_.size();
  if (!pending_.empty() && (!contiguous || pending_.size() + bytes.size() > capacity_)) {
    if (!FlushBuffer()) return;
  }
  if (bytes.size() >= capacity_) {
    if (!file_->WriteAt(position_, bytes.data(), bytes.size())) {
      state_.bad = true;
      state_.fail = true;
      write_failed_ = true;
      return;
    }
  } else {
    if (pending_.empty()) pending_start_ = position_;
    pending_.append(bytes);
  }
  position_ += bytes.size();
}

size_t IndexWriteStream::Read(char* out, size_t n) {
  if (failed() || file_ == nullptr || !FlushBuffer()) {
    state_.fail = true;
    return 0;
  }
  size_t got = ReadFile(position_, out, n);
  position_ += got;
  if (got < n) state_.fail = true;
  return got;
}

uint64_t IndexWriteStream::Length() {
  if (file_ == nullptr) return 0;
  int64_t size = file_->Size();
  uint64_t length = size < 0 ? 0 : static_cast<uint64_t>(size);
  return std::max<uint64_t>(length, pending_start_ + pending_.size());
}

void IndexWriteStream::Flush() {
  if (file_ == nullptr) {
    state_.fail = true;
    return;
  }
  FlushBuffer();
}

void IndexWriteStream::Close() {
  if (file_ == nullptr) return;
  FlushBuffer();
  file_.reset();
}

bool IndexWriteStream::FlushBuffer() {
  if (pending_.empty()) return true;
  bool ok = file_->WriteAt(pending_start_, pending_.data(), pending_.size());
  pending_.clear();
  if (!ok) {
    state_.bad = true;
    state_.fail = true;
    write_failed_ = true;
  }
  return ok;
}

size_t IndexWriteStream::ReadFile(uint64_t offset, char* out, size_t n) {
  size_t got = 0;
  while (got < n) {
    int64_t r = file_->ReadAt(offset + got, out + got, n - got);
    if (r <= 0) break;
    got += static_cast<size_t>(r);
  }
  return got;
}

void IndexWriteStream::KeepOriginal() {
  if (file_ == nullptr) return;
  FlushBuffer();
  keeping_ = true;
  original_length_ = Length();
  // Writes only move forward from here, so nothing before is saved.
  frontier_ = position_;
  floor_ = position_;
  saved_.clear();
  saved_base_ = position_;
}

void IndexWriteStream::SetOriginalFloor(uint64_t floor) {
  floor_ = std::max(floor_, floor);
  if (floor_ <= saved_base_ || saved_.empty()) return;
  uint64_t drop = std::min<uint64_t>(floor_ - saved_base_, saved_.size());
  if (drop == saved_.size() || drop >= kTrimRun) {
    saved_.erase(0, static_cast<size_t>(drop));
    saved_base_ += drop;
  }
}

void IndexWriteStream::SaveBeforeWrite(uint64_t to) {
  if (!keeping_ || to <= frontier_) return;
  // Bytes between the frontier and this write that nobody overwrote are
  // saved too, so the saved run stays one piece.
  const uint64_t run_start = std::max(frontier_, floor_);
  const uint64_t end = std::min(to, original_length_);
  if (run_start < end) {
    if (saved_base_ + saved_.size() != run_start) {
      saved_.clear();
      saved_base_ = run_start;
    }
    size_t old_size = saved_.size();
    saved_.resize(old_size + static_cast<size_t>(end - run_start));
    size_t got =
        ReadFile(run_start, saved_.data() + old_size, static_cast<size_t>(end - run_start));
    saved_.resize(old_size + got);
  }
  frontier_ = to;
}

size_t IndexWriteStream::ReadOriginal(uint64_t offset, char* out, size_t n) {
  if (file_ == nullptr) return 0;
  if (!keeping_) {
    if (!FlushBuffer()) return 0;
    return ReadFile(offset, out, n);
  }
  if (offset >= original_length_) return 0;
  n = static_cast<size_t>(std::min<uint64_t>(n, original_length_ - offset));
  size_t done = 0;
  while (done < n) {
    uint64_t at = offset + done;
    if (at >= frontier_) {
      // Untouched since keeping began; buffered writes all lie below the
      // frontier, so the file itself still holds these bytes.
      return done + ReadFile(at, out + done, n - done);
    }
    const uint64_t saved_end = saved_base_ + saved_.size();
    if (at < saved_base_ || at >= saved_end) return done;  // below the floor: gone
    size_t take = static_cast<size_t>(std::min<uint64_t>(n - done, saved_end - at));
    take = static_cast<size_t>(std::min<uint64_t>(take, frontier_ - at));
    std::memcpy(out + done, saved_.data() + (at - saved_base_), take);
    done += take;
  }
  return done;
}

}  // namespace qaaisp::persist
