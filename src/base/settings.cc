#include "base/settings.h"

#include <cstring>

#include "platform/path_case.h"
#include "platform/registry.h"

namespace qaaisp {
namespace {

std::string RewriteToWowKey(const std::string& key) {
  static constexpr std::string_view kPlain = "Software\\Quill Arbor";
  for (size_t i = 0; i + kPlain.size() <= key.size(); ++i) {
    if (platform::EqualsNoCase(std::string_view(key).substr(i, kPlain.size()), kPlain)) {
      return key.substr(0, i) + "Software\\Wow6432Node\\Quill Arbor" +
             key.substr(i + kPlain.size());
    }
  }
  return key;
}

}  // namespace

int ReadDwordSetting(const char* key, const char* name, uint32_t* out) {
  if (!key || !*key || !name) return 0;
  uint32_t value = 0;
  if (!platform::Registry::Process().ReadDword(key, name, &value)) return 0;
  *out = value;
  return 1;
}

int ReadStringSetting(const char* key, const char* name, std::string* out, bool key_as_is) {
  out->clear();
  if (!key || !name) return 0;
  std::string k = key_as_is ? std::string(key) : RewriteToWowKey(key);
  std::string value;
  if (!platform::Registry::Process().ReadString(k, name, &value) || value.empty()) return 0;
  *out = std::move(value);
  return 1;
}

int ReadStringSetting(const char* key, const char* name, char* buffer, size_t size,
                      bool key_as_is) {
  if (size == 0 || !buffer) return 0;
  buffer[0] = 0;
  std::string value;
  if (!ReadStringSetting(key, name, &value, key_as_is)) return 0;
  size_t n = value.size() < size - 1 ? value.size() : size - 1;
  std::memcpy(buffer, value.data(), n);
  buffer[n] = 0;
  return 1;
}

uint32_t ReadDwordOr(const char* key, const char* name, uint32_t default_value) {
  uint32_t v = 0;
  return ReadDwordSetting(key, name, &v) ? v : default_value;
}

}  // namespace qaaisp
