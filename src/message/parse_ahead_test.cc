#include "message/parse_ahead.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <string>
#include <vector>

#include "message/message_test_support.h"

namespace qaaisp {
namespace {

using namespace message_testing;

// Counts message files opened, from whichever thread.
class OpenCountingEnv : public FakeClockEnv {
 public:
  std::unique_ptr<platform::File> OpenFile(const std::string& path,
                                           const platform::OpenOptions& options) override {
    if (path.ends_with(".MAI")) ++opens_;
    return FakeClockEnv::OpenFile(path, options);
  }
  int opens() const { return opens_.load(); }

 private:
  std::atomic<int> opens_{0};
};

class ParseAheadTest : public MessageTest {
 protected:
  ParseAheadTest() : scoped_counting_(&counting_) {}

  // count messages "0000.MAI"..., each with its number in the subject,
  // listed in that order; positions listed in missing have no file.
  void MakeFolder(int count, const std::vector<int>& missing = {}) {
    entries_.resize(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
      char name[16];
      std::snprintf(name, sizeof name, "%04d.MAI", i);
      entries_[static_cast<size_t>(i)].name = name;
      if (std::find(missing.begin(), missing.end(), i) == missing.end())
        Put(name, "Subject: message " + std::to_string(i) + "\r\n\r\nbody\r\n");
    }
    for (const platform::DirEntry& entry : entries_) listing_.push_back(&entry);
  }

  std::vector<platform::DirEntry> entries_;
  std::vector<const platform::DirEntry*> listing_;
  OpenCountingEnv counting_;
  ScopedDefaultEnv scoped_counting_;
};

// Every tenth file "has a row" and is not among the new files; every
// seventh new file is passed over by the scan, as one found to have a row
// after all; file 50 cannot be read.
TEST_F(ParseAheadTest, ResultsComeInTheScansOrderWhateverTheHelpersDo) {
  MakeFolder(300, {50});
  std::vector<size_t> positions;
  for (size_t i = 0; i < listing_.size(); ++i) {
    if (i % 10 != 0) positions.push_back(i);
  }
  for (unsigned helpers : {0u, 1u, 3u}) {
    SCOPED_TRACE(helpers);
    ParseAhead ahead(folder(), listing_, positions, /*stamp=*/7, helpers);
    for (size_t i = 0; i < listing_.size(); ++i) {
      if (i % 7 == 3 && i % 10 != 0) continue;
      IndexedMessage* read = ahead.Take(i);
      if (i % 10 == 0) {
        EXPECT_EQ(read, nullptr) << i;
        continue;
      }
      ASSERT_NE(read, nullptr) << i;
      EXPECT_EQ(read->info.FileName, entries_[i].name);
      EXPECT_EQ(read->info.FolderStamp, 7u);
      if (i == 50) {
        EXPECT_FALSE(read->indexed);
        continue;
      }
      EXPECT_TRUE(read->indexed) << i;
      EXPECT_EQ(read->info.Subject, "message " + std::to_string(i));
      EXPECT_GT(read->read_size, 0u);
    }
  }
}

TEST_F(ParseAheadTest, AScanStoppedPartWayReadsNoMoreThanTheWindowAhead) {
  MakeFolder(300);
  std::vector<size_t> positions(listing_.size());
  for (size_t i = 0; i < positions.size(); ++i) positions[i] = i;
  {
    ParseAhead ahead(folder(), listing_, positions, 0, 3);
    ASSERT_NE(ahead.Take(5), nullptr);
    EXPECT_EQ(ahead.Take(6)->info.Subject, "message 6");
  }
  // Files 0 to 6 and a window's worth beyond the one held, at most; the
  // helpers are gone, so the count stays.
  EXPECT_LE(counting_.opens(), static_cast<int>(7 + ParseAhead::kWindow));
  const int after = counting_.opens();
  EXPECT_EQ(counting_.opens(), after);

  // Too few new files to be worth a helper: all are read at Take.
  std::vector<size_t> few(positions.begin(), positions.begin() + ParseAhead::kLeastFiles - 1);
  {
    ParseAhead ahead(folder(), listing_, few, 0, 3);
    ASSERT_NE(ahead.Take(0), nullptr);
    EXPECT_EQ(counting_.opens(), after + 1);
  }
  EXPECT_EQ(counting_.opens(), after + 1);
}

}  // namespace
}  // namespace qaaisp
