#include "mime/header_fields.h"

#include <cstdint>
#include <cstring>

#include "base/encoded_words.h"
#include "mime/mime_text.h"

namespace qaaisp {
namespace {

// The line at pos without its line end; *next is where the following one
// starts.
std::string_view LineAt(std::string_view header, size_t pos, size_t* next) {
  *next = mime::NextLine(header, pos);
  size_t end = *next;
  if (end > pos && header[end - 1] == '\n') --end;
  if (end > pos && header[end - 1] == '\r') --end;
  return header.substr(pos, end - pos);
}

std::string_view TrimWhiteSpace(std::string_view text) { return mime::TrimBlanks(text); }

// Eight bytes at a time, then byte by byte: every field's name passes here,
// and find_first_of searches the set once per byte.
bool HasBlank(std::string_view text) {
  constexpr uint64_t kOnes = 0x0101010101010101ull;
  constexpr uint64_t kHighs = 0x8080808080808080ull;
  const auto has_byte = [](uint64_t word, uint64_t spread) {
    const uint64_t x = word ^ spread;
    return ((x - kOnes) & ~x & kHighs) != 0;
  };
  const char* p = text.data();
  size_t n = text.size();
  for (; n >= 8; p += 8, n -= 8) {
    uint64_t word;
    std::memcpy(&word, p, 8);
    if (has_byte(word, kOnes * ' ') || has_byte(word, kOnes * '\t')) return true;
  }
  for (; n > 0; ++p, --n) {
    if (mime::IsBlank(*p)) return true;
  }
  return false;
}

}  // namespace

bool HeaderFieldReader::NextName(std::string_view* name_out) {
  if (value_pending_) {
    // The value nobody asked for: its continuation lines are passed over.
    while (pos_ < header_.size() && mime::IsBlank(header_[pos_])) {
      pos_ = mime::NextLine(header_, pos_);
    }
    value_pending_ = false;
  }
  while (pos_ < header_.size()) {
    size_t next = 0;
    std::string_view line = LineAt(header_, pos_, &next);
    pos_ = next;
    if (line.empty()) {  // the end of the header
      stopped_at_empty_line_ = true;
      break;
    }
    if (mime::IsBlank(line[0])) continue;  // a continuation with no field before it
    size_t colon = line.find(':');
    if (colon == std::string_view::npos) continue;
    std::string_view name = line.substr(0, colon);
    while (!name.empty() && mime::IsBlank(name.back())) name.remove_suffix(1);
    // A name has no blanks inside: this skips an mbox "From " line.
    if (name.empty() || HasBlank(name)) continue;
    first_line_ = line.substr(colon + 1);
    value_pending_ = true;
    *name_out = name;
    return true;
  }
  pos_ = header_.size();
  return false;
}

std::string_view HeaderFieldReader::Value() {
  if (!value_pending_) return {};
  value_pending_ = false;
  std::string_view value = first_line_;
  // Continuation lines: most fields have none, so the value stays a view.
  bool folded = false;
  while (pos_ < header_.size() && mime::IsBlank(header_[pos_])) {
    size_t next = 0;
    std::string_view more = LineAt(header_, pos_, &next);
    if (!folded) {
      joined_.assign(value);
      folded = true;
    }
    joined_.append(more);
    pos_ = next;
  }
  if (folded) value = joined_;
  return TrimWhiteSpace(value);
}

int ParseHeaderFields(std::string_view header, std::vector<HeaderField>* fields, int options) {
  WordDecodeOptions decode;
  decode.join_adjacent = true;
  HeaderFieldReader reader(header);
  std::string_view name;
  std::string_view value;
  int added = 0;
  while (reader.Next(&name, &value)) {
    HeaderField& field = fields->emplace_back();
    field.name.assign(name);
    if (options & kHeaderFieldsRaw) {
      AppendWide(value, kUtf8CodePage, &field.value);
    } else {
      DecodeWords(value, &field.value, decode);
    }
    ++added;
  }
  return added;
}

}  // namespace qaaisp
