#include "store/folder_change_checks.h"

#include <gtest/gtest.h>

#include "test_env.h"

namespace qaaisp {
namespace {

using testing::Exists;
using testing::TempDir;
using testing::WriteFile;

TEST(FolderChangeChecksTest, InjectionFilesAreAllConsumedAndTheHighestWins) {
  TempDir box;
  platform::Env* env = platform::Env::Default();
  for (const char* name : {"_3.NEW", "_10.new", "_7.NEW", "_x.NEW", "_007.NEW"}) {
    WriteFile(box.Sub(name), "");
  }
  WriteFile(box.Sub("a.NEW"), "");  // not "_*.NEW"
  WriteFile(box.Sub("_10.NEW.keep"), "");
  testing::MakeDirs(box.Sub("_99.NEW"));  // a directory is not a signal

  EXPECT_EQ(ConsumeInjectionFiles(env, box.path()), 10);
  for (const char* name : {"_3.NEW", "_10.new", "_7.NEW", "_x.NEW", "_007.NEW"}) {
    EXPECT_FALSE(Exists(box.Sub(name))) << name;
  }
  EXPECT_TRUE(Exists(box.Sub("a.NEW")));
  EXPECT_TRUE(Exists(box.Sub("_10.NEW.keep")));
  EXPECT_TRUE(Exists(box.Sub("_99.NEW")));

  EXPECT_EQ(ConsumeInjectionFiles(env, box.path()), 0);
  EXPECT_EQ(ConsumeInjectionFiles(env, box.Sub("missing")), 0);
}

}  // namespace
}  // namespace qaaisp
