#include "mime/mime_text.h"

namespace qaaisp::mime {

size_t Find(std::string_view text, std::string_view needle, size_t from) {
  if (from > text.size()) return std::string_view::npos;
  if (needle.empty()) return from;
  if (needle.size() > text.size() - from) return std::string_view::npos;
  // The byte searched for is the needle's first that is not a line end: a
  // boundary line is found by its "-", which base64 bodies never hold,
  // rather than by every line's CR.
  size_t anchor = 0;
  while (anchor + 1 < needle.size() && (needle[anchor] == '\r' || needle[anchor] == '\n')) {
    ++anchor;
  }
  if (needle[anchor] == '\r' || needle[anchor] == '\n') anchor = 0;
  const char* const begin = text.data();
  const char* const last = begin + (text.size() - needle.size());  // the last possible start
  const char* at = begin + from;
  const char wanted = needle[anchor];
  // Bytes compared in vain; past this budget the search goes on by memmem.
  size_t wasted = 0;
  const size_t budget = 4 * (text.size() - from) + 256;
  while (at <= last) {
    const void* hit = std::memchr(at + anchor, wanted, static_cast<size_t>(last - at) + 1);
    if (!hit) return std::string_view::npos;
    const char* candidate = static_cast<const char*>(hit) - anchor;
    if (std::memcmp(candidate, needle.data(), needle.size()) == 0) {
      return static_cast<size_t>(candidate - begin);
    }
    wasted += needle.size();
    at = candidate + 1;
    if (wasted > budget) {
#if defined(__GLIBC__)
      const void* found =
          memmem(at, text.size() - static_cast<size_t>(at - begin), needle.data(), needle.size());
      return found ? static_cast<size_t>(static_cast<const char*>(found) - begin)
                   : std::string_view::npos;
#else
      return text.find(needle, static_cast<size_t>(at - begin));
#endif
    }
  }
  return std::string_view::npos;
}

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
