#include "platform/path_case.h"

#include <gtest/gtest.h>

#include "platform/modules.h"
#include "test_env.h"

namespace qaaisp::platform {
namespace {

TEST(PathCaseTest, AnySpellingReachesTheOneExistingDirectory) {
  testing::TempDir dir;
  testing::MakeDirs(dir.Sub("MAILROOT/bob/Inbox"));
  Env* env = Env::Default();
  const std::string want = dir.Sub("MAILROOT/bob/Inbox");
  EXPECT_EQ(ResolveCaseInsensitive(env, dir.Sub("MAILROOT/bob/INBOX")), want);
  EXPECT_EQ(ResolveCaseInsensitive(env, dir.Sub("mailroot/BOB/inbox")), want);
  EXPECT_EQ(ResolveCaseInsensitive(env, dir.Sub("MAILROOT/bob/Inbox")), want);
  // A file below a resolved directory resolves too.
  testing::WriteFile(want + "/1.MAI", "x");
  EXPECT_EQ(ResolveCaseInsensitive(env, dir.Sub("mailroot/bob/INBOX/1.mai")), want + "/1.MAI");
}

TEST(PathCaseTest, NewNamesKeepTheirSpellingBelowTheResolvedPart) {
  testing::TempDir dir;
  testing::MakeDirs(dir.Sub("MAILROOT/bob"));
  Env* env = Env::Default();
  std::string path = ResolveCaseInsensitive(env, dir.Sub("mailroot/Bob/Drafts/Old"));
  EXPECT_EQ(path, dir.Sub("MAILROOT/bob/Drafts/Old"));
  ASSERT_TRUE(env->MakeDirectory(dir.Sub("MAILROOT/bob/Drafts")));
  EXPECT_TRUE(DirectoryExists(env, dir.Sub("MAILROOT/bob/Drafts")));
}

TEST(PathCaseTest, PatternsIgnoreCase) {
  EXPECT_TRUE(MatchPattern("*.MAI", "123.mai"));
  EXPECT_TRUE(MatchPattern("_*.NEW", "_17.new"));
  EXPECT_FALSE(MatchPattern("_*.NEW", "17.NEW"));
  EXPECT_TRUE(MatchPattern("*", ""));
  EXPECT_TRUE(MatchPattern("a?c*", "ABCdef"));
  EXPECT_FALSE(MatchPattern("*.MAI", "x.MAIL"));
  EXPECT_TRUE(MatchPattern("*a*b", "xxaxxab"));
}

TEST(PathCaseTest, NoCaseComparisons) {
  EXPECT_TRUE(EqualsNoCase("Public", "PUBLIC"));
  EXPECT_FALSE(EqualsNoCase("Public", "Publi"));
  EXPECT_LT(CompareNoCase("abc", "ABD"), 0);
  EXPECT_EQ(CompareNoCase("x\\Y", "X\\y"), 0);
  EXPECT_GT(CompareNoCase("abcd", "ABC"), 0);
  EXPECT_EQ(ToNativeSeparators("\\Public\\Sales"), "/Public/Sales");
}

TEST(ModulesTest, ProviderNamesMapToSharedObjects) {
  EXPECT_EQ(ProviderFileName("C:\\Apps64\\QAAISO.DLL"), "C:/Apps64/libqaaiso.so");
  EXPECT_EQ(ProviderFileName("/opt/qa/QAAIPO.DLL"), "/opt/qa/libqaaipo.so");
  EXPECT_EQ(ProviderFileName("QAAINFY.DLL"), "libqaainfy.so");
}

}  // namespace
}  // namespace qaaisp::platform
