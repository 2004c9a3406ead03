// Shared by the message tests: messages written into a temporary folder,
// the settings of message indexing from a registry file, and a row's
// properties read back by name.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/dates.h"
#include "index/index_item.h"
#include "message/message_settings.h"
#include "test_env.h"

namespace qaaisp::message_testing {

using qaaisp::testing::FakeClockEnv;
using qaaisp::testing::ProductRegText;
using qaaisp::testing::ReadFile;
using qaaisp::testing::RegText;
using qaaisp::testing::ScopedDefaultEnv;
using qaaisp::testing::ScopedRegistry;
using qaaisp::testing::TempDir;
using qaaisp::testing::WriteFile;

// A registry value line under the product key: Dword("New Indexing", 0).
inline std::string Dword(const std::string& name, uint32_t value) {
  char hex[16];
  std::snprintf(hex, sizeof hex, "%08x", value);
  return "\"" + name + "\"=dword:" + hex;
}

class MessageTest : public ::testing::Test {
 protected:
  explicit MessageTest(std::vector<std::string> settings = {})
      : registry_(Registry(settings)), scoped_env_(&env_) {
    ResetMessageSettingsForTesting();
  }
  ~MessageTest() override { ResetMessageSettingsForTesting(); }

  static std::string Registry(const std::vector<std::string>& values) {
    return ProductRegText(values);
  }
  // Replaces the settings (read again at next use).
  void UseSettings(const std::vector<std::string>& values) {
    registry_.Rewrite(Registry(values));
    ResetMessageSettingsForTesting();
  }

  // Writes a message into the folder; gives its path.
  std::string Put(const std::string& name, const std::string& text) {
    const std::string path = dir_.Sub(name);
    WriteFile(path, text);
    return path;
  }
  const std::string& folder() const { return dir_.path(); }

  TempDir dir_;
  ScopedRegistry registry_;
  FakeClockEnv env_;
  ScopedDefaultEnv scoped_env_;
};

// A row's value as text, empty when it has none.
inline std::string Prop(const IndexItem& row, const char* name) {
  std::string value;
  row.GetProperty(name, &value);
  return value;
}

// What the date routine makes of a Date header text.
inline std::string Normalised(const char* date) {
  char out[64] = "";
  NormaliseHeaderDate(date, out, sizeof out);
  return out;
}

}  // namespace qaaisp::message_testing
