// The registry values the library reads, with their keys, types and
// defaults, so that an administrator can see what is in force.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace qaaisp::qastore {

struct SettingEntry {
  const char* key;
  const char* name;
  bool is_text;
  uint32_t default_number;   // DWORD values
  const char* default_text;  // text values ("" for none)
  const char* meaning;
};

std::span<const SettingEntry> SettingCatalogue();

struct EffectiveSetting {
  std::string value;
  bool from_file = false;  // the settings file has the value
  bool differs = false;    // and it is not the default
};

// The value in force: the settings file's, or the default.
EffectiveSetting ReadEffective(const SettingEntry& entry);

// The key below the product key ("(main)" for the product key itself), or the
// whole key when it lies elsewhere.
std::string ShortKey(const char* key);

}  // namespace qaaisp::qastore
