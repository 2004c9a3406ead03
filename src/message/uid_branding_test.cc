// Folder stamps and the X-UID rewrites, including what each of their file
// operations leaves behind when it fails.
#include "message/uid_branding.h"

#include <gtest/gtest.h>

#include "message/message_test_support.h"

namespace qaaisp {
namespace {

using namespace message_testing;
using qaaisp::testing::Exists;
using qaaisp::testing::FaultInjectionEnv;

// Gives directories a chosen creation time (zero: none recorded) and counts
// every open.
class CreationTimeEnv : public platform::EnvWrapper {
 public:
  explicit CreationTimeEnv(platform::Env* target) : EnvWrapper(target) {}
  bool Stat(const std::string& path, platform::FileInfo* info) override {
    if (!EnvWrapper::Stat(path, info)) return false;
    if (info->is_directory) info->creation_time = creation;
    return true;
  }
  std::unique_ptr<platform::File> OpenFile(const std::string& path,
                                           const platform::OpenOptions& options) override {
    ++opens;
    return EnvWrapper::OpenFile(path, options);
  }
  platform::FileTime creation;
  int opens = 0;
};

class FolderStampTest : public MessageTest {
 protected:
  FolderStampTest() : env_(platform::Env::Default()), scoped_(&env_) {}
  CreationTimeEnv env_;
  ScopedDefaultEnv scoped_;
};

TEST_F(FolderStampTest, UnixTimeFromTheCutOffOnRawFileTimeBefore) {
  env_.creation = platform::FileTimeFromUnixNanos(1396310401, 0);
  EXPECT_EQ(GetFolderStamp(folder()), 1396310401u);
  env_.creation = platform::FileTimeFromUnixNanos(1396310400, 9999900);
  EXPECT_EQ(GetFolderStamp(folder()), env_.creation.low);
  EXPECT_EQ(GetFolderStamp(folder() + "/absent"), 0u);
  EXPECT_FALSE(Exists(folder() + "/.folder_stamp"));
}

TEST_F(FolderStampTest, WithoutACreationTimeAStampFileStandsIn) {
  const uint32_t first = GetFolderStamp(folder());
  ASSERT_TRUE(Exists(folder() + "/.folder_stamp"));
  platform::FileInfo stamp_file;
  ASSERT_TRUE(env_.Stat(folder() + "/.folder_stamp", &stamp_file));
  EXPECT_EQ(first, static_cast<uint32_t>(platform::UnixSecondsFromFileTime(stamp_file.write_time)));
  EXPECT_EQ(GetFolderStamp(folder()), first);  // stable for the folder's life
}

class BrandingTest : public MessageTest {
 protected:
  BrandingTest() : MessageTest({Dword("UID Branding Enabled", 1)}) {}

