#include "store/mailbox_size_file.h"

#include <gtest/gtest.h>

#include "base/library_settings.h"
#include "platform/win32_error.h"
#include "test_env.h"

namespace qaaisp {
namespace {

using testing::Exists;
using testing::ReadFile;
using testing::TempDir;
using testing::WriteFile;

TEST(MailboxSizeFileTest, AdjustsTheNumberInPlace) {
  TempDir dir;
  platform::Env* env = platform::Env::Default();
  const std::string path = dir.Sub("_DIRSIZE.TMP");
  WriteFile(path, "1000000");
  EXPECT_TRUE(AdjustSizeFile(env, path, -999995));
  EXPECT_EQ(ReadFile(path), "5");  // the old tail is cut off
  EXPECT_TRUE(AdjustSizeFile(env, path, 12));
  EXPECT_EQ(ReadFile(path), "17");
  EXPECT_TRUE(AdjustSizeFile(env, path, -40));
  EXPECT_EQ(ReadFile(path), "0");  // never below 0

  WriteFile(path, "  42 kilobytes");
  EXPECT_TRUE(AdjustSizeFile(env, path, 1));
  EXPECT_EQ(ReadFile(path), "43");
}

TEST(MailboxSizeFileTest, AFileThatCannotBeUpdatedIsDeletedNotGuessed) {
  TempDir dir;
  platform::Env* env = platform::Env::Default();
  const std::string path = dir.Sub("_DIRSIZE.TMP");
  EXPECT_FALSE(AdjustSizeFile(env, path, 5));
  EXPECT_FALSE(Exists(path));  // a missing file is not created

  // Held by a concurrent updater, the file can be neither updated nor
  // deleted; the holder's own update stands.
  WriteFile(path, "10");
  platform::OpenOptions exclusive;
  exclusive.write = true;
  exclusive.share = platform::ShareMode::kShareNone;
  {
    auto holder = env->OpenFile(path, exclusive);
    ASSERT_TRUE(holder);
    EXPECT_FALSE(AdjustSizeFile(env, path, 5));
  }
  EXPECT_EQ(ReadFile(path), "10");
}

TEST(MailboxSizeFileTest, AFigureWrittenInPartIsDeleted) {
  TempDir dir;
  const std::string path = dir.Sub("_DIRSIZE.TMP");
  testing::FaultInjectionEnv faults;
  for (const auto fault : {testing::FaultInjectionEnv::Fault::kShortWrite,
                           testing::FaultInjectionEnv::Fault::kError}) {
    for (int call = 2; call <= 3; ++call) {  // the write, then the truncation
      WriteFile(path, "1000");
      faults.Reset();
      faults.FailAt(call, platform::kErrorDiskFull, fault);
      EXPECT_FALSE(AdjustSizeFile(&faults, path, 234)) << call;
      EXPECT_FALSE(Exists(path)) << call;
    }
  }
}

TEST(MailboxSizeFileTest, UpdatesTheMailboxAndTheFolderFiles) {
  TempDir root;
  std::string saved = ModuleSettings().mail_root;
  ModuleSettings().mail_root = root.path();
  WriteFile(root.Sub("po/MAILROOT/box/_DIRSIZE.TMP"), "100");
  WriteFile(root.Sub("po/MAILROOT/box/Inbox/_DIRSIZE.TMP"), "10");
  WriteFile(root.Sub("po/FILEROOT/box/_DIRSIZE.TMP"), "50");
  testing::MakeDirs(root.Sub("po/MAILROOT/box/Sent"));

  UpdateMailboxSizeMetaData("po", "box", 7, "\\INBOX");
  EXPECT_EQ(ReadFile(root.Sub("po/MAILROOT/box/_DIRSIZE.TMP")), "107");
  EXPECT_EQ(ReadFile(root.Sub("po/MAILROOT/box/Inbox/_DIRSIZE.TMP")), "17");

  // A folder without its own size file keeps having none.
  UpdateMailboxSizeMetaData("po", "box", -7, "Sent");
  EXPECT_EQ(ReadFile(root.Sub("po/MAILROOT/box/_DIRSIZE.TMP")), "100");
  EXPECT_FALSE(Exists(root.Sub("po/MAILROOT/box/Sent/_DIRSIZE.TMP")));

  // File shares count apart from the mailbox, and a zero delta is nothing.
  UpdateMailboxSizeMetaData("po", "box", 3, "$FILEROOT\\docs");
  EXPECT_EQ(ReadFile(root.Sub("po/FILEROOT/box/_DIRSIZE.TMP")), "53");
  EXPECT_EQ(ReadFile(root.Sub("po/MAILROOT/box/_DIRSIZE.TMP")), "100");
  UpdateMailboxSizeMetaData("po", "box", 0, "Inbox");
  EXPECT_EQ(ReadFile(root.Sub("po/MAILROOT/box/Inbox/_DIRSIZE.TMP")), "17");
  ModuleSettings().mail_root = saved;
}

TEST(MailboxSizeFileTest, SizesRoundToTheNearestKilobyte) {
  EXPECT_EQ(KilobytesRounded(0), 0);
  EXPECT_EQ(KilobytesRounded(511), 0);
  EXPECT_EQ(KilobytesRounded(512), 1);
  EXPECT_EQ(KilobytesRounded(1535), 1);
  EXPECT_EQ(KilobytesRounded(1536), 2);
  EXPECT_EQ(KilobytesRounded(4294967295u), 4194304);
}

}  // namespace
}  // namespace qaaisp
