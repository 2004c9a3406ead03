// Phone numbers as the field "TEL_CELL_VOICE" is searched: punctuation
// ignored, and a national number ("0412345678") equal to the same number
// with a country code ("+61412345678").
#pragma once

#include <string>
#include <string_view>

namespace qaaisp {

// A copy without "(", ")", "-" and blanks.
std::string NormalizePhoneNumber(std::string_view text);

// 0 when equal, non-zero otherwise. a is already normalised; b is
// normalised here.
int ComparePhoneNumbers(std::string_view a, std::string_view b);

}  // namespace qaaisp
