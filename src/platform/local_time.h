// Broken-down local time in the process time zone (TZ), the counterpart of
// the C runtime's mktime and localtime. Only this layer includes the C time
// headers.
#pragma once

#include <cstdint>

namespace qaaisp::platform {

struct LocalFields {
  int32_t year = 1970;  // full year
  int32_t month = 1;    // 1-12
  int32_t day = 1;      // 1-31
  int32_t hour = 0;
  int32_t minute = 0;
  int32_t second = 0;
  int32_t day_of_week = 0;  // 0 Sunday
  // In: whether the fields are daylight time (mktime's flag; -1 lets the
  // zone decide). Out: whether daylight time is in effect.
  int32_t is_dst = 0;
  // Out: seconds east of UTC in effect at that moment.
  int32_t utc_offset = 0;
};

// mktime: the fields as local time, normalised as mktime does (a 24th hour
// is the next day's first). False if the result is not representable; fields
// then keep what they were given.
bool MakeLocalTime(LocalFields* fields, int64_t* unix_seconds);

// localtime_r. False if the seconds cannot be converted.
bool LocalTimeOf(int64_t unix_seconds, LocalFields* out);

}  // namespace qaaisp::platform
