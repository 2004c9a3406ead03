#include "mime/message_section_reader.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/report.h"
#include "base/setting_names.h"
#include "base/settings.h"
#include "mime/line_source.h"
#include "mime/mime_text.h"
#include "platform/win32_error.h"

namespace qaaisp {
namespace {

using mime::LineSource;
using mime::StartsWithNoCase;

constexpr uint32_t kDefaultAllocationUnit = 131072;
constexpr uint32_t kSmallestAllocationUnit = 1024;
constexpr uint32_t kSmallAllocationUnit = 65536;
// A mistyped registry value must not make every reader take gigabytes.
constexpr uint32_t kLargestAllocationUnit = 16u << 20;

constexpr const char* kNoMemoryText =
    "Not enough memory resources are available to process this command.";

enum class LineKind { kOther, kDelimiter, kClosing };

LineKind DelimiterKind(std::string_view line, std::string_view boundary) {
  if (line.size() < boundary.size() + 2 || line[0] != '-' || line[1] != '-' ||
      line.substr(2, boundary.size()) != boundary) {
    return LineKind::kOther;
  }
  return line.substr(2 + boundary.size()).starts_with("--") ? LineKind::kClosing
                                                            : LineKind::kDelimiter;
}

bool IsEnclosingDelimiter(std::string_view line, const std::vector<std::string>& enclosing) {
  if (line.size() < 2 || line[0] != '-' || line[1] != '-') return false;
  for (const std::string& b : enclosing) {
    if (DelimiterKind(line, b) != LineKind::kOther) return true;
  }
  return false;
}

bool IsBlankLine(std::string_view line) { return line == "\r\n" || line == "\n"; }

// The boundary written on a header line, quoted or not.
std::string BoundaryOnLine(std::string_view line) {
  size_t at = mime::FindNoCase(line, "boundary");
  while (at != std::string_view::npos) {
    size_t eq = at + 8;
    while (eq < line.size() && line[eq] == ' ') ++eq;
    if (eq < line.size() && line[eq] == '=') {
      size_t v = eq + 1;
      while (v < line.size() && mime::IsBlank(line[v])) ++v;
      std::string_view rest = line.substr(v);
      if (!rest.empty() && rest[0] == '"') {
        size_t close = rest.find('"', 1);
        return std::string(
            rest.substr(1, close == std::string_view::npos ? rest.size() - 1 : close - 1));
      }
      size_t end = rest.find_first_of("; \t\r\n");
      return std::string(rest.substr(0, end));
    }
    at = mime::FindNoCase(line, "boundary", at + 8);
  }
  return {};
}

std::string PartName(const std::string& prefix, int counter) {
  return prefix.empty() ? std::to_string(counter) : prefix + "." + std::to_string(counter);
}

}  // namespace

uint32_t MessagePartAllocationUnit() {
  static LazySetting unit(settings::kStoreProviderKey, settings::kMessagePartAllocationUnit,
                          kDefaultAllocationUnit);
  uint32_t value = unit.Get();
  if (value < kSmallestAllocationUnit) return kSmallAllocationUnit;
  return value > kLargestAllocationUnit ? kLargestAllocationUnit : value;
}

MessageSectionReader::MessageSectionReader(std::string path, platform::Env* env)
    : env_(env ? env : platform::Env::Default()),
      path_(std::move(path)),
      chunk_size_(MessagePartAllocationUnit()) {
  chunk_.reset(new char[chunk_size_]);
}

std::unique_ptr<MessageSectionReader> MessageSectionReader::ForText(std::string_view text) {
  std::unique_ptr<MessageSectionReader> reader(new MessageSectionReader());
  reader->text_ = text;
  reader->chunk_size_ = MessagePartAllocationUnit();
  reader->chunk_.reset(new char[reader->chunk_size_]);
  return reader;
}

MessageSectionReader::~MessageSectionReader() { ReleaseBlock(); }

char* MessageSectionReader::ResizeBlock(char* block, size_t size) {
  return static_cast<char*>(std::realloc(block, size));
}

void MessageSectionReader::ReleaseBlock() {
  std::free(block_);
  block_ = nullptr;
  block_size_ = 0;
  heap_made_ = false;
}

std::unique_ptr<mime::LineSource> MessageSectionReader::OpenSource() {
  if (!env_) return std::make_unique<LineSource>(text_);
  platform::OpenOptions options;
  options.share = platform::ShareMode::kShareAny;
  std::unique_ptr<platform::File> file = env_->OpenFile(path_, options);
  if (!file) return nullptr;
  return std::make_unique<LineSource>(std::move(file));
}

bool MessageSectionReader::ReadSection(std::string_view section) {
  ReleaseBlock();
  chunk_used_ = 0;
  last_line_length_ = 0;
  section_.assign(section);
  std::unique_ptr<LineSource> source = OpenSource();
  if (!source) return false;

  std::string type;
  std::string boundary;
  std::vector<std::string> enclosing;
  ReadHeaderLines(source.get(), &type, &boundary, false, enclosing);
  bool found = false;
  // The text of the message is everything behind its header.
  if (section_ != "TEXT" && StartsWithNoCase(type, "multipart") && !boundary.empty()) {
    found = WalkLevel(source.get(), "", boundary, &enclosing) == LevelEnd::kFound;
  }
  if (!found) CollectRest(source.get());
  if (chunk_used_ > 0) AddChunk(chunk_.get(), chunk_used_);
  chunk_used_ = 0;
  return true;
}

void MessageSectionReader::ReadHeaderLines(LineSource* source, std::string* type,
                                           std::string* boundary, bool collect,
                                           const std::vector<std::string>& active) {
  type->clear();
  boundary->clear();
  std::string_view line;
  while (source->ReadLine(&line)) {
    last_line_length_ = line.size();
    // A delimiter in place of a header ends it: the part had none.
    if (IsEnclosingDelimiter(line, active)) {
      source->Unread();
      return;
    }
    if (collect) Collect(line);
    if (IsBlankLine(line)) return;
    if (StartsWithNoCase(line, "Content-Type:")) {
      std::string_view value = line.substr(13);
      while (!value.empty() && mime::IsBlank(value[0])) value.remove_prefix(1);
      type->assign(value.substr(0, value.find_first_of(";\r\n")));
    }
    if (boundary->empty()) *boundary = BoundaryOnLine(line);
  }
}

MessageSectionReader::LevelEnd MessageSectionReader::SkipToDelimiter(
    LineSource* source, const std::string& boundary, const std::vector<std::string>& enclosing) {
  std::string_view line;
  while (source->ReadLine(&line)) {
    last_line_length_ = line.size();
    if (line.size() < 2 || line[0] != '-') continue;
    LineKind kind = DelimiterKind(line, boundary);
    if (kind == LineKind::kDelimiter) return LevelEnd::kNextPart;
    if (kind == LineKind::kClosing) return LevelEnd::kClosed;
    if (IsEnclosingDelimiter(line, enclosing)) {
      source->Unread();
      return LevelEnd::kEnclosing;
    }
  }
  return LevelEnd::kEndOfFile;
}

void MessageSectionReader::CollectUntilDelimiter(LineSource* source,
                                                 const std::vector<std::string>& active,
                                                 bool header_only) {
  std::string_view line;
  while (source->ReadLine(&line)) {
    last_line_length_ = line.size();
    if (IsEnclosingDelimiter(line, active)) return;
    Collect(line);
    if (header_only && IsBlankLine(line)) return;
  }
}

void MessageSectionReader::CollectRest(LineSource* source) {
  std::string_view line;
  while (source->ReadLine(&line)) Collect(line);
}

MessageSectionReader::LevelEnd MessageSectionReader::WalkLevel(
    LineSource* source, const std::string& prefix, const std::string& boundary,
    std::vector<std::string>* enclosing) {
  LevelEnd end = SkipToDelimiter(source, boundary, *enclosing);
  if (end != LevelEnd::kNextPart) return end;
  // Inside this level, its own delimiters end whatever is read.
  enclosing->push_back(boundary);
  struct Pop {
    std::vector<std::string>* list;
    ~Pop() { list->pop_back(); }
  } pop{enclosing};

  std::string type;
  std::string part_boundary;
  for (int counter = 1;; ++counter) {
    const std::string name = PartName(prefix, counter);
    const bool match_mime = section_ == name + ".MIME";
    ReadHeaderLines(source, &type, &part_boundary, match_mime, *enclosing);
    if (match_mime) return LevelEnd::kFound;
    if (section_ == name) {
      CollectUntilDelimiter(source, *enclosing, false);
      return LevelEnd::kFound;
    }
    if (section_ == name + ".HEADER") {
      CollectUntilDelimiter(source, *enclosing, true);
      return LevelEnd::kFound;
    }
    if (section_.size() > name.size() && section_.starts_with(name) &&
        section_[name.size()] == '.') {
      const bool single_below = section_ == name + ".1";
      LevelEnd inner = LevelEnd::kClosed;
      if (StartsWithNoCase(type, "multipart") && !part_boundary.empty()) {
        inner = WalkLevel(source, name, part_boundary, enclosing);
      } else if (StartsWithNoCase(type, "message/rfc822")) {
        if (section_ == name + ".TEXT") {
          ReadHeaderLines(source, &type, &part_boundary, false, *enclosing);
          CollectUntilDelimiter(source, *enclosing, false);
          return LevelEnd::kFound;
        }
        // An embedded message is numbered on its own below this part.
        std::string inner_type;
        std::string inner_boundary;
        ReadHeaderLines(source, &inner_type, &inner_boundary, false, *enclosing);
        if (StartsWithNoCase(inner_type, "multipart") && !inner_boundary.empty()) {
          inner = WalkLevel(source, name, inner_boundary, enclosing);
        } else if (single_below) {
          std::fputs("adjust mime\n", stdout);
          CollectUntilDelimiter(source, *enclosing, false);
          return LevelEnd::kFound;
        }
      } else if (single_below) {
        // A part with no parts below it is its own first part.
        std::fputs("adjust mime\n", stdout);
        CollectUntilDelimiter(source, *enclosing, false);
        return LevelEnd::kFound;
      }
      if (inner == LevelEnd::kFound || inner == LevelEnd::kEndOfFile) return inner;
    }
    // The enclosing list holds this level too; drop it while skipping.
    enclosing->pop_back();
    end = SkipToDelimiter(source, boundary, *enclosing);
    enclosing->push_back(boundary);
    if (end != LevelEnd::kNextPart) return end;
  }
}

void MessageSectionReader::Collect(std::string_view line) {
  if (chunk_used_ + line.size() > chunk_size_) {
    if (chunk_used_ > 0) AddChunk(chunk_.get(), chunk_used_);
    chunk_used_ = 0;
    if (line.size() > chunk_size_) {
      AddChunk(line.data(), line.size());
      return;
    }
  }
  std::memcpy(chunk_.get() + chunk_used_, line.data(), line.size());
  chunk_used_ += line.size();
}

void MessageSectionReader::AddChunk(const char* bytes, size_t length) {
  if (!heap_made_) {
    char* block = ResizeBlock(nullptr, length + 1);
    if (!block) {
      platform::SetLastErrorCode(platform::kErrorNotEnoughMemory);
      Trace(9, "AddChunk::HeapAlloc->Unable to allocate buffer");
      return;
    }
    heap_made_ = true;
    std::memcpy(block, bytes, length);
    block[length] = '\0';
    block_ = block;
    block_size_ = length + 1;
    return;
  }
  char* grown = ResizeBlock(block_, block_size_ + length);
  if (!grown) {
    platform::SetLastErrorCode(platform::kErrorNotEnoughMemory);
    Trace(9, "AddChunk::HeapReAlloc->Unable to resize memory block");
    ErrorTrace((std::string("AddChunk::HeapReAlloc->Unable to reallocate bufferk") + kNoMemoryText)
                   .c_str());
    return;
  }
  // The new bytes go over the old terminator.
  std::memcpy(grown + block_size_ - 1, bytes, length);
  block_size_ += length;
  grown[block_size_ - 1] = '\0';
  block_ = grown;
}

}  // namespace qaaisp
