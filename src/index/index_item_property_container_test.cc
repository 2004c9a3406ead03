// Texts stored together in one block must leave a row exactly as storing
// them one by one does, through later changes, resets, clones and teardown.
#include "index/index_item_property_container.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace qaaisp {
namespace {

using Row = IndexItemPropertyContainer;
using TextAt = Row::TextAt;

PropertyKey Key(const char* name) { return LookupProperty(name, nullptr); }

void ExpectSameRows(const Row& a, const Row& b, const std::string& label) {
  PropertyValues want;
  PropertyValues got;
  a.Flatten(nullptr, &want);
  b.Flatten(nullptr, &got);
  EXPECT_EQ(got, want) << label;
}

// The same texts stored one by one into one row and all at once into the
// other.
void StoreBothWays(Row* single, Row* together, const std::vector<TextAt>& texts) {
  for (const TextAt& t : texts) single->SetTextAt(t.key, t.value, true);
  together->SetTextsAt(texts);
}

TEST(SetTextsAtTest, StoresWhatStoringOneByOneStores) {
  const std::string long_value(300, 'x');
  const std::vector<TextAt> first = {
      {Key("ID"), "1.MAI"},       {Key("SUBJECT"), "Hello"},
      {Key("FROM"), long_value},  {Key("CC"), ""},  // an empty text stores no record
      {Key("SIZE"), "1234"},                        // an integer slot reads the text's number
      {PropertyKey{}, "ignored"},                   // no such property
      {Key("SUBJECT"), "Twice"},                    // the later of two wins
  };
  Row single;
  Row together;
  StoreBothWays(&single, &together, first);
  ExpectSameRows(single, together, "fresh rows");
  EXPECT_EQ(together.TextViewAt(Key("SUBJECT")), "Twice");
  EXPECT_EQ(together.GetIntegerAt(Key("SIZE")), 1234);
  EXPECT_FALSE(together.HasValueAt(Key("CC")));

  // A row that has its block already stores the next batch one by one;
  // values replaced or cleared leave the block to the row.
  const std::vector<TextAt> second = {{Key("SUBJECT"), ""}, {Key("TO"), "t@x"}, {Key("ID"), "2"}};
  StoreBothWays(&single, &together, second);
  ExpectSameRows(single, together, "second batch");
  together.SetTextAt(Key("FROM"), "changed", true);
  single.SetTextAt(Key("FROM"), "changed", true);
  ExpectSameRows(single, together, "single change");

  std::unique_ptr<Row> clone(together.Clone());
  ExpectSameRows(single, *clone, "clone");

  // A reset gives the block back but keeps the keys.
  together.ResetKeepingKeys();
  single.ResetKeepingKeys();
  ExpectSameRows(single, together, "reset");
  StoreBothWays(&single, &together, first);
  ExpectSameRows(single, together, "after reset");
}

TEST(SetTextsAtTest, BatchesWithoutTextsAndRowsStartingEmpty) {
  Row single;
  Row together;
  EXPECT_EQ(together.slot_count(), 0u);
  StoreBothWays(&single, &together, {});
  StoreBothWays(&single, &together, {{Key("SUBJECT"), ""}, {Key("UID"), "7"}});
  ExpectSameRows(single, together, "no records");
  EXPECT_EQ(together.Uid(), 7u);
  // Reserved room holds no values.
  Row reserved;
  reserved.ReserveSlots(40);
  EXPECT_EQ(reserved.slot_count(), 0u);
  EXPECT_FALSE(reserved.HasValueAt(Key("SUBJECT")));
}

}  // namespace
}  // namespace qaaisp
