#include "base/library_settings.h"

#include <gtest/gtest.h>

#include "base/setting_names.h"
#include "base/settings.h"
#include "test_env.h"

namespace qaaisp {
namespace {

using testing::RegText;
using testing::ScopedRegistry;

TEST(MailRootTest, FirstChoiceWinsAndEmptyCountsAsAbsent) {
  ScopedRegistry reg(RegText(
      {{settings::kMapiKey, {"\"Mail Root Directory\"=\"/srv/mail\""}},
       {settings::kProductKey, {"\"Mail Root\"=\"/var/mail2\"", "\"Data Directory\"=\"/data\""}}}));
  EXPECT_EQ(ReadMailRoot(), "/srv/mail");
  reg.Rewrite(RegText({{settings::kMapiKey, {"\"Mail Root Directory\"=\"\""}},
                       {settings::kProductKey, {"\"Mail Root\"=\"C:\\\\Mail\\\\Root\""}}}));
  EXPECT_EQ(ReadMailRoot(), "C:/Mail/Root");
  reg.Rewrite(RegText({{settings::kProductKey, {"\"Data Directory\"=\"/data\""}}}));
  EXPECT_EQ(ReadMailRoot(), "/data/POSTOFFICES");
  reg.Rewrite(RegText({}));
  EXPECT_EQ(ReadMailRoot(), "/POSTOFFICES");
}

TEST(LibrarySettingsTest, ModesDefaultToZeroAndTableRootFollowsMailRoot) {
  ScopedRegistry reg(RegText({{settings::kProductKey,
                               {"\"Mail Root\"=\"/m\"", "\"Mailbox Size Calc Mode\"=dword:1",
                                "\"Allow Custom Postoffice Paths\"=dword:1"}}}));
  LibrarySettings s;
  s.notification_mode = 9;
  ReadLibrarySettings(&s);
  EXPECT_EQ(s.notification_mode, 0u);
  EXPECT_EQ(s.size_mode, 1u);
  EXPECT_EQ(s.allow_custom_paths, 1u);
  EXPECT_EQ(s.mail_root, "/m");
  EXPECT_EQ(s.table_root, "/m");
  EXPECT_EQ(s.bad_mail_directory, "");
}

TEST(SettingsReaderTest, PlainProductKeyReachesTheWowViewUnlessTakenAsIs) {
  ScopedRegistry reg(RegText({{settings::kProductKey, {"\"Mail Root\"=\"/x\""}}}));
  std::string v;
  EXPECT_EQ(ReadStringSetting("SOFTWARE\\quill arbor\\Quill Arbor", "Mail Root", &v), 1);
  EXPECT_EQ(v, "/x");
  EXPECT_EQ(ReadStringSetting("SOFTWARE\\Quill Arbor\\Quill Arbor", "Mail Root", &v, true), 0);
  EXPECT_EQ(v, "");
  char small[3];
  EXPECT_EQ(ReadStringSetting(settings::kProductKey, "Mail Root", small, 0), 0);
  EXPECT_EQ(ReadStringSetting(settings::kProductKey, "Mail Root", small, 2), 1);
  EXPECT_STREQ(small, "/");
  uint32_t d = 5;
  EXPECT_EQ(ReadDwordSetting("", "Mail Root", &d), 0);
  EXPECT_EQ(d, 5u);
}

TEST(LazySettingTest, ReadsOnceAndKeepsTheValue) {
  ScopedRegistry reg(RegText({{settings::kProductKey, {"\"Backup Index\"=dword:2"}}}));
  LazySetting lazy(settings::kProductKey, "Backup Index", 0);
  EXPECT_EQ(lazy.Get(), 2u);
  reg.Rewrite(RegText({{settings::kProductKey, {"\"Backup Index\"=dword:3"}}}));
  EXPECT_EQ(lazy.Get(), 2u);
  lazy.Reset();
  EXPECT_EQ(lazy.Get(), 3u);
  LazySetting missing(settings::kProductKey, "Nothing", 42);
  EXPECT_EQ(missing.Get(), 42u);
}

}  // namespace
}  // namespace qaaisp
