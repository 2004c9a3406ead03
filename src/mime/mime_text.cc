#include "mime/mime_text.h"

#include <algorithm>

namespace qaaisp::mime {

size_t Find(std::string_view text, std::string_view needle, size_t from) {
  if (from > text.size()) return std::string_view::npos;
  if (needle.empty()) return from;
  if (needle.size() > text.size() - from) return std::string_view::npos;
  // The commonest needle, a line end, found by its "\n" with no setting up.
  if (needle.size() == 2 && needle[0] == '\r' && needle[1] == '\n') {
    for (size_t at = from + 1; at < text.size(); ++at) {
      const void* hit = std::memchr(text.data() + at, '\n', text.size() - at);
      if (!hit) return std::string_view::npos;
      at = static_cast<size_t>(static_cast<const char*>(hit) - text.data());
      if (text[at - 1] == '\r') return at - 1;
    }
    return std::string_view::npos;
  }
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
  // Most needles are line ends and short delimiters, compared in place
  // more cheaply than by a call.
  const auto matches = [&needle](const char* candidate) {
    if (needle.size() > 8) return std::memcmp(candidate, needle.data(), needle.size()) == 0;
    for (size_t i = 0; i < needle.size(); ++i) {
      if (candidate[i] != needle[i]) return false;
    }
    return true;
  };
  while (at <= last) {
    const void* hit = std::memchr(at + anchor, wanted, static_cast<size_t>(last - at) + 1);
    if (!hit) return std::string_view::npos;
    const char* candidate = static_cast<const char*>(hit) - anchor;
    if (matches(candidate)) {
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
  const size_t last = text.size() - needle.size();  // the last possible start
  if (from > last) return std::string_view::npos;
  // Candidates are found by memchr for each case of the first byte, the
  // next of each kept until it is passed.
  const char lower = LowerAscii(needle[0]);
  const char upper = lower >= 'a' && lower <= 'z' ? static_cast<char>(lower - 32) : lower;
  const auto next = [&](char c, size_t at) -> size_t {
    if (at > last) return std::string_view::npos;
    const void* hit = std::memchr(text.data() + at, c, last - at + 1);
    return hit ? static_cast<size_t>(static_cast<const char*>(hit) - text.data())
               : std::string_view::npos;
  };
  size_t next_lower = next(lower, from);
  size_t next_upper = upper != lower ? next(upper, from) : std::string_view::npos;
  for (;;) {
    const size_t at = std::min(next_lower, next_upper);
    if (at == std::string_view::npos) return std::string_view::npos;
    if (StartsWithNoCase(text.substr(at), needle)) return at;
    if (at == next_lower) {
      next_lower = next(lower, at + 1);
    } else {
      next_upper = next(upper, at + 1);
    }
  }
}

}  // namespace qaaisp::mime
