// The two registry readers under all settings, and the lazily read integer
// that most Parts of the store keep a setting in.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace qaaisp {

// Reads a DWORD of key/name into *out; 1 on success, 0 otherwise (an empty
// key gives 0 at once). *out is untouched on failure: the caller applies the
// default.
int ReadDwordSetting(const char* key, const char* name, uint32_t* out);

// Reads a string value into buffer (size bytes with the terminator). Unless
// key_as_is, the first "Software\Quill Arbor" in the key, in any case, is
// first rewritten to "Software\Wow6432Node\Quill Arbor". A size of 0 gives 0;
// a missing or empty value leaves the empty string and gives 0.
int ReadStringSetting(const char* key, const char* name, char* buffer, size_t size,
                      bool key_as_is = false);
// The same into a std::string (no length limit beyond the registry's).
int ReadStringSetting(const char* key, const char* name, std::string* out, bool key_as_is = false);

// A setting read once at first use and kept: all ones means not yet read. No
// lock is needed, since every writer stores the same value.
class LazySetting {
 public:
  LazySetting(const char* key, const char* name, uint32_t default_value)
      : key_(key), name_(name), default_(default_value) {}

  uint32_t Get() {
    uint32_t v = value_.load(std::memory_order_relaxed);
    if (v != kUnread) return v;
    uint32_t read = 0;
    if (!ReadDwordSetting(key_, name_, &read)) read = default_;
    value_.store(read, std::memory_order_relaxed);
    return read;
  }
  // Forgets the stored value (tests, and settings that are re-read).
  void Reset() { value_.store(kUnread, std::memory_order_relaxed); }

 private:
  static constexpr uint32_t kUnread = 0xFFFFFFFFu;
  const char* key_;
  const char* name_;
  uint32_t default_;
  std::atomic<uint32_t> value_{kUnread};
};

// A DWORD setting read afresh at each use.
uint32_t ReadDwordOr(const char* key, const char* name, uint32_t default_value);

}  // namespace qaaisp
