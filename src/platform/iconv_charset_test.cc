// Decoding takes short cuts for well-formed UTF-8 and for pages whose bytes
// each stand alone: on any text, in any page, it must give what the
// converter run over the whole text gives.
#include "platform/iconv_charset.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <iconv.h>

#include <random>
#include <string>

namespace qaaisp::platform {
namespace {

// The whole text through the converter, a refused byte becoming U+FFFD and
// a sequence cut off by the end one U+FFFD.
std::u16string ByConverter(const char* name, std::string_view text) {
  iconv_t cd = ::iconv_open("UTF-16LE", name);
  EXPECT_NE(cd, reinterpret_cast<iconv_t>(-1)) << name;
  std::u16string out;
  auto* src = const_cast<char*>(text.data());
  size_t left = text.size();
  bool flushing = false;
  for (;;) {
    char16_t buffer[64];
    char* dst = reinterpret_cast<char*>(buffer);
    size_t room = sizeof buffer;
    const size_t rc = flushing ? ::iconv(cd, nullptr, nullptr, &dst, &room)
                               : ::iconv(cd, &src, &left, &dst, &room);
    const int err = errno;
    out.append(buffer, (sizeof buffer - room) / sizeof(char16_t));
    if (rc != static_cast<size_t>(-1)) {
      if (flushing) break;
      flushing = true;
      continue;
    }
    if (err == E2BIG) continue;
    if (flushing || (err != EILSEQ && err != EINVAL)) break;
    out.push_back(0xFFFD);
    const size_t skip = err == EINVAL ? left : 1;
    src += skip;
    left -= skip;
  }
  ::iconv_close(cd);
  return out;
}

std::string Utf8Of(uint32_t c) {
  std::string s;
  if (c < 0x80) {
    s += static_cast<char>(c);
  } else if (c < 0x800) {
    s += static_cast<char>(0xC0 | (c >> 6));
    s += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    s += static_cast<char>(0xE0 | (c >> 12));
    s += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    s += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    s += static_cast<char>(0xF0 | (c >> 18));
    s += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    s += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    s += static_cast<char>(0x80 | (c & 0x3F));
  }
  return s;
}

TEST(IconvCharsetTest, EveryPageDecodesAsTheConverterDoes) {
  std::mt19937 random(7);
  int pages = 0;
  for (uint32_t page = 0; page < 70000; ++page) {
    const char* name = IconvNameOfCodePage(page);
    if (name == nullptr) continue;
    ++pages;
    for (int round = 0; round < 8; ++round) {
      std::string text(random() % 64, ' ');
      // Mostly one kind of byte per round, so that multi-byte pages also
      // meet well-formed runs.
      const int high = round % 2 ? 256 : 128;
      for (char& c : text) c = static_cast<char>(random() % high);
      std::u16string wide;
      ASSERT_TRUE(DecodeToUtf16(page, text, &wide)) << page;
      ASSERT_EQ(wide, ByConverter(name, text)) << page << " " << name << " round " << round;
    }
  }
  EXPECT_GT(pages, 100);
}

TEST(IconvCharsetTest, WellFormedAndBrokenUtf8DecodeAsTheConverterDoes) {
  std::mt19937 random(8);
  for (int round = 0; round < 3000; ++round) {
    std::string text;
    for (int n = static_cast<int>(random() % 8); n > 0; --n) {
      uint32_t c = random() % 0x110000;
      if (c >= 0xD800 && c < 0xE000) c = 0xFEFF;
      text += Utf8Of(c);
    }
    // Some rounds break one byte: a cut sequence, a stray or an overlong
    // lead, an encoded surrogate.
    if (round % 3 == 0 && !text.empty()) {
      static const char kBreakers[] = {'\x80', '\xC0', '\xED', '\xF5', '\xE0'};
      text[random() % text.size()] = kBreakers[random() % 5];
    }
    std::u16string wide;
    ASSERT_TRUE(DecodeToUtf16(65001, text, &wide));
    ASSERT_EQ(wide, ByConverter("UTF-8", text)) << round;
  }
}

}  // namespace
}  // namespace qaaisp::platform
