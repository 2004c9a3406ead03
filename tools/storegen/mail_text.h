// Helpers of the message generator for the text forms of mail.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qaaisp::storegen {

// Base64 in lines of 76 characters, each ended by CRLF.
std::string FoldedBase64(std::string_view bytes);

struct CivilTime {
  int year = 1970, month = 1, day = 1, hour = 0, minute = 0, second = 0;
  int weekday = 4;  // 0 Sunday
};
// UTC calendar fields of a Unix time, independent of the machine's zone.
CivilTime ToCivil(int64_t unix_seconds);

// "YYYYMMDDTHHMMSS" of a Unix time, UTC, as calendar text writes it.
std::string CalendarStamp(int64_t unix_seconds);

// "<", ">" and "&" as entities.
std::string EscapeHtml(std::string_view text);

}  // namespace qaaisp::storegen
