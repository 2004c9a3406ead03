#include "index/text_record.h"

#include <gtest/gtest.h>

#include <string>

#include "index/sorted_store_index.h"

namespace qaaisp {
namespace {

using Row = IndexItemPropertyContainer;

TEST(TextPoolTest, RecordsKeepTheirBytesAcrossBlocks) {
  TextPool pool;
  std::string big(200000, 'z');
  TextRecord* small = pool.Make("abc");
  TextRecord* empty = pool.Make("");
  TextRecord* large = pool.Make(big);
  TextRecord* after = pool.Make("def");
  EXPECT_TRUE(small->pooled());
  EXPECT_EQ(small->view(), "abc");
  EXPECT_EQ(small->bytes()[3], '\0');
  EXPECT_EQ(empty->view(), "");
  EXPECT_EQ(large->view(), big);
  EXPECT_EQ(after->view(), "def");
  EXPECT_EQ(reinterpret_cast<uintptr_t>(after) % alignof(TextRecord), 0u);
  // Freeing a pooled record leaves it to the pool; the sanitiser would
  // report a free of memory malloc never gave.
  TextRecord::Free(small);
  EXPECT_EQ(small->view(), "abc");
  EXPECT_GE(pool.bytes_held(), big.size());
  pool.Clear();
  EXPECT_EQ(pool.bytes_held(), 0u);
  TextRecord* heap = TextRecord::Make("h");
  EXPECT_FALSE(heap->pooled());
  TextRecord::Free(heap);
}

TEST(TextPoolTest, LoadedRowsWorkLikeAnyOtherAndClonesOutliveTheTable) {
  auto table = std::make_unique<SORTEDSTOREINDEXTYPE>();
  PropertyMap* map = table->local_map();
  const PropertyKey subject = LookupProperty("SUBJECT", map);
  const PropertyKey size = LookupProperty("SIZE", map);
  auto* row = new Row(8);
  row->set_local_map(map);
  row->LoadValueAt(Row::IdKey(), "1.MAI", table->text_pool());
  row->LoadValueAt(Row::UidKey(), "7", table->text_pool());
  row->LoadValueAt(subject, "first", table->text_pool());
  row->LoadValueAt(subject, "second", table->text_pool());  // a repeated tag: the last stands
  row->LoadValueAt(size, "120", table->text_pool());
  row->LoadValueAt(LookupProperty("EMPTY", map), "", table->text_pool());
  ASSERT_TRUE(table->InsertRow(row, UidClash::kRefuse));
  EXPECT_EQ(table->FirstModifiedUID, 7u);

  EXPECT_EQ(row->GetText("SUBJECT"), "second");
  EXPECT_EQ(row->GetInteger("SIZE"), 120);
  EXPECT_EQ(row->Uid(), 7u);
  EXPECT_FALSE(row->HasValue("EMPTY"));
  // Changing, removing and resetting pooled values must not free them.
  row->SetText("SUBJECT", "changed", true);
  EXPECT_EQ(row->GetText("SUBJECT"), "changed");
  row->Remove("SUBJECT");
  EXPECT_FALSE(row->HasValue("SUBJECT"));
  row->SetText("SUBJECT", "again", true);
  std::unique_ptr<Row> clone(row->Clone());
  row->ResetKeepingKeys();
  EXPECT_EQ(row->GetText("ID"), "1.MAI");
  table.reset();
  EXPECT_EQ(clone->GetText("ID"), "1.MAI");
  EXPECT_EQ(clone->GetText("SUBJECT"), "again");
}

}  // namespace
}  // namespace qaaisp
