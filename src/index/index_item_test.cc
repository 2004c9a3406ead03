#include <gtest/gtest.h>

#include <memory>

#include "index/index_item.h"
#include "index/index_item_property_container.h"
#include "index/sorted_store_index.h"

namespace qaaisp {
namespace {

using Row = IndexItemPropertyContainer;

TEST(TextToIntegerTest, ReadsLeadingNumbersOn32Bits) {
  EXPECT_EQ(TextToInteger("42"), 42);
  EXPECT_EQ(TextToInteger("  -12abc"), -12);
  EXPECT_EQ(TextToInteger("+7"), 7);
  EXPECT_EQ(TextToInteger("abc"), 0);
  EXPECT_EQ(TextToInteger(""), 0);
  EXPECT_EQ(TextToInteger("-"), 0);
  EXPECT_EQ(TextToInteger("4294967295"), -1) << "what an unsigned -1 was written as";
  EXPECT_EQ(TextToInteger("3000000000"), static_cast<int32_t>(3000000000u));
}

TEST(RowTest, TextsAndIntegersConvertBothWays) {
  Row row;
  row.SetInteger("SIZE", -1);
  EXPECT_EQ(row.GetText("SIZE"), "4294967295");
  EXPECT_EQ(row.GetInteger("SIZE"), -1);

  row.SetText("SIZE", "1234 bytes", false);
  EXPECT_EQ(row.GetInteger("SIZE"), 1234);
  row.SetInteger("SUBJECT", -5);  // a text property stores the decimal text
  EXPECT_EQ(row.GetText("SUBJECT"), "-5");
  EXPECT_EQ(row.GetInteger("SUBJECT"), -5);

  char buffer[4];
  row.SetText("FROM", "someone@example.com", false);
  row.GetText("FROM", buffer, sizeof buffer);
  EXPECT_STREQ(buffer, "som");
  row.GetText("TO", buffer, sizeof buffer);
  EXPECT_STREQ(buffer, "") << "no value leaves an empty string";
  row.GetText("SIZE", buffer, 1);
  EXPECT_STREQ(buffer, "");
}

TEST(RowTest, EmptyValuesNeedForceAndIntegersBelowSizeHaveValues) {
  Row row;
  row.SetText("SUBJECT", "hello", false);
  row.SetText("SUBJECT", "", false);
  EXPECT_EQ(row.GetText("SUBJECT"), "hello");
  row.SetText("SUBJECT", "", true);
  EXPECT_FALSE(row.HasValue("SUBJECT"));

  // "SIZE" has a lower slot than any name made after it.
  Row fresh;
  LookupProperty("SIZE", nullptr);
  EXPECT_EQ(fresh.GetInteger("SIZE"), 0);
  EXPECT_FALSE(fresh.HasValue("SIZE"));
  fresh.SetText("ROW_TEST_LATER_NAME", "x", false);
  EXPECT_TRUE(fresh.HasValue("SIZE")) << "an integer slot below the size has a value";
  EXPECT_EQ(fresh.GetText("SIZE"), "0");

  row.SetText("ROW_TEST_LATER_NAME", "x", false);
  row.Remove("ROW_TEST_LATER_NAME");
  EXPECT_FALSE(row.HasValue("ROW_TEST_LATER_NAME"));
  row.SetInteger("SIZE", 9);
  row.Remove("SIZE");
  EXPECT_TRUE(row.HasValue("SIZE"));
  EXPECT_EQ(row.GetInteger("SIZE"), 0);
}

TEST(RowTest, FlattenMergeAndCloneCarryValues) {
  Row row;
  row.SetText("ID", "1.MAI", false);
  row.SetInteger("UID", 7);
  row.SetText("SUBJECT", "hi", false);
  row.FileOffset = 33;
  row.FileLength = 120;

  PropertyValues all;
  row.Flatten(nullptr, &all);
  EXPECT_EQ(all["ID"], "1.MAI");
  EXPECT_EQ(all["SUBJECT"], "hi");
  EXPECT_EQ(all["UID"], "7");
  EXPECT_EQ(all["READ"], "0") << "integers below the row's size have values";
  EXPECT_EQ(all.count("FROM"), 0u) << "texts without values are left out";
  std::vector<std::string> names = {"SUBJECT", "FROM"};
  PropertyValues listed;
  row.Flatten(&names, &listed);
  EXPECT_EQ(listed, (PropertyValues{{"FROM", ""}, {"SUBJECT", "hi"}}));

  std::unique_ptr<Row> clone(row.Clone());
  EXPECT_EQ(clone->owner(), nullptr);
  EXPECT_EQ(clone->local_map(), nullptr);
  EXPECT_EQ(clone->FileOffset, 33);
  EXPECT_EQ(clone->FileLength, 120u);
  PropertyValues cloned;
  clone->Flatten(nullptr, &cloned);
  EXPECT_EQ(cloned, all);
  row.SetText("SUBJECT", "changed", false);
  EXPECT_EQ(clone->GetText("SUBJECT"), "hi") << "a clone owns its own texts";

  std::unique_ptr<Row> partial(row.Clone(&names));
  EXPECT_FALSE(partial->HasValue("ID"));
  EXPECT_FALSE(partial->HasValue("FROM"));
  EXPECT_EQ(partial->GetText("SUBJECT"), "changed");

  Row merged;
  merged.Merge({{"SUBJECT", "m"}, {"SIZE", "12"}, {"TO", ""}});
  EXPECT_EQ(merged.GetText("SUBJECT"), "m");
  EXPECT_EQ(merged.GetInteger("SIZE"), 12);
  EXPECT_FALSE(merged.HasValue("TO"));
}

TEST(IndexItemTest, FlagStatusKeepsReadInStepOneWay) {
  IndexItem item;
  item.Create();
  item.SetProperty("FLAGSTATUS", "\\Answered \\sEeN");
  EXPECT_EQ(item.GetInteger("READ"), 1);
  item.SetProperty("FLAGSTATUS", "\\Answered");
  EXPECT_EQ(item.GetInteger("READ"), 0);
  item.SetProperty("READ", "1");
  std::string flags;
  item.GetProperty("FLAGSTATUS", &flags);
  EXPECT_EQ(flags, "\\Answered") << "READ alone does not touch FLAGSTATUS";
  item.SetProperty("flagstatus", "\\SEEN");
  EXPECT_EQ(item.GetInteger("READ"), 1) << "the name is compared exactly";
  item.SetProperty("FLAGSTATUS", "");
  EXPECT_FALSE(item.GetProperty("FLAGSTATUS", &flags)) << "stored with force";
  EXPECT_EQ(item.GetInteger("READ"), 0);
}

TEST(IndexItemTest, ForcedSettersReportWhetherAValueStands) {
  IndexItem item;
  EXPECT_FALSE(item.SetPropertyForced("SUBJECT", "x")) << "no row: nothing happens";
  std::string out = "stale";
  EXPECT_FALSE(item.GetProperty("SUBJECT", &out));
  EXPECT_EQ(out, "");
  item.Create();
  EXPECT_TRUE(item.SetPropertyForced("SUBJECT", "x"));
  EXPECT_FALSE(item.SetPropertyForced("SUBJECT", ""));
  EXPECT_TRUE(item.SetIntegerForced("SIZE", 0));
  EXPECT_FALSE(item.HasKey());
  item.SetProperty("ID", "5.MAI");
  EXPECT_TRUE(item.HasKey());
}

TEST(IndexItemTest, AttachOwnsOnlyCopies) {
  Row shared;
  shared.SetText("SUBJECT", "shared", false);
  IndexItem item;
  item.Create();  // attaching destroys this owned row
  item.Attach(&shared, false);
  EXPECT_EQ(item.container(), &shared);
  EXPECT_FALSE(item.owned());
  item.Attach(&shared, true);
  ASSERT_NE(item.container(), &shared);
  EXPECT_TRUE(item.owned());
  item.SetProperty("SUBJECT", "copy");
  EXPECT_EQ(shared.GetText("SUBJECT"), "shared");
  item.Attach(item.container(), true);  // a copy of its own row
  EXPECT_EQ(item.container()->GetText("SUBJECT"), "copy");
  std::unique_ptr<Row> released(item.Release());
  EXPECT_FALSE(item.HasItem());
  EXPECT_FALSE(item.owned());
  item.Attach(released.get(), false);
  item.Detach();
  EXPECT_FALSE(item.HasItem());
}

TEST(IndexItemTest, ResetKeepsOnlyTheKeys) {
  SORTEDSTOREINDEXTYPE table;
  IndexItem other;
  other.Create();
  other.SetProperty("ID", "1.MAI");
  ASSERT_TRUE(table.Insert(&other, UidClash::kNextFree));
  IndexItem item;
  item.Create();
  item.SetProperty("ID", "9.MAI");
  item.SetProperty("UID", "500");
  item.SetProperty("SUBJECT", "gone");
  item.SetProperty("SIZE", "10");
  Row* row = item.container();
  ASSERT_TRUE(table.Insert(&item, UidClash::kNextFree));
  ASSERT_EQ(table.FirstModifiedUID, 1u);

  item.Reset();
  EXPECT_EQ(row->GetText("ID"), "9.MAI");
  EXPECT_EQ(row->Uid(), 500u);
  EXPECT_FALSE(row->HasValue("SUBJECT"));
  EXPECT_FALSE(row->HasValue("SIZE"));
  EXPECT_EQ(table.FirstModifiedUID, 1u) << "the change of row 1 must not be forgotten";
}

}  // namespace
}  // namespace qaaisp
