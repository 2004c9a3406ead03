#include "index/id_batch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "index/index_item_property_container.h"

namespace qaaisp {
namespace {

using Row = IndexItemPropertyContainer;

Row* Tag(uintptr_t n) { return reinterpret_cast<Row*>(n * 16); }

TEST(IdBatchTest, MergesInTheMapsOwnOrderWhateverThePrefixes) {
  // Prefixes of 16 bytes and more, IDs that are prefixes of others, zero
  // and high bytes: the sort's shortcut must agree with string order.
  std::vector<std::string> ids = {"20240101000001-00002.MAI",
                                  "20240101000001-00001.MAI",
                                  "20240101000001-0000",
                                  "20240101000001-",
                                  "2024010100000",
                                  std::string("ab\0", 3),
                                  "ab",
                                  std::string("ab\0c", 4),
                                  "\xff\xfe",
                                  "",
                                  "B.MAI",
                                  "b.MAI"};
  std::mt19937 rng(3);
  for (int n = 0; n < 2000; ++n) {
    ids.push_back("20240101000001-" + std::to_string(rng() % 100000) + ".MAI");
  }
  std::sort(ids.begin(), ids.end());
  ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
  std::vector<std::string> shuffled = ids;
  std::shuffle(shuffled.begin(), shuffled.end(), rng);

  IdBatch batch;  // no reservation: it grows as it goes
  for (size_t i = 0; i < shuffled.size(); ++i) {
    ASSERT_FALSE(batch.Contains(shuffled[i])) << i;
    batch.Add(shuffled[i], Tag(i + 1));
    ASSERT_TRUE(batch.Contains(shuffled[i])) << i;
  }
  for (const std::string& id : shuffled) ASSERT_TRUE(batch.Contains(id));
  EXPECT_FALSE(batch.Contains(std::string("ab\0\0", 4)));
  EXPECT_FALSE(batch.Contains("20240101000001-00001.MA"));

  IdBatch::Map map;
  batch.MergeInto(&map);
  EXPECT_TRUE(batch.empty());
  EXPECT_FALSE(batch.Contains(ids[0]));
  ASSERT_EQ(map.size(), ids.size());
  size_t i = 0;
  for (const auto& [id, row] : map) {
    EXPECT_EQ(id, ids[i++]);
    size_t at = std::find(shuffled.begin(), shuffled.end(), id) - shuffled.begin();
    EXPECT_EQ(row, Tag(at + 1));
  }
}

}  // namespace
}  // namespace qaaisp
