#include "persist/msxml_index_serialiser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "index/index_item.h"
#include "index/store_index.h"
#include "persist/index_xml_test_util.h"
#include "persist/last_uid_floor.h"
#include "persist/persist_settings.h"
#include "persist/stream_index_serialiser.h"
#include "test_env.h"

namespace qaaisp {
namespace {

using persist::testing::IndexXml;
using persist::testing::RowXml;
using persist::testing::TombstoneXml;
using qaaisp::testing::FakeClockEnv;
using qaaisp::testing::ReadFile;
using qaaisp::testing::RegText;
using qaaisp::testing::ScopedDefaultEnv;
using qaaisp::testing::ScopedRegistry;
using qaaisp::testing::TempDir;
using qaaisp::testing::WriteFile;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

class DocumentSerialiserTest : public ::testing::Test {
 protected:
  DocumentSerialiserTest() : registry_(Settings(true)), scoped_env_(&env_) {
    persist::ResetPersistSettingsForTesting();
    folder_ = dir_.Sub("Inbox");
    qaaisp::testing::MakeDirs(folder_);
  }
  ~DocumentSerialiserTest() override { persist::ResetPersistSettingsForTesting(); }

  static std::string Settings(bool old_format) {
    return RegText(
        {{"SOFTWARE\\Wow6432Node\\Quill Arbor\\Quill Arbor",
          {std::string("\"MSXML Index Serialisation Produces Old Format\"=dword:0000000") +
           (old_format ? "1" : "0")}}});
  }
  void UseOldFormat(bool old_format) {
    registry_.Rewrite(Settings(old_format));
    persist::ResetPersistSettingsForTesting();
  }

  static void AddRow(StoreIndex* index, const std::string& id, uint32_t uid,
                     const std::vector<std::pair<std::string, std::string>>& props) {
    IndexItem item;
    item.Create();
    item.SetProperty("ID", id);
    item.SetIntegerForced("UID", static_cast<int32_t>(uid));
    for (const auto& [name, value] : props) item.SetProperty(name, value);
    ASSERT_TRUE(index->table.Insert(&item, UidClash::kRefuse));
  }

  std::string IndexPath() const { return folder_ + "/_index.xml"; }

  int32_t Load(MSXMLStoreIndexSerialiser* reader, StoreIndex* index, int32_t verify = 0) {
    LoadRequest request;
    request.folder = folder_;
    request.verify_files = verify;
    return reader->Deserialise(&index->table, request, false);
  }
  int32_t StreamLoad(StoreIndex* index) {
    StreamXMLStoreIndexSerialiser reader;
    LoadRequest request;
    request.folder = folder_;
    return reader.Deserialise(&index->table, request, false);
  }
  static std::vector<std::string> Ids(const StoreIndex& index) {
    std::vector<std::string> ids;
    for (const auto& [uid, row] : index.table.by_uid()) ids.emplace_back(row->IdView());
    return ids;
  }

