#include "notify/dirty_flags.h"

#include <gtest/gtest.h>

#include "base/library_settings.h"
#include "platform/env.h"
#include "test_env.h"

namespace qaaisp {
namespace {

using testing::Exists;
using testing::MakeDirs;
using testing::ReadFile;
using testing::TempDir;
using testing::WriteFile;

class DirtyFlagsTest : public ::testing::Test {
 protected:
  DirtyFlagsTest() : saved_(ModuleSettings()) { ModuleSettings().mail_root = root_.path(); }
  ~DirtyFlagsTest() override { ModuleSettings() = saved_; }

  std::string Root(const std::string& rel) const { return root_.Sub(rel); }

  TempDir root_;
  LibrarySettings saved_;
};

TEST_F(DirtyFlagsTest, ChangeFlagHoldsItsTextAndIsReplacedEachTime) {
  std::string flag = Root("_CHANGE.DTY");
  ASSERT_TRUE(SetDirtyPathNotification(root_.path()));
  EXPECT_EQ(ReadFile(flag),
            "This file is a flag file that denotes that this folder has been changed");

  // An old flag is rewritten, which moves its time stamp.
  WriteFile(flag, "old text that is longer than the flag's own text, to be cut away entirely");
  platform::Env* env = platform::Env::Default();
  platform::OpenOptions o;
  o.write = true;
  platform::FileTime old_time = platform::FileTimeFromUnixNanos(1000000000, 0);
  env->OpenFile(flag, o)->SetTimes(nullptr, nullptr, &old_time);
  ASSERT_TRUE(SetDirtyPathNotification(root_.path() + "/"));
  EXPECT_EQ(ReadFile(flag), kChangeFlagText);
  platform::FileInfo info;
  ASSERT_TRUE(env->Stat(flag, &info));
  EXPECT_TRUE(old_time < info.write_time);

  EXPECT_FALSE(SetDirtyPathNotification(Root("missing")));
  EXPECT_FALSE(Exists(Root("missing")));
}

TEST_F(DirtyFlagsTest, FolderNotificationFindsEachKindOfFolder) {
  MakeDirs(Root("PO/MAILROOT/mbox/sales"));
  MakeDirs(Root("PO/PUBROOT/Board"));
  MakeDirs(Root("PO/FILEROOT/mbox/docs"));

  EXPECT_TRUE(SetDirtyFolderNotification("PO", "mbox", "Sales"));
  EXPECT_EQ(ReadFile(Root("PO/MAILROOT/mbox/sales/_CHANGE.DTY")), kChangeFlagText);
  EXPECT_TRUE(SetDirtyFolderNotification("PO", "mbox", "PUBLIC"));
  EXPECT_TRUE(Exists(Root("PO/PUBROOT/_CHANGE.DTY")));
  EXPECT_TRUE(SetDirtyFolderNotification("PO", "mbox", "public/board"));
  EXPECT_TRUE(Exists(Root("PO/PUBROOT/Board/_CHANGE.DTY")));
  EXPECT_TRUE(SetDirtyFolderNotification("PO", "mbox", "$FILEROOT"));
  EXPECT_TRUE(Exists(Root("PO/FILEROOT/mbox/_CHANGE.DTY")));
  EXPECT_TRUE(SetDirtyFolderNotification("PO", "mbox", "$FILEROOT\\Docs"));
  EXPECT_TRUE(Exists(Root("PO/FILEROOT/mbox/docs/_CHANGE.DTY")));
  // "Public\..." is not a public name here: only "Public/" is.
  MakeDirs(Root("PO/MAILROOT/mbox/Public/Board"));
  EXPECT_TRUE(SetDirtyFolderNotification("PO", "mbox", "Public\\Board"));
  EXPECT_TRUE(Exists(Root("PO/MAILROOT/mbox/Public/Board/_CHANGE.DTY")));
  // A folder that is not there is not made.
  EXPECT_FALSE(SetDirtyFolderNotification("PO", "mbox", "Gone"));
  EXPECT_FALSE(Exists(Root("PO/MAILROOT/mbox/Gone")));
}

TEST_F(DirtyFlagsTest, DirtyFolderPaths) {
  EXPECT_EQ(GetDirtyFolderPath(kMailboxFolder, "PO", "mbox", "A/B"), Root("PO/MAILROOT/mbox/A/B"));
  EXPECT_EQ(GetDirtyFolderPath(kPublicSubfolder, "PO", "mbox", "Public/A"), Root("PO/PUBROOT/A"));
  EXPECT_EQ(GetDirtyFolderPath(kPublicRoot, "PO", "mbox", "Public"), Root("PO/PUBROOT"));
}

TEST(IsPublicFolderTest, ExactWordOrWordAndSlash) {
  EXPECT_EQ(IsPublicFolder("Public"), kPublicRoot);
  EXPECT_EQ(IsPublicFolder("pUBLIC"), kPublicRoot);
  EXPECT_EQ(IsPublicFolder("PUBLIC/Sales"), kPublicSubfolder);
  EXPECT_EQ(IsPublicFolder("Public/"), kPublicSubfolder);
  EXPECT_EQ(IsPublicFolder("Publications"), kMailboxFolder);
  EXPECT_EQ(IsPublicFolder("Public\\Sales"), kMailboxFolder);
  EXPECT_EQ(IsPublicFolder("/Public"), kMailboxFolder);
  EXPECT_EQ(IsPublicFolder(""), kMailboxFolder);
}

TEST_F(DirtyFlagsTest, CachedFlagIsNeverWrittenNorCleared) {
  EXPECT_FALSE(SetCachedIndexFlag(root_.path()));
  EXPECT_FALSE(Exists(Root("_CACHED.DTY")));
  WriteFile(Root("_CACHED.DTY"), kCachedFlagText);
  EXPECT_EQ(ClearCachedIndexFlag(root_.path()), 0);
  EXPECT_TRUE(Exists(Root("_CACHED.DTY")));
}

}  // namespace
}  // namespace qaaisp
