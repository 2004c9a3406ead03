// A forward-only buffered reader over an open file, for line- and
// delimiter-oriented formats. It reads the file in blocks at its own
// position, so the file's other users are not disturbed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/env.h"

namespace qaaisp {

class istream_buffered {
 public:
  static constexpr size_t kDefaultBufferSize = 8192;

  // Reads file (not owned; it must outlive the reader) from offset on.
  explicit istream_buffered(platform::File* file, size_t buffer_size = kDefaultBufferSize,
                            uint64_t offset = 0);

  // Stores the bytes before the next delim into out, at most limit of them.
  // The delimiter is consumed and not stored. If limit bytes come first the
  // read stops there (a delimiter right behind them is consumed too).
  // Gives the number of bytes stored, or -1 at the end of the file.
  int64_t ReadUntil(char delim, char* out, size_t limit);
  // The same, appending to out.
  int64_t ReadUntil(char delim, std::string* out, size_t limit);

  // Reads one line without its "\n" or "\r\n"; false at the end of the file.
  bool GetLine(std::string* line);

  // Reads up to n bytes; gives the number read.
  size_t Read(char* out, size_t n);
  // The next byte, or -1 at the end; Peek does not consume it.
  int Get();
  int Peek();

  // Offset in the file of the next byte to be read.
  uint64_t Tell() const { return file_offset_ - (end_ - begin_); }
  // True once a read found the end of the file (or a read error).
  bool Eof() const { return eof_ && begin_ == end_; }
  bool failed() const { return failed_; }

 private:
  // Refills an empty buffer; false at the end of the file.
  bool Fill();
  // The delimiter scan behind both ReadUntil forms; sink(bytes, stored so
  // far, count) takes each run of bytes.
  template <typename Sink>
  int64_t ReadUntilInto(char delim, size_t limit, Sink sink);

  platform::File* file_;
  std::vector<char> buffer_;
  size_t begin_ = 0;
  size_t end_ = 0;
  uint64_t file_offset_;
  bool eof_ = false;
  bool failed_ = false;
};

}  // namespace qaaisp