  TempDir dir_;
  qaaisp::testing::FaultInjectionEnv env_;
  ScopedRegistry registry_;
  ScopedDefaultEnv scoped_env_;
  std::string folder_;
};

TEST_F(DocumentSerialiserTest, WritesBothFormsInTheirOrder) {
  StoreIndex index;
  AddRow(&index, "b.MAI", 1, {{"SUBJECT", "caf\xc3\xa9 <1> & \x01"}});
  AddRow(&index, "a.MAI", 2, {{"FROM", "x"}});
  index.table.LastUID = 42;
  MSXMLStoreIndexSerialiser old_writer;
  ASSERT_TRUE(old_writer.old_format());
  EXPECT_EQ(old_writer.Serialise(&index.table, folder_, 0), 1);
  EXPECT_TRUE(index.table.FullRewriteRequired);
  std::string old_bytes = ReadFile(IndexPath());
  EXPECT_EQ(old_bytes.rfind("<BASEELEMENT LASTUID=\"42\"><ELEMENT ID=\"a.MAI\" UID=\"2\">", 0), 0u)
      << old_bytes;
  // Only ASCII survives; IDX and SEQ are never written.
  EXPECT_THAT(old_bytes, HasSubstr("<SUBJECT>caf   &lt;1&gt; &amp;  </SUBJECT>"));
  EXPECT_THAT(old_bytes, ::testing::Not(HasSubstr("SEQ")));
  EXPECT_THAT(old_bytes, ::testing::Not(HasSubstr("IDX")));

  UseOldFormat(false);
  MSXMLStoreIndexSerialiser writer;
  EXPECT_EQ(writer.Serialise(&index.table, folder_, 0), 1);
  std::string bytes = ReadFile(IndexPath());
  EXPECT_EQ(bytes.rfind("<BASEELEMENT LASTUID=\"x0000002a\"><ELEMENT ID=\"b.MAI\" UID=\"1\">", 0),
            0u)
      << bytes;

  // Groups have their own file.
  EXPECT_EQ(writer.Serialise(&index.table, folder_, 54), 1);
  EXPECT_EQ(ReadFile(folder_ + "/_groups.xml"), bytes);
}

TEST_F(DocumentSerialiserTest, ItsFilesLoadThroughTheStreamReader) {
  StoreIndex index;
  AddRow(&index, "1.MAI", 3, {{"SUBJECT", "a<b"}, {"SIZE", "12"}});
  AddRow(&index, "2.MAI", 7, {{"FLAGSTATUS", "\\SEEN"}});
  index.table.LastUID = 9;
  for (bool old_format : {true, false}) {
    UseOldFormat(old_format);
    MSXMLStoreIndexSerialiser writer;
    ASSERT_EQ(writer.Serialise(&index.table, folder_, 0), 1);
    StoreIndex loaded;
    EXPECT_EQ(StreamLoad(&loaded), LoadFull) << old_format;
    EXPECT_THAT(Ids(loaded), ElementsAre("1.MAI", "2.MAI"));
    EXPECT_EQ(loaded.table.LastUID, 9u);
    EXPECT_EQ(loaded.table.by_id().at("1.MAI")->GetText("SUBJECT"), "a<b");
    EXPECT_EQ(loaded.table.by_id().at("1.MAI")->GetInteger("SIZE"), 12);
    EXPECT_EQ(loaded.table.by_id().at("2.MAI")->GetInteger("SEQ"), 2);
    // The old form is upgraded by the next save.
    EXPECT_EQ(loaded.table.FullRewriteRequired, old_format);
  }
  // An empty index is a self-closed root, which the stream reader takes as
  // empty and complete.
  StoreIndex empty;
  empty.table.LastUID = 5;
  MSXMLStoreIndexSerialiser writer;
  ASSERT_EQ(writer.Serialise(&empty.table, folder_, 0), 1);
  StoreIndex loaded;
  EXPECT_EQ(StreamLoad(&loaded), LoadFull);
  EXPECT_EQ(loaded.table.size(), 0u);
  EXPECT_EQ(loaded.table.LastUID, 5u);
  EXPECT_TRUE(loaded.table.FullRewriteRequired);
}

TEST_F(DocumentSerialiserTest, StreamFilesLoadWithTombstonesDropped) {
  WriteFile(IndexPath(),
            IndexXml(12, RowXml("1.MAI", 4, {{"SUBJECT", "x &amp;lt; y"}}) +
                             TombstoneXml(5, 1, "<SUBJECT>gone</SUBJECT>") +
                             RowXml("3.MAI", 9, {{"READ", "1"}}) + RowXml("4.MAI", 9)));
  StoreIndex index;
  MSXMLStoreIndexSerialiser reader;
  EXPECT_EQ(Load(&reader, &index), LoadFull);
  EXPECT_EQ(index.table.LoadState, LoadFull);
  EXPECT_EQ(index.table.LastUID, 12u);
  EXPECT_FALSE(index.table.FullRewriteRequired);
  EXPECT_EQ(index.table.FirstModifiedUID, 0u);
  EXPECT_FALSE(index.table.OffsetsValid);
  // A taken UID moves to the next free number.
  EXPECT_THAT(Ids(index), ElementsAre("1.MAI", "3.MAI", "4.MAI"));
  ASSERT_TRUE(index.table.FindByUid(10));
  auto* first = index.table.by_id().at("1.MAI");
  EXPECT_EQ(first->GetText("SUBJECT"), "x &lt; y");
  EXPECT_EQ(first->GetInteger("IDX"), 1);
  EXPECT_EQ(first->GetInteger("SEQ"), 1);
  EXPECT_EQ(index.table.by_id().at("4.MAI")->GetInteger("SEQ"), 3);
  EXPECT_EQ(index.table.by_id().at("3.MAI")->GetInteger("READ"), 1);

  // verify_files drops rows whose item is gone.
  WriteFile(folder_ + "/3.MAI", "x");
  StoreIndex verified;
  EXPECT_EQ(Load(&reader, &verified, 1), LoadFull);
  EXPECT_THAT(Ids(verified), ElementsAre("3.MAI"));

  // Old form: decimal LASTUID, upgraded on save.
  WriteFile(IndexPath(), "<BASEELEMENT LASTUID=\"7\"/>");
  StoreIndex old;
  old.table.ItemFilter = "a,b";
  EXPECT_EQ(Load(&reader, &old), LoadFull);
  EXPECT_EQ(old.table.LastUID, 7u);
  EXPECT_TRUE(old.table.FullRewriteRequired);
  EXPECT_TRUE(old.table.ItemFilter.empty());
}

TEST_F(DocumentSerialiserTest, LoadFailuresPrintAndLeaveTheIndexUnloaded) {
  MSXMLStoreIndexSerialiser reader;
  StoreIndex index;
  // A missing file prints nothing.
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(Load(&reader, &index), LoadFailed);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");

  WriteFile(IndexPath(), "<BASEELEMENT LASTUID=\"x1\">\n<ELEMENT ID=\"a\"></BASE>");
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(Load(&reader, &index), LoadFailed);
  std::string printed = ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(printed.rfind("Error:\nCode = 0x", 0), 0u) << printed;
  EXPECT_THAT(printed, HasSubstr("Source = Line : 2; Char : "));
  EXPECT_THAT(printed, HasSubstr("Error Description = "));

  WriteFile(IndexPath(), "   ");
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(Load(&reader, &index), LoadFailed);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "Error: The document \"" + IndexPath() +
                "\" was loaded, but the documentElement could not be accessed. There may be "
                "invalid permissions set on this object.\n");
  EXPECT_EQ(index.table.LoadState, LoadFailed);
}

TEST_F(DocumentSerialiserTest, ASaveThatCannotWriteIsReportedWithItsNumber) {
  StoreIndex index;
  MSXMLStoreIndexSerialiser writer;
  EXPECT_EQ(writer.Serialise(&index.table, folder_ + "/missing", 0), 0);
  ASSERT_FALSE(env_.events().empty());
  EXPECT_EQ(env_.events().back().first.rfind(
                "MSXMLStoreIndexSerialiser::SerialiseHook::An exception occurred. Exception Nr. "
                "-2147024893 handled a COM error.\n",
                0),
            0u)
      << env_.events().back().first;
}

// A writer that stops at any file call, as a killed one does, leaves either
// the old index or the new header: never a file without its LastUID.
TEST_F(DocumentSerialiserTest, ASaveStoppedAtAnyCallLeavesALastUidInTheFile) {
  UseOldFormat(false);
  MSXMLStoreIndexSerialiser writer;
  StoreIndex old_index;
  old_index.table.LastUID = 40;
  AddRow(&old_index, "a.MAI", 40, {{"SUBJECT", std::string(4000, 's')}});
  ASSERT_EQ(writer.Serialise(&old_index.table, folder_, 0), 1);
  for (int call = 1;; ++call) {
    ASSERT_EQ(writer.Serialise(&old_index.table, folder_, 0), 1);
    StoreIndex index;
    index.table.LastUID = 41;
    AddRow(&index, "b.MAI", 41, {});
    env_.Reset();
    env_.FailAt(call);
    const int saved = writer.Serialise(&index.table, folder_, 0);
    env_.Reset();
    EXPECT_GE(persist::LastUidInIndexFile(folder_, 0), 40u) << "failing call " << call;
    // Stopped before the file was cut to length, the new index stands
    // whole with blanks behind it, which a load passes over.
    if (saved == 0) {
      StoreIndex loaded;
      const std::string bytes = ReadFile(IndexPath());
      if (bytes.find("b.MAI") != std::string::npos) {
        EXPECT_EQ(Load(&writer, &loaded), LoadFull) << "failing call " << call;
        EXPECT_EQ(loaded.table.LastUID, 41u);
      }
    }
    if (saved == 1) break;
    ASSERT_LT(call, 20);
  }
}

}  // namespace
}  // namespace qaaisp
