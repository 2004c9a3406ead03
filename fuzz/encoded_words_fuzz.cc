// Any text through the RFC 2047 word decoder with the options taken from the
// first byte, and through the word encoders, whose output must decode back.
#include <cstddef>
#include <cstdint>
#include <string>

#include "base/encoded_words.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const uint8_t flags = data[0];
  std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
  static constexpr std::string_view kCharsets[] = {"utf-8",     "iso-8859-1", "windows-1252",
                                                   "shift_jis", "",           "no-such-charset",
                                                   "utf-16",    "koi8-r"};
  qaaisp::WordDecodeOptions options;
  options.byte_mode = flags & 1;
  options.underscore = flags & 2;
  options.literal = flags & 4;
  options.join_adjacent = flags & 8;
  options.charset = kCharsets[(flags >> 4) & 7];
  std::u16string wide;
  qaaisp::DecodeWords(text, &wide, options);

  std::string out;
  qaaisp::EncodeWordList(text, &out, flags & 0x80);
  out.clear();
  qaaisp::WrapQuotedWord(text, &out);
  if (text.find("?=") == std::string_view::npos && text.find("=?") == std::string_view::npos &&
      text.find_first_of(" \t\r\n") == std::string_view::npos) {
    // A wrapped word reads back to the text it wraps, taken as UTF-8.
    std::u16string back;
    std::u16string direct;
    qaaisp::DecodeWords(out, &back);
    qaaisp::DecodeWords(text, &direct);
    if (back != direct) __builtin_trap();
  }
  std::string converted;
  qaaisp::ConvertCharset(kCharsets[flags & 7], text, &converted, kCharsets[(flags >> 3) & 7]);
  return 0;
}
