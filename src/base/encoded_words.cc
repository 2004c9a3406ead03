#include "base/encoded_words.h"

#include <cstring>

#include "base/base64.h"
#include "base/charsets.h"
#include "base/quoted_printable.h"
#include "platform/iconv_charset.h"
#include "platform/path_case.h"

namespace qaaisp {
namespace {

using platform::EqualsNoCase;

bool IsAscii(std::string_view text) {
  const unsigned char* p = reinterpret_cast<const unsigned char*>(text.data());
  size_t n = text.size();
  size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    uint64_t word;
    std::memcpy(&word, p + i, 8);
    if (word & 0x8080808080808080ull) return false;
  }
  for (; i < n; ++i) {
    if (p[i] & 0x80) return false;
  }
  return true;
}

// Code pages whose first 128 characters are ASCII: single-byte Windows and
// ISO pages, the DOS pages, UTF-8 and the multi-byte East Asian ones. The
// UTF-16/32 pages, EBCDIC and the 7-bit ISO-2022 and HZ encodings are not.
bool IsAsciiCompatible(uint32_t cp) {
  switch (cp) {
    case 1200:
    case 1201:
    case 12000:
    case 12001:
    case 37:
    case 500:
    case 870:
    case 875:
    case 1026:
    case 1047:
    case 20273:
    case 20277:
    case 20278:
    case 20280:
    case 20284:
    case 20285:
    case 20290:
    case 20297:
    case 20420:
    case 20423:
    case 20424:
    case 20833:
    case 20838:
    case 20871:
    case 20880:
    case 20905:
    case 20924:
    case 21025:
    case 50220:
    case 50221:
    case 50222:
    case 50225:
    case 50227:
    case 52936:
    case 20105:
    case 20106:
    case 20107:
    case 20108:
      return false;
    default:
      return !(cp >= 1140 && cp <= 1149);
  }
}

void WidenBytes(std::string_view bytes, std::u16string* out) {
  size_t start = out->size();
  out->resize(start + bytes.size());
  char16_t* w = out->data() + start;
  for (size_t i = 0; i < bytes.size(); ++i) w[i] = static_cast<unsigned char>(bytes[i]);
}

// One encoded word at text[pos] ("=?"), split into its three fields. False if
// it is not well formed, in which case the "=?" is ordinary text.
bool SplitWord(std::string_view text, size_t pos, std::string_view* charset, char* encoding,
               std::string_view* payload, size_t* end) {
  size_t cs = pos + 2;
  size_t q1 = cs;
  while (q1 < text.size() && text[q1] != '?') {
    char c = text[q1];
    if (c == ' ' || c == '\t' || c == '\r' || c == '\n') return false;
    ++q1;
  }
  if (q1 == cs || q1 + 2 >= text.size() || text[q1 + 2] != '?') return false;
  size_t start = q1 + 3;
  size_t close = text.find("?=", start);
  if (close == std::string_view::npos) return false;
  *charset = text.substr(cs, q1 - cs);
  // RFC 2231 lets a language follow the charset after "*".
  size_t star = charset->find('*');
  if (star != std::string_view::npos) *charset = charset->substr(0, star);
  *encoding = text[q1 + 1];
  *payload = text.substr(start, close - start);
  *end = close + 2;
  return true;
}

// Buffers a thread keeps from one word to the next, so that decoding costs
// no allocation per word once they have grown. A buffer grown past
// kKeptCapacity by a huge word is given back.
struct WordScratch {
  static constexpr size_t kKeptCapacity = 64 * 1024;

  std::string bytes;    // a word's payload, decoded
  std::u16string wide;  // the same converted

  void Trim() {
    if (bytes.capacity() > kKeptCapacity) std::string().swap(bytes);
    if (wide.capacity() > kKeptCapacity) std::u16string().swap(wide);
  }
};

WordScratch& Scratch() {
  thread_local WordScratch scratch;
  return scratch;
}

void DecodeOneWord(std::string_view charset, char encoding, std::string_view payload,
                   const WordDecodeOptions& options, std::u16string* out) {
  if (options.byte_mode == 0) {
    WidenBytes(payload, out);
    return;
  }
  std::string& bytes = Scratch().bytes;
  if (encoding == 'B' || encoding == 'b') {
    if (!Base64DecodeToString(payload, &bytes)) bytes.assign(payload);
  } else {
    // Never longer than the payload.
    bytes.resize(payload.size());
    size_t length = 0;
    if (!QPDecode(payload, bytes.data(), bytes.size(), &length, true)) length = 0;
    bytes.resize(length);
    // The last byte is left as it stands by the decoder; a word's "_" is
    // always a blank.
    if (!payload.empty() && payload.back() == '_' && !bytes.empty()) bytes.back() = ' ';
    if (options.underscore) {
      for (char& c : bytes) {
        if (c == '_') c = ' ';
      }
    }
  }
  AppendWide(bytes, CodePageOfCharset(charset), out);
  Scratch().Trim();
}

bool OnlyWhiteSpace(std::string_view text) {
  for (char c : text) {
    if (c != ' ' && c != '\t' && c != '\r' && c != '\n') return false;
  }
  return true;
}

}  // namespace

