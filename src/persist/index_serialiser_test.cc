#include "persist/index_serialiser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "index/index_item.h"
#include "index/store_index.h"
#include "persist/index_recovery.h"
#include "persist/index_report.h"
#include "persist/index_xml_test_util.h"
#include "persist/msxml_index_serialiser.h"
#include "persist/persist_settings.h"
#include "persist/stream_index_serialiser.h"
#include "persist/unindexed_index_serialiser.h"
#include "test_env.h"

namespace qaaisp {
namespace {

using persist::testing::Header;
using persist::testing::IndexXml;
using persist::testing::RowXml;
using persist::testing::TombstoneXml;
using qaaisp::testing::Exists;
using qaaisp::testing::FakeClockEnv;
using qaaisp::testing::ProductRegText;
using qaaisp::testing::ReadFile;
using qaaisp::testing::RegText;
using qaaisp::testing::ScopedDefaultEnv;
using qaaisp::testing::ScopedRegistry;
using qaaisp::testing::TempDir;
using qaaisp::testing::WriteFile;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr uint64_t kTicksPerMinute = 600000000ull;

std::string Settings(const std::vector<std::string>& lines) { return ProductRegText(lines); }

const std::string kStreamReader = "\"Use XML Stream Index Deserialisation\"=dword:00000001";
const std::string kBackupOn = "\"Backup Index\"=dword:00000001";

class SerialiserTest : public ::testing::Test {
 protected:
  SerialiserTest() : registry_(Settings({})), scoped_env_(&env_) {
    ResetPersistSettingsForTesting();
    folder_ = dir_.Sub("Inbox");
    qaaisp::testing::MakeDirs(folder_);
  }
  ~SerialiserTest() override { persist::ResetPersistSettingsForTesting(); }

  void UseSettings(const std::vector<std::string>& lines) {
    registry_.Rewrite(Settings(lines));
    persist::ResetPersistSettingsForTesting();
  }
  static void ResetPersistSettingsForTesting() { persist::ResetPersistSettingsForTesting(); }

  std::string Path(const std::string& name) const { return folder_ + "/" + name; }
  void WriteIndex(const std::string& bytes) { WriteFile(Path("_index.xml"), bytes); }
  void WriteItems(std::initializer_list<const char*> names) {
    for (const char* name : names) WriteFile(Path(name), "x");
  }

  std::vector<std::string> Ids(const SORTEDSTOREINDEXTYPE& table) const {
    std::vector<std::string> ids;
    for (const auto& [uid, row] : table.by_uid()) ids.emplace_back(row->IdView());
    return ids;
  }
  std::vector<std::string> EventTexts() {
    std::vector<std::string> texts;
    for (const auto& e : env_.events()) texts.push_back(e.first);
    return texts;
  }

  int32_t StreamLoad(StoreIndex* index, int32_t mode = LoadFull, bool quiet = false) {
    StreamXMLStoreIndexSerialiser reader;
    LoadRequest request;
    request.folder = folder_;
    request.mode = mode;
    request.quiet = quiet;
    return reader.Deserialise(&index->table, request, false);
  }

  void SetBackupAge(uint64_t minutes) {
    platform::FileTime when =
        platform::FileTime::FromTicks(env_.NowFileTime().ticks() - minutes * kTicksPerMinute);
    platform::OpenOptions options;
    options.read = false;
    options.write = true;
    auto file = env_.OpenFile(Path("_index.xml.bak"), options);
    ASSERT_TRUE(file);
    ASSERT_TRUE(file->SetTimes(&when, &when, &when));
  }

