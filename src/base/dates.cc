#include "base/dates.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <limits>

#include "platform/env.h"
#include "platform/local_time.h"

namespace qaaisp {

using platform::FileTime;

namespace {

constexpr int64_t kTicksPerDay = 864000000000;
constexpr int64_t kTicksPerMinute = 600000000;
// Days from 1601-01-01 to 1970-01-01.
constexpr int64_t kDaysTo1970 = 134774;
constexpr const char* kMonthNames[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                       "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr const char* kDayNames[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};

// The number in the count characters at pos of a text of the given length;
// positions past its end read as nothing.
int32_t FieldAt(const char* text, size_t length, size_t pos, size_t count) {
  if (pos >= length) return 0;
  return LeadingDecimal(std::string_view(text + pos, std::min(count, length - pos)));
}

// Minutes of an offset text: "+hhmm", "-hh:mm", "+hh" or "Z". Anything else
// counts as no offset.
int32_t OffsetMinutes(const char* text) {
  while (*text == ' ' || *text == '\t') ++text;
  int32_t sign = 1;
  if (*text == '+' || *text == '-') sign = *text++ == '-' ? -1 : 1;
  int32_t digits[4];
  int count = 0;
  for (; *text != '\0' && count < 4; ++text) {
    if (*text >= '0' && *text <= '9') {
      digits[count++] = *text - '0';
    } else if (*text != ':' || count != 2) {
      break;
    }
  }
  int32_t hours = 0;
  int32_t minutes = 0;
  if (count == 1 || count == 2) {
    hours = count == 1 ? digits[0] : digits[0] * 10 + digits[1];
  } else if (count == 3) {
    hours = digits[0];
    minutes = digits[1] * 10 + digits[2];
  } else if (count == 4) {
    hours = digits[0] * 10 + digits[1];
    minutes = digits[2] * 10 + digits[3];
  }
  return sign * (hours * 60 + minutes);
}

bool SystemTimeFromUnix(int64_t seconds, SystemTime* out) {
  const int64_t limit = (std::numeric_limits<int64_t>::max() - int64_t{platform::kUnixEpochTicks}) /
                        int64_t{platform::kTicksPerSecond};
  if (seconds > limit ||
      seconds < -int64_t{platform::kUnixEpochTicks / platform::kTicksPerSecond}) {
    return false;
  }
  const int64_t ticks = static_cast<int64_t>(platform::kUnixEpochTicks) +
                        seconds * static_cast<int64_t>(platform::kTicksPerSecond);
  return SystemTimeFromFileTime(FileTime::FromTicks(static_cast<uint64_t>(ticks)), out);
}

}  // namespace

int32_t LeadingDecimal(std::string_view text) {
  size_t i = 0;
  while (i < text.size() && (text[i] == ' ' || (text[i] >= '\t' && text[i] <= '\r'))) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  int64_t value = 0;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    value = std::min<int64_t>(value * 10 + (text[i] - '0'), int64_t{1} << 32);
  }
  if (negative) value = -value;
  return static_cast<int32_t>(std::clamp<int64_t>(value, std::numeric_limits<int32_t>::min(),
                                                  std::numeric_limits<int32_t>::max()));
}

bool SystemTimeFromFileTime(FileTime file_time, SystemTime* out) {
  const uint64_t ticks = file_time.ticks();
  if (ticks >= (uint64_t{1} << 63)) return false;
  const int64_t days = static_cast<int64_t>(ticks / kTicksPerDay);
  const int64_t rest = static_cast<int64_t>(ticks % kTicksPerDay);
  const std::chrono::sys_days date{std::chrono::days{days - kDaysTo1970}};
  const std::chrono::year_month_day ymd{date};
  out->year = static_cast<int32_t>(ymd.year());
  out->month = static_cast<int32_t>(static_cast<unsigned>(ymd.month()));
  out->day = static_cast<int32_t>(static_cast<unsigned>(ymd.day()));
  out->day_of_week = static_cast<int32_t>(std::chrono::weekday{date}.c_encoding());
  out->hour = static_cast<int32_t>(rest / (60 * kTicksPerMinute));
  out->minute = static_cast<int32_t>(rest / kTicksPerMinute % 60);
  out->second = static_cast<int32_t>(rest / 10000000 % 60);
  out->milliseconds = static_cast<int32_t>(rest / 10000 % 1000);
  return true;
}

bool FileTimeFromSystemTime(const SystemTime& time, FileTime* out) {
  if (time.year < 1601 || time.year > 30827 || time.month < 1 || time.month > 12 || time.day < 1 ||
      time.hour < 0 || time.hour > 23 || time.minute < 0 || time.minute > 59 || time.second < 0 ||
      time.second > 59 || time.milliseconds < 0 || time.milliseconds > 999) {
    return false;
  }
  const std::chrono::year_month_day ymd{std::chrono::year{time.year},
                                        std::chrono::month{static_cast<unsigned>(time.month)},
                                        std::chrono::day{static_cast<unsigned>(time.day)}};
  if (!ymd.ok()) return false;
  const int64_t days = std::chrono::sys_days{ymd}.time_since_epoch().count() + kDaysTo1970;
  const int64_t ticks = days * kTicksPerDay + time.hour * 60 * kTicksPerMinute +
                        time.minute * kTicksPerMinute + time.second * int64_t{10000000} +
                        time.milliseconds * int64_t{10000};
  *out = FileTime::FromTicks(static_cast<uint64_t>(ticks));
  return true;
}

FileTime UnixTimeToFileTime(int32_t seconds) {
  return FileTime::FromTicks(
      static_cast<uint64_t>(static_cast<int64_t>(platform::kUnixEpochTicks) +
                            int64_t{seconds} * static_cast<int64_t>(platform::kTicksPerSecond)));
}

int64_t UnixTimeFromFileTime(FileTime file_time) {
  // Signed, so a time before 1970 truncates towards zero instead of wrapping.
  return (static_cast<int64_t>(file_time.ticks()) -
          static_cast<int64_t>(platform::kUnixEpochTicks)) /
         static_cast<int64_t>(platform::kTicksPerSecond);
}

int ParseCalendarDate(const char* text, FileTime* out, const char* offset, int direction) {
  if (text == nullptr) return 0;
  const size_t length = std::strlen(text);
  char work[128] = {};
  std::string_view source(text, length);
  std::string yearless;
  if (text[0] == '-' && length < sizeof work) {
    // A date without a year ("--0412") gets the leap year 1604.
    yearless = "1604";
    if (length == 5 || length == 12) {
      yearless.append(source.substr(0, 3)).append("-").append(source.substr(3));
    } else {
      yearless.append(source);
    }
    source = yearless;
  }
  std::memcpy(work, source.data(), std::min(source.size(), sizeof work - 1));
  if (work[4] == '-') {
    // Extended form to basic: drop the date's two dashes and every colon.
    size_t kept = 0;
    int dashes = 0;
    for (size_t i = 0; work[i] != '\0'; ++i) {
      if (work[i] == ':' || (work[i] == '-' && dashes++ < 2)) continue;
      work[kept++] = work[i];
    }
    std::memset(work + kept, 0, sizeof work - kept);
  }
  // A year must begin with 1 to 4; the replacements are too short to pass.
  if (work[0] < '1') {
    std::snprintf(work, sizeof work, "1602");
  } else if (work[0] > '4') {
    std::snprintf(work, sizeof work, "4499");
  }
  const size_t work_length = std::strlen(work);
  if (work_length < 8) return 0;

  SystemTime time;
  if (length >= 10) {
    time.second = FieldAt(work, work_length, 13, 2);
    time.minute = FieldAt(work, work_length, 11, 2);
    time.hour = FieldAt(work, work_length, 9, 2);
    if (offset == nullptr) {
      const char* sign = std::strchr(text, '+');
      if (sign == nullptr) sign = std::strchr(text, '-');
      if (sign != nullptr && std::strlen(sign) <= 5) offset = sign;
    }
  }
  time.day = FieldAt(work, work_length, 6, 2);
  time.month = FieldAt(work, work_length, 4, 2);
  time.year = FieldAt(work, work_length, 0, 4);
  FileTime file_time;
  if (!FileTimeFromSystemTime(time, &file_time)) return 0;
  int64_t ticks = static_cast<int64_t>(file_time.ticks());
  if (offset != nullptr) {
    int64_t minutes = OffsetMinutes(offset);
    if (direction == 1) minutes = -minutes;
    ticks = std::max<int64_t>(0, ticks + minutes * kTicksPerMinute);
  }
  *out = FileTime::FromTicks(static_cast<uint64_t>(ticks));
  return 1;
}

void ParseExtendedDate(const char* text, FileTime* out) {
  if (text == nullptr) return;
  const size_t length = std::strlen(text);
  if (length < 9) return;
  SystemTime time;
  if (length >= 19) {
    time.second = FieldAt(text, length, 17, 2);
    time.minute = FieldAt(text, length, 14, 2);
    time.hour = FieldAt(text, length, 11, 2);
  }
  time.day = FieldAt(text, length, 8, 2);
  time.month = FieldAt(text, length, 5, 2);
  time.year = FieldAt(text, length, 0, 4);
  FileTime file_time;
  if (FileTimeFromSystemTime(time, &file_time)) *out = file_time;
}

int FormatExtendedDate(FileTime file_time, char* out, size_t out_size) {
  SystemTime t;
  if (!SystemTimeFromFileTime(file_time, &t)) return 0;
  std::snprintf(out, out_size, "%4d-%02d-%02dT%02d:%02d:%02d", t.year,
                t.month < 1 || t.month > 12 ? 1 : t.month, t.day < 1 || t.day > 31 ? 1 : t.day,
                t.hour, t.minute, t.second);
  return 1;
}

int FormatBasicDate(const SystemTime& t, char* out, size_t out_size) {
  std::snprintf(
      out, out_size, "%4d%02d%02dT%02d%02d%02d", t.year < 1 || t.year > 9999 ? 1601 : t.year,
      t.month < 1 || t.month > 12 ? 1 : t.month, t.day < 1 || t.day > 31 ? 1 : t.day,
      t.hour >= 25 ? 0 : t.hour, t.minute >= 60 ? 0 : t.minute, t.second >= 60 ? 0 : t.second);
  return 1;
}

void FormatClockDate(int64_t unix_seconds, char* out, size_t out_size) {
  if (out == nullptr || out_size == 0) return;
  SystemTime t;
  if (!SystemTimeFromUnix(unix_seconds, &t)) {
    out[0] = '\0';
    return;
  }
  const char* month = kMonthNames[t.month - 1];
  if (t.second == 0) {
    std::snprintf(out, out_size, "%02d:%02d %02d %s, %4d", t.hour, t.minute, t.day, month, t.year);
  } else {
    std::snprintf(out, out_size, "%02d:%02d:%02d %02d %s, %4d", t.hour, t.minute, t.second, t.day,
                  month, t.year);
  }
}

std::string CurrentHeaderDate() {
  const int64_t now = UnixTimeFromFileTime(platform::Env::Default()->NowFileTime());
  platform::LocalFields t;
  if (!platform::LocalTimeOf(now, &t)) return {};
  // The bias is minutes west of UTC; adding 40 per whole hour turns it into
  // hhmm digits, and the sign flips to the header's east-positive sense.
  const int32_t bias = -t.utc_offset / 60;
  const int32_t zone = -(bias + 40 * (bias / 60));
  char date[64];
  char clock[32];
  char text[128];
  std::snprintf(date, sizeof date, "%s, %d %s %04d", kDayNames[t.day_of_week % 7], t.day,
                kMonthNames[(t.month + 11) % 12], t.year);
  std::snprintf(clock, sizeof clock, "%02d:%02d:%02d", t.hour, t.minute, t.second);
  if (zone < 0) {
    std::snprintf(text, sizeof text, "%s %s %4.4d", date, clock, zone);
  } else {
    std::snprintf(text, sizeof text, "%s %s %c%4.4d", date, clock, '+', zone);
  }
  return text;
}

uint32_t MeasureFileAge(FileTime file_time, int32_t unit) {
  const uint64_t now = platform::Env::Default()->NowFileTime().ticks();
  // A file time in the future wraps past 2^63 and fails the conversion.
  SystemTime age;
  if (!SystemTimeFromFileTime(FileTime::FromTicks(now - file_time.ticks()), &age)) return 0;
  const int64_t years = age.year - 1601;
  // Elapsed days count from zero; the month unit keeps the raw month field.
  const int64_t days = years * 365 + (age.month - 1) * 30 + (age.day - 1);
  const int64_t hours = days * 24 + age.hour;
  const int64_t minutes = hours * 60 + age.minute;
  const int64_t seconds = minutes * 60 + age.second;
  switch (unit) {
    case kAgeYears:
      return static_cast<uint32_t>(years);
    case kAgeMonths:
      return static_cast<uint32_t>(years * 12 + age.month);
    case kAgeDays:
      return static_cast<uint32_t>(days);
    case kAgeHours:
      return static_cast<uint32_t>(hours);
    case kAgeMinutes:
      return static_cast<uint32_t>(minutes);
    case kAgeSeconds:
      return static_cast<uint32_t>(seconds);
    case kAgeMilliseconds:
      return static_cast<uint32_t>(seconds * 1000 + age.milliseconds);
    default:
      return 0;
  }
}

}  // namespace qaaisp
