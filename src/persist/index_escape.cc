#include "persist/index_escape.h"

#include <array>
#include <cstdint>

namespace qaaisp::persist {
namespace {

bool IsPlainByte(unsigned char c) {
  return (c >= 0x20 && c <= 0x7E) || c == '\t' || c == '\n' || c == '\r';
}

// The bounds of the second byte after a lead byte; the later bytes are
// always 0x80..0xBF. Ranges that exclude overlong forms, surrogates and
// values above U+10FFFF. A lead that starts no sequence gives length 0.
struct LeadRule {
  int length;
  unsigned char low;
  unsigned char high;
};

LeadRule RuleForLead(unsigned char lead) {
  if (lead >= 0xC2 && lead <= 0xDF) return {2, 0x80, 0xBF};
  if (lead == 0xE0) return {3, 0xA0, 0xBF};
  if (lead == 0xED) return {3, 0x80, 0x9F};
  if (lead >= 0xE1 && lead <= 0xEF) return {3, 0x80, 0xBF};
  if (lead == 0xF0) return {4, 0x90, 0xBF};
  if (lead >= 0xF1 && lead <= 0xF3) return {4, 0x80, 0xBF};
  if (lead == 0xF4) return {4, 0x80, 0x8F};
  return {0, 0, 0};
}

// How many bytes from p form the longest valid prefix of a multi-byte
// sequence (its "maximal subpart"), and whether that prefix is complete.
size_t MaximalSubpart(const unsigned char* p, size_t n, bool* complete) {
  *complete = false;
  LeadRule rule = RuleForLead(p[0]);
  if (rule.length == 0) return 1;
  size_t i = 1;
  for (; i < static_cast<size_t>(rule.length) && i < n; ++i) {
    unsigned char lo = i == 1 ? rule.low : 0x80;
    unsigned char hi = i == 1 ? rule.high : 0xBF;
    if (p[i] < lo || p[i] > hi) break;
  }
  *complete = i == static_cast<size_t>(rule.length);
  return i;
}

uint32_t DecodeSequence(const unsigned char* p, size_t length) {
  if (length == 2) return ((p[0] & 0x1Fu) << 6) | (p[1] & 0x3Fu);
  if (length == 3) return ((p[0] & 0x0Fu) << 12) | ((p[1] & 0x3Fu) << 6) | (p[2] & 0x3Fu);
  return ((p[0] & 0x07u) << 18) | ((p[1] & 0x3Fu) << 12) | ((p[2] & 0x3Fu) << 6) | (p[3] & 0x3Fu);
}

constexpr bool XmlAllowsUnit(uint32_t unit) {
  return unit == 0x9 || unit == 0xA || unit == 0xD || (unit >= 0x20 && unit <= 0xD7FF) ||
         (unit >= 0xE000 && unit <= 0xFFFD);
}

void AppendReference(uint32_t unit, std::string* out) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  char digits[8];
  int n = 0;
  do {
    digits[n++] = kHex[unit & 0xF];
    unit >>= 4;
  } while (unit != 0);
  out->append("&#x");
  while (n > 0) out->push_back(digits[--n]);
  out->push_back(';');
}

// U+FFFD, which is what the UTF-16 conversion puts for bytes it cannot read.
constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

}  // namespace

EscapeTable MakeEscapeTable() { return EscapeTable{{"&", "&amp;"}, {"<", "&lt;"}, {">", "&gt;"}}; }

bool IsPlainIndexText(std::string_view text) {
  for (char c : text) {
    if (!IsPlainByte(static_cast<unsigned char>(c))) return false;
  }
  return true;
}

std::string CleanToValidUtf8(std::string_view text) {
  std::string out(text);
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  const size_t n = text.size();
  size_t i = 0;
  while (i < n) {
    unsigned char c = p[i];
    if (c < 0x80) {
      if (c == 0x7F || (c < 0x20 && c != '\t' && c != '\n' && c != '\r')) out[i] = ' ';
      ++i;
      continue;
    }
    bool complete = false;
    size_t length = MaximalSubpart(p + i, n - i, &complete);
    if (complete) {
      i += length;
    } else {
      // Only the lead is spent here; a continuation byte behind it is a
      // stray byte of its own and is replaced on the next turn.
      out[i] = ' ';
      ++i;
    }
  }
  return out;
}

