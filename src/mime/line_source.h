// Forward line reading over a file or a buffer, with lines cut the way the
// section reader has always cut them: at most kMaxLineLength bytes, the
// line end kept.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "platform/env.h"

namespace qaaisp::mime {

inline constexpr size_t kMaxLineLength = 2047;

class LineSource {
 public:
  // Reads the file through its own buffer; the file is owned.
  explicit LineSource(std::unique_ptr<platform::File> file);
  // Reads text in place; text must outlive the source.
  explicit LineSource(std::string_view text);

  // Gives the next line (up to and with "\n", or kMaxLineLength bytes, or
  // what is left), valid until the next call. False at the end.
  bool ReadLine(std::string_view* line);
  // Makes the next ReadLine give the last line again.
  void Unread() { unread_ = true; }

 private:
  bool Fill();

  std::unique_ptr<platform::File> file_;
  std::unique_ptr<char[]> buffer_;
  std::string_view data_;  // the unread bytes in view
  uint64_t file_offset_ = 0;
  bool file_done_ = false;
  std::string_view last_;
  bool unread_ = false;
};

}  // namespace qaaisp::mime
