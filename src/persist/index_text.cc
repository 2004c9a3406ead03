#include "persist/index_text.h"

#include <cstring>

#include "base/store_files.h"

namespace qaaisp::persist {
namespace {

int DigitValue(char c, int base) {
  int v;
  if (c >= '0' && c <= '9') {
    v = c - '0';
  } else if (c >= 'a' && c <= 'f') {
    v = c - 'a' + 10;
  } else if (c >= 'A' && c <= 'F') {
    v = c - 'A' + 10;
  } else {
    return -1;
  }
  return v < base ? v : -1;
}

bool IsBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// strtol/strtoul on 32-bit longs: blanks, a sign, digits of the base.
int64_t ParseLong(std::string_view text, int base, bool is_unsigned) {
  size_t i = 0;
  while (i < text.size() && IsBlank(text[i])) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
    negative = text[i] == '-';
    ++i;
  }
  const uint64_t limit = is_unsigned ? 0xFFFFFFFFull : (negative ? 0x80000000ull : 0x7FFFFFFFull);
  uint64_t value = 0;
  bool overflow = false;
  for (; i < text.size(); ++i) {
    int d = DigitValue(text[i], base);
    if (d < 0) break;
    value = value * static_cast<uint64_t>(base) + static_cast<uint64_t>(d);
    if (value > limit) {
      overflow = true;
      value = limit;
    }
  }
  if (is_unsigned) {
    if (overflow) return 0xFFFFFFFFll;
    return negative ? static_cast<int64_t>(static_cast<uint32_t>(-static_cast<int64_t>(value)))
                    : static_cast<int64_t>(value);
  }
  return negative ? -static_cast<int64_t>(value) : static_cast<int64_t>(value);
}

// Decodes "&lt;", "&gt;" and "&amp;" in one pass. The three never overlap
// (each starts with "&", ends with ";" and holds neither inside), and a
// decoded byte is never read again, so this is the same as replacing all of
// each in turn, in that order.
void DecodeEntities(std::string* text, size_t first_amp) {
  std::string& s = *text;
  size_t r = first_amp;
  if (r == std::string::npos) return;
  size_t w = r;
  const size_t n = s.size();
  while (r < n) {
    char c = s[r];
    if (c == '&') {
      std::string_view rest(s.data() + r, n - r);
      if (rest.starts_with("&lt;")) {
        s[w++] = '<';
        r += 4;
        continue;
      }
      if (rest.starts_with("&gt;")) {
        s[w++] = '>';
        r += 4;
        continue;
      }
      if (rest.starts_with("&amp;")) {
        s[w++] = '&';
        r += 5;
        continue;
      }
    }
    s[w++] = c;
    ++r;
  }
  s.resize(w);
}

}  // namespace

int ParseLastUID(uint32_t* out, std::string_view text) {
  if (!text.empty() && text[0] == 'x') {
    *out = static_cast<uint32_t>(ParseLong(text.substr(1), 16, true));
    return 1;
  }
  int base = !text.empty() && text[0] == '0' ? 16 : 10;
  *out = static_cast<uint32_t>(ParseLong(text, base, true));
  return 0;
}

int32_t ParseSignedDecimal(std::string_view text) {
  return static_cast<int32_t>(ParseLong(text, 10, false));
}

void UnescapeIndexText(std::string* text) {
  const size_t first_amp = text->find('&');
  if (first_amp == std::string::npos) return;
  // Numeric references. The original search restarts from the start of the
  // text after each replacement, so a decoded byte can start or finish a new
  // reference ("&#38;#65;" gives "A"). Done in one pass: the decoded byte is
  // put back into the input and read again, and the output never holds an
  // undecoded "&#".
  std::string& s = *text;
  size_t r = s.find("&#", first_amp);
  if (r == std::string::npos) {
    DecodeEntities(text, first_amp);
    return;
  }
  size_t w = r;
  const size_t n = s.size();
  while (r < n) {
    char c = s[r];
    if (c == '#' && w > 0 && s[w - 1] == '&') {
      size_t semi = s.find(';', r + 1);
      if (semi == std::string::npos) break;  // no later "&#" can have one either
      std::string_view number(s.data() + r + 1, semi - r - 1);
      int64_t value = !number.empty() && number[0] == 'x' ? ParseLong(number.substr(1), 16, false)
                                                          : ParseLong(number, 10, false);
      --w;
      s[semi] = static_cast<char>(static_cast<uint8_t>(value & 0xFF));
      r = semi;
      continue;
    }
    s[w++] = c;
    ++r;
  }
  if (r < n) {
    std::memmove(&s[w], s.data() + r, n - r);
    w += n - r;
  }
  s.resize(w);
  DecodeEntities(text, s.find('&'));
}

void UnescapeIndexText(std::string_view text, std::string* out) {
  const size_t first_amp = text.find('&');
  if (first_amp == std::string_view::npos || text.find("&#", first_amp) != std::string_view::npos) {
    // Nothing to do, or numeric references with their rereading: the
    // general path.
    out->assign(text);
    UnescapeIndexText(out);
    return;
  }
  // Entities alone shrink the text as they go: decode straight into out,
  // copying the runs between ampersands whole.
  out->resize(text.size());
  char* const begin = out->data();
  char* w = begin;
  size_t r = 0;
  size_t amp = first_amp;
  for (;;) {
    std::memcpy(w, text.data() + r, amp - r);
    w += amp - r;
    if (amp == text.size()) break;
    std::string_view rest = text.substr(amp);
    if (rest.starts_with("&lt;")) {
      *w++ = '<';
      r = amp + 4;
    } else if (rest.starts_with("&gt;")) {
      *w++ = '>';
      r = amp + 4;
    } else if (rest.starts_with("&amp;")) {
      *w++ = '&';
      r = amp + 5;
    } else {
      *w++ = '&';
      r = amp + 1;
    }
    amp = text.find('&', r);
    if (amp == std::string_view::npos) amp = text.size();
  }
  out->resize(static_cast<size_t>(w - begin));
}

bool IsTombstoneValue(std::string_view value) {
  if (value.empty()) return false;
  for (char c : value) {
    if (c != '-') return false;
  }
  return true;
}

const char* IndexFileNameForClass(int item_class) {
  return item_class == 54 ? files::kGroupsXml : files::kIndexXml;
}

std::string IndexFilePath(const std::string& folder, int item_class) {
  return JoinPath(folder, IndexFileNameForClass(item_class));
}

std::string JoinPath(const std::string& folder, std::string_view name) {
  std::string path;
  path.reserve(folder.size() + 1 + name.size());
  path = folder;
  path += '/';
  path += name;
  return path;
}

}  // namespace qaaisp::persist
