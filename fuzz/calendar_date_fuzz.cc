// Any text as a vCard or iCalendar date: the bytes up to the first NUL are
// the date, the rest (if any) the overriding offset; the direction comes
// from the first byte. A date read must format back.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "base/dates.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const int direction = data[0] & 1;
  const bool with_offset = data[0] & 2;
  std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  std::string offset;
  size_t nul = text.find('\0');
  if (nul != std::string::npos) {
    offset = text.substr(nul + 1);
    text.resize(nul);
  }
  qaaisp::platform::FileTime time;
  if (qaaisp::ParseCalendarDate(text.c_str(), &time, with_offset ? offset.c_str() : nullptr,
                                direction) == 1) {
    char out[32];
    qaaisp::FormatExtendedDate(time, out, sizeof out);
    if (std::memchr(out, '\0', sizeof out) == nullptr) __builtin_trap();
    qaaisp::SystemTime parts;
    if (qaaisp::SystemTimeFromFileTime(time, &parts)) {
      qaaisp::FormatBasicDate(parts, out, sizeof out);
    }
  }
  qaaisp::ParseExtendedDate(text.c_str(), &time);
  return 0;
}
