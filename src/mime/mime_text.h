// Small text helpers the MIME readers share: ASCII case folding and searches
// over views of the message, with no copies and no locale.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

namespace qaaisp::mime {

inline char LowerAscii(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; }

inline bool IsBlank(char c) { return c == ' ' || c == '\t'; }

inline bool StartsWithNoCase(std::string_view text, std::string_view prefix) {
  if (text.size() < prefix.size()) return false;
  for (size_t i = 0; i < prefix.size(); ++i) {
    if (LowerAscii(text[i]) != LowerAscii(prefix[i])) return false;
  }
  return true;
}

inline bool EqualsNoCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && StartsWithNoCase(a, b);
}

// Position of needle in text at or after from, or npos. Candidates are
// found by the needle's first byte with memchr, which runs at vector speed
// over bodies and headers; a text that keeps matching the needle's start
// without the whole falls back to memmem, so no input costs more than
// linear time.
size_t Find(std::string_view text, std::string_view needle, size_t from = 0);

// Case-insensitive search, anchored on the first byte in both cases.
size_t FindNoCase(std::string_view text, std::string_view needle, size_t from = 0);

inline std::string_view TrimBlanks(std::string_view text) {
  size_t begin = 0;
  while (begin < text.size() &&
         (IsBlank(text[begin]) || text[begin] == '\r' || text[begin] == '\n')) {
    ++begin;
  }
  size_t end = text.size();
  while (end > begin &&
         (IsBlank(text[end - 1]) || text[end - 1] == '\r' || text[end - 1] == '\n')) {
    --end;
  }
  return text.substr(begin, end - begin);
}

// Position just behind the line end that follows pos ("\n" ends every line
// end the readers meet), or the end of text.
inline size_t NextLine(std::string_view text, size_t pos) {
  if (pos >= text.size()) return text.size();
  const void* hit = std::memchr(text.data() + pos, '\n', text.size() - pos);
  return hit ? static_cast<size_t>(static_cast<const char*>(hit) - text.data()) + 1 : text.size();
}

}  // namespace qaaisp::mime
