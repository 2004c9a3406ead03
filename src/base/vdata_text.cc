#include "base/vdata_text.h"

#include <algorithm>

#include "base/quoted_printable.h"

namespace qaaisp {
namespace {

constexpr std::string_view kQpParameter = ";ENCODING=QUOTED-PRINTABLE";
constexpr std::string_view kUtf8Parameter = ";CHARSET=UTF-8";

std::string ReplaceAll(std::string_view text, std::string_view from, std::string_view to) {
  std::string out;
  out.reserve(text.size());
  size_t pos = 0;
  while (true) {
    size_t hit = text.find(from, pos);
    if (hit == std::string_view::npos) break;
    out.append(text.substr(pos, hit - pos));
    out.append(to);
    pos = hit + from.size();
  }
  out.append(text.substr(pos));
  return out;
}

char Lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; }

size_t FindNoCase(std::string_view text, std::string_view needle) {
  if (needle.size() > text.size()) return std::string_view::npos;
  for (size_t i = 0; i + needle.size() <= text.size(); ++i) {
    size_t k = 0;
    while (k < needle.size() && Lower(text[i + k]) == Lower(needle[k])) ++k;
    if (k == needle.size()) return i;
  }
  return std::string_view::npos;
}

void EraseNoCase(std::string* text, std::string_view what) {
  size_t hit;
  while ((hit = FindNoCase(*text, what)) != std::string_view::npos) text->erase(hit, what.size());
}

// The ":" between a property's name with its parameters and its value; a
// quoted parameter value may hold one.
size_t ValueColon(std::string_view line) {
  bool quoted = false;
  for (size_t i = 0; i < line.size(); ++i) {
    if (line[i] == '"') quoted = !quoted;
    if (line[i] == ':' && !quoted) return i;
  }
  return std::string_view::npos;
}

bool HasEightBit(std::string_view text) {
  for (char c : text) {
    if (static_cast<unsigned char>(c) >= 0x80) return true;
  }
  return false;
}

// Splits off the line at pos, its line end included in raw; content has the
// line end removed.
size_t TakeLine(std::string_view text, size_t pos, std::string_view* content) {
  size_t lf = text.find('\n', pos);
  size_t next = lf == std::string_view::npos ? text.size() : lf + 1;
  size_t end = lf == std::string_view::npos ? text.size() : lf;
  if (end > pos && text[end - 1] == '\r') --end;
  *content = text.substr(pos, end - pos);
  return next;
}

}  // namespace

std::string Unfold(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\r' && i + 2 < text.size() && text[i + 1] == '\n' &&
        (text[i + 2] == ' ' || text[i + 2] == '\t')) {
      i += 2;
      continue;
    }
    out.push_back(text[i]);
  }
  return out;
}

std::string EscapeLineEnds(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\r' || text[i] == '\n') {
      if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') ++i;
      out.append("\\n");
    } else {
      out.push_back(text[i]);
    }
  }
  return out;
}

std::string Unescape(std::string_view text) {
  std::string out = ReplaceAll(text, "\\;", ";");
  out = ReplaceAll(out, "\\,", ",");
  return ReplaceAll(out, "\\\\", "\\");
}

std::string FoldText(std::string_view text, size_t width, std::string_view separator, char no_break,
                     char soft_break, bool blank) {
  if (text.size() <= width || width == 0) return std::string(text);
  if (separator.empty()) separator = "\r\n";
  std::string out;
  out.reserve(text.size() + (text.size() / width + 1) * (separator.size() + 1));
  size_t pos = 0;
  while (pos < text.size()) {
    size_t length = std::min(width, text.size() - pos);
    if (pos + length < text.size()) {
      std::string_view chunk = text.substr(pos, length);
      size_t soft = chunk.rfind(soft_break);
      if (soft != std::string_view::npos) {
        length = soft + 1;
      } else {
        blank = true;  // nowhere to break: continuation lines need a blank
      }
      size_t kept = length;
      while (kept > 0 && text[pos + kept - 1] == no_break) --kept;
      if (kept > 0) length = kept;
    }
    if (pos > 0) {
      out.append(separator);
      if (blank) out.push_back(' ');
    }
    out.append(text.substr(pos, length));
    pos += length;
  }
  return out;
}

