// The date forms of the store: a message's Date header, the basic and
// extended ISO forms of vCard and iCalendar, file times and Unix seconds.
// Every routine repairs what it can instead of refusing, so an item with a
// broken date still gets a row.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/file_time.h"

namespace qaaisp {

// Broken-down UTC time with the field ranges of a Windows SYSTEMTIME:
// month 1-12, day_of_week 0 (Sunday) to 6.
struct SystemTime {
  int32_t year = 0;
  int32_t month = 0;
  int32_t day_of_week = 0;
  int32_t day = 0;
  int32_t hour = 0;
  int32_t minute = 0;
  int32_t second = 0;
  int32_t milliseconds = 0;
};

// Conversions between file times and SystemTime, with the ranges the store
// has always accepted: a file time of 2^63 ticks or more, or a SystemTime
// outside years 1601-30827 or with any field out of range (a 30 February,
// hour 24), fails.
bool SystemTimeFromFileTime(platform::FileTime file_time, SystemTime* out);
bool FileTimeFromSystemTime(const SystemTime& time, platform::FileTime* out);

// The leading decimal number of text as atoi reads it (white space, a sign,
// digits), saturated to the int32 range; 0 if there is none.
int32_t LeadingDecimal(std::string_view text);

// Unix seconds to a file time and back (whole seconds, truncated).
platform::FileTime UnixTimeToFileTime(int32_t seconds);
int64_t UnixTimeFromFileTime(platform::FileTime file_time);

// Rewrites a Date header text as "YYYY-MM-DDTHH:MM:SS", shifted by the
// header's own zone offset only; on dates the clock cannot hold, the raw
// fields with their clamps. A text too short to hold every field leaves out
// untouched. out_size counts the terminator.
void NormaliseHeaderDate(const char* date, char* out, size_t out_size);

// Reads a basic or extended ISO date ("20230101T120000-0500", "2023-01-01",
// "--0412") into a file time. offset overrides the text's own "+hhmm"/"-hhmm"
// tail; with direction 1 the offset is subtracted (local to UTC), otherwise
// added. Returns 1, or 0 if the text is no date.
int ParseCalendarDate(const char* text, platform::FileTime* out, const char* offset, int direction);

// Reads "YYYY-MM-DDTHH:MM:SS" (the time part optional); a text too short or
// out of range leaves out as it was.
void ParseExtendedDate(const char* text, platform::FileTime* out);

// "YYYY-MM-DDTHH:MM:SS". Returns 1, or 0 if the file time can't be converted.
int FormatExtendedDate(platform::FileTime file_time, char* out, size_t out_size);

// "YYYYMMDDTHHMMSS", each field clamped into a printable range. Returns 1.
int FormatBasicDate(const SystemTime& time, char* out, size_t out_size);

// "HH:MM:SS DD Mon, YYYY" in UTC, or "HH:MM DD Mon, YYYY" when the seconds
// are zero.
void FormatClockDate(int64_t unix_seconds, char* out, size_t out_size);

// The current local time as a Date header value, "Mon, 2 Jan 2006 10:00:00
// +0100". "Now" comes from the default Env.
std::string CurrentHeaderDate();

// Units of MeasureFileAge.
enum FileAgeUnit : int32_t {
  kAgeYears = 1,
  kAgeMonths = 2,
  kAgeDays = 3,
  kAgeHours = 4,
  kAgeMinutes = 5,
  kAgeSeconds = 6,
  kAgeMilliseconds = 7,
};

// Age of a file time against the default Env's clock, reckoned with 30-day
// months and 365-day years. 0 for an unknown unit or a time in the future.
uint32_t MeasureFileAge(platform::FileTime file_time, int32_t unit);

}  // namespace qaaisp
