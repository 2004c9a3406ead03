#include "platform/iconv_charset.h"

#include <errno.h>
#include <iconv.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>
#include <unordered_map>

namespace qaaisp::platform {

namespace {

struct CodePageName {
  uint32_t code_page;
  const char* iconv_name;  // null: a Windows page this platform lacks
};

// Windows code pages and the iconv charset that stands for each. Pages 0 to
// 3 (the system's ANSI, OEM, Macintosh and thread pages) take the values of
// an English-language server.
constexpr CodePageName kCodePages[] = {
    {0, "CP1252"},
    {1, "CP437"},
    {2, "MACINTOSH"},
    {3, "CP1252"},
    {37, "IBM037"},
    {154, "PT154"},
    {437, "CP437"},
    {500, "IBM500"},
    {708, "ISO-8859-6"},
    {720, nullptr},
    {737, "CP737"},
    {775, "CP775"},
    {850, "CP850"},
    {852, "CP852"},
    {853, nullptr},
    {855, "CP855"},
    {857, "CP857"},
    {858, "IBM858"},
    {860, "CP860"},
    {861, "CP861"},
    {862, "CP862"},
    {863, "CP863"},
    {864, "CP864"},
    {865, "CP865"},
    {866, "CP866"},
    {869, "CP869"},
    {870, "IBM870"},
    {874, "CP874"},
    {875, "IBM875"},
    {932, "CP932"},
    {936, "GBK"},
    {949, "UHC"},
    {950, "BIG5"},
    {1026, "IBM1026"},
    {1047, "IBM1047"},
    {1125, "CP1125"},
    {1133, "IBM1133"},
    {1140, "IBM1140"},
    {1141, "IBM1141"},
    {1142, "IBM1142"},
    {1143, "IBM1143"},
    {1144, "IBM1144"},
    {1145, "IBM1145"},
    {1146, "IBM1146"},
    {1147, "IBM1147"},
    {1148, "IBM1148"},
    {1149, "IBM1149"},
    {1200, "UTF-16LE"},
    {1201, "UTF-16BE"},
    {1250, "CP1250"},
    {1251, "CP1251"},
    {1252, "CP1252"},
    {1253, "CP1253"},
    {1254, "CP1254"},
    {1255, "CP1255"},
    {1256, "CP1256"},
    {1257, "CP1257"},
    {1258, "CP1258"},
    {1361, "JOHAB"},
    {10000, "MACINTOSH"},
    {10001, nullptr},
    {10002, nullptr},
    {10003, nullptr},
    {10004, nullptr},
    {10005, nullptr},
    {10006, nullptr},
    {10007, "MAC-CYRILLIC"},
    {10008, nullptr},
    {10010, nullptr},
    {10017, "MAC-UK"},
    {10021, nullptr},
    {10029, "MAC-CENTRALEUROPE"},
    {10079, "MAC-IS"},
    {10081, nullptr},
    {10082, nullptr},
    {12000, "UTF-32LE"},
    {12001, "UTF-32BE"},
    {20000, nullptr},
    {20001, nullptr},
    {20002, nullptr},
    {20003, nullptr},
    {20004, nullptr},
    {20005, nullptr},
    {20105, nullptr},
    {20106, "ISO646-DE"},
    {20107, "ISO646-SE"},
    {20108, "ISO646-NO"},
    {20127, "ASCII"},
    {20261, "T.61-8BIT"},
    {20269, "ISO_6937"},
    {20273, "IBM273"},
    {20277, "IBM277"},
    {20278, "IBM278"},
    {20280, "IBM280"},
    {20284, "IBM284"},
    {20285, "IBM285"},
    {20290, "IBM290"},
    {20297, "IBM297"},
    {20420, "IBM420"},
    {20423, "IBM423"},
    {20424, "IBM424"},
    {20833, nullptr},
    {20838, nullptr},
    {20866, "KOI8-R"},
    {20871, "IBM871"},
    {20880, "IBM880"},
    {20905, "IBM905"},
    {20924, nullptr},
    {20932, "EUC-JP"},
    {20936, "GB2312"},
    {20949, "EUC-KR"},
    {21025, "IBM1025"},
    {21866, "KOI8-U"},
    {28591, "ISO-8859-1"},
    {28592, "ISO-8859-2"},
    {28593, "ISO-8859-3"},
    {28594, "ISO-8859-4"},
    {28595, "ISO-8859-5"},
    {28596, "ISO-8859-6"},
    {28597, "ISO-8859-7"},
    {28598, "ISO-8859-8"},
    {28599, "ISO-8859-9"},
    {28600, "ISO-8859-10"},
    {28601, "ISO-8859-11"},
    {28603, "ISO-8859-13"},
    {28604, "ISO-8859-14"},
    {28605, "ISO-8859-15"},
    {28606, "ISO-8859-16"},
    {29001, nullptr},
    {38598, "ISO-8859-8"},
    {50220, "ISO-2022-JP"},
    {50221, "ISO-2022-JP"},
    {50222, "ISO-2022-JP"},
    {50225, "ISO-2022-KR"},
    {50227, "ISO-2022-CN"},
    {51932, "EUC-JP-MS"},
    {51936, "EUC-CN"},
    {51949, "EUC-KR"},
    {52936, nullptr},
    {54936, "GB18030"},
    {57002, nullptr},
    {57003, nullptr},
    {57004, nullptr},
    {57005, nullptr},
    {57006, nullptr},
    {57007, nullptr},
    {57008, nullptr},
    {57009, nullptr},
    {57010, nullptr},
    {57011, nullptr},
    {65000, "UTF-7"},
    {65001, "UTF-8"},
};

const CodePageName* FindCodePage(uint32_t code_page) {
  for (const auto& row : kCodePages) {
    if (row.code_page == code_page) return &row;
  }
  return nullptr;
}

constexpr const char* kUtf16 = std::endian::native == std::endian::little ? "UTF-16LE" : "UTF-16BE";
const iconv_t kNoConverter = reinterpret_cast<iconv_t>(-1);
constexpr uint32_t kUtf8Page = 65001;

// The decoding of a page whose every byte stands alone: it gives one UTF-16
// unit, or is refused by itself (ISO 8859, KOI8 and most Windows pages).
// Text in such a page decodes byte by byte to what its converter gives, a
// refused byte becoming the replacement as Convert has it.
struct ByteTable {
  bool single_byte = false;
  char16_t units[256] = {};
};

// Asks the converter for each byte on its own. A page that holds a byte
// back for what follows (to join it with a mark, or as part of a sequence
// or shift) gets no table.
bool FillByteTable(iconv_t cd, ByteTable* table) {
  for (int b = 0; b < 256; ++b) {
    ::iconv(cd, nullptr, nullptr, nullptr, nullptr);
    char in = static_cast<char>(b);
    char* src = &in;
    size_t in_left = 1;
    char16_t units[4];
    char* dst = reinterpret_cast<char*>(units);
    size_t room = sizeof units;
    if (::iconv(cd, &src, &in_left, &dst, &room) == static_cast<size_t>(-1)) {
      if (errno != EILSEQ || room != sizeof units) return false;
      table->units[b] = 0xFFFD;
      continue;
    }
    if (in_left != 0 || room != sizeof units - sizeof(char16_t)) return false;
    char16_t held[4];
    char* held_dst = reinterpret_cast<char*>(held);
    size_t held_room = sizeof held;
    if (::iconv(cd, nullptr, nullptr, &held_dst, &held_room) == static_cast<size_t>(-1) ||
        held_room != sizeof held) {
      return false;
    }
    table->units[b] = units[0];
  }
  ::iconv(cd, nullptr, nullptr, nullptr, nullptr);
  return true;
}

// Well-formed UTF-8 decodes to the same units by any reader; what is not is
// left to the converter, whose handling of each bad byte decides. False,
// with out untouched, for text that is not well formed.
bool DecodeWellFormedUtf8(std::string_view text, std::u16string* out) {
  std::u16string wide(text.size(), u'\0');
  size_t used = 0;
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  const size_t n = text.size();
  size_t i = 0;
  while (i < n) {
    const unsigned char lead = p[i];
    if (lead < 0x80) {
      wide[used++] = lead;
      ++i;
      continue;
    }
    size_t length = 0;
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    uint32_t code_point = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
      length = 2;
      code_point = lead & 0x1Fu;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      length = 3;
      code_point = lead & 0x0Fu;
      if (lead == 0xE0) low = 0xA0;   // no overlong forms
      if (lead == 0xED) high = 0x9F;  // no surrogates
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      length = 4;
      code_point = lead & 0x07u;
      if (lead == 0xF0) low = 0x90;
      if (lead == 0xF4) high = 0x8F;  // nothing past U+10FFFF
    } else {
      return false;
    }
    if (n - i < length) return false;
    for (size_t k = 1; k < length; ++k) {
      const unsigned char b = p[i + k];
      if (b < (k == 1 ? low : 0x80) || b > (k == 1 ? high : 0xBF)) return false;
      code_point = (code_point << 6) | (b & 0x3Fu);
    }
    if (code_point >= 0x10000) {
      code_point -= 0x10000;
      wide[used++] = static_cast<char16_t>(0xD800 + (code_point >> 10));
      wide[used++] = static_cast<char16_t>(0xDC00 + (code_point & 0x3FF));
    } else {
      wide[used++] = static_cast<char16_t>(code_point);
    }
    i += length;
  }
  wide.resize(used);
  *out = std::move(wide);
  return true;
}

// Opening a converter loads a module, so each thread keeps the ones it has
// opened; a descriptor must not be shared between threads.
class ConverterCache {
 public:
  ~ConverterCache() {
    for (auto& [key, cd] : converters_) {
      if (cd != kNoConverter) ::iconv_close(cd);
    }
  }
  // The converter from (to_wide) or to (!to_wide) the page, reset to its
  // initial state, or kNoConverter.
  iconv_t Get(uint32_t code_page, bool to_wide) {
    const uint64_t key = (uint64_t{code_page} << 1) | (to_wide ? 1 : 0);
    auto it = converters_.find(key);
    if (it == converters_.end()) {
      const char* name = IconvNameOfCodePage(code_page);
      iconv_t cd = kNoConverter;
      if (name != nullptr) cd = to_wide ? ::iconv_open(kUtf16, name) : ::iconv_open(name, kUtf16);
      it = converters_.emplace(key, cd).first;
    }
    if (it->second != kNoConverter) ::iconv(it->second, nullptr, nullptr, nullptr, nullptr);
    return it->second;
  }

