// Opens a file once with a C-style mode ("r", "rb", "w+", "a", ...), for the
// readers and writers of the store's small text files. An open that fails
// for any reason but a missing file pauses one second before it gives up, so
// a caller that retries in a loop polls at that pace.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/env.h"

namespace qaaisp {

class FileOpener {
 public:
  // With secure, a file opened for writing is held exclusively and one
  // opened for reading admits only readers; otherwise others may read and
  // write beside it (but not delete it).
  FileOpener(const std::string& path, const char* mode, bool secure = false);

  bool is_open() const { return file_ != nullptr; }
  // The Win32 error of a failed open; 0 when open.
  uint32_t error() const { return error_; }
  platform::File* file() const { return file_.get(); }
  const std::string& path() const { return path_; }

  // Sequential access from the opener's position; in append mode every
  // write goes to the end. Read gives the bytes read (0 at end) or -1.
  int64_t Read(void* buffer, size_t n);
  bool Write(const void* data, size_t n);
  bool Write(std::string_view text) { return Write(text.data(), text.size()); }
  uint64_t position() const { return position_; }
  void Seek(uint64_t position) { position_ = position; }

  // Hands the open file to the caller (the opener is closed afterwards).
  std::unique_ptr<platform::File> Release() { return std::move(file_); }
  void Close() { file_.reset(); }

 private:
  std::string path_;
  std::unique_ptr<platform::File> file_;
  uint64_t position_ = 0;
  bool append_ = false;
  uint32_t error_ = 0;
};

}  // namespace qaaisp
