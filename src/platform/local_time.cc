#include "platform/local_time.h"

#include <time.h>

#include <limits>

namespace qaaisp::platform {

namespace {

void FromTm(const struct tm& tm, LocalFields* out) {
  out->year = tm.tm_year + 1900;
  out->month = tm.tm_mon + 1;
  out->day = tm.tm_mday;
  out->hour = tm.tm_hour;
  out->minute = tm.tm_min;
  out->second = tm.tm_sec;
  out->day_of_week = tm.tm_wday;
  out->is_dst = tm.tm_isdst > 0 ? 1 : 0;
  out->utc_offset = static_cast<int32_t>(tm.tm_gmtoff);
}

}  // namespace

bool MakeLocalTime(LocalFields* fields, int64_t* unix_seconds) {
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
  if (tm.tm_wday < 0) return false;
  FromTm(tm, fields);
  *unix_seconds = static_cast<int64_t>(t);
  return true;
}

bool LocalTimeOf(int64_t unix_seconds, LocalFields* out) {
  if (unix_seconds > std::numeric_limits<time_t>::max() ||
      unix_seconds < std::numeric_limits<time_t>::min()) {
    return false;
  }
  const time_t t = static_cast<time_t>(unix_seconds);
  struct tm tm = {};
  if (::localtime_r(&t, &tm) == nullptr) return false;
  FromTm(tm, out);
  return true;
}

}  // namespace qaaisp::platform
