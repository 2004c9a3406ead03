#include "persist/elements_ahead.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "index/index_item_property_container.h"
#include "index/property_map.h"

namespace qaaisp::persist {
namespace {

// Rows of several kinds of value, texts that need escaping among them, and
// a context as a message folder's save makes it.
class ElementsAheadTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const PropertyKey subject = LookupProperty("SUBJECT", nullptr);
    const PropertyKey size = LookupProperty("SIZE", nullptr);
    const PropertyKey from = LookupProperty("FROM", nullptr);
    for (int i = 0; i < 3000; ++i) {
      auto row = std::make_unique<IndexItemPropertyContainer>();
      row->SetTextAt(IndexItemPropertyContainer::IdKey(), std::to_string(i) + ".MAI", true);
      row->SetIntegerAt(IndexItemPropertyContainer::UidKey(), i + 1);
      row->SetTextAt(subject, "Re: <" + std::to_string(i) + "> & \xC3\xA9t\xC3\xA9", true);
      row->SetIntegerAt(size, i * 7);
      if (i % 3 == 0) row->SetTextAt(from, "Ann <ann@example.org>", true);
      rows_.push_back(row.get());
      owned_.push_back(std::move(row));
    }
    CloneGlobalPropertyMap(&map_);
    PrepareElementTags(map_, 0, &context_.tags);
    context_.escaper = std::make_unique<TextEscaper>(MakeEscapeTable(), true);
  }

  std::string FormattedHere(size_t i) {
    std::string text;
    RowElementFacts facts;
    FormatRowElement(context_, *rows_[i], &text, &facts);
    return text;
  }

  std::vector<std::unique_ptr<IndexItemPropertyContainer>> owned_;
  std::vector<IndexItemPropertyContainer*> rows_;
  PropertyMap map_;
  IndexWriteContext context_;
};

TEST_F(ElementsAheadTest, EveryRowComesOutAsTheWriterWouldFormatIt) {
  for (size_t start : {size_t{0}, size_t{100}}) {
    SCOPED_TRACE(start);
    ElementsAhead ahead(context_, rows_, start);
    size_t from_helper = 0;
    for (size_t i = start; i < rows_.size(); ++i) {
      const std::string_view ready = ahead.Take(i);
      if (ready.empty()) continue;
      ++from_helper;
      ASSERT_EQ(ready, FormattedHere(i)) << i;
    }
    // All but the first block of each cycle of the rows after start.
    const size_t blocks =
        (rows_.size() - start + ElementsAhead::kBlockRows - 1) / ElementsAhead::kBlockRows;
    size_t expected = 0;
    for (size_t b = 1; b < blocks; ++b) {
      if (b % ElementsAhead::kCycle == 0) continue;
      expected +=
          std::min(ElementsAhead::kBlockRows, rows_.size() - start - b * ElementsAhead::kBlockRows);
    }
    EXPECT_GT(expected, (rows_.size() - start) / 2);
    EXPECT_EQ(from_helper, expected);
  }
  EXPECT_NE(FormattedHere(0).find("&lt;0&gt; &amp; \xC3\xA9t\xC3\xA9"), std::string::npos);
}

// A writer that leaves rows out, or stops part way, neither waits for ever
// nor is given a block it passed.
TEST_F(ElementsAheadTest, RowsPassedOverOrAnEarlyEndLeaveNothingWaiting) {
  {
    ElementsAhead ahead(context_, rows_, 0);
    for (size_t i = 0; i < rows_.size(); i += 5 * ElementsAhead::kBlockRows / 2) {
      const std::string_view ready = ahead.Take(i);
      if (!ready.empty()) {
        EXPECT_EQ(ready, FormattedHere(i)) << i;
      }
    }
  }
  {
    ElementsAhead ahead(context_, rows_, 0);
    ahead.Take(ElementsAhead::kBlockRows + 1);
  }
}

}  // namespace
}  // namespace qaaisp::persist
