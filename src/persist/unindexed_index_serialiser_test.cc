#include "persist/unindexed_index_serialiser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "index/store_index.h"
#include "persist/index_xml_test_util.h"
#include "persist/persist_settings.h"
#include "persist/stream_index_serialiser.h"
#include "test_env.h"

namespace qaaisp {
namespace {

using persist::testing::Header;
using persist::testing::IndexXml;
using persist::testing::RowXml;
using qaaisp::testing::Exists;
using qaaisp::testing::FakeClockEnv;
using qaaisp::testing::ProductRegText;
using qaaisp::testing::ReadFile;
using qaaisp::testing::ScopedDefaultEnv;
using qaaisp::testing::ScopedRegistry;
using qaaisp::testing::TempDir;
using qaaisp::testing::WriteFile;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

struct Calls {
  std::vector<std::pair<std::string, int>> scans;
  std::vector<std::pair<std::string, std::string>> items;  // name, text
};
Calls* g_calls = nullptr;

int RecordScan(SORTEDSTOREINDEXTYPE*, const std::string& folder, int block_mode) {
  g_calls->scans.emplace_back(folder, block_mode);
  return 1;
}

void RecordItem(IndexItem* row, int32_t, const std::string& path, std::string_view text) {
  g_calls->items.emplace_back(path.substr(path.find_last_of('/') + 1), std::string(text));
  row->SetProperty("SUMMARY", "parsed");
  WriteFile(path, std::string(text));  // the routine writes the item back
}

class UnindexedTest : public ::testing::Test {
 protected:
  UnindexedTest()
      : registry_(ProductRegText({"\"Use XML Stream Index Deserialisation\"=dword:00000001"})),
        scoped_env_(&env_) {
    persist::ResetPersistSettingsForTesting();
    folder_ = dir_.Sub("Calendar");
    qaaisp::testing::MakeDirs(folder_);
    g_calls = &calls_;
    UnindexedScanRoutines routines;
    routines.scan_messages = &RecordScan;
    routines.scan_contacts = &RecordScan;
    routines.index_calendar_item = &RecordItem;
    SetUnindexedScanRoutines(routines);
  }
  ~UnindexedTest() override {
    SetUnindexedScanRoutines({});
    g_calls = nullptr;
    persist::ResetPersistSettingsForTesting();
  }

  int32_t Rebuild(StoreIndex* index, int32_t item_class, StoreIndexSerialiser* wrapped = nullptr,
                  bool keep = false) {
    UnindexedStoreIndexSerialiser rebuild(wrapped);
    LoadRequest request;
    request.folder = folder_;
    request.item_class = item_class;
    request.postoffice = "po";
    request.mailbox = "mb";
    request.keep = keep;
    return rebuild.Deserialise(&index->table, request, false);
  }
  std::string Path(const std::string& name) const { return folder_ + "/" + name; }
  static std::vector<std::string> Ids(const StoreIndex& index) {
    std::vector<std::string> ids;
    for (const auto& [uid, row] : index.table.by_uid()) ids.emplace_back(row->IdView());
    return ids;
  }

