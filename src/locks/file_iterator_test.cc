#include "locks/file_iterator.h"

#include <gtest/gtest.h>

#include <algorithm>

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

}  // namespace
}  // namespace qaaisp
