#include "locks/file_iterator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "platform/win32_error.h"
#include "test_env.h"

namespace qaaisp {
namespace {

using testing::MakeDirs;
using testing::TempDir;
using testing::WriteFile;

std::vector<std::string> Names(FileIterator& it) {
  std::vector<std::string> names;
  for (; !it.Done(); it.Next()) names.push_back(it.name());
  return names;
}

std::vector<std::string> Sorted(FileIterator it) {
  auto names = Names(it);
  std::sort(names.begin(), names.end());
  return names;
}

class FileIteratorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* name : {"1.MAI", "2.mai", "3.Mai", "4.MAIL", "_index.xml", "x.VCF"}) {
      WriteFile(dir_.Sub("Inbox/" + std::string(name)), "body");
    }
    MakeDirs(dir_.Sub("Inbox/Sub.MAI"));
    MakeDirs(dir_.Sub("Inbox/Other"));
  }
  TempDir dir_;
};

TEST_F(FileIteratorTest, PatternsIgnoreCaseAndFiltersSelectKinds) {
  EXPECT_EQ(Sorted(FileIterator(dir_.Sub("Inbox/*.MAI"), FileIterator::kFiles)),
            (std::vector<std::string>{"1.MAI", "2.mai", "3.Mai"}));
  EXPECT_EQ(Sorted(FileIterator(dir_.Sub("Inbox/*.mai"))),
            (std::vector<std::string>{"1.MAI", "2.mai", "3.Mai", "Sub.MAI"}));
  EXPECT_EQ(Sorted(FileIterator(dir_.Sub("Inbox/*"), FileIterator::kDirectories)),
            (std::vector<std::string>{"Other", "Sub.MAI"}));
  EXPECT_EQ(Sorted(FileIterator(dir_.Sub("Inbox/_*.XML"))),
            (std::vector<std::string>{"_index.xml"}));
  EXPECT_EQ(Sorted(FileIterator(dir_.Sub("Inbox/?.MAI"), FileIterator::kFiles)).size(), 3u);
}

TEST_F(FileIteratorTest, DirectoryIsFoundInAnyCaseAndPathsUseIt) {
  FileIterator it(dir_.path() + "\\INBOX\\*.vcf", FileIterator::kFiles, /*with_info=*/true);
  ASSERT_TRUE(it.ok());
  EXPECT_EQ(it.directory(), dir_.Sub("Inbox"));
  ASSERT_FALSE(it.Done());
  EXPECT_EQ(it.path(), dir_.Sub("Inbox/x.VCF"));
  EXPECT_EQ(it.entry().size, 4u);
  EXPECT_FALSE(it.entry().write_time.IsZero());
}

TEST_F(FileIteratorTest, PlainNamesAreLookedUpWithoutAListing) {
  FileIterator exact(dir_.Sub("Inbox/_index.xml"));
  EXPECT_EQ(Names(exact), std::vector<std::string>{"_index.xml"});
  FileIterator other_case(dir_.Sub("inbox/X.vcf"));
  EXPECT_EQ(Names(other_case), std::vector<std::string>{"x.VCF"});
  FileIterator dir_only(dir_.Sub("Inbox/_index.xml"), FileIterator::kDirectories);
  EXPECT_TRUE(dir_only.Done());
  EXPECT_EQ(dir_only.error(), 2u);
}

TEST_F(FileIteratorTest, ErrorsTellAnEmptyMatchFromAMissingDirectory) {
  FileIterator none(dir_.Sub("Inbox/*.CAL"));
  EXPECT_TRUE(none.ok());
  EXPECT_TRUE(none.Done());
  EXPECT_EQ(none.error(), 2u);
  FileIterator missing(dir_.Sub("Nowhere/*.MAI"));
  EXPECT_FALSE(missing.ok());
  EXPECT_EQ(missing.error(), 3u);
  FileIterator missing_name(dir_.Sub("Nowhere/a.MAI"));
  EXPECT_FALSE(missing_name.ok());
}

TEST_F(FileIteratorTest, SortingOrdersWhatIsLeft) {
  for (const char* name : {"b", "A", "a", "C"}) WriteFile(dir_.Sub("s/" + std::string(name)), "");
  FileIterator it(dir_.Sub("s/*"));
  it.SortByName(/*ignore_case=*/true);
  EXPECT_EQ(Names(it), (std::vector<std::string>{"A", "a", "b", "C"}));
  FileIterator bytes(dir_.Sub("s/*"));
  bytes.SortByName(false);
  EXPECT_EQ(Names(bytes), (std::vector<std::string>{"A", "C", "a", "b"}));
}

// Takes the portable fill, a stat of each entry by its path.
class PortableFillEnv : public platform::EnvWrapper {
 public:
  using EnvWrapper::EnvWrapper;
  void FillEntryInfo(const std::string& dir, platform::DirEntry* entries, size_t count,
                     bool* gone) override {
    Env::FillEntryInfo(dir, entries, count, gone);
  }
};

TEST_F(FileIteratorTest, InfoFilledInRunsAfterTheListingIsThatOfAListingWithIt) {
  WriteFile(dir_.Sub("Inbox/5.MAI"), std::string(5000, 'x'));
  PortableFillEnv portable(platform::Env::Default());
  for (platform::Env* env : {platform::Env::Default(), static_cast<platform::Env*>(&portable)}) {
    SCOPED_TRACE(env == &portable ? "portable" : "backend");
    testing::ScopedDefaultEnv scoped(env);
    WriteFile(dir_.Sub("Inbox/gone.MAI"), "");
    FileIterator filled(dir_.Sub("Inbox/*.MAI"));
    ASSERT_TRUE(platform::Env::Default()->RemoveFile(dir_.Sub("Inbox/gone.MAI")));
    FileIterator with_info(dir_.Sub("Inbox/*.MAI"), FileIterator::kFilesAndDirectories, true);
    filled.PrepareInfo();
    std::thread other([&] { filled.FillInfo(0, 2); });
    filled.FillInfo(2, 100);
    other.join();
    filled.DropVanished();
    filled.SortByName(false);
    with_info.SortByName(false);
    ASSERT_EQ(filled.size(), with_info.size());
    ASSERT_EQ(filled.size(), 5u);  // four messages and the directory
    for (; !filled.Done(); filled.Next(), with_info.Next()) {
      SCOPED_TRACE(filled.name());
      EXPECT_EQ(filled.name(), with_info.name());
      EXPECT_EQ(filled.entry().is_directory, with_info.entry().is_directory);
      if (filled.entry().is_directory) continue;
      EXPECT_EQ(filled.entry().size, with_info.entry().size);
      EXPECT_EQ(filled.entry().write_time.ticks(), with_info.entry().write_time.ticks());
      EXPECT_FALSE(filled.entry().write_time.IsZero());
    }
    // A listing that lost every entry reports no match.
    WriteFile(dir_.Sub("Inbox/gone.MAI"), "");
    FileIterator lost(dir_.Sub("Inbox/gone*"));
    ASSERT_TRUE(platform::Env::Default()->RemoveFile(dir_.Sub("Inbox/gone.MAI")));
    EXPECT_EQ(lost.error(), 0u);
    lost.PrepareInfo();
    lost.FillInfo(0, 1);
    lost.DropVanished();
    EXPECT_TRUE(lost.Done());
    EXPECT_EQ(lost.error(), platform::kErrorFileNotFound);
  }
}

}  // namespace
}  // namespace qaaisp
