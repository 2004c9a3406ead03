// A LastUID, once written, never goes down: not by a save from an older
// load, not by a restore from an older backup, not by a rebuild after the
// index was lost.
#include "persist/last_uid_floor.h"

#include <gtest/gtest.h>

#include "index/store_index.h"
#include "persist/index_serialiser.h"
#include "persist/index_xml_test_util.h"
#include "persist/persist_settings.h"
#include "persist/stream_index_serialiser.h"
#include "persist/unindexed_index_serialiser.h"
#include "test_env.h"

namespace qaaisp {
namespace {

using persist::testing::Header;
using persist::testing::IndexXml;
using persist::testing::RowXml;
using qaaisp::testing::FakeClockEnv;
using qaaisp::testing::ProductRegText;
using qaaisp::testing::ReadFile;
using qaaisp::testing::ScopedDefaultEnv;
using qaaisp::testing::ScopedRegistry;
using qaaisp::testing::TempDir;
using qaaisp::testing::WriteFile;

std::string Settings(const std::vector<std::string>& lines) { return ProductRegText(lines); }

const std::string kStreamReader = "\"Use XML Stream Index Deserialisation\"=dword:00000001";
const std::string kStreamWriter = "\"Use XML Stream Index Serialisation\"=dword:00000001";
const std::string kBackupOn = "\"Backup Index\"=dword:00000001";

class LastUidFloorTest : public ::testing::Test {
 protected:
  LastUidFloorTest() : registry_(Settings({})), scoped_env_(&env_) {
    persist::ResetPersistSettingsForTesting();
    folder_ = dir_.Sub("Inbox");
    qaaisp::testing::MakeDirs(folder_);
  }
  ~LastUidFloorTest() override { persist::ResetPersistSettingsForTesting(); }

  void UseSettings(const std::vector<std::string>& lines) {
    registry_.Rewrite(Settings(lines));
    persist::ResetPersistSettingsForTesting();
  }
  std::string Path(const std::string& name) const { return folder_ + "/" + name; }

  // The status record with only its LastUID field set.
  void WriteStatusLastUid(uint32_t last_uid) {
    WriteFile(Path("_FOLDER.DAT"), qaaisp::testing::FolderStatusRecord(last_uid));
  }

  LoadRequest Request(bool quiet) const {
    LoadRequest request;
    request.folder = folder_;
    request.mode = LoadFull;
    request.quiet = quiet;
    return request;
  }

  TempDir dir_;
  FakeClockEnv env_;
  ScopedRegistry registry_;
  ScopedDefaultEnv scoped_env_;
  std::string folder_;
};

TEST_F(LastUidFloorTest, SavesFromAnOlderLoadKeepTheFilesHigherLastUid) {
  for (bool stream_writer : {false, true}) {
    SCOPED_TRACE(stream_writer ? "stream writer" : "document writer");
    UseSettings(stream_writer ? std::vector<std::string>{kStreamReader, kStreamWriter}
                              : std::vector<std::string>{});
    // Loaded when the folder had handed out UID 3; another process has
    // handed out up to 20 since.
    StoreIndex index;
    WriteFile(Path("_index.xml"), IndexXml(3, RowXml("a", 1) + RowXml("b", 3)));
    StreamXMLStoreIndexSerialiser reader;
    ASSERT_EQ(reader.Deserialise(&index.table, Request(true), false), LoadFull);
    WriteFile(Path("_index.xml"), IndexXml(20, RowXml("a", 1) + RowXml("z", 20)));
    index.table.FullRewriteRequired = true;
    SaveIndexFile(&index.table, folder_, 0);
    EXPECT_EQ(index.table.LastUID, 20u);
    EXPECT_EQ(persist::LastUidInIndexFile(folder_, 0), 20u);
  }
}

TEST_F(LastUidFloorTest, ARestoredBackupCountsOnFromTheDamagedIndexesLastUid) {
  UseSettings({kStreamReader, kBackupOn});
  WriteFile(Path("1.MAI"), "x");
  WriteFile(Path("_index.xml.bak"), IndexXml(5, RowXml("1.MAI", 1)));
  // Torn in the middle of a row, the header already at 9.
  WriteFile(Path("_index.xml"), Header(9) + "<ELEMENT ID=\"1.MAI\" UI");
  StoreIndex index;
  StreamXMLStoreIndexSerialiser reader;
  EXPECT_EQ(reader.Deserialise(&index.table, Request(false), false), LoadFull);
  EXPECT_EQ(index.table.LastUID, 9u);
  EXPECT_EQ(persist::LastUidInIndexFile(folder_, 0), 9u);
}

TEST_F(LastUidFloorTest, ALostIndexIsRebuiltAboveTheStatusRecordsLastUid) {
  WriteStatusLastUid(12);
  // A rewrite killed between truncation and the first write.
  WriteFile(Path("_index.xml"), "");
  StoreIndex failed;
  StreamXMLStoreIndexSerialiser reader;
  EXPECT_EQ(reader.Deserialise(&failed.table, Request(true), false), LoadFailed);
  EXPECT_EQ(failed.table.LastUID, 12u);

  // The rebuild that the change marker asks for quarantines the file and
  // starts from nothing, but not from UID 0.
  StoreIndex rebuilt;
  UnindexedStoreIndexSerialiser rebuild(new StreamXMLStoreIndexSerialiser);
  rebuild.Deserialise(&rebuilt.table, Request(false), false);
  EXPECT_EQ(rebuilt.table.LastUID, 12u);

  // No index file at all.
  StoreIndex fresh;
  UnindexedStoreIndexSerialiser scan(nullptr);
  EXPECT_EQ(scan.Deserialise(&fresh.table, Request(false), false), LoadFull);
  EXPECT_EQ(fresh.table.LastUID, 12u);
}

TEST_F(LastUidFloorTest, UnreadableSourcesGiveNoFloor) {
  EXPECT_EQ(persist::RecoveryLastUidFloor(folder_, 0), 0u);
  WriteFile(Path("_index.xml"), "<BASEELEMENT LASTUID=\"x0000");  // cut in the value
  WriteFile(Path("_FOLDER.DAT"), "short");
  EXPECT_EQ(persist::RecoveryLastUidFloor(folder_, 0), 0u);
  WriteFile(Path("_index.xml"), "<BASEELEMENT LASTUID=\"41\"><ELEMENT");
  EXPECT_EQ(persist::RecoveryLastUidFloor(folder_, 0), 41u);
}

}  // namespace
}  // namespace qaaisp
