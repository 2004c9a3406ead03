// The stream the index writer works through: one position for reading and
// writing, a write buffer of the configured size, and the fail and bad
// bits of a file stream (an operation on a failed stream does nothing until
// the state is cleared).
//
// An in-place save moves rows that follow a grown row further into the
// file, over bytes that it still has to read: the rows of a partial load
// that are carried along unchanged, and the file's old end. With keeping
// on, the stream saves each stretch of the old content before the first
// write lands on it, and ReadOriginal serves the file as it was when
// keeping began. Only bytes at or beyond the floor (the lowest old offset a
// later read may want) are saved, so memory stays at about the total growth
// of the rows, and a save that does not grow the rows saves nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "persist/index_report.h"
#include "platform/env.h"

namespace qaaisp::persist {

class IndexWriteStream {
 public:
  static constexpr size_t kDefaultBufferSize = 8192;

  // buffer_size 0 keeps the default buffer.
  IndexWriteStream(std::unique_ptr<platform::File> file, size_t buffer_size);
  ~IndexWriteStream();
  IndexWriteStream(const IndexWriteStream&) = delete;
  IndexWriteStream& operator=(const IndexWriteStream&) = delete;

  uint64_t tell() const { return position_; }
  void Seek(uint64_t position);
  void SeekEnd();
  void Write(std::string_view bytes);
  // Reads n bytes at the position into out; a short read sets fail. Gives
  // the bytes read.
  size_t Read(char* out, size_t n);
  // The file's length, counting what is still in the buffer.
  uint64_t Length();
  void Flush();
  void Close();
  bool is_open() const { return file_ != nullptr; }

  StreamState state() const { return state_; }
  bool failed() const { return state_.fail || state_.bad; }
  void ClearState() { state_ = StreamState{}; }
  // Whether any write failed since the stream opened; clearing the state
  // does not forget it.
  bool write_failed() const { return write_failed_; }

  // Starts keeping the old content from the position on (flushing first).
  // The old file ends at its present length.
  void KeepOriginal();
  bool keeping() const { return keeping_; }
  // Bytes before floor will not be read through ReadOriginal again.
  void SetOriginalFloor(uint64_t floor);
  uint64_t original_length() const { return original_length_; }
  // Reads old content at offset (clipped to the old length); gives the bytes
  // read. Without keeping it reads the file as it now stands.
  size_t ReadOriginal(uint64_t offset, char* out, size_t n);

 private:
  bool FlushBuffer();
  // Saves the old bytes up to `to` that a write is about to cover.
  void SaveBeforeWrite(uint64_t to);
  size_t ReadFile(uint64_t offset, char* out, size_t n);

  std::unique_ptr<platform::File> file_;
  size_t capacity_;
  std::string pending_;
  uint64_t pending_start_ = 0;
  uint64_t position_ = 0;
  StreamState state_;
  bool write_failed_ = false;

  bool keeping_ = false;
  uint64_t original_length_ = 0;
  // Old bytes beyond this offset are still in the file.
  uint64_t frontier_ = 0;
  uint64_t floor_ = 0;
  // Old bytes of [saved_base_, saved_base_ + saved_.size()), which ends at
  // the frontier.
  std::string saved_;
  uint64_t saved_base_ = 0;
};

}  // namespace qaaisp::persist
