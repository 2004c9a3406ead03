#include "locks/istream_buffered.h"

#include <algorithm>
#include <cstring>

namespace qaaisp {

istream_buffered::istream_buffered(platform::File* file, size_t buffer_size, uint64_t offset)
    : file_(file), buffer_(std::max<size_t>(buffer_size, 1)), file_offset_(offset) {}

bool istream_buffered::Fill() {
  if (begin_ < end_) return true;
  begin_ = end_ = 0;
  if (eof_ || !file_) {
    eof_ = true;
    return false;
  }
  int64_t n = file_->ReadAt(file_offset_, buffer_.data(), buffer_.size());
  if (n <= 0) {
    failed_ = n < 0;
    eof_ = true;
    return false;
  }
  end_ = static_cast<size_t>(n);
  file_offset_ += static_cast<uint64_t>(n);
  return true;
}

template <typename Sink>
int64_t istream_buffered::ReadUntilInto(char delim, size_t limit, Sink sink) {
  size_t stored = 0;
  bool any = false;
  for (;;) {
    if (!Fill()) return any ? static_cast<int64_t>(stored) : -1;
    any = true;
    const char* p = buffer_.data() + begin_;
    if (stored == limit) {
      if (*p == delim) ++begin_;
      return static_cast<int64_t>(stored);
    }
    size_t scan = std::min(end_ - begin_, limit - stored);
    const void* hit = std::memchr(p, delim, scan);
    size_t n = hit ? static_cast<size_t>(static_cast<const char*>(hit) - p) : scan;
    sink(p, stored, n);
    stored += n;
    begin_ += n;
    if (hit) {
      ++begin_;
      return static_cast<int64_t>(stored);
    }
  }
}

int64_t istream_buffered::ReadUntil(char delim, char* out, size_t limit) {
  return ReadUntilInto(delim, limit,
                       [out](const char* p, size_t at, size_t n) { std::memcpy(out + at, p, n); });
}

int64_t istream_buffered::ReadUntil(char delim, std::string* out, size_t limit) {
  return ReadUntilInto(delim, limit, [out](const char* p, size_t, size_t n) { out->append(p, n); });
}

bool istream_buffered::GetLine(std::string* line) {
  line->clear();
  if (ReadUntil('\n', line, line->max_size()) < 0) return false;
  if (!line->empty() && line->back() == '\r') line->pop_back();
  return true;
}

size_t istream_buffered::Read(char* out, size_t n) {
  size_t done = 0;
  while (done < n && Fill()) {
    size_t k = std::min(n - done, end_ - begin_);
    std::memcpy(out + done, buffer_.data() + begin_, k);
    begin_ += k;
    done += k;
  }
  return done;
}

int istream_buffered::Get() {
  if (!Fill()) return -1;
  return static_cast<unsigned char>(buffer_[begin_++]);
}

int istream_buffered::Peek() {
  if (!Fill()) return -1;
  return static_cast<unsigned char>(buffer_[begin_]);
}

}  // namespace qaaisp
