// NormaliseHeaderDate: a message's Date header to "YYYY-MM-DDTHH:MM:SS".
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/dates.h"
#include "base/xml_data.h"
#include "platform/local_time.h"
#include "platform/path_case.h"

namespace qaaisp {

namespace {

constexpr size_t kFieldSize = 32;
// The widest span the clock of the header dates covers: 1970-01-01 to
// 3000-12-31 23:59:59 UTC. Outside it a date takes the fallback form.
constexpr int64_t kLatestSecond = 32535215999;

struct HeaderFields {
  char day[kFieldSize] = {};
  char month[kFieldSize] = {};
  char year[kFieldSize] = {};
  char hour[kFieldSize] = {};
  char minute[kFieldSize] = {};
  char second[kFieldSize] = {};
  char zone[kFieldSize] = {};
  // The usual form's numeric fields, all digits, read as they are cut;
  // valid when numbers_read.
  bool numbers_read = false;
  int32_t day_number = 0;
  int32_t year_number = 0;
  int32_t hour_number = 0;
  int32_t minute_number = 0;
  int32_t second_number = 0;
};

// Copies text into out as snprintf("%s") would: cut to out_size - 1 bytes
// and terminated. Dates are normalised once per header, so this runs often.
void CopyTerminated(const char* text, char* out, size_t out_size) {
  const size_t n = std::min(std::strlen(text), out_size - 1);
  std::memcpy(out, text, n);
  out[n] = '\0';
}

// "%04d-%02d-%02dT%02d:%02d:%02d" for fields already in range (a year of
// 0-9999, the others 0-99), without the cost of a format string.
void FormatIsoFields(const platform::LocalFields& t, char* out) {
  auto put = [&out](int32_t value, int digits) {
    for (int i = digits - 1; i >= 0; --i) {
      out[i] = static_cast<char>('0' + value % 10);
      value /= 10;
    }
    out += digits;
  };
  put(t.year, 4);
  *out++ = '-';
  put(t.month, 2);
  *out++ = '-';
  put(t.day, 2);
  *out++ = 'T';
  put(t.hour, 2);
  *out++ = ':';
  put(t.minute, 2);
  *out++ = ':';
  put(t.second, 2);
  *out = '\0';
}

bool InFormatRange(const platform::LocalFields& t) {
  auto two = [](int32_t v) { return v >= 0 && v <= 99; };
  return t.year >= 0 && t.year <= 9999 && two(t.month) && two(t.day) && two(t.hour) &&
         two(t.minute) && two(t.second);
}

// Cuts the tokens of a header date; false as soon as a delimiter is missing.
bool CutFields(const char* date, HeaderFields* f) {
  const char* p = date;
  const char* comma = std::strchr(date, ',');
  if (comma != nullptr && comma - date >= 2) {
    char weekday[kFieldSize];
    p = GetXMLDataEx(p, "", ",", weekday, kFieldSize);
    if (p != nullptr) p = GetXMLDataEx(p, " ", " ", f->day, kFieldSize);
    // An empty day means a doubled blank after the comma: cut once more.
    if (p != nullptr && f->day[0] == '\0') p = GetXMLDataEx(p, "", " ", f->day, kFieldSize);
  } else {
    p = GetXMLDataEx(p, "", " ", f->day, kFieldSize);
  }
  if (p == nullptr) return false;
  const struct {
    char* field;
    const char* end;
  } steps[] = {{f->month, " "}, {f->year, " "}, {f->hour, ":"}, {f->minute, ":"}, {f->second, " "}};
  for (const auto& step : steps) {
    p = GetXMLDataEx(p, "", step.end, step.field, kFieldSize);
    if (p == nullptr) return false;
  }
  if (std::strchr(p, ' ') == nullptr) {
    CopyTerminated(p, f->zone, kFieldSize);
  } else {
    GetXMLDataEx(p, "", " ", f->zone, kFieldSize);
  }
  return true;
}

// The usual form, "Tue, 14 Nov 2023 10:00:00 +0000" with or without its
// weekday, cut without the general cutter's searches into the very fields
// CutFields gives it. Anything else (a longer weekday, a comma further on,
// a doubled blank, a part missing or of another length) gives false and
// is left to CutFields.
bool CutUsualFields(const char* date, HeaderFields* f) {
  const auto letter = [](char c) {
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'z';
  };
  const auto digit = [](char c) { return c >= '0' && c <= '9'; };
  const char* p = date;
  const char* comma = std::strchr(date, ',');
  if (comma != nullptr) {
    if (comma != date + 3 || !letter(date[0]) || !letter(date[1]) || !letter(date[2]) ||
        date[4] != ' ') {
      return false;
    }
    p = date + 5;
  }
  const auto take = [&p](char* field, size_t least, size_t most, auto fits, char end) {
    size_t n = 0;
    while (n < most && fits(p[n])) ++n;
    if (n < least || p[n] != end) return false;
    std::memcpy(field, p, n);
    field[n] = '\0';
    p += n + 1;
    return true;
  };
  // A field of at most four digits, as LeadingDecimal reads it.
  const auto number = [](const char* field) {
    int32_t value = 0;
    for (; *field != '\0'; ++field) value = value * 10 + (*field - '0');
    return value;
  };
  if (!take(f->day, 1, 2, digit, ' ') || !take(f->month, 3, 3, letter, ' ') ||
      !take(f->year, 2, 4, digit, ' ') || !take(f->hour, 1, 2, digit, ':') ||
      !take(f->minute, 2, 2, digit, ':') || !take(f->second, 2, 2, digit, ' ')) {
    return false;
  }
  if (*p == ' ' || *p == '\0') return false;
  const char* blank = std::strchr(p, ' ');
  const size_t n =
      std::min(blank != nullptr ? static_cast<size_t>(blank - p) : std::strlen(p), kFieldSize - 1);
  std::memcpy(f->zone, p, n);
  f->zone[n] = '\0';
  f->day_number = number(f->day);
  f->year_number = number(f->year);
  f->hour_number = number(f->hour);
  f->minute_number = number(f->minute);
  f->second_number = number(f->second);
  f->numbers_read = true;
  return true;
}

// Month names "Jan" to "Nov", in any case, are 0 to 10; anything else,
// December. Compared three letters at a time: every date passes here.
int32_t MonthIndex(const char* name) {
  static constexpr char kNames[] = "janfebmaraprmayjunjulaugsepoctnov";
  if (name[0] == '\0' || name[1] == '\0' || name[2] == '\0' || name[3] != '\0') return 11;
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  const char folded[3] = {lower(name[0]), lower(name[1]), lower(name[2])};
  for (int32_t i = 0; i < 11; ++i) {
    if (std::memcmp(folded, kNames + 3 * i, 3) == 0) return i;
  }
  return 11;
}

}  // namespace

void NormaliseHeaderDate(const char* date, char* out, size_t out_size) {
  if (date == nullptr || out == nullptr || out_size == 0) return;
  HeaderFields f;
  if (!CutUsualFields(date, &f)) {
    f = HeaderFields{};
    if (!CutFields(date, &f)) return;
  }

  const bool read = f.numbers_read;
  int32_t year = read ? f.year_number : LeadingDecimal(f.year);
  // Two-digit years are always this century's: "99" is 2099.
  if (year < 1901) year += 2000;
  int32_t second = read ? f.second_number : LeadingDecimal(f.second);
  if (second >= 60) second = 0;
  int32_t minute = read ? f.minute_number : LeadingDecimal(f.minute);
  if (minute < 0 || minute > 59) minute = 0;
  int32_t hour = read ? f.hour_number : LeadingDecimal(f.hour);
  if (hour < 0 || hour > 24) hour = 0;
  int32_t day = read ? f.day_number : LeadingDecimal(f.day);
  if (day < 1 || day > 31) day = 1;
  const int32_t month = MonthIndex(f.month);

  // The fields are read as standard local time; where daylight time turns
  // out to apply, the hour the clock moved is taken back.
  platform::LocalFields local;
  local.year = year;
  local.month = month + 1;
  local.day = day;
  local.hour = hour;
  local.minute = minute;
  local.second = second;
  local.is_dst = 0;
  int64_t t = 0;
  bool valid = platform::MakeLocalTime(&local, &t) && t >= 0 && t <= kLatestSecond;
  if (valid && local.is_dst) t -= 3600;

  // Only the date's own offset moves it; the machine's zone is not
  // compensated for.
  if (valid && f.zone[0] != '\0') {
    const int32_t offset = platform::EqualsNoCase(f.zone, "GMT") ? 0 : LeadingDecimal(f.zone);
    const int64_t shifted = t - (int64_t{offset / 100} * 3600 + int64_t{offset % 100} * 60);
    if (shifted > 0) t = shifted;
  }
  if (valid) valid = t <= kLatestSecond && platform::LocalTimeOf(t, &local);

  char text[128];
  if (valid && InFormatRange(local)) {
    FormatIsoFields(local, text);
  } else if (valid) {
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d", local.year, local.month,
                  local.day, local.hour, local.minute, local.second);
  } else {
    // The raw fields. The month prints as its index, so January and
    // February are both 01; out-of-range years print 1601.
    const int32_t shown_year = year == 0 || (year >= 9999 && year != 9999) ? 1601 : year;
    std::snprintf(text, sizeof text, "%4d-%02d-%02dT%02d:%02d:%02d", shown_year,
                  month >= 1 && month <= 12 ? month : 1, day, hour, minute, second);
  }
  CopyTerminated(text, out, out_size);
}

}  // namespace qaaisp
