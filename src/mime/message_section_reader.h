// Hands out one section of a message by its section name ("1", "1.2",
// "2.MIME", "3.HEADER", "TEXT") without holding the message in memory: a
// forward line reader walks the file and keeps only the section asked for,
// in one block that grows by whole allocation units.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/env.h"

namespace qaaisp {

namespace mime {
class LineSource;
}

// The chunk size: the registry value, 131072 when missing, 65536 when below
// 1024. Read once per process.
uint32_t MessagePartAllocationUnit();

class MessageSectionReader {
 public:
  // Reads the message file at path (through env, the default one when null).
  explicit MessageSectionReader(std::string path, platform::Env* env = nullptr);
  // Reads a message held in memory; text must outlive the reader's calls.
  static std::unique_ptr<MessageSectionReader> ForText(std::string_view text);
  virtual ~MessageSectionReader();

  MessageSectionReader(const MessageSectionReader&) = delete;
  MessageSectionReader& operator=(const MessageSectionReader&) = delete;

  // Collects the section into the block, dropping what an earlier call
  // collected. Gives false if the message could not be opened; the block is
  // then empty.
  bool ReadSection(std::string_view section);

  // The collected bytes, terminated; null when nothing was collected.
  const char* data() const { return block_; }
  size_t size() const { return block_size_ ? block_size_ - 1 : 0; }
  std::string_view view() const { return std::string_view(block_ ? block_ : "", size()); }

 protected:
  // Grows (or first allocates, with a null block) the collected block; the
  // store's heap calls in one place, so a test can make them fail.
  virtual char* ResizeBlock(char* block, size_t size);

 private:
  // How the walk of one multipart level ended.
  enum class LevelEnd { kFound, kNextPart, kClosed, kEnclosing, kEndOfFile };

  MessageSectionReader() = default;
  void ReleaseBlock();
  std::unique_ptr<mime::LineSource> OpenSource();
  void ReadHeaderLines(mime::LineSource* source, std::string* type, std::string* boundary,
                       bool collect, const std::vector<std::string>& active);
  LevelEnd WalkLevel(mime::LineSource* source, const std::string& prefix,
                     const std::string& boundary, std::vector<std::string>* enclosing);
  LevelEnd SkipToDelimiter(mime::LineSource* source, const std::string& boundary,
                           const std::vector<std::string>& enclosing);
  void CollectUntilDelimiter(mime::LineSource* source, const std::vector<std::string>& active,
                             bool header_only);
  void CollectRest(mime::LineSource* source);
  void Collect(std::string_view line);
  void AddChunk(const char* bytes, size_t length);

  bool heap_made_ = false;  // the block has been allocated once
  char* block_ = nullptr;
  platform::Env* env_ = nullptr;
  std::string_view text_;  // the message, when it is held in memory
  std::string section_;
  std::string path_;
  size_t last_line_length_ = 0;
  std::unique_ptr<char[]> chunk_;
  size_t chunk_size_ = 0;
  size_t block_size_ = 0;  // terminator included
  size_t chunk_used_ = 0;
};

}  // namespace qaaisp