void AppendWide(std::string_view bytes, uint32_t code_page, std::u16string* out) {
  if (bytes.empty()) return;
  if (code_page == 0 || (IsAsciiCompatible(code_page) && IsAscii(bytes))) {
    WidenBytes(bytes, out);
    return;
  }
  // As NarrowToWide, into a buffer that is kept.
  std::u16string& wide = Scratch().wide;
  wide.clear();
  if (platform::DecodeToUtf16(code_page, bytes, &wide) && !wide.empty()) {
    out->append(wide);
  } else {
    WidenBytes(bytes, out);
  }
  Scratch().Trim();
}

int WrapQuotedWord(std::string_view text, std::string* out) {
  out->clear();
  if (IsAscii(text)) {
    out->assign(text);
    return 2;
  }
  out->append(kUtf8WordPrefix);
  QPEncodeWord(text, out);
  out->append("?=");
  return 1;
}

int EncodeWord(std::string_view text, std::string* out, bool wrap) {
  out->clear();
  if (text.size() >= kUtf8WordPrefix.size() &&
      EqualsNoCase(text.substr(0, kUtf8WordPrefix.size()), kUtf8WordPrefix)) {
    if (wrap) {
      out->assign(text);
      return 1;
    }
    std::string_view inner = text.substr(kUtf8WordPrefix.size());
    if (inner.ends_with("?=")) inner.remove_suffix(2);
    out->assign(inner);
    return 2;
  }
  std::string encoded;
  QPEncodeWord(text, &encoded);
  if (EqualsNoCase(encoded, text)) {
    out->assign(text);
    return 1;
  }
  if (wrap) {
    out->append(kUtf8WordPrefix);
    out->append(encoded);
    out->append("?=");
  } else {
    *out = std::move(encoded);
  }
  return 2;
}

int EncodeWordList(std::string_view text, std::string* out, bool wrap) {
  out->clear();
  int result = 1;
  std::string piece;
  size_t pos = 0;
  while (true) {
    size_t semi = text.find(';', pos);
    std::string_view part =
        text.substr(pos, semi == std::string_view::npos ? std::string_view::npos : semi - pos);
    if (EncodeWord(part, &piece, wrap) == 2) result = 2;
    out->append(piece);
    if (semi == std::string_view::npos) break;
    out->push_back(';');
    pos = semi + 1;
  }
  return result;
}

int DecodeWords(std::string_view text, std::u16string* out, const WordDecodeOptions& options) {
  out->clear();
  out->reserve(text.size());
  const std::string_view default_charset = options.charset.empty() ? "utf-8" : options.charset;
  const uint32_t literal_page = options.literal ? CodePageOfCharset(default_charset) : 0;
  int words = 0;
  bool after_word = false;
  size_t pos = 0;
  while (pos < text.size()) {
    size_t open = text.find("=?", pos);
    std::string_view charset;
    std::string_view payload;
    char encoding = 0;
    size_t end = 0;
    while (open != std::string_view::npos &&
           !SplitWord(text, open, &charset, &encoding, &payload, &end)) {
      open = text.find("=?", open + 1);
    }
    std::string_view literal =
        text.substr(pos, open == std::string_view::npos ? std::string_view::npos : open - pos);
    bool skip = options.join_adjacent && after_word && open != std::string_view::npos &&
                OnlyWhiteSpace(literal);
    if (!skip) AppendWide(literal, literal_page, out);
    if (open == std::string_view::npos) break;
    DecodeOneWord(charset, encoding, payload, options, out);
    ++words;
    after_word = true;
    pos = end;
  }
  return words;
}

bool ConvertCharset(std::string_view from, std::string_view bytes, std::string* out,
                    std::string_view to) {
  if (from.empty()) from = "UTF-8";
  if (to.empty()) to = "UTF-8";
  out->assign(bytes);
  if (EqualsNoCase(from, to)) return false;
  uint32_t from_page = CodePageOfCharset(from);
  uint32_t to_page = CodePageOfCharset(to);
  if (from_page == 0 || to_page == 0) return false;
  if (from_page == to_page) return true;
  if (IsAsciiCompatible(from_page) && IsAsciiCompatible(to_page) && IsAscii(bytes)) return true;
  std::u16string wide;
  if (NarrowToWide(bytes, &wide, from_page) <= 0) return bytes.empty();
  if (to_page == kUtf16CodePage) {
    out->resize(wide.size() * 2);
    for (size_t i = 0; i < wide.size(); ++i) {
      (*out)[2 * i] = static_cast<char>(wide[i] & 0xFF);
      (*out)[2 * i + 1] = static_cast<char>(wide[i] >> 8);
    }
    return true;
  }
  std::string narrow;
  if (WideToNarrow(wide, &narrow, to_page) <= 0) return false;
  *out = std::move(narrow);
  return true;
}

}  // namespace qaaisp
