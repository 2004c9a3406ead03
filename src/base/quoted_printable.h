// Quoted-printable as the store writes and reads it in message bodies,
// RFC 2047 words and vCard/vCalendar values. The byte set that gets encoded
// is wider than the standard's ("?" and "_" too), so one encoder serves both
// bodies and encoded words.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace qaaisp {

// Decodes source into target (size bytes). "=" CRLF and "=" LF are soft
// breaks; "=" and two hex digits give a byte; any other "=" is dropped. With
// underscore, "_" becomes a blank. The last byte of the source is copied as
// it stands, so a "=" that ends the text survives. target may be the
// source's own buffer, since the output never overtakes the input.
// Returns 1 with *length set, or 0 for an empty source or a short target.
int QPDecode(std::string_view source, char* target, size_t size, size_t* length, bool underscore);
// The same into a string (empty for an empty source).
std::string QPDecode(std::string_view source, bool underscore = false);

// True for the bytes that the encoders write as "=XX": controls, 8-bit bytes,
// "=", "?" and "_".
inline bool QPNeedsEncoding(unsigned char c) {
  return c < 32 || c > 126 || c == '=' || c == '?' || c == '_';
}

// No stop byte: the encoders run to the end of their source.
inline constexpr int kNoStop = -1;

// Encodes source into target (size bytes, no terminator written), ending at
// the first stop byte if there is one. A blank becomes "_" with underscore.
// Returns the length written, or 0 if target is too small.
size_t QPEncodeWord(std::string_view source, char* target, size_t size, int stop, bool underscore);
// The same, appended to out.
void QPEncodeWord(std::string_view source, std::string* out, int stop = kNoStop,
                  bool underscore = false);

// Encodes body text, appending to out. With width > 0 a soft break ("=\r\n",
// or "=\r\n " with blank) goes in before a line would reach the width, so no
// line is longer than width. Unless encode_line_ends, CR and LF are copied
// and start a new line.
void QPEncodeLines(std::string_view source, std::string* out, int stop, bool underscore, int width,
                   bool blank, bool encode_line_ends);

}  // namespace qaaisp
