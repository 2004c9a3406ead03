// RFC 2047 words as the store writes them in vCard values and reads them in
// message headers, and conversion of text between charsets by name.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qaaisp {

inline constexpr uint32_t kUtf8CodePage = 65001;
inline constexpr uint32_t kUtf16CodePage = 1200;
// The one form of encoded word the store writes.
inline constexpr std::string_view kUtf8WordPrefix = "=?UTF-8?Q?";

// Copies text with no 8-bit byte as it is and gives 2; otherwise writes
// "=?UTF-8?Q?", the text in QPEncodeWord form and "?=", and gives 1.
int WrapQuotedWord(std::string_view text, std::string* out);

// Text that already starts "=?UTF-8?Q?" is kept as it is with wrap, or
// unwrapped to its inner text without (result 2). Otherwise the text is
// encoded with QPEncodeWord: if that changes nothing (ignoring case) the text
// stays and the result is 1; if it changes, the result is 2 and, with wrap,
// the encoded text is wrapped in "=?UTF-8?Q?" and "?=".
int EncodeWord(std::string_view text, std::string* out, bool wrap);
// EncodeWord on each ";"-separated piece, joined again with ";". The result
// is 2 if any piece changed, else 1.
int EncodeWordList(std::string_view text, std::string* out, bool wrap);

struct WordDecodeOptions {
  // 0 keeps each word's payload as text; otherwise it is decoded and
  // converted from the word's charset.
  int byte_mode = 1;
  // Charset of the text between words; "utf-8" when empty.
  std::string_view charset = "utf-8";
  // In quoted-printable words "=5F" becomes a blank too, not only "_".
  bool underscore = false;
  // Text between words is converted from charset; otherwise each byte is
  // taken as one character.
  bool literal = true;
  // White space between two adjacent encoded words is dropped, as a header
  // reader should; the vCard callers keep it.
  bool join_adjacent = false;
};

// Decodes the encoded words of text into wide text (out is replaced). Words
// in a charset the table does not know come out as their raw bytes, one
// character each. Returns the number of words decoded.
int DecodeWords(std::string_view text, std::u16string* out, const WordDecodeOptions& options);
inline int DecodeWords(std::string_view text, std::u16string* out, int byte_mode = 1,
                       std::string_view charset = "utf-8", bool underscore = false,
                       bool literal = true) {
  WordDecodeOptions options;
  options.byte_mode = byte_mode;
  options.charset = charset;
  options.underscore = underscore;
  options.literal = literal;
  return DecodeWords(text, out, options);
}

// Appends bytes in code_page to out as wide text. Pure ASCII in an
// ASCII-compatible code page is widened directly; a code page of 0, or a
// failed conversion, takes each byte as one character.
void AppendWide(std::string_view bytes, uint32_t code_page, std::u16string* out);

// Converts bytes from the charset from to the charset to (both "UTF-8" when
// empty) through wide text; a target of code page 1200 gives UTF-16LE bytes.
// Equal names, an unknown name or a failed step give a plain copy, and the
// result is then false.
bool ConvertCharset(std::string_view from, std::string_view bytes, std::string* out,
                    std::string_view to);

}  // namespace qaaisp