  TempDir dir_;
  FakeClockEnv env_;
  ScopedRegistry registry_;
  ScopedDefaultEnv scoped_env_;
  std::string folder_;
};

TEST_F(SerialiserTest, MalformedIndexesAreReportedOnceWithTheirFirstFault) {
  for (const auto& c : persist::testing::MalformedCases()) {
    env_.events();
    size_t before = env_.events().size();
    WriteIndex(c.xml);
    StoreIndex index;
    EXPECT_EQ(StreamLoad(&index), LoadFailed) << c.xml;
    std::vector<std::string> texts = EventTexts();
    std::vector<std::string> mine(texts.begin() + before, texts.end());
    // One for the malformed file, one for the failed load.
    ASSERT_EQ(mine.size(), 2u) << c.xml;
    EXPECT_EQ(mine[0],
              "[persist_test] Malformed index detected: " + c.fault + " (" + folder_ + ")\n");
    EXPECT_EQ(mine[1], "[persist_test] Failed to deserialise index: " + folder_ + ".\n");
  }
  // Quiet loads report nothing.
  size_t before = env_.events().size();
  StoreIndex index;
  EXPECT_EQ(StreamLoad(&index, LoadFull, /*quiet=*/true), LoadFailed);
  EXPECT_EQ(env_.events().size(), before);
}

TEST_F(SerialiserTest, StreamLoadSetsFileFactsAndKeepsRowsUnmodified) {
  std::string xml = IndexXml(7, RowXml("1.MAI", 3, {{"SUBJECT", "a&amp;b"}}) + RowXml("2.MAI", 7));
  WriteIndex(xml);
  StoreIndex index;
  EXPECT_EQ(StreamLoad(&index), LoadFull);
  EXPECT_EQ(index.table.LoadState, LoadFull);
  EXPECT_THAT(Ids(index.table), ElementsAre("1.MAI", "2.MAI"));
  EXPECT_EQ(index.table.LastUID, 7u);
  EXPECT_EQ(index.table.FirstModifiedUID, 0u);
  EXPECT_TRUE(index.table.OffsetsValid);
  EXPECT_EQ(index.IndexFileSize, xml.size());
  platform::FileInfo info;
  ASSERT_TRUE(env_.Stat(Path("_index.xml"), &info));
  EXPECT_EQ(index.table.IndexFileDate, info.write_time.ticks());
  auto* row = index.table.by_id().at("1.MAI");
  EXPECT_EQ(row->GetText("SUBJECT"), "a&b");
  EXPECT_EQ(row->GetInteger("SEQ"), 1);
  EXPECT_EQ(row->GetInteger("IDX"), 1);
  EXPECT_EQ(row->FileOffset, 33);
  EXPECT_FALSE(Exists(Path("_index.dat")));
}

TEST_F(SerialiserTest, HeaderOnlyLoadReadsTheHeaderAlone) {
  WriteIndex(Header(42) + RowXml("a", 1) + "<X>broken");
  StoreIndex index;
  EXPECT_EQ(StreamLoad(&index, LoadHeader), LoadHeader);
  EXPECT_EQ(index.table.LastUID, 42u);
  EXPECT_EQ(index.table.size(), 0u);
  // An empty index of the current form is complete at once.
  WriteIndex("<BASEELEMENT LASTUID=\"x0000002a\"/>\r\n");
  EXPECT_EQ(StreamLoad(&index, LoadHeader), LoadFull);
  EXPECT_TRUE(index.table.FullRewriteRequired);
  // The old form is read in full and marked for an upgrade.
  WriteIndex("<BASEELEMENT LASTUID=\"5\">" + RowXml("a", 5) + "</BASEELEMENT>");
  EXPECT_EQ(StreamLoad(&index, LoadHeader), LoadFull);
  EXPECT_THAT(Ids(index.table), ElementsAre("a"));
  EXPECT_TRUE(index.table.FullRewriteRequired);
}

TEST_F(SerialiserTest, GarbagePastTheThresholdReloadsAPartialLoadInFull) {
  UseSettings({"\"Index Garbage Collection Threshold\"=dword:00000002"});
  std::string rows = TombstoneXml(3, 1, "") + RowXml("b", 2, {{"SUBJECT", "s"}}) +
                     TombstoneXml(3, 1, "") + RowXml("d", 4);
  WriteIndex(IndexXml(4, rows));
  StoreIndex index;
  index.table.ItemFilter = "b";
  index.table.FieldFilter = "ID";
  EXPECT_EQ(StreamLoad(&index, LoadKeys), LoadFull);
  EXPECT_THAT(Ids(index.table), ElementsAre("b", "d"));
  EXPECT_EQ(index.table.by_id().at("b")->GetText("SUBJECT"), "s");
  EXPECT_TRUE(index.table.FullRewriteRequired);
  EXPECT_TRUE(index.table.ItemFilter.empty());
}

TEST_F(SerialiserTest, AnIndexHeldByAWriterIsRetriedThenReported) {
  WriteIndex(IndexXml(1, RowXml("a", 1)));
  platform::OpenOptions exclusive;
  exclusive.share = platform::ShareMode::kShareNone;
  auto held = env_.OpenFile(Path("_index.xml"), exclusive);
  ASSERT_TRUE(held);
  StoreIndex index;
  EXPECT_EQ(StreamLoad(&index), LoadFailed);
  EXPECT_EQ(env_.sleep_count(), 19);
  EXPECT_EQ(env_.slept_ms(), 19u * 2000u);
  EXPECT_THAT(EventTexts(), ::testing::Contains("[persist_test] Failed to open index " +
                                                Path("_index.xml") + " (Permission denied)."));
  // A writer that lets go within the retries is waited for.
  env_.OnSleep([&](int n) {
    if (n == 25) held.reset();
  });
  EXPECT_EQ(StreamLoad(&index), LoadFull);
}

TEST_F(SerialiserTest, TimestampFileIsMadeOnceWhenAsked) {
  registry_.Rewrite(RegText({{"SOFTWARE\\Wow6432Node\\Quill Arbor\\Quill Arbor\\SERVICES\\IMAP",
                              {"\"Timestamp file\"=dword:00000001"}}}));
  persist::ResetPersistSettingsForTesting();
  WriteIndex(IndexXml(0, ""));
  StoreIndex index;
  StreamLoad(&index);
  EXPECT_EQ(ReadFile(Path("_index.dat")), "Index Timestamp file");
}

TEST_F(SerialiserTest, ChoosingTheDeserialiser) {
  bool marker = true;
  auto none = CreateIndexDeserialiser("", 0, true, true, &marker);
  EXPECT_TRUE(dynamic_cast<NullStoreIndexDeserialiser*>(none.get()));
  EXPECT_FALSE(marker);
  EXPECT_EQ(env_.sleep_count(), 0);

  // No index file: ten looks 200 ms apart, then null or a rebuild.
  auto missing = CreateIndexDeserialiser(folder_, 0, false, false);
  EXPECT_TRUE(dynamic_cast<NullStoreIndexDeserialiser*>(missing.get()));
  EXPECT_EQ(env_.sleep_count(), 10);
  EXPECT_EQ(env_.slept_ms(), 2000u);
  auto rebuild = CreateIndexDeserialiser(folder_, 0, true, false);
  auto* unindexed = dynamic_cast<UnindexedStoreIndexSerialiser*>(rebuild.get());
  ASSERT_TRUE(unindexed);
  EXPECT_EQ(unindexed->wrapped(), nullptr);

  // A file that turns up during the looks is found.
  env_.OnSleep([&](int n) {
    if (n == 23) WriteIndex(IndexXml(0, ""));
  });
  auto late = CreateIndexDeserialiser(folder_, 0, false, false);
  EXPECT_TRUE(dynamic_cast<MSXMLStoreIndexSerialiser*>(late.get()));
  EXPECT_EQ(env_.sleep_count(), 23);

  UseSettings({kStreamReader});
  EXPECT_TRUE(dynamic_cast<StreamXMLStoreIndexSerialiser*>(
      CreateIndexDeserialiser(folder_, 0, true, false, &marker).get()));
  EXPECT_FALSE(marker);
  // The change marker (with rebuild) and force wrap the reader in a rebuild.
  WriteFile(Path("_CHANGE.DTY"), "x");
  auto marked = CreateIndexDeserialiser(folder_, 0, true, false, &marker);
  EXPECT_TRUE(marker);
  unindexed = dynamic_cast<UnindexedStoreIndexSerialiser*>(marked.get());
  ASSERT_TRUE(unindexed);
  EXPECT_TRUE(dynamic_cast<StreamXMLStoreIndexSerialiser*>(unindexed->wrapped()));
  EXPECT_TRUE(dynamic_cast<StreamXMLStoreIndexSerialiser*>(
      CreateIndexDeserialiser(folder_, 0, false, false).get()));
  EXPECT_TRUE(dynamic_cast<UnindexedStoreIndexSerialiser*>(
      CreateIndexDeserialiser(folder_, 3, false, true).get()));

  // Calendars re-read their items on every load in calendar re-index mode.
  UseSettings({"\"Calendar ReIndex Mode\"=dword:00000001"});
  std::remove(Path("_CHANGE.DTY").c_str());
  EXPECT_TRUE(dynamic_cast<UnindexedStoreIndexSerialiser*>(
      CreateIndexDeserialiser(folder_, 2, false, false).get()));
  EXPECT_TRUE(dynamic_cast<MSXMLStoreIndexSerialiser*>(
      CreateIndexDeserialiser(folder_, 3, false, false).get()));

  UseSettings({"\"Use XML Stream Index Serialisation\"=dword:00000001"});
  EXPECT_TRUE(dynamic_cast<StreamXMLStoreIndexSerialiser*>(CreateIndexSerialiser().get()));
  UseSettings({});
  EXPECT_TRUE(dynamic_cast<MSXMLStoreIndexSerialiser*>(CreateIndexSerialiser().get()));
}

TEST_F(SerialiserTest, LoadIndexFileRecordsItsArgumentsAndHoldsTheBlockFile) {
  UseSettings({kStreamReader, "\"Use XML Stream Index Serialisation\"=dword:00000001"});
  WriteIndex(IndexXml(9, RowXml("a", 1) + RowXml("b", 2)));
  StoreIndex index;
  EXPECT_TRUE(LoadIndexFile(&index.table, &index, folder_, 0, "po", "mb", false, false, LoadKeys, 0,
                            false, false, true, false));
  EXPECT_EQ(index.table.LoadState, LoadKeys);
  EXPECT_EQ(index.table.folder_path, folder_);
  EXPECT_EQ(index.table.postoffice, "po");
  EXPECT_EQ(index.folder_path.str(), folder_);
  EXPECT_FALSE(Exists(Path("_index.blk")));  // released again
  EXPECT_EQ(index.table.by_id().at("a")->GetText("SUBJECT"), "");

  // The stored arguments let the table raise its own level.
  EXPECT_EQ(index.table.EnsureLevel(LoadFull), 1);
  EXPECT_EQ(index.table.LoadState, LoadFull);
  EXPECT_EQ(index.table.postoffice, "po");
  // A table that is loaded stays as it is with only_if_unloaded.
  WriteIndex(IndexXml(9, RowXml("c", 3)));
  EXPECT_TRUE(LoadIndexFile(&index.table, &index, folder_, 0, "", "", true, false, LoadFull, 0,
                            false, false, true, false));
  EXPECT_THAT(Ids(index.table), ElementsAre("a", "b"));

  // A blank folder loads empty without touching the disk.
  StoreIndex blank;
  EXPECT_TRUE(LoadIndexFile(&blank.table, &blank, "", 0, "", "", false, false, LoadFull, 0, true,
                            false, true, false));
  EXPECT_EQ(blank.table.LoadState, LoadFull);
  EXPECT_EQ(blank.block_handle, nullptr);

  // Without a lock owner nothing is loaded.
  StoreIndex other;
  EXPECT_FALSE(LoadIndexFile(&other.table, nullptr, folder_, 0, "", "", false, false, LoadFull, 0,
                             false, false, true, false));
  EXPECT_EQ(other.table.size(), 0u);
}

TEST_F(SerialiserTest, LoadForClassRaisesTheModeForAFullOnlyWriter) {
  UseSettings({kStreamReader});  // the document writer saves, so loads are full
  WriteIndex(IndexXml(9, RowXml("a", 1, {{"SUBJECT", "s"}})));
  StoreIndex index;
  EXPECT_TRUE(LoadIndexForClass(&index.table, &index, folder_, 0, "", "", false, false, LoadHeader,
                                0, false, false, true, false));
  EXPECT_EQ(index.table.LoadState, LoadFull);
  EXPECT_EQ(index.table.by_id().at("a")->GetText("SUBJECT"), "s");
}

TEST_F(SerialiserTest, ContactsAndGroupsLoadIntoOneTable) {
  UseSettings({kStreamReader, "\"Use XML Stream Index Serialisation\"=dword:00000001"});
  WriteIndex(IndexXml(2, RowXml("c1.VCF", 1) + RowXml("c2.VCF", 2)));
  WriteFile(Path("_groups.xml"), IndexXml(7, RowXml("g1.GRP", 7)));
  StoreIndex index;
  EXPECT_TRUE(LoadIndexForClass(&index.table, &index, folder_, 55, "", "", false, false, LoadFull,
                                0, false, false, true, false));
  EXPECT_THAT(Ids(index.table), ElementsAre("c1.VCF", "c2.VCF", "g1.GRP"));
  EXPECT_EQ(index.table.index_type, 54);
  EXPECT_TRUE(index.table.keep);
}

TEST_F(SerialiserTest, AFullLoadKeepsAFreshBackupAndAMarkerAsked) {
  UseSettings({kStreamReader, kBackupOn});
  WriteIndex(IndexXml(1, RowXml("a", 1)));
  WriteFile(Path("_CHANGE.DTY"), "x");
  StreamXMLStoreIndexSerialiser reader;
  LoadRequest request;
  request.folder = folder_;
  StoreIndex index;
  EXPECT_EQ(reader.Deserialise(&index.table, request, true), LoadFull);
  EXPECT_FALSE(Exists(Path("_CHANGE.DTY")));
  EXPECT_EQ(ReadFile(Path("_index.xml.bak")), ReadFile(Path("_index.xml")));
  platform::FileInfo info;
  ASSERT_TRUE(env_.Stat(Path("_index.xml.bak"), &info));
  EXPECT_EQ(info.write_time, env_.NowFileTime());
  EXPECT_EQ(reader.BackupAgeMinutes(folder_), 0u);

  // A backup of 370 minutes is kept; at 371 it is replaced.
  WriteIndex(IndexXml(2, RowXml("a", 1) + RowXml("b", 2)));
  SetBackupAge(370);
  EXPECT_EQ(reader.Deserialise(&index.table, request, false), LoadFull);
  EXPECT_NE(ReadFile(Path("_index.xml.bak")), ReadFile(Path("_index.xml")));
  SetBackupAge(371);
  EXPECT_EQ(reader.BackupAgeMinutes(folder_), 371u);
  EXPECT_EQ(reader.Deserialise(&index.table, request, false), LoadFull);
  EXPECT_EQ(ReadFile(Path("_index.xml.bak")), ReadFile(Path("_index.xml")));

  // Partial and quiet loads neither back up nor delete the marker.
  std::remove(Path("_index.xml.bak").c_str());
  WriteFile(Path("_CHANGE.DTY"), "x");
  request.mode = LoadHeader;
  EXPECT_EQ(reader.Deserialise(&index.table, request, true), LoadHeader);
  request.mode = LoadFull;
  request.quiet = true;
  EXPECT_EQ(reader.Deserialise(&index.table, request, false), LoadFull);
  EXPECT_TRUE(Exists(Path("_CHANGE.DTY")));
  EXPECT_FALSE(Exists(Path("_index.xml.bak")));
}

TEST_F(SerialiserTest, ACorruptIndexWithoutBackupIsQuarantined) {
  const std::string bad = Header(3) + RowXml("a", 1);
  WriteIndex(bad);
  StoreIndex index;
  // With backup off the file stays where it is.
  EXPECT_EQ(StreamLoad(&index), LoadFailed);
  EXPECT_EQ(ReadFile(Path("_index.xml")), bad);
  EXPECT_FALSE(Exists(Path("_index.xml.bad")));

  UseSettings({kStreamReader, kBackupOn});
  EXPECT_EQ(StreamLoad(&index), LoadFailed);
  EXPECT_FALSE(Exists(Path("_index.xml")));
  EXPECT_EQ(ReadFile(Path("_index.xml.bad")), bad);
  EXPECT_THAT(EventTexts().back(),
              HasSubstr("Failed to deserialise index: " + folder_ +
                        ". Unable to find recovery index. Recovering Index (there may be some "
                        "flag loss)\n"));
}

TEST_F(SerialiserTest, AGoodBackupIsRestoredAndMergedWithTheItemFiles) {
  UseSettings({kStreamReader, kBackupOn});
  const std::string backup =
      IndexXml(5, RowXml("1.MAI", 1, {{"FLAGSTATUS", "\\SEEN"}}) + RowXml("2.MAI", 2));
  WriteFile(Path("_index.xml.bak"), backup);
  WriteItems({"1.MAI"});  // 2.MAI is gone
  const std::string bad = Header(5) + "<X>";
  WriteIndex(bad);
  StoreIndex index;
  EXPECT_EQ(StreamLoad(&index), LoadFull);
  EXPECT_EQ(ReadFile(Path("_index.xml.bad")), bad);
  EXPECT_EQ(ReadFile(Path("_index.xml.bak")), backup);
  EXPECT_THAT(Ids(index.table), ElementsAre("1.MAI"));
  EXPECT_EQ(index.table.by_id().at("1.MAI")->GetText("FLAGSTATUS"), "\\SEEN");
  EXPECT_EQ(index.table.LastUID, 5u);
  EXPECT_THAT(EventTexts().back(), HasSubstr(". Successfully loaded recovery index.\n"));
  // The merged index was saved again (by the document writer here).
  EXPECT_THAT(ReadFile(Path("_index.xml")), HasSubstr("ID=\"1.MAI\""));
  EXPECT_THAT(ReadFile(Path("_index.xml")), ::testing::Not(HasSubstr("2.MAI")));
}

TEST_F(SerialiserTest, ACorruptBackupIsDeleted) {
  UseSettings({kStreamReader, kBackupOn});
  WriteFile(Path("_index.xml.bak"), Header(5) + "<X>");
  WriteIndex(Header(5));
  StoreIndex index;
  EXPECT_EQ(StreamLoad(&index), LoadFailed);
  EXPECT_FALSE(Exists(Path("_index.xml.bak")));
  EXPECT_THAT(EventTexts().back(), HasSubstr("Failed to deserialise index: " + folder_ +
                                             ". Backup Index is also corrupt.\n"));
}

TEST_F(SerialiserTest, RestoreAndQuarantineMoveTheFiles) {
  WriteIndex("bad");
  EXPECT_FALSE(persist::RestoreIndexBackup(folder_));  // no backup
  EXPECT_EQ(ReadFile(Path("_index.xml")), "bad");
  WriteFile(Path("_index.xml.bak"), "good");
  WriteFile(Path("_index.xml.bad"), "older");
  env_.Advance(3600 * 1000);
  EXPECT_TRUE(persist::RestoreIndexBackup(folder_));
  EXPECT_EQ(ReadFile(Path("_index.xml")), "good");
  EXPECT_EQ(ReadFile(Path("_index.xml.bad")), "bad");
  platform::FileInfo info;
  ASSERT_TRUE(env_.Stat(Path("_index.xml"), &info));
  EXPECT_EQ(info.write_time, env_.NowFileTime());

  EXPECT_TRUE(persist::QuarantineIndexFile(folder_));
  EXPECT_FALSE(Exists(Path("_index.xml")));
  EXPECT_EQ(ReadFile(Path("_index.xml.bad")), "good");
  EXPECT_FALSE(persist::QuarantineIndexFile(folder_));
  EXPECT_EQ(env_.sleep_count(), 0);
}

// A backup that cannot be copied into place leaves the damaged file where
// it was, so the next load tries the backup again instead of starting over
// from the item files.
TEST_F(SerialiserTest, ARestoreThatCannotCopyPutsTheDamagedFileBack) {
  WriteIndex("bad");
  WriteFile(Path("_index.xml.bak"), "good");
  qaaisp::testing::FaultInjectionEnv faults;
  qaaisp::testing::ScopedDefaultEnv use_faults(&faults);
  faults.FailAt(4);  // delete .bad, copy to .bad, delete, copy the backup
  EXPECT_FALSE(persist::RestoreIndexBackup(folder_));
  faults.FailAt(0);
  EXPECT_EQ(faults.log()[3], "copy:" + Path("_index.xml.bak") + ">" + Path("_index.xml"));
  EXPECT_EQ(ReadFile(Path("_index.xml")), "bad");
  EXPECT_EQ(ReadFile(Path("_index.xml.bak")), "good");
  EXPECT_TRUE(persist::RestoreIndexBackup(folder_));
  EXPECT_EQ(ReadFile(Path("_index.xml")), "good");
}

// A member whose hooks fail as asked.
class FailingSerialiser : public StoreIndexSerialiser {
 public:
  int SerialiseHook(SORTEDSTOREINDEXTYPE*, const std::string&, int32_t) override {
    throw Exception("disk on fire", "here", 7);
  }
  int32_t DeserialiseHook(SORTEDSTOREINDEXTYPE*, const LoadRequest&) override {
    if (throw_on_load) throw Exception("bad row", "there", 9);
    return LoadFull;
  }
  void BackupSerialisation(const std::string&) override { throw 1; }
  bool RequiresFullLoad() const override { return false; }
  bool SupportsBackup() const override { return true; }
  bool SupportsFieldFilter() const override { return false; }
  bool throw_on_load = true;
};

TEST_F(SerialiserTest, FailuresInHooksAreGuardedAndNeverLeaveTheCall) {
  FailingSerialiser member;
  StoreIndex index;
  index.table.FieldFilter = "ID,SIZE";
  LoadRequest request;
  request.folder = folder_;
  request.quiet = true;
  EXPECT_EQ(member.Deserialise(&index.table, request, false), LoadFailed);
  EXPECT_EQ(index.table.LoadState, LoadFailed);
  EXPECT_TRUE(index.table.FieldFilter.empty());  // no field filter for this member
  ASSERT_FALSE(env_.events().empty());
  EXPECT_THAT(env_.events().back().first,
              HasSubstr("StoreIndexSerialiser::Deserialise handled an exception; session will be "
                        "dropped.\nThe exception was: bad row\n"));
  EXPECT_EQ(member.Serialise(&index.table, folder_, 0), 0);
  EXPECT_THAT(env_.events().back().first,
              HasSubstr("StoreIndexSerialiser::Serialise handled an exception"));

  // A backup that fails is told on standard output and the load stands.
  UseSettings({kBackupOn});
  member.throw_on_load = false;
  request.quiet = false;
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(member.Deserialise(&index.table, request, false), LoadFull);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "Exception occurred when backing up\n");
}

TEST(BackupAgeTest, MinutesCountByCalendarFields) {
  EXPECT_EQ(persist::ElapsedMinutesByCalendarFields(370 * kTicksPerMinute), 370u);
  EXPECT_EQ(persist::ElapsedMinutesByCalendarFields(371 * kTicksPerMinute - 1), 370u);
  // 40 days read as 10 February: one month of 30 days and 9 days.
  EXPECT_EQ(persist::ElapsedMinutesByCalendarFields(40ull * 1440 * kTicksPerMinute), 39u * 1440u);
  // 366 days read as 2 January 1602: one year of 365 days and one day.
  EXPECT_EQ(persist::ElapsedMinutesByCalendarFields(366ull * 1440 * kTicksPerMinute), 366u * 1440u);
}

TEST_F(SerialiserTest, NullLoadsNothingAndSaveClearsTheMarks) {
  StoreIndex index;
  IndexItem item;
  item.Create();
  item.SetProperty("ID", "a");
  ASSERT_TRUE(index.table.Insert(&item, UidClash::kNextFree));
  NullStoreIndexDeserialiser null;
  LoadRequest request;
  request.keep = true;
  EXPECT_EQ(null.Deserialise(&index.table, request, false), LoadFull);
  EXPECT_EQ(index.table.size(), 1u);
  request.keep = false;
  EXPECT_EQ(null.Deserialise(&index.table, request, false), LoadFull);
  EXPECT_EQ(index.table.size(), 0u);

  item.Create();
  item.SetProperty("ID", "b");
  ASSERT_TRUE(index.table.Insert(&item, UidClash::kNextFree));
  index.table.FullRewriteRequired = true;
  index.table.FirstModifiedUID = 1;
  EXPECT_EQ(SaveIndexFile(&index.table, folder_, 0), 1);
  EXPECT_FALSE(index.table.FullRewriteRequired);
  EXPECT_EQ(index.table.FirstModifiedUID, 0u);
  platform::FileInfo info;
  ASSERT_TRUE(env_.Stat(Path("_index.xml"), &info));
  EXPECT_EQ(index.table.IndexFileDate, info.write_time.ticks());
  EXPECT_TRUE(IndexFileExists(folder_, 54));

  // A failed save keeps the marks for the next attempt and still gives 1.
  index.table.FullRewriteRequired = true;
  EXPECT_EQ(SaveIndexFile(&index.table, folder_ + "/missing", 0), 1);
  EXPECT_TRUE(index.table.FullRewriteRequired);
}

TEST_F(SerialiserTest, StreamStateWarnings) {
  ReportStreamState({}, 12, "");
  EXPECT_TRUE(env_.events().empty());
  ReportStreamState({true, true}, 12, "seek");
  ASSERT_EQ(env_.events().size(), 1u);
  EXPECT_EQ(env_.events()[0].first,
            "[persist_test] Warning. Read/write error on index file (fail bad{seek}). Function: "
            "..\\SERVICES\\Library\\LIBStoreIndexSerialisation, Module Line: 12");
  EXPECT_EQ(env_.events()[0].id, 0x40000001u);
  EXPECT_EQ(env_.events()[0].type, platform::kEventInformation);
  EXPECT_EQ(env_.events()[0].source, "Quillarbor");
}

}  // namespace
}  // namespace qaaisp
