#include "store/folder_status_file.h"

#include <gtest/gtest.h>

#include "base/library_settings.h"
#include "platform/win32_error.h"
#include "test_env.h"

namespace qaaisp {
namespace {

using testing::ReadFile;
using testing::TempDir;
using testing::WriteFile;

FolderDetails Record(int32_t total, int32_t seen) {
  FolderDetails d{};
  d.Total = total;
  d.Seen = seen;
  return d;
}

std::string Bytes(const FolderDetails& d) {
  unsigned char raw[kFolderDetailsBytes];
  EncodeFolderDetails(d, raw);
  return std::string(reinterpret_cast<char*>(raw), sizeof raw);
}

TEST(FolderStatusFileTest, WireFormIsThirteenLittleEndianIntegers) {
  FolderDetails d{};
  d.Total = 0x01020304;
  d.LastUID = -2;
  std::string bytes = Bytes(d);
  ASSERT_EQ(bytes.size(), 52u);
  EXPECT_EQ(bytes.substr(24, 4), std::string("\x04\x03\x02\x01", 4));
  EXPECT_EQ(bytes.substr(44, 4), std::string("\xfe\xff\xff\xff", 4));

  FolderDetails back{};
  ASSERT_TRUE(DecodeFolderDetails(bytes, &back));
  EXPECT_EQ(back.Total, 0x01020304);
  EXPECT_EQ(back.LastUID, -2);
  EXPECT_FALSE(DecodeFolderDetails(bytes.substr(0, 51), &back));
  EXPECT_FALSE(DecodeFolderDetails(bytes + "x", &back));
}

TEST(FolderStatusFileTest, SanitisingClampsCountersToTheTotal) {
  FolderDetails d{};
  d.Total = 5;
  d.Seen = 9;
  d.Deleted = -3;
  d.Answered = 5;
  d.Recent = 6;
  d.RecentCount = 7;
  d.RecentCount2 = 8;  // not one of the clamped fields
  d.Flagged = 40;      // nor this one
  SanitiseFolderDetails(&d);
  EXPECT_EQ(d.Seen, 5);
  EXPECT_EQ(d.Deleted, 0);
  EXPECT_EQ(d.Answered, 5);
  EXPECT_EQ(d.Recent, 5);
  EXPECT_EQ(d.RecentCount, 5);
  EXPECT_EQ(d.RecentCount2, 8);
  EXPECT_EQ(d.Flagged, 40);

  // A negative total is 0 first, so every clamped counter falls to 0.
  FolderDetails n = Record(-4, 2);
  SanitiseFolderDetails(&n);
  EXPECT_EQ(n.Total, 0);
  EXPECT_EQ(n.Seen, 0);
}

TEST(FolderStatusFileTest, ReadAndWriteBothSanitise) {
  TempDir dir;
  platform::Env* env = platform::Env::Default();
  const std::string path = dir.Sub("_FOLDER.DAT");

  // Another writer left seen above total: it reads back as the total.
  WriteFile(path, Bytes(Record(3, 7)));
  FolderDetails read{};
  ReadFolderStatusFile(env, path, &read);
  EXPECT_EQ(read.Total, 3);
  EXPECT_EQ(read.Seen, 3);

  FolderDetails bad = Record(2, 1);
  bad.Answered = -9;
  bad.LastUID = 77;
  ASSERT_TRUE(WriteFolderStatusFile(env, path, bad));
  std::string written = ReadFile(path);
  ASSERT_EQ(written.size(), 52u);
  FolderDetails raw{};
  ASSERT_TRUE(DecodeFolderDetails(written, &raw));
  EXPECT_EQ(raw.Answered, 0);
  EXPECT_EQ(raw.LastUID, 77);
}

TEST(FolderStatusFileTest, UnreadableFilesGiveZeros) {
  TempDir dir;
  platform::Env* env = platform::Env::Default();
  FolderDetails d = Record(9, 9);
  ReadFolderStatusFile(env, dir.Sub("missing/_FOLDER.DAT"), &d);
  EXPECT_EQ(d.Total, 0);

  WriteFile(dir.Sub("_FOLDER.DAT"), std::string(51, '\x01'));
  d = Record(9, 9);
  ReadFolderStatusFile(env, dir.Sub("_FOLDER.DAT"), &d);
  EXPECT_EQ(d.Total, 0);
  EXPECT_EQ(d.Reserved0, 0);

  EXPECT_FALSE(WriteFolderStatusFile(env, dir.Sub("missing/_FOLDER.DAT"), d));
}

TEST(FolderStatusFileTest, ARecordWrittenInPartIsDeleted) {
  TempDir dir;
  const std::string path = dir.Sub("_FOLDER.DAT");
  testing::FaultInjectionEnv faults;
  WriteFile(path, Bytes(Record(5, 2)));
  faults.FailAt(2, platform::kErrorDiskFull, testing::FaultInjectionEnv::Fault::kShortWrite);
  EXPECT_FALSE(WriteFolderStatusFile(&faults, path, Record(9, 9)));
  EXPECT_FALSE(testing::Exists(path));
  FolderDetails back = Record(1, 1);
  ReadFolderStatusFile(&faults, path, &back);
  EXPECT_EQ(back.Total, 0);
}

TEST(FolderStatusFileTest, CachedStatusExportsFindTheFolderByName) {
  TempDir root;
  std::string saved = ModuleSettings().mail_root;
  ModuleSettings().mail_root = root.path();
  testing::MakeDirs(root.Sub("po/MAILROOT/box/Inbox"));

  qaaisp::SetCachedStatus("po", "box", "INBOX", Record(4, 2));
  EXPECT_TRUE(testing::Exists(root.Sub("po/MAILROOT/box/Inbox/_FOLDER.DAT")));
  FolderDetails d{};
  qaaisp::GetCachedStatus("po", "box", "inbox", &d);
  EXPECT_EQ(d.Total, 4);
  EXPECT_EQ(d.Seen, 2);

  // Set needs all three names; Get with no folder reads the mailbox's own.
  qaaisp::SetCachedStatus("po", "box", "", Record(6, 1));
  EXPECT_FALSE(testing::Exists(root.Sub("po/MAILROOT/box/_FOLDER.DAT")));
  WriteFile(root.Sub("po/MAILROOT/box/_FOLDER.DAT"), Bytes(Record(8, 8)));
  qaaisp::GetCachedStatus("po", "box", "", &d);
  EXPECT_EQ(d.Total, 8);
  ModuleSettings().mail_root = saved;
}

}  // namespace
}  // namespace qaaisp
