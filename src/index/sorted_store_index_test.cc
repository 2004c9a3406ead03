#include "index/sorted_store_index.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <vector>

namespace qaaisp {
namespace {

using Row = IndexItemPropertyContainer;

class SortedIndexTest : public ::testing::Test {
 protected:
  void SetUp() override { table_.LoadState = LoadFull; }

  // Inserts a row with this ID, UID (0: none) and flags; the insert's result.
  bool Add(const std::string& id, uint32_t uid = 0, const std::string& flags = "",
           UidClash clash = UidClash::kNextFree) {
    IndexItem item;
    item.Create();
    item.SetProperty("ID", id);
    if (uid) item.SetIntegerForced("UID", static_cast<int32_t>(uid));
    if (!flags.empty()) item.SetProperty("FLAGSTATUS", flags);
    bool ok = table_.Insert(&item, clash);
    EXPECT_NE(item.owned(), ok);
    return ok;  // a refused row is destroyed with the item
  }

  std::vector<std::string> IdsBySeq() {
    std::vector<std::string> ids;
    for (Row* row : table_.rows()) {
      ids.push_back(row->GetText("ID") + "@" + std::to_string(row->GetInteger("SEQ")));
    }
    return ids;
  }

  SORTEDSTOREINDEXTYPE table_;
};

TEST_F(SortedIndexTest, InsertNumbersRowsAndRefusesDuplicates) {
  EXPECT_TRUE(Add("a"));
  EXPECT_EQ(table_.rows()[0]->Uid(), 1u);
  EXPECT_TRUE(Add("b", 10));
  EXPECT_EQ(table_.LastUID, 10u);
  EXPECT_TRUE(Add("c"));
  EXPECT_EQ(table_.rows()[2]->Uid(), 11u);
  EXPECT_EQ(IdsBySeq(), (std::vector<std::string>{"a@1", "b@2", "c@3"}));

  EXPECT_FALSE(Add("b", 50));
  EXPECT_EQ(table_.size(), 3u);
  EXPECT_EQ(table_.by_uid().count(50), 0u);
  EXPECT_EQ(table_.LastUID, 50u) << "a refused row still raises LastUID";

  EXPECT_FALSE(Add("d", 10, "", UidClash::kRefuse));
  EXPECT_EQ(table_.by_id().count("d"), 0u) << "a strict refusal takes the ID out again";
  EXPECT_EQ(table_.size(), 3u);
}

TEST_F(SortedIndexTest, LenientInsertFilesATakenUidUnderTheNextFree) {
  ASSERT_TRUE(Add("a", 5));
  ASSERT_TRUE(Add("b", 6));
  ASSERT_TRUE(Add("c", 5));
  Row* c = table_.by_id().at("c");
  EXPECT_EQ(table_.FindByUid(7), c);
  EXPECT_EQ(c->Uid(), 5u) << "the row keeps its own UID";

  // Removing it finds its entry under the number it was filed with.
  table_.Remove("c");
  EXPECT_EQ(table_.FindByUid(7), nullptr);
  ASSERT_NE(table_.FindByUid(5), nullptr);
  EXPECT_EQ(table_.FindByUid(5)->GetText("ID"), "a");
}

TEST_F(SortedIndexTest, FirstModifiedUidFollowsChangesButNotSeq) {
  Add("a", 3);
  Add("b", 8);
  Add("c", 9);
  EXPECT_EQ(table_.FirstModifiedUID, 3u);
  table_.FirstModifiedUID = 0;
  Row* b = table_.by_id().at("b");
  b->SetText("SUBJECT", "new", false);
  EXPECT_EQ(table_.FirstModifiedUID, 8u);
  Row* a = table_.by_id().at("a");
  a->SetInteger("SEQ", 42);
  a->SetText("SEQ", "43", false);
  a->Merge({{"SEQ", "44"}});
  EXPECT_EQ(table_.FirstModifiedUID, 8u) << "SEQ is not a change";
  a->Remove("SUBJECT");
  EXPECT_EQ(table_.FirstModifiedUID, 3u);

  table_.Remove("a");
  EXPECT_EQ(table_.FirstModifiedUID, 0u) << "removing the first modified row forgets it";
}

TEST_F(SortedIndexTest, RemoveRenumbersSeqAndKeepsRemovedRows) {
  Add("a");
  Add("b");
  Add("c");
  table_.Remove("b");
  EXPECT_EQ(IdsBySeq(), (std::vector<std::string>{"a@1", "c@2"}));
  EXPECT_EQ(table_.LastUID, 3u);
  ASSERT_EQ(table_.removed_rows().size(), 1u);
  EXPECT_EQ(table_.removed_rows()[0]->GetText("ID"), "b");
  EXPECT_EQ(table_.removed_rows()[0]->local_map(), nullptr);
  EXPECT_EQ(table_.by_id().count("b"), 0u);
  EXPECT_EQ(table_.by_uid().count(2), 0u);

  table_.rows()[1]->SetInteger("SEQ", 99);
  table_.Remove("zzz");
  EXPECT_EQ(IdsBySeq(), (std::vector<std::string>{"a@1", "c@2"}));
  EXPECT_EQ(table_.removed_rows().size(), 1u);

  table_.Remove(std::set<std::string, std::less<>>{"a", "c"});
  EXPECT_EQ(table_.size(), 0u);
  EXPECT_EQ(table_.removed_rows().size(), 3u);
}

TEST_F(SortedIndexTest, LookupsAndSnapshotsGoByUid) {
  Add("late", 30);
  Add("early", 10);
  Add("middle", 20);
  table_.by_id().at("middle")->SetText("MSGID", "<m@x>", false);

  RowList list;
  table_.Snapshot(&list, false);
  ASSERT_EQ(list.rows.size(), 3u);
  EXPECT_EQ(list.rows[0]->GetText("ID"), "early");
  EXPECT_EQ(list.rows[2]->GetText("ID"), "late");
  EXPECT_FALSE(list.owns_rows);

  IndexItem found;
  EXPECT_TRUE(SORTEDSTOREINDEXTYPE::FindByMessageId("<m@x>", &found, list));
  EXPECT_EQ(found.container(), table_.by_id().at("middle"));
  EXPECT_FALSE(SORTEDSTOREINDEXTYPE::FindByMessageId("<M@X>", &found, list));

  RowList copies;
  table_.Snapshot(&copies, true);
  EXPECT_TRUE(copies.owns_rows);
  EXPECT_NE(copies.rows[0], list.rows[0]);
  EXPECT_EQ(copies.rows[0]->GetText("ID"), "early");

  IndexItem item;
  EXPECT_TRUE(table_.FindById("late", &item, false));
  EXPECT_FALSE(item.owned());
  EXPECT_TRUE(table_.FindById("late", &item, true));
  EXPECT_TRUE(item.owned());
  EXPECT_FALSE(table_.FindById("none", &item, true));
  EXPECT_FALSE(item.HasItem());
}

int g_loader_calls = 0;
int FakeLoader(SORTEDSTOREINDEXTYPE* table, int32_t level) {
  ++g_loader_calls;
  table->LoadState = level == LoadKeys ? LoadKeys : LoadFailed;
  return table->LoadState >= level;
}

TEST_F(SortedIndexTest, EnsureLevelLoadsOnlyWhenBelow) {
  SetIndexLoader(FakeLoader);
  g_loader_calls = 0;
  table_.LoadState = LoadHeader;
  EXPECT_EQ(table_.EnsureLevel(LoadHeader), 1);
  EXPECT_EQ(g_loader_calls, 0);
  EXPECT_EQ(table_.EnsureLevel(LoadKeys), 1);
  EXPECT_EQ(g_loader_calls, 1);

  FolderDetails details{};
  details.Total = 77;
  table_.GetFolderDetails(&details);  // the full load fails
  EXPECT_EQ(details.Total, 77) << "an unloaded table leaves the record as it was";
  EXPECT_EQ(g_loader_calls, 2);
  SetIndexLoader(nullptr);
}

TEST_F(SortedIndexTest, FolderDetailsCountFlagsInUidOrder) {
  FolderDetails details{};
  table_.LastUID = 12;
  table_.GetFolderDetails(&details);
  FolderDetails empty{};
  empty.LastUID = 12;
  EXPECT_EQ(0, std::memcmp(&details, &empty, sizeof details));

  Add("3", 3, "\\Seen \\Answered");
  Add("1", 1, "\\recent");
  Add("2", 2, "\\SEEN \\Flagged \\Deleted \\Recent");
  Add("4", 4);
  table_.GetFolderDetails(&details);
  EXPECT_EQ(details.Total, 4);
  EXPECT_EQ(details.Seen, 2);
  EXPECT_EQ(details.FirstSeen, 2) << "UID 2 is the second row in UID order";
  EXPECT_EQ(details.Answered, 1);
  EXPECT_EQ(details.Flagged, 1);
  EXPECT_EQ(details.Deleted, 1);
  EXPECT_EQ(details.Recent, 2);
  EXPECT_EQ(details.RecentCount, 0);
  EXPECT_EQ(details.LastUID, 12);
}

TEST_F(SortedIndexTest, UnInitDestroysRowsWithoutTheGuardPerRow) {
  for (int i = 0; i < 200; ++i) Add("row" + std::to_string(i), 0, "\\Seen");
  table_.Remove("row5");
  // Rows without a local map would each take the global guard to free texts.
  for (Row* row : table_.rows()) row->set_local_map(nullptr);
  table_.FirstModifiedUID = 4;
  table_.FullRewriteRequired = true;
  table_.FieldFilter = "ID,SIZE";
  table_.IndexFileDate = 99;
  uint64_t before = PropertyMapGuardCount();
  table_.UnInit();
  EXPECT_LE(PropertyMapGuardCount() - before, 2u);
  EXPECT_TRUE(table_.by_uid().empty());
  EXPECT_TRUE(table_.removed_rows().empty());
  EXPECT_EQ(table_.LoadState, LoadFailed);
  EXPECT_EQ(table_.LastUID, 0u);
  EXPECT_EQ(table_.FirstModifiedUID, 0u);
  EXPECT_FALSE(table_.FullRewriteRequired);
  EXPECT_EQ(table_.FieldFilter, "");
  EXPECT_EQ(table_.IndexFileDate, 0u);
}

TEST_F(SortedIndexTest, RowsEnteredWithoutAppendingAreStillOwned) {
  auto* row = new Row;
  row->SetText("ID", "loose", false);
  ASSERT_TRUE(table_.InsertRow(row, UidClash::kRefuse, false));
  EXPECT_EQ(table_.size(), 0u);
  EXPECT_FALSE(row->HasValue("SEQ"));
  EXPECT_EQ(table_.by_id().at("loose"), row);
  // Destroyed by the table's teardown: the leak checker would notice.
}

TEST_F(SortedIndexTest, BulkInsertRefusesAsOneByOneAndFillsByIdAtTheEnd) {
  ASSERT_TRUE(Add("kept", 50));
  table_.BeginBulkInsert(4);
  EXPECT_TRUE(Add("c", 3));
  EXPECT_TRUE(Add("a", 1));
  EXPECT_FALSE(Add("c", 9));                          // ID taken within the batch
  EXPECT_FALSE(Add("kept", 8));                       // ID taken before it
  EXPECT_FALSE(Add("b", 1, "", UidClash::kRefuse));   // UID taken
  EXPECT_TRUE(Add("b", 1, "", UidClash::kNextFree));  // filed under 2
  EXPECT_EQ(table_.LastUID, 50u);
  EXPECT_EQ(table_.by_id().size(), 1u);  // the batch is not in the map yet
  EXPECT_EQ(table_.by_uid().size(), 4u);
  table_.EndBulkInsert();
  std::string ids;
  for (const auto& [id, row] : table_.by_id()) ids += id + ",";
  EXPECT_EQ(ids, "a,b,c,kept,");
  EXPECT_EQ(table_.FindByUid(2), table_.by_id().at("b"));

  // Finding ends a batch itself, so no lookup misses a row it took.
  table_.BeginBulkInsert(0);
  EXPECT_TRUE(Add("d"));
  IndexItem item;
  EXPECT_TRUE(table_.FindById("d", &item, false));
  EXPECT_FALSE(Add("d"));
  // A teardown in mid-batch still destroys every row (the leak checker).
  table_.BeginBulkInsert(0);
  EXPECT_TRUE(Add("e"));
  table_.UnInit();
  EXPECT_TRUE(table_.by_id().empty());
}

}  // namespace
}  // namespace qaaisp
