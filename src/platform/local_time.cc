#include "platform/local_time.h"

#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <cstring>
#include <limits>
#include <string>

namespace qaaisp::platform {
namespace {

constexpr int64_t kSecondsPerDay = 86400;

// Fails where the year does not fit the fields, which a normalised or far
// distant time can reach.
bool FromTm(const struct tm& tm, LocalFields* out) {
  if (tm.tm_year > std::numeric_limits<int32_t>::max() - 1900) return false;
  out->year = tm.tm_year + 1900;
  out->month = tm.tm_mon + 1;
  out->day = tm.tm_mday;
  out->hour = tm.tm_hour;
  out->minute = tm.tm_min;
  out->second = tm.tm_sec;
  out->day_of_week = tm.tm_wday;
  out->is_dst = tm.tm_isdst > 0 ? 1 : 0;
  out->utc_offset = static_cast<int32_t>(tm.tm_gmtoff);
  return true;
}

bool RealMakeLocalTime(LocalFields* fields, int64_t* unix_seconds) {
  if (fields->year < std::numeric_limits<int32_t>::min() + 1900) return false;
  struct tm tm = {};
  tm.tm_year = fields->year - 1900;
  tm.tm_mon = fields->month - 1;
  tm.tm_mday = fields->day;
  tm.tm_hour = fields->hour;
  tm.tm_min = fields->minute;
  tm.tm_sec = fields->second;
  tm.tm_isdst = fields->is_dst;
  // mktime's -1 is also a valid second; the weekday it fills tells success.
  tm.tm_wday = -1;
  const time_t t = ::mktime(&tm);
  if (tm.tm_wday < 0 || !FromTm(tm, fields)) return false;
  *unix_seconds = static_cast<int64_t>(t);
  return true;
}

bool RealLocalTimeOf(int64_t unix_seconds, LocalFields* out) {
  if (unix_seconds > std::numeric_limits<time_t>::max() ||
      unix_seconds < std::numeric_limits<time_t>::min()) {
    return false;
  }
  const time_t t = static_cast<time_t>(unix_seconds);
  struct tm tm = {};
  return ::localtime_r(&t, &tm) != nullptr && FromTm(tm, out);
}

int64_t FloorDiv(int64_t a, int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }

// Days since 1970-01-01 of a proleptic Gregorian date, and back.
int64_t DaysFromCivil(int64_t y, int64_t m, int64_t d) {
  y -= m <= 2;
  const int64_t era = FloorDiv(y, 400);
  const int64_t yoe = y - era * 400;
  const int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468;
}

// The fields of a moment whose local clock reads local_seconds since the
// epoch, with no zone rules involved.
void FieldsOfClock(int64_t local_seconds, LocalFields* out) {
  const int64_t days = FloorDiv(local_seconds, kSecondsPerDay);
  const int64_t secs = local_seconds - days * kSecondsPerDay;
  const int64_t z = days + 719468;
  const int64_t era = FloorDiv(z, 146097);
  const int64_t doe = z - era * 146097;
  const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const int64_t mp = (5 * doy + 2) / 153;
  const int64_t month = mp < 10 ? mp + 3 : mp - 9;
  out->year = static_cast<int32_t>(yoe + era * 400 + (month <= 2));
  out->month = static_cast<int32_t>(month);
  out->day = static_cast<int32_t>(doy - (153 * mp + 2) / 5 + 1);
  out->hour = static_cast<int32_t>(secs / 3600);
  out->minute = static_cast<int32_t>(secs / 60 % 60);
  out->second = static_cast<int32_t>(secs % 60);
  // 1970-01-01 was a Thursday.
  out->day_of_week = static_cast<int32_t>(days + 4 - FloorDiv(days + 4, 7) * 7);
}

bool SameFields(const LocalFields& a, const LocalFields& b) {
  return a.year == b.year && a.month == b.month && a.day == b.day && a.hour == b.hour &&
         a.minute == b.minute && a.second == b.second && a.day_of_week == b.day_of_week;
}

int DaysInMonth(int32_t year, int32_t month) {
  static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return month == 2 && leap ? 29 : kDays[month - 1];
}

// One day on which the zone's rules stand still: no change of offset or of
// daylight time from its first second to its last. Within it a moment and
// its local fields are plain arithmetic apart.
struct CalmDay {
  int64_t key = std::numeric_limits<int64_t>::min();
  bool calm = false;
  int64_t first_second = 0;  // the day's first moment (local days: mktime's reading)
  int32_t utc_offset = 0;
  int32_t is_dst = 0;
};

// The zone's rules are looked up once per day a thread meets, rather than
// at every conversion (mktime without TZ even reads the zone file again each
// time). A change of TZ empties the cache.
class ZoneCache {
 public:
  static constexpr size_t kDays = 512;

  // Makes sure the entries were made under the zone in force now.
  void Check() {
    // A TZ found before is most often still the same entry in the same
    // place, which is cheaper to confirm than a search of the environment.
    char** const env = environ;
    if (primed_ && tz_set_ && env == env_ && env[tz_index_] == tz_entry_ && tz_ == tz_entry_ + 3) {
      return;
    }
    const char* tz = FindTz(env);
    const bool set = tz != nullptr;
    if (primed_ && set == tz_set_ && (!set || tz_ == tz)) return;
    primed_ = true;
    tz_set_ = set;
    tz_ = set ? tz : "";
    for (CalmDay& day : local_days_) day = CalmDay();
    for (CalmDay& day : utc_days_) day = CalmDay();
  }

