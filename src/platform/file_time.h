// FILETIME values: 64-bit counts of 100 ns since 1601-01-01 UTC.
#pragma once

#include <cstdint>

namespace qaaisp::platform {

struct FileTime {
  uint32_t low = 0;
  uint32_t high = 0;

  uint64_t ticks() const { return (static_cast<uint64_t>(high) << 32) | low; }
  static FileTime FromTicks(uint64_t t) {
    return FileTime{static_cast<uint32_t>(t), static_cast<uint32_t>(t >> 32)};
  }
  bool IsZero() const { return low == 0 && high == 0; }
  friend bool operator==(const FileTime& a, const FileTime& b) = default;
  friend bool operator<(const FileTime& a, const FileTime& b) { return a.ticks() < b.ticks(); }
};

// 100 ns ticks between 1601-01-01 and 1970-01-01.
inline constexpr uint64_t kUnixEpochTicks = 116444736000000000ULL;
inline constexpr uint64_t kTicksPerSecond = 10000000ULL;

inline FileTime FileTimeFromUnixNanos(int64_t seconds, int64_t nanos) {
  return FileTime::FromTicks(kUnixEpochTicks + static_cast<uint64_t>(seconds) * kTicksPerSecond +
                             static_cast<uint64_t>(nanos) / 100);
}
inline int64_t UnixSecondsFromFileTime(FileTime ft) {
  return static_cast<int64_t>(ft.ticks() - kUnixEpochTicks) / static_cast<int64_t>(kTicksPerSecond);
}

}  // namespace qaaisp::platform