std::string EncodeCalendarText(std::string_view text) {
  if (text.find(kQpParameter) != std::string_view::npos) return std::string(text);
  std::string out;
  out.reserve(text.size() + text.size() / 4);
  size_t pos = 0;
  while (pos < text.size()) {
    // A property runs on over its folded continuation lines.
    size_t start = pos;
    std::string_view content;
    pos = TakeLine(text, pos, &content);
    size_t end = pos;
    while (pos < text.size() && (text[pos] == ' ' || text[pos] == '\t')) {
      pos = TakeLine(text, pos, &content);
      end = pos;
    }
    std::string_view raw = text.substr(start, end - start);
    std::string_view line_end = raw.ends_with("\r\n") ? "\r\n" : raw.ends_with("\n") ? "\n" : "";
    std::string property = Unfold(raw.substr(0, raw.size() - line_end.size()));
    property = ReplaceAll(property, "\n ", "");
    size_t colon = ValueColon(property);
    if (colon == std::string::npos || !HasEightBit(std::string_view(property).substr(colon))) {
      out.append(raw);
      continue;
    }
    out.append(property, 0, colon);
    out.append(kQpParameter);
    out.append(kUtf8Parameter);
    out.push_back(':');
    QPEncodeWord(std::string_view(property).substr(colon + 1), &out);
    out.append(line_end);
  }
  return out;
}

std::string DecodeCalendarText(std::string_view text) {
  const std::string_view line_end = text.find("\r\n") != std::string_view::npos ? "\r\n" : "\n";
  std::string folded_break = "\\n";
  folded_break.append(line_end);
  folded_break.push_back('\t');
  std::string out;
  out.reserve(text.size());
  size_t pos = 0;
  while (pos < text.size()) {
    size_t start = pos;
    std::string_view content;
    pos = TakeLine(text, pos, &content);
    size_t colon = ValueColon(content);
    if (colon == std::string_view::npos ||
        FindNoCase(content.substr(0, colon), kQpParameter.substr(1)) == std::string_view::npos) {
      out.append(text.substr(start, pos - start));
      continue;
    }
    // A value ending in "=" goes on over the next line.
    std::string_view last = content;
    while (last.ends_with("=") && pos < text.size()) pos = TakeLine(text, pos, &last);
    std::string_view property = text.substr(start, pos - start);
    std::string_view value = property.substr(colon + 1);
    while (value.ends_with("\n") || value.ends_with("\r")) value.remove_suffix(1);
    std::string name(property.substr(0, colon));
    EraseNoCase(&name, kQpParameter);
    EraseNoCase(&name, kUtf8Parameter);
    out.append(name);
    out.push_back(':');
    out.append(ReplaceAll(QPDecode(value), "\r\n", folded_break));
    if (property.ends_with("\n")) out.append(line_end);
  }
  return out;
}

bool IsValidUTF8(std::string_view text, std::string* copy) {
  if (copy) copy->assign(text);
  const unsigned char* p = reinterpret_cast<const unsigned char*>(text.data());
  const size_t n = text.size();
  size_t i = 0;
  auto trail = [&](size_t at, unsigned char lo, unsigned char hi) {
    return at < n && p[at] >= lo && p[at] <= hi;
  };
  while (i < n) {
    unsigned char c = p[i];
    if (c < 0x80) {
      if (!(c == '\t' || c == '\n' || c == '\r' || (c >= 32 && c <= 126))) return false;
      ++i;
    } else if (c >= 0xC2 && c <= 0xDF) {
      if (!trail(i + 1, 0x80, 0xBF)) return false;
      i += 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
      unsigned char lo = c == 0xE0 ? 0xA0 : 0x80;
      unsigned char hi = c == 0xED ? 0x9F : 0xBF;
      if (!trail(i + 1, lo, hi) || !trail(i + 2, 0x80, 0xBF)) return false;
      i += 3;
    } else if (c >= 0xF0 && c <= 0xF4) {
      unsigned char lo = c == 0xF0 ? 0x90 : 0x80;
      unsigned char hi = c == 0xF4 ? 0x8F : 0xBF;
      if (!trail(i + 1, lo, hi) || !trail(i + 2, 0x80, 0xBF) || !trail(i + 3, 0x80, 0xBF)) {
        return false;
      }
      i += 4;
    } else {
      return false;
    }
  }
  return true;
}

}  // namespace qaaisp
