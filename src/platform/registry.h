// Settings in the Windows registry's .reg text form, read from the file named
// by QAAISP_REGISTRY. Key paths are below HKEY_LOCAL_MACHINE, and key paths and
// value names compare without regard to case. The file is read again whenever
// its modification time changes, so a setting read at each use sees edits.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/env.h"

namespace qaaisp::platform {

struct RegistryValue {
  enum class Kind { kString, kDword, kBinary };
  Kind kind = Kind::kString;
  std::string text;            // kString
  uint32_t dword = 0;          // kDword
  std::vector<uint8_t> bytes;  // kBinary (hex: and hex(n):)
};

// Parses .reg text (UTF-8, or UTF-16LE with its byte-order mark) into
// "KEY\PATH" -> value name -> value, keys and names folded to upper case and
// "HKEY_LOCAL_MACHINE\" removed from the front of the key.
using RegistryData = std::map<std::string, std::map<std::string, RegistryValue>>;
RegistryData ParseRegFile(std::string_view content);

class Registry {
 public:
  // Files are layered: values of later files win. An empty path is skipped.
  // A null env means the current Env::Default() at each read.
  Registry(Env* env, std::vector<std::string> files);

  // The process registry: the shipped base files beneath QAAISP_REGISTRY.
  static Registry& Process();
  // Replaces the process registry's files (tests).
  static void ResetProcessForTesting(std::vector<std::string> files);

  bool Find(std::string_view key, std::string_view name, RegistryValue* out);
  // Reads at most four bytes of a DWORD value (binary values of four bytes or
  // more count, as a registry read of 4 bytes would take them).
  bool ReadDword(std::string_view key, std::string_view name, uint32_t* out);
  // A string value; false for a missing or non-text value.
  bool ReadString(std::string_view key, std::string_view name, std::string* out);
  bool ReadBinary(std::string_view key, std::string_view name, std::vector<uint8_t>* out);

 private:
  void RefreshLocked();
  Env* env() const { return env_ ? env_ : Env::Default(); }

  Env* env_;
  std::vector<std::string> files_;
  std::vector<FileTime> stamps_;
  std::vector<bool> present_;
  RegistryData data_;
  bool loaded_ = false;
  std::mutex mutex_;
};

}  // namespace qaaisp::platform