  TempDir dir_;
  FakeClockEnv env_;
  ScopedRegistry registry_;
  ScopedDefaultEnv scoped_env_;
  std::string folder_;
  Calls calls_;
};

TEST_F(UnindexedTest, MessagesAndContactsRunTheirScanWithTheAccessHeldAndSave) {
  StoreIndex index;
  EXPECT_EQ(Rebuild(&index, 25), LoadFull);
  EXPECT_EQ(Rebuild(&index, 1), LoadFull);
  EXPECT_THAT(calls_.scans, ElementsAre(std::make_pair(folder_, 99), std::make_pair(folder_, 99)));
  EXPECT_TRUE(Exists(Path("_index.xml")));
  EXPECT_EQ(index.table.FullRewriteRequired, false);  // cleared by the save
}

TEST_F(UnindexedTest, AWrappedLoadKeepsRowsAndABadFileGoesAside) {
  WriteFile(Path("_index.xml"), IndexXml(8, RowXml("1.MAI", 8)));
  WriteFile(Path("1.MAI"), "x");
  StoreIndex index;
  EXPECT_EQ(Rebuild(&index, 0, new StreamXMLStoreIndexSerialiser), LoadFull);
  EXPECT_THAT(Ids(index), ElementsAre("1.MAI"));
  EXPECT_EQ(index.table.LastUID, 8u);

  const std::string bad = Header(8) + "<X>";
  WriteFile(Path("_index.xml"), bad);
  StoreIndex broken;
  EXPECT_EQ(Rebuild(&broken, 0, new StreamXMLStoreIndexSerialiser), LoadFailed);
  EXPECT_EQ(ReadFile(Path("_index.xml.bad")), bad);
  EXPECT_FALSE(Exists(Path("_index.xml")));
  // The scan still ran, from nothing.
  EXPECT_EQ(calls_.scans.size(), 2u);
  EXPECT_EQ(broken.table.size(), 0u);
}

TEST_F(UnindexedTest, CalendarItemsAreReadDeletedAndWrittenBack) {
  WriteFile(Path("_index.xml"), IndexXml(3, RowXml("b.CAL", 3, {{"SUMMARY", "old"}})));
  WriteFile(Path("a.CAL"), "junk BEGIN:VCALENDAR\r\nX\r\nend:vcalendar trailing");
  WriteFile(Path("b.CAL"), "BEGIN:VCALENDAR\r\nEND:VCALENDAR\r\n");
  WriteFile(Path("c.CAL"), "no calendar here");
  WriteFile(Path("_x.CAL"), "BEGIN:VCALENDAR END:VCALENDAR");
  StoreIndex index;
  EXPECT_EQ(Rebuild(&index, 2, new StreamXMLStoreIndexSerialiser), LoadFull);
  ASSERT_EQ(calls_.items.size(), 2u);
  EXPECT_EQ(calls_.items[0],
            std::make_pair(std::string("a.CAL"),
                           std::string("junk BEGIN:VCALENDAR\r\nX\r\nend:vcalendar")));
  EXPECT_EQ(calls_.items[1].first, "b.CAL");
  // The known row kept its UID; the file without a calendar lost its file
  // but has its row.
  EXPECT_EQ(index.table.by_id().at("b.CAL")->Uid(), 3u);
  EXPECT_EQ(index.table.by_id().at("b.CAL")->GetText("SUMMARY"), "parsed");
  EXPECT_THAT(Ids(index), ElementsAre("b.CAL", "a.CAL", "c.CAL"));
  EXPECT_FALSE(Exists(Path("c.CAL")));
  EXPECT_TRUE(Exists(Path("_x.CAL")));
  EXPECT_THAT(ReadFile(Path("_index.xml")), HasSubstr("c.CAL"));

  // Without the calendar routine no item is touched.
  SetUnindexedScanRoutines({});
  WriteFile(Path("d.CAL"), "BEGIN:VCALENDAR END:VCALENDAR");
  StoreIndex untouched;
  EXPECT_EQ(Rebuild(&untouched, 2), LoadFull);
  EXPECT_TRUE(Exists(Path("d.CAL")));
}

TEST_F(UnindexedTest, TasksAreWalkedOnlyWithoutAnIndex) {
  WriteFile(Path("t.TSK"), "BEGIN:VCALENDAR END:VCALENDAR");
  WriteFile(Path("_index.xml"), IndexXml(0, ""));
  StoreIndex index;
  EXPECT_EQ(Rebuild(&index, 3), LoadFull);
  EXPECT_TRUE(calls_.items.empty());
  std::remove(Path("_index.xml").c_str());
  int sleeps = env_.sleep_count();
  EXPECT_EQ(Rebuild(&index, 3), LoadFull);
  EXPECT_EQ(env_.sleep_count() - sleeps, 10);  // looked for the index ten times
  EXPECT_EQ(calls_.items.size(), 1u);
}

TEST_F(UnindexedTest, GroupsAreKeptOnlyWithKeepAndUnknownClassesFail) {
  WriteFile(Path("_groups.xml"), IndexXml(4, RowXml("g.GRP", 4)));
  WriteFile(Path("g.GRP"), "x");
  StoreIndex index;
  EXPECT_EQ(Rebuild(&index, 54, new StreamXMLStoreIndexSerialiser, /*keep=*/true), LoadFull);
  EXPECT_THAT(Ids(index), ElementsAre("g.GRP"));
  EXPECT_THAT(ReadFile(Path("_groups.xml")), HasSubstr("g.GRP"));  // saved again
  EXPECT_EQ(Rebuild(&index, 54, new StreamXMLStoreIndexSerialiser), LoadFull);
  EXPECT_EQ(index.table.size(), 0u);

  size_t events = env_.events().size();
  EXPECT_EQ(Rebuild(&index, 7), LoadFailed);
  ASSERT_EQ(env_.events().size(), events + 2);
  EXPECT_EQ(env_.events()[events].first,
            "[persist_test] UnindexedStoreIndexSerialiser::DeserialiseHook called with invalid "
            "message class (7) for " +
                folder_);
  EXPECT_EQ(env_.events()[events + 1].first,
            "[persist_test] Failed to deserialise index: " + folder_ + ".\n");
  EXPECT_TRUE(index.table.FullRewriteRequired);  // not saved
}

}  // namespace
}  // namespace qaaisp
