// Charset names to Windows code pages, and text conversion between a code
// page and UTF-16 (the wide text of the store).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qaaisp {

struct CharsetRow {
  uint32_t code_page;
  const char* name;
};

// The whole name table in its fixed order; earlier rows win a lookup.
inline constexpr size_t kCharsetRowCount = 327;
extern const CharsetRow kCharsetTable[kCharsetRowCount];

// Code page of a charset name compared without regard to case, or 0 if no
// row names it. Callers treat 0 as "already in the target charset".
uint32_t CodePageOfCharset(std::string_view name);

// Converts text in code_page to UTF-16, as MultiByteToWideChar would:
// undecodable bytes become U+FFFD. Returns the number of UTF-16 units, 0 if
// the result is empty or the code page unsupported, in which case out is left
// as it was.
int NarrowToWide(std::string_view text, std::u16string* out, uint32_t code_page);

// Converts UTF-16 to code_page, as WideCharToMultiByte would: characters the
// code page lacks become "?". Returns the number of bytes; 0 leaves out as it
// was.
int WideToNarrow(std::u16string_view wide, std::string* out, uint32_t code_page);

}  // namespace qaaisp
