#include "mime/mime_text.h"

namespace qaaisp::mime {

size_t FindNoCase(std::string_view text, std::string_view needle, size_t from) {
  if (needle.empty()) return from <= text.size() ? from : std::string_view::npos;
  if (needle.size() > text.size()) return std::string_view::npos;
  const char first = LowerAscii(needle[0]);
  for (size_t i = from; i + needle.size() <= text.size(); ++i) {
    if (LowerAscii(text[i]) == first && StartsWithNoCase(text.substr(i), needle)) return i;
  }
  return std::string_view::npos;
}

}  // namespace qaaisp::mime
