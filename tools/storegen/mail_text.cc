// The small text forms of generated mail: encoded words, dates and base64
// folded as mail carries it.
#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>

#include "base/base64.h"
#include "base/encoded_words.h"
#include "base/quoted_printable.h"
#include "storegen/mail_text.h"
#include "storegen/message_generator.h"

namespace qaaisp::storegen {
namespace {

// An encoded word may not exceed 75 characters, delimiters included.
constexpr size_t kMaxWordLength = 75;

bool IsAscii(std::string_view text) {
  for (unsigned char c : text) {
    if (c >= 0x80) return false;
  }
  return true;
}

// Length of the UTF-8 sequence that starts with lead (1 for a stray byte, so
// a walk always moves on).
size_t SequenceLength(unsigned char lead) {
  if (lead >= 0xF0 && lead < 0xF8) return 4;
  if (lead >= 0xE0) return lead < 0xF0 ? 3 : 1;
  if (lead >= 0xC0) return 2;
  return 1;
}

std::string EncodedWord(std::string_view utf8, std::string_view charset, bool base64) {
  std::string bytes;
  std::string name(charset);
  if (!ConvertCharset("UTF-8", utf8, &bytes, charset)) {
    bytes.assign(utf8);
    name = "UTF-8";
  }
  std::string word = "=?" + name + (base64 ? "?B?" : "?Q?");
  if (base64) {
    word += Base64EncodeToString(bytes);
  } else {
    QPEncodeWord(bytes, &word, kNoStop, true);
  }
  return word + "?=";
}

}  // namespace

std::string EncodeHeaderText(std::string_view utf8, std::string_view charset, bool base64) {
  if (IsAscii(utf8)) return std::string(utf8);
  // Whole characters go into each word, each converted on its own, so no
  // word ends inside a multi-byte character or a shift sequence.
  std::string out;
  std::string piece_word;
  size_t start = 0;
  size_t end = 0;
  while (end < utf8.size()) {
    size_t next =
        std::min(utf8.size(), end + SequenceLength(static_cast<unsigned char>(utf8[end])));
    std::string candidate = EncodedWord(utf8.substr(start, next - start), charset, base64);
    if (candidate.size() > kMaxWordLength && end > start) {
      if (!out.empty()) out += "\r\n ";
      out += piece_word;
      start = end;
      piece_word = EncodedWord(utf8.substr(start, next - start), charset, base64);
    } else {
      piece_word = std::move(candidate);
    }
    end = next;
  }
  if (!out.empty()) out += "\r\n ";
  return out + piece_word;
}

std::string FoldedBase64(std::string_view bytes) {
  const std::string flat = Base64EncodeToString(bytes);
  std::string folded;
  folded.reserve(flat.size() + flat.size() / 38 + 2);
  for (size_t i = 0; i < flat.size(); i += 76) {
    folded.append(flat, i, 76);
    folded += "\r\n";
  }
  return folded;
}

CivilTime ToCivil(int64_t unix_seconds) {
  // Days from 1970-01-01 to a proleptic Gregorian date (Howard Hinnant's
  // algorithm, inverted), so no time zone of the machine plays a part.
  int64_t days = unix_seconds / 86400;
  int64_t rest = unix_seconds % 86400;
  if (rest < 0) {
    rest += 86400;
    --days;
  }
  CivilTime t;
  t.weekday = static_cast<int>((days % 7 + 11) % 7);  // 1970-01-01 was a Thursday
  days += 719468;
  const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const int64_t doe = days - era * 146097;
  const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const int64_t mp = (5 * doy + 2) / 153;
  t.day = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
  t.month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  t.year = static_cast<int>(yoe + era * 400 + (t.month <= 2 ? 1 : 0));
  t.hour = static_cast<int>(rest / 3600);
  t.minute = static_cast<int>(rest / 60 % 60);
  t.second = static_cast<int>(rest % 60);
  return t;
}

std::string MailDate(int64_t unix_seconds, int zone_minutes, uint32_t form) {
  static const char* const kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  static const char* const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  const CivilTime t = ToCivil(unix_seconds + int64_t{zone_minutes} * 60);
  char zone[40];
  const int magnitude = zone_minutes < 0 ? -zone_minutes : zone_minutes;
  std::snprintf(zone, sizeof zone, "%c%02d%02d", zone_minutes < 0 ? '-' : '+', magnitude / 60,
                magnitude % 60);
  std::string zone_text = zone;
  // Obsolete zone names, which senders still write.
  if (form % 5 == 3) {
    if (zone_minutes == 0) zone_text = "GMT";
    if (zone_minutes == -300) zone_text = "EST";
    if (zone_minutes == -480) zone_text = "PST";
  }
  char text[96];
  switch (form % 5) {
    case 1:  // with a comment naming the zone
      std::snprintf(text, sizeof text, "%s, %02d %s %d %02d:%02d:%02d %s (%s)", kDays[t.weekday],
                    t.day, kMonths[t.month - 1], t.year, t.hour, t.minute, t.second,
                    zone_text.c_str(), zone_minutes == 60 ? "CET" : "UTC");
      break;
    case 2:  // no day name
      std::snprintf(text, sizeof text, "%d %s %d %02d:%02d:%02d %s", t.day, kMonths[t.month - 1],
                    t.year, t.hour, t.minute, t.second, zone_text.c_str());
      break;
    case 4:  // no seconds
      std::snprintf(text, sizeof text, "%s, %d %s %d %02d:%02d %s", kDays[t.weekday], t.day,
                    kMonths[t.month - 1], t.year, t.hour, t.minute, zone_text.c_str());
      break;
    default:
      std::snprintf(text, sizeof text, "%s, %d %s %d %02d:%02d:%02d %s", kDays[t.weekday], t.day,
                    kMonths[t.month - 1], t.year, t.hour, t.minute, t.second, zone_text.c_str());
      break;
  }
  return text;
}

std::string CalendarStamp(int64_t unix_seconds) {
  const CivilTime t = ToCivil(unix_seconds);
  char text[24];
  std::snprintf(text, sizeof text, "%04d%02d%02dT%02d%02d%02d", t.year, t.month, t.day, t.hour,
                t.minute, t.second);
  return text;
}

std::string EscapeHtml(std::string_view text) {
  std::string out;
  out.reserve(text.size() + 16);
  for (char c : text) {
    switch (c) {
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '&':
        out += "&amp;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

}  // namespace qaaisp::storegen