TextEscaper::TextEscaper(const EscapeTable& table, bool require_valid_utf8)
    : require_valid_utf8_(require_valid_utf8) {
  for (const auto& [from, to] : table) {
    if (from.size() == 1) entities_[static_cast<unsigned char>(from[0])] = to;
  }
  for (int c = 0; c < 256; ++c) {
    if (!IsPlainByte(static_cast<unsigned char>(c))) {
      classes_[c] = kNotPlain;
    } else {
      classes_[c] = entities_[c].empty() ? kPass : kEntity;
    }
  }
}

void TextEscaper::Append(std::string_view text, std::string* out) const {
  // Most values need nothing at all; one pass finds out.
  bool entities = false;
  bool plain = true;
  for (char c : text) {
    ByteClass k = classes_[static_cast<unsigned char>(c)];
    if (k == kNotPlain) {
      plain = false;
      break;
    }
    entities |= k == kEntity;
  }
  if (plain) {
    if (entities) {
      AppendPlain(text, out);
    } else {
      out->append(text);
    }
  } else if (require_valid_utf8_) {
    AppendUnicode(text, out, /*clean=*/true);
  } else {
    AppendUnicode(text, out, /*clean=*/false);
  }
}

void TextEscaper::AppendPlain(std::string_view text, std::string* out) const {
  size_t run = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    const std::string& entity = entities_[static_cast<unsigned char>(text[i])];
    if (entity.empty()) continue;
    out->append(text.data() + run, i - run);
    out->append(entity);
    run = i + 1;
  }
  out->append(text.data() + run, text.size() - run);
}

// The ASCII bytes that the code point path copies as they are.
constexpr std::array<bool, 128> kUnicodePass = [] {
  std::array<bool, 128> pass{};
  for (int c = 0; c < 128; ++c) {
    pass[c] = XmlAllowsUnit(static_cast<uint32_t>(c)) && c != '&' && c != '<' && c != '>';
  }
  return pass;
}();

void TextEscaper::AppendUnicode(std::string_view text, std::string* out, bool clean) const {
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  const size_t n = text.size();
  // Bytes that stand for themselves, nearly all of them, are copied a run
  // at a time rather than one by one.
  size_t run = 0;
  const auto flush = [&](size_t upto) { out->append(text.data() + run, upto - run); };
  size_t i = 0;
  while (i < n) {
    while (i < n && p[i] < 0x80 && kUnicodePass[p[i]] && (!clean || p[i] != 0x7F)) ++i;
    if (i == n) break;
    unsigned char c = p[i];
    if (c < 0x80) {
      flush(i);
      if (clean && (c == 0x7F || !XmlAllowsUnit(c))) {
        // Cleaning makes every other control byte a space.
        out->push_back(' ');
      } else if (c == '&') {
        out->append("&amp;");
      } else if (c == '<') {
        out->append("&lt;");
      } else if (c == '>') {
        out->append("&gt;");
      } else {
        AppendReference(c, out);
      }
      run = ++i;
      continue;
    }
    bool complete = false;
    size_t length = MaximalSubpart(p + i, n - i, &complete);
    if (!complete) {
      flush(i);
      if (clean) {
        // Cleaning spends only the lead; a continuation byte behind it is
        // a stray byte of its own, met on the next turn.
        out->push_back(' ');
        length = 1;
      } else {
        out->append(kReplacement);
      }
      i += length;
      run = i;
      continue;
    }
    uint32_t code_point = DecodeSequence(p + i, length);
    if (code_point <= 0xFFFF && XmlAllowsUnit(code_point)) {
      i += length;
      continue;
    }
    flush(i);
    if (code_point > 0xFFFF) {
      // Two UTF-16 units, both surrogates, which XML does not allow alone.
      uint32_t v = code_point - 0x10000;
      AppendReference(0xD800 + (v >> 10), out);
      AppendReference(0xDC00 + (v & 0x3FF), out);
    } else {
      AppendReference(code_point, out);
    }
    i += length;
    run = i;
  }
  flush(n);
}

}  // namespace qaaisp::persist
