#include "platform/registry.h"

#include <gtest/gtest.h>

#include "test_env.h"

namespace qaaisp::platform {
namespace {

const char kKey[] = "SOFTWARE\\Wow6432Node\\Quill Arbor\\Quill Arbor";

TEST(RegistryTest, ParsesEveryValueFormAndFoldsCase) {
  auto data = ParseRegFile(
      "Windows Registry Editor Version 5.00\r\n\r\n"
      "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Wow6432Node\\Quill Arbor\\Quill Arbor]\r\n"
      "\"Mail Root\"=\"C:\\\\Mail \\\"Store\\\"\"\r\n"
      "\"Backup Index\"=dword:0000000a\r\n"
      "\"TZI\"=hex:01,02,\\\r\n"
      "  03,ff\r\n"
      "; a comment\r\n"
      "@=\"default\"\r\n"
      "[-HKEY_LOCAL_MACHINE\\SOFTWARE\\Gone]\r\n"
      "\"Ignored\"=\"x\"\r\n");
  auto& values = data["SOFTWARE\\WOW6432NODE\\QUILL ARBOR\\QUILL ARBOR"];
  EXPECT_EQ(values["MAIL ROOT"].text, "C:\\Mail \"Store\"");
  EXPECT_EQ(values["BACKUP INDEX"].dword, 10u);
  EXPECT_EQ(values["TZI"].bytes, (std::vector<uint8_t>{1, 2, 3, 255}));
  EXPECT_EQ(values[""].text, "default");
  EXPECT_EQ(data.count("SOFTWARE\\GONE"), 0u);
}

TEST(RegistryTest, ReadsUtf16FilesAsTheEditorWritesThem) {
  std::string utf8 = "Windows Registry Editor Version 5.00\n[HKEY_LOCAL_MACHINE\\K]\n\"N\"=\"v\"\n";
  std::string utf16 = "\xFF\xFE";
  for (char c : utf8) {
    utf16 += c;
    utf16 += '\0';
  }
  EXPECT_EQ(ParseRegFile(utf16)["K"]["N"].text, "v");
}

TEST(RegistryTest, LookupsIgnoreCaseAndEditsAreSeen) {
  testing::ScopedRegistry reg(testing::RegText({{kKey, {"\"Offset Index\"=dword:00000001"}}}));
  Registry& r = Registry::Process();
  uint32_t v = 0;
  ASSERT_TRUE(r.ReadDword("software\\wow6432node\\quill arbor\\QUILL ARBOR", "offset index", &v));
  EXPECT_EQ(v, 1u);
  std::string s;
  EXPECT_FALSE(r.ReadString(kKey, "Offset Index", &s));  // wrong type
  reg.Rewrite(testing::RegText({{kKey, {"\"Offset Index\"=dword:00000000"}}}));
  ASSERT_TRUE(r.ReadDword(kKey, "Offset Index", &v));
  EXPECT_EQ(v, 0u);
  reg.Rewrite(testing::RegText({{kKey, {}}}));
  EXPECT_FALSE(r.ReadDword(kKey, "Offset Index", &v));
}

TEST(RegistryTest, NoFileMeansEveryValueIsMissing) {
  Registry r(Env::Default(), {"", "/nonexistent/settings.reg"});
  uint32_t v = 7;
  EXPECT_FALSE(r.ReadDword(kKey, "Anything", &v));
  EXPECT_EQ(v, 7u);
}

}  // namespace
}  // namespace qaaisp::platform