  // The byte table of a page this thread has a converter for.
  const ByteTable& TableFor(uint32_t code_page, iconv_t cd) {
    auto it = tables_.find(code_page);
    if (it == tables_.end()) {
      auto table = std::make_unique<ByteTable>();
      table->single_byte = FillByteTable(cd, table.get());
      it = tables_.emplace(code_page, std::move(table)).first;
    }
    return *it->second;
  }

 private:
  std::unordered_map<uint64_t, iconv_t> converters_;
  std::unordered_map<uint32_t, std::unique_ptr<ByteTable>> tables_;
};

thread_local ConverterCache converter_cache;

// Runs the whole input through cd. On a byte sequence it cannot convert it
// writes the replacement and skips `skip(in, left)` bytes.
template <typename Skip>
void Convert(iconv_t cd, const char* in, size_t in_left, std::string_view replacement, Skip skip,
             std::string* out) {
  std::string result;
  result.resize(in_left * 2 + 16);
  size_t used = 0;
  auto* src = const_cast<char*>(in);
  bool flushing = false;
  for (;;) {
    char* dst = result.data() + used;
    size_t room = result.size() - used;
    const size_t rc = flushing ? ::iconv(cd, nullptr, nullptr, &dst, &room)
                               : ::iconv(cd, &src, &in_left, &dst, &room);
    const int err = errno;
    used = result.size() - room;
    if (rc != static_cast<size_t>(-1)) {
      if (flushing) break;
      flushing = true;  // write the shift back to the initial state
      continue;
    }
    if (err == E2BIG) {
      result.resize(result.size() * 2);
      continue;
    }
    if (flushing || (err != EILSEQ && err != EINVAL)) break;
    // EILSEQ, or EINVAL for a sequence cut short at the end.
    result.resize(std::max(result.size(), used + replacement.size() + 16));
    if (!replacement.empty()) {
      std::memcpy(result.data() + used, replacement.data(), replacement.size());
    }
    used += replacement.size();
    const size_t n = err == EINVAL ? in_left : std::min(in_left, skip(src, in_left));
    src += n;
    in_left -= n;
  }
  result.resize(used);
  *out = std::move(result);
}

}  // namespace