  // The local calendar day y-m-d as mktime reads it with daylight time off.
  const CalmDay& LocalDay(int32_t year, int32_t month, int32_t day) {
    const int64_t key = DaysFromCivil(year, month, day);
    CalmDay& entry = local_days_[static_cast<uint64_t>(key) % kDays];
    if (entry.key == key) return entry;
    entry = CalmDay();
    entry.key = key;
    LocalFields first{year, month, day, 0, 0, 0, 0, 0, 0};
    LocalFields last{year, month, day, 23, 59, 59, 0, 0, 0};
    int64_t t0 = 0;
    int64_t t1 = 0;
    if (!RealMakeLocalTime(&first, &t0) || !RealMakeLocalTime(&last, &t1)) return entry;
    LocalFields check;
    FieldsOfClock(t0 + first.utc_offset, &check);
    const bool first_ok = SameFields(check, first);
    FieldsOfClock(t1 + last.utc_offset, &check);
    entry.calm = first_ok && SameFields(check, last) && t1 - t0 == kSecondsPerDay - 1 &&
                 first.is_dst == last.is_dst && first.utc_offset == last.utc_offset;
    entry.first_second = t0;
    entry.utc_offset = first.utc_offset;
    entry.is_dst = first.is_dst;
    return entry;
  }

  // The UTC day that holds unix_seconds, as localtime reads it.
  const CalmDay& UtcDay(int64_t unix_seconds) {
    const int64_t key = FloorDiv(unix_seconds, kSecondsPerDay);
    CalmDay& entry = utc_days_[static_cast<uint64_t>(key) % kDays];
    if (entry.key == key) return entry;
    entry = CalmDay();
    entry.key = key;
    const int64_t t0 = key * kSecondsPerDay;
    const int64_t t1 = t0 + kSecondsPerDay - 1;
    LocalFields first;
    LocalFields last;
    if (!RealLocalTimeOf(t0, &first) || !RealLocalTimeOf(t1, &last)) return entry;
    LocalFields check;
    FieldsOfClock(t0 + first.utc_offset, &check);
    const bool first_ok = SameFields(check, first);
    FieldsOfClock(t1 + last.utc_offset, &check);
    entry.calm = first_ok && SameFields(check, last) && first.is_dst == last.is_dst &&
                 first.utc_offset == last.utc_offset;
    entry.first_second = t0;
    entry.utc_offset = first.utc_offset;
    entry.is_dst = first.is_dst;
    return entry;
  }

 private:
  // The value of the first "TZ=" entry, as getenv finds it, noting where it
  // stands.
  const char* FindTz(char** env) {
    env_ = env;
    tz_entry_ = nullptr;
    for (size_t i = 0; env != nullptr && env[i] != nullptr; ++i) {
      if (env[i][0] == 'T' && env[i][1] == 'Z' && env[i][2] == '=') {
        tz_index_ = i;
        tz_entry_ = env[i];
        return env[i] + 3;
      }
    }
    return nullptr;
  }

  bool primed_ = false;
  bool tz_set_ = false;
  std::string tz_;
  char** env_ = nullptr;
  size_t tz_index_ = 0;
  const char* tz_entry_ = nullptr;
  CalmDay local_days_[kDays];
  CalmDay utc_days_[kDays];
};

ZoneCache& Cache() {
  thread_local ZoneCache cache;
  return cache;
}

// Fields that name one existing second of an ordinary day, which the cache
// can answer; anything mktime would first have to normalise goes to it.
bool Canonical(const LocalFields& f) {
  return f.is_dst == 0 && f.year >= 1900 && f.year <= 9999 && f.month >= 1 && f.month <= 12 &&
         f.day >= 1 && f.day <= DaysInMonth(f.year, f.month) && f.hour >= 0 && f.hour <= 23 &&
         f.minute >= 0 && f.minute <= 59 && f.second >= 0 && f.second <= 59;
}

}  // namespace

bool MakeLocalTime(LocalFields* fields, int64_t* unix_seconds) {
  if (!Canonical(*fields)) return RealMakeLocalTime(fields, unix_seconds);
  ZoneCache& cache = Cache();
  cache.Check();
  const CalmDay& day = cache.LocalDay(fields->year, fields->month, fields->day);
  if (!day.calm) return RealMakeLocalTime(fields, unix_seconds);
  const int64_t t =
      day.first_second + fields->hour * 3600 + fields->minute * 60 + int64_t{fields->second};
  FieldsOfClock(t + day.utc_offset, fields);
  fields->is_dst = day.is_dst;
  fields->utc_offset = day.utc_offset;
  *unix_seconds = t;
  return true;
}

bool LocalTimeOf(int64_t unix_seconds, LocalFields* out) {
  if (unix_seconds > std::numeric_limits<time_t>::max() ||
      unix_seconds < std::numeric_limits<time_t>::min()) {
    return false;
  }
  ZoneCache& cache = Cache();
  cache.Check();
  const CalmDay& day = cache.UtcDay(unix_seconds);
  if (!day.calm) return RealLocalTimeOf(unix_seconds, out);
  FieldsOfClock(unix_seconds + day.utc_offset, out);
  out->is_dst = day.is_dst;
  out->utc_offset = day.utc_offset;
  return true;
}

}  // namespace qaaisp::platform
