#include "mime/line_source.h"

#include <cstring>

namespace qaaisp::mime {
namespace {

constexpr size_t kBufferSize = 64 * 1024;

}  // namespace

LineSource::LineSource(std::unique_ptr<platform::File> file)
    : file_(std::move(file)), buffer_(new char[kBufferSize]) {
  data_ = std::string_view(buffer_.get(), 0);
}

LineSource::LineSource(std::string_view text) : data_(text), file_done_(true) {}

// Moves what is unread to the front of the buffer and reads behind it.
bool LineSource::Fill() {
  if (file_done_) return false;
  size_t kept = data_.size();
  if (kept > 0 && data_.data() != buffer_.get()) std::memmove(buffer_.get(), data_.data(), kept);
  int64_t got = file_->ReadAt(file_offset_, buffer_.get() + kept, kBufferSize - kept);
  if (got <= 0) {
    file_done_ = true;
    data_ = std::string_view(buffer_.get(), kept);
    return false;
  }
  file_offset_ += static_cast<uint64_t>(got);
  data_ = std::string_view(buffer_.get(), kept + static_cast<size_t>(got));
  return true;
}

bool LineSource::ReadLine(std::string_view* line) {
  if (unread_) {
    unread_ = false;
    *line = last_;
    return !last_.empty();
  }
  while (true) {
    size_t span = data_.size() < kMaxLineLength ? data_.size() : kMaxLineLength;
    const void* lf = span ? std::memchr(data_.data(), '\n', span) : nullptr;
    if (lf || span == kMaxLineLength || file_done_) {
      size_t length =
          lf ? static_cast<size_t>(static_cast<const char*>(lf) - data_.data()) + 1 : span;
      if (length == 0) {
        last_ = {};
        *line = {};
        return false;
      }
      last_ = data_.substr(0, length);
      data_.remove_prefix(length);
      *line = last_;
      return true;
    }
    // Fewer than a whole line in view: read more, which may move the buffer.
    Fill();
  }
}

}  // namespace qaaisp::mime
