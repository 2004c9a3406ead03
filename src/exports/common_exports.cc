// Common exports: Unix time and file time, and the delimiter cutter.
#include "base/dates.h"
#include "base/xml_data.h"
#include "qaaisp/qaaisp.h"

extern "C" {

int UnixTimeToFileTime(int32_t seconds, QA_FILETIME* out) {
  if (out == nullptr) return 1;
  const qaaisp::platform::FileTime ft = qaaisp::UnixTimeToFileTime(seconds);
  out->dwLowDateTime = ft.low;
  out->dwHighDateTime = ft.high;
  return 1;
}

int64_t UnixTimeFromFileTime(QA_FILETIME ft) {
  return qaaisp::UnixTimeFromFileTime(
      qaaisp::platform::FileTime{ft.dwLowDateTime, ft.dwHighDateTime});
}

const char* GetXMLDataEx(const char* text, const char* start, const char* end, char* out,
                         int outSize) {
  return qaaisp::GetXMLDataEx(text, start, end, out,
                              outSize > 0 ? static_cast<size_t>(outSize) : 0);
}

}  // extern "C"