const char* IconvNameOfCodePage(uint32_t code_page) {
  const CodePageName* row = FindCodePage(code_page);
  return row == nullptr ? nullptr : row->iconv_name;
}

bool IsUnsupportedCodePage(uint32_t code_page) {
  const CodePageName* row = FindCodePage(code_page);
  return row != nullptr && row->iconv_name == nullptr;
}

bool DecodeToUtf16(uint32_t code_page, std::string_view text, std::u16string* out) {
  iconv_t cd = converter_cache.Get(code_page, true);
  if (cd == kNoConverter) return false;
  if (code_page == kUtf8Page && DecodeWellFormedUtf8(text, out)) return true;
  const ByteTable& table = converter_cache.TableFor(code_page, cd);
  if (table.single_byte) {
    out->resize(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
      (*out)[i] = table.units[static_cast<unsigned char>(text[i])];
    }
    return true;
  }
  cd = converter_cache.Get(code_page, true);
  static constexpr char16_t kReplacement = 0xFFFD;
  std::string bytes;
  Convert(
      cd, text.data(), text.size(),
      std::string_view(reinterpret_cast<const char*>(&kReplacement), sizeof kReplacement),
      [](const char*, size_t) -> size_t { return 1; }, &bytes);
  out->assign(reinterpret_cast<const char16_t*>(bytes.data()), bytes.size() / sizeof(char16_t));
  return true;
}

bool EncodeFromUtf16(uint32_t code_page, std::u16string_view text, std::string* out) {
  iconv_t cd = converter_cache.Get(code_page, false);
  if (cd == kNoConverter) return false;
  // The page's own spelling of "?", which is not 0x3F in every page.
  std::string question;
  static constexpr char16_t kQuestion = u'?';
  Convert(
      cd, reinterpret_cast<const char*>(&kQuestion), sizeof kQuestion, {},
      [](const char*, size_t n) { return n; }, &question);
  ::iconv(cd, nullptr, nullptr, nullptr, nullptr);
  Convert(
      cd, reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char16_t), question,
      [](const char* at, size_t left) -> size_t {
        // Skip a whole surrogate pair when one stands here.
        char16_t unit[2] = {};
        std::memcpy(unit, at, std::min(left, sizeof unit));
        const bool pair = left >= sizeof unit && unit[0] >= 0xD800 && unit[0] < 0xDC00 &&
                          unit[1] >= 0xDC00 && unit[1] < 0xE000;
        return pair ? 4 : 2;
      },
      out);
  return true;
}

}  // namespace qaaisp::platform
