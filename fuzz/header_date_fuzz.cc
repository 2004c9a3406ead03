// Any text as a Date header through the normaliser, into an output buffer of
// exactly the size it is told (taken from the first byte), so a write past
// the end faults. The result must be terminated within that buffer.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "base/dates.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const size_t out_size = data[0] % 40 + 1;
  std::string date(reinterpret_cast<const char*>(data) + 1, size - 1);
  std::unique_ptr<char[]> out(new char[out_size]);
  std::memset(out.get(), 'Z', out_size);
  out[out_size - 1] = '\0';
  qaaisp::NormaliseHeaderDate(date.c_str(), out.get(), out_size);
  if (std::memchr(out.get(), '\0', out_size) == nullptr) __builtin_trap();
  // What it writes is a date in the form it reads back.
  qaaisp::platform::FileTime time;
  qaaisp::ParseExtendedDate(out.get(), &time);
  return 0;
}
