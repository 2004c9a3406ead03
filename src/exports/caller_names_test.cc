#include "exports/caller_names.h"

#include <gtest/gtest.h>

#include <string>

namespace qaaisp {
namespace {

// The checks refuse only what leads out or does not fit; names that merely
// look odd stay usable.
TEST(CallerNamesTest, RefusesClimbsButKeepsOddLookingNames) {
  for (const char* ok : {"INBOX", "Sent Items/2024", "a\\b", "a..b", "...", ".hidden/x", "", "x/",
                         "Public/Sales", "$FILEROOT\\docs", "\xe9t\xe9"}) {
    EXPECT_TRUE(IsContainedPath(ok)) << ok;
  }
  for (const char* bad : {"..", "../x", "x/..", "a/../b", "a\\..\\b", "a/..\\b", "\\.."}) {
    EXPECT_FALSE(IsContainedPath(bad)) << bad;
  }
  EXPECT_FALSE(IsContainedPath(nullptr));

  EXPECT_TRUE(IsPlainName("user.name"));
  EXPECT_TRUE(IsPlainName("..x"));
  for (const char* bad : {".", "..", "a/b", "a\\b", "/"}) EXPECT_FALSE(IsPlainName(bad)) << bad;
  EXPECT_FALSE(IsPlainName(nullptr));
}

TEST(CallerNamesTest, LengthLimitIsTheFieldsAndListsAreCheckedPerName) {
  EXPECT_TRUE(IsPlainName(std::string(1023, 'a').c_str()));
  EXPECT_FALSE(IsPlainName(std::string(1024, 'a').c_str()));
  EXPECT_FALSE(IsContainedPath(std::string(1024, 'a').c_str()));

  EXPECT_TRUE(IsPlainNameList("1.MAI,2.MAI,,3.MAI"));
  std::string many;
  for (int i = 0; i < 200; ++i) many += std::to_string(i) + ".MAI,";
  EXPECT_TRUE(IsPlainNameList(many.c_str())) << "a long list of short names";
  for (const char* bad : {"1.MAI,..", "..,1.MAI", "1.MAI,./x", "a\\b"}) {
    EXPECT_FALSE(IsPlainNameList(bad)) << bad;
  }
  EXPECT_FALSE(IsPlainNameList(nullptr));
  EXPECT_FALSE(IsPlainNameList((std::string(1024, 'a') + ",1.MAI").c_str()));

  EXPECT_TRUE(NamesAFolder("po", "box", nullptr));
  EXPECT_FALSE(NamesAFolder("po", nullptr, "Inbox"));
  EXPECT_FALSE(NamesAFolder("po", "box", "Inbox/../../x"));
}

}  // namespace
}  // namespace qaaisp
