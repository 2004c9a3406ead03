// Any bytes through the quoted-printable decoder (into a fresh buffer and in
// place, with and without "_" for blank), and through the encoders and back.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "base/quoted_printable.h"

namespace {

void CheckDecode(std::string_view text, bool underscore) {
  std::string whole = qaaisp::QPDecode(text, underscore);
  if (whole.size() > text.size()) __builtin_trap();
  if (text.empty()) return;
  // Exactly the decoded size fits; the same text decoded in its own buffer
  // gives the same bytes.
  std::unique_ptr<char[]> exact(new char[whole.size() + 1]);
  size_t length = 0;
  if (qaaisp::QPDecode(text, exact.get(), whole.size(), &length, underscore) != 1 ||
      length != whole.size() || std::memcmp(exact.get(), whole.data(), length) != 0) {
    __builtin_trap();
  }
  std::unique_ptr<char[]> in_place(new char[text.size()]);
  std::memcpy(in_place.get(), text.data(), text.size());
  if (qaaisp::QPDecode(std::string_view(in_place.get(), text.size()), in_place.get(), text.size(),
                       &length, underscore) != 1 ||
      length != whole.size() || std::memcmp(in_place.get(), whole.data(), length) != 0) {
    __builtin_trap();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const uint8_t flags = data[0];
  std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
  CheckDecode(text, false);
  CheckDecode(text, true);

  const bool underscore = flags & 1;
  std::string word;
  qaaisp::QPEncodeWord(text, &word, qaaisp::kNoStop, underscore);
  // The decoder copies the last byte as it stands, so a final blank written
  // as "_" comes back as "_".
  std::string expected(text);
  if (underscore && !expected.empty() && expected.back() == ' ') expected.back() = '_';
  if (qaaisp::QPDecode(word, underscore) != expected) __builtin_trap();
  std::unique_ptr<char[]> exact(new char[word.size() + 1]);
  if (qaaisp::QPEncodeWord(text, exact.get(), word.size(), qaaisp::kNoStop, underscore) !=
      word.size()) {
    __builtin_trap();
  }
  if (!word.empty() &&
      qaaisp::QPEncodeWord(text, exact.get(), word.size() - 1, qaaisp::kNoStop, underscore) != 0) {
    __builtin_trap();
  }

  const int width = (flags >> 1) & 1 ? 4 + (flags >> 2) % 80 : 0;
  std::string lines;
  qaaisp::QPEncodeLines(text, &lines, qaaisp::kNoStop, false, width, false, true);
  if (qaaisp::QPDecode(lines) != text) __builtin_trap();
  if (width > 0) {
    size_t start = 0;
    while (start < lines.size()) {
      size_t end = lines.find("\r\n", start);
      if (end == std::string::npos) end = lines.size();
      if (end - start > static_cast<size_t>(width)) __builtin_trap();
      start = end + 2;
    }
  }
  std::string loose;
  qaaisp::QPEncodeLines(text, &loose, flags & 0x80 ? '\n' : qaaisp::kNoStop, underscore, width,
                        flags & 0x40, false);
  return 0;
}