  std::string Brand(const std::string& text, uint32_t stamp, uint32_t uid) {
    Put("1.MAI", text);
    BrandMessageUID(folder(), "1.MAI", stamp, uid);
    EXPECT_FALSE(Exists(folder() + "/_1.MAI"));
    return ReadFile(folder() + "/1.MAI");
  }
  std::string Rebrand(const std::string& text) {
    Put("1.MAI", text);
    RebrandMessage(folder(), "1.MAI", 77, 5);
    EXPECT_FALSE(Exists(folder() + "/_1.MAI"));
    return ReadFile(folder() + "/1.MAI");
  }
};

TEST_F(BrandingTest, BrandingReplacesOrAddsTheUidLine) {
  EXPECT_EQ(Brand("From: a\r\nx-uid: 1.2\r\nSubject: s\r\n\r\nX-UID: body\r\n", 1700000000, 5),
            "From: a\r\nX-UID: 1700000000.5\r\nSubject: s\r\n\r\nX-UID: body\r\n");
  EXPECT_EQ(Brand("From: a\r\n\r\nbody\r\n", 0, 5), "From: a\r\nX-UID: 5\r\n\r\nbody\r\n");
  EXPECT_EQ(Brand("X-UID: 1\r\nTo: b\r\nX-UID: 2\r\n\r\n", 3, 4),
            "X-UID: 3.4\r\nTo: b\r\nX-UID: 3.4\r\n\r\n");
  // A header that never ends gets no line.
  EXPECT_EQ(Brand("From: a\r\nSubject: s\r\n", 3, 4), "From: a\r\nSubject: s\r\n");
  const std::string big(200000, 'b');
  EXPECT_EQ(Brand("From: a\r\n\r\n" + big, 3, 4), "From: a\r\nX-UID: 3.4\r\n\r\n" + big);
}

TEST_F(BrandingTest, RebrandingOnlyStripsAndTempFlagsAreFound) {
  EXPECT_EQ(Rebrand("X-UID: 9.9\r\nFrom: a\r\nX-QATempFlags: \\Seen\r\n\r\nX-UID: 1\r\n"),
            "From: a\r\n\r\nX-UID: 1\r\n");
  // Nothing to strip: the file keeps its bytes.
  EXPECT_EQ(Rebrand("From: a\r\n\r\nbody\r\n"), "From: a\r\n\r\nbody\r\n");

  Put("2.MAI", "From: a\r\nX-QATempFlags: \\Flagged\r\n\r\n");
  Put("3.MAI", "From: a\r\n\r\nX-QATempFlags: \\Flagged\r\n");
  EXPECT_EQ(MessageHasTempFlags(folder(), "2.MAI"), 1);
  EXPECT_EQ(MessageHasTempFlags(folder(), "3.MAI"), 0);
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(MessageHasTempFlags(folder(), "4.MAI"), 0);
  BrandMessageUID(folder(), "4.MAI", 1, 1);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "Could not open message file for input\r\n"
            "Could not open message file for input\r\n");
}

TEST_F(BrandingTest, EachFailingStepLeavesTheMessageAsTheRoutineSays) {
  const std::string before = "From: a\r\n\r\nbody\r\n";
  const std::string after = "From: a\r\nX-UID: 3.4\r\n\r\nbody\r\n";
  FaultInjectionEnv faults;
  ScopedDefaultEnv scoped(&faults);
  const std::string message = folder() + "/1.MAI";
  const std::string work = folder() + "/_1.MAI";

  struct Outcome {
    bool message_there;
    std::string message_text;
    bool work_there;
  };
  // The calls: open the work file, write it, move it over the message.
  const Outcome outcomes[] = {
      {false, "", false},     // no work file: the message goes all the same
      {true, before, false},  // a failed write never replaces the message
      {true, before, true},   // a failed move leaves the message and its copy
  };
  for (int call = 1; call <= 3; ++call) {
    Put("1.MAI", before);
    faults.Reset();
    faults.FailAt(call);
    ::testing::internal::CaptureStdout();
    BrandMessageUID(folder(), "1.MAI", 3, 4);
    const std::string printed = ::testing::internal::GetCapturedStdout();
    const Outcome& o = outcomes[call - 1];
    EXPECT_EQ(Exists(message), o.message_there) << call;
    if (o.message_there) {
      EXPECT_EQ(ReadFile(message), o.message_text) << call;
    }
    EXPECT_EQ(Exists(work), o.work_there) << call;
    if (call == 3) {
      EXPECT_EQ(ReadFile(work), after);
    }
    EXPECT_EQ(printed, call == 1 ? "Could not open message file for writing\r\n" : "") << call;
    faults.target()->RemoveFile(work);
  }
  faults.Reset();
  Put("1.MAI", before);
  faults.FailAt(2, 112, FaultInjectionEnv::Fault::kShortWrite);
  BrandMessageUID(folder(), "1.MAI", 3, 4);
  EXPECT_EQ(ReadFile(message), before);
  EXPECT_FALSE(Exists(work));
}

TEST(BrandingOffTest, NoFileIsOpened) {
  TempDir dir;
  ScopedRegistry registry(RegText({}));
  ResetMessageSettingsForTesting();
  ASSERT_EQ(UidBrandingSetting(), 0u);  // read before opens are counted
  CreationTimeEnv env(platform::Env::Default());
  ScopedDefaultEnv scoped(&env);
  WriteFile(dir.Sub("1.MAI"), "X-QATempFlags: \\Seen\r\n\r\n");
  BrandMessageUID(dir.path(), "1.MAI", 1, 2);
  RebrandMessage(dir.path(), "1.MAI", 1, 2);
  EXPECT_EQ(MessageHasTempFlags(dir.path(), "1.MAI"), 0);
  EXPECT_EQ(env.opens, 0);
  EXPECT_EQ(ReadFile(dir.Sub("1.MAI")), "X-QATempFlags: \\Seen\r\n\r\n");
  ResetMessageSettingsForTesting();
}

}  // namespace
}  // namespace qaaisp
