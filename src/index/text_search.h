// Substring tests on index values, such as flags in "FLAGSTATUS".
#pragma once

#include <string_view>

#include "platform/path_case.h"

namespace qaaisp {

// Whether part occurs in text, ASCII letters compared without case.
inline bool ContainsNoCase(std::string_view text, std::string_view part) {
  if (part.size() > text.size()) return false;
  for (size_t i = 0; i + part.size() <= text.size(); ++i) {
    if (platform::EqualsNoCase(text.substr(i, part.size()), part)) return true;
  }
  return false;
}

}  // namespace qaaisp
