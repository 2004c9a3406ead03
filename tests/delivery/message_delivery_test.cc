// Delivery end to end: message files handed to the direct insert export
// become filled rows, with the folder's status and size files kept in step.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "base/library_settings.h"
#include "index/store_index.h"
#include "message/message_settings.h"
#include "persist/index_serialiser.h"
#include "persist/persist_settings.h"
#include "persist/stream_index_writer.h"
#include "qaaisp/qaaisp.h"
#include "test_env.h"

namespace qaaisp {
namespace {

using testing::Exists;
using testing::FakeClockEnv;
using testing::ReadFile;
using testing::WriteFile;

class MessageDeliveryTest : public ::testing::Test {
 protected:
  MessageDeliveryTest() : registry_(Registry({})), scoped_env_(&env_) {
    Reset();
    saved_ = ModuleSettings();
    ModuleSettings().mail_root = root_.path();
    ModuleSettings().notification_mode = 0;
    ModuleSettings().prevent_duplicates = 0;
    WriteFile(Mailbox() + "/_DIRSIZE.TMP", "0");
    WriteFile(Inbox() + "/_DIRSIZE.TMP", "0");
  }
  ~MessageDeliveryTest() override {
    ModuleSettings() = saved_;
    Reset();
  }

  static void Reset() {
    ResetMessageSettingsForTesting();
    persist::ResetPersistSettingsForTesting();
    persist::ResetIndexWriteSettingsForTesting();
  }
  static std::string Registry(std::vector<std::string> values) {
    values.push_back("\"Use XML Stream Index Deserialisation\"=dword:00000001");
    values.push_back("\"Use XML Stream Index Serialisation\"=dword:00000001");
    return testing::ProductRegText(values);
  }
  void UseSettings(const std::vector<std::string>& values) {
    registry_.Rewrite(Registry(values));
    Reset();
  }

  std::string Mailbox() const { return root_.Sub("po/MAILROOT/box"); }
  std::string Inbox() const { return Mailbox() + "/Inbox"; }

  // Rows of the folder's index file by "ID", each as its properties.
  std::map<std::string, std::map<std::string, std::string>> Rows(const std::string& folder,
                                                                 int32_t item_class = 0) {
    StoreIndex index;
    EXPECT_TRUE(LoadIndexForClass(&index.table, &index, folder, item_class, "po", "box", false,
                                  true, LoadFull, 0, false, false, true, false));
    std::map<std::string, std::map<std::string, std::string>> rows;
    for (const auto& [id, row] : index.table.by_id()) {
      PropertyValues values;
      row->Flatten(nullptr, &values);
      rows[id] = std::map<std::string, std::string>(values.begin(), values.end());
    }
    return rows;
  }

  testing::TempDir root_;
  testing::ScopedRegistry registry_;
  FakeClockEnv env_;
  testing::ScopedDefaultEnv scoped_env_;
  LibrarySettings saved_;
};

std::string Message(int n, size_t body_bytes) {
  return "From: sender" + std::to_string(n) + "@example.org\r\nTo: box@example.org\r\n" +
         "Subject: Message " + std::to_string(n) + "\r\nMessage-ID: <" + std::to_string(n) +
         "@example.org>\r\nDate: Wed, 1 Feb 2023 07:00:00 +0000\r\n\r\n" +
         std::string(body_bytes, 'b') + "\r\n";
}

TEST_F(MessageDeliveryTest, AThousandMessagesOneByOne) {
  constexpr int kMessages = 1000;
  int64_t kilobytes = 0;
  for (int n = 1; n <= kMessages; ++n) {
    const std::string name = std::to_string(n) + ".MAI";
    const std::string text = Message(n, static_cast<size_t>(n * 37 % 3000));
    WriteFile(Inbox() + "/" + name, text);
    kilobytes += static_cast<int64_t>(text.size() / 1024.0 + 0.5);
    ASSERT_EQ(Direct_StoreIndex_InsertItem("po", "box", "Inbox", name.c_str()), 1) << name;
  }

  const auto rows = Rows(Inbox());
  ASSERT_EQ(rows.size(), static_cast<size_t>(kMessages));
  for (int n = 1; n <= kMessages; ++n) {
    const auto& row = rows.at(std::to_string(n) + ".MAI");
    ASSERT_EQ(row.at("UID"), std::to_string(n));
    EXPECT_EQ(row.at("SUBJECT"), "Message " + std::to_string(n));
    EXPECT_EQ(row.at("FROM"), "sender" + std::to_string(n) + "@example.org");
    EXPECT_EQ(row.at("FLAGSTATUS"), "\\RECENT");
  }

  FolderDetails status{};
  GetCachedStatus("po", "box", "Inbox", &status);
  EXPECT_EQ(status.Total, kMessages);
  EXPECT_EQ(status.LastUID, kMessages);
  EXPECT_EQ(status.RecentCount, kMessages);
  EXPECT_EQ(status.RecentCount2, kMessages);
  EXPECT_EQ(status.Seen, 0);
  EXPECT_EQ(ReadFile(Mailbox() + "/_DIRSIZE.TMP"), std::to_string(kilobytes));
  EXPECT_EQ(ReadFile(Inbox() + "/_DIRSIZE.TMP"), std::to_string(kilobytes));
  EXPECT_FALSE(Exists(Inbox() + "/_index.blk"));
}

TEST_F(MessageDeliveryTest, AnOpenIndexInsertsFilledRows) {
  WriteFile(Inbox() + "/1.MAI", Message(1, 100));
  WriteFile(Inbox() + "/2.MAI", "Subject: read\r\nX-Read: 1\r\nX-Priority: 2\r\n\r\nx\r\n");
  ASSERT_EQ(Direct_StoreIndex_InsertItem("po", "box", "Inbox", "1.MAI"), 1);
  StoreIndex* index = StoreIndex_New();
  ASSERT_NE(index, nullptr);
  ASSERT_EQ(StoreIndex_SetNames(index, "po", "box", "Inbox", 0), 1);
  ASSERT_EQ(StoreIndex_SetPaths(index), 1);
  ASSERT_GE(StoreIndex_Open(index, 1), 1);
  EXPECT_EQ(StoreIndex_InsertItem(index, "2.MAI", 0), 1);
  EXPECT_EQ(StoreIndex_InsertItem(index, "2.MAI", 0), 0);  // its ID is taken
  EXPECT_EQ(StoreIndex_InsertItem(index, "absent.MAI", 0), 0);
  EXPECT_EQ(StoreIndex_Save(index), 1);
  StoreIndex_Release(index);
  StoreIndex_Delete(index);

  const auto rows = Rows(Inbox());
  ASSERT_EQ(rows.size(), 2u);
  const auto& row = rows.at("2.MAI");
  EXPECT_EQ(row.at("UID"), "2");
  EXPECT_EQ(row.at("SUBJECT"), "read");
  EXPECT_EQ(row.at("FROM"), "Unknown");
  EXPECT_EQ(row.at("IMPORTANCE"), "2");
  EXPECT_EQ(row.at("FLAGSTATUS"), "\\SEEN \\RECENT");
}

TEST_F(MessageDeliveryTest, FlagListsApplyPerFileAndNullFlagsLetTheFileSpeak) {
  WriteFile(Inbox() + "/a.MAI", "Subject: a\r\nX-QATempFlags: \\Deleted\r\n\r\nx\r\n");
  WriteFile(Inbox() + "/b.MAI", "Subject: b\r\n\r\nx\r\n");
  WriteFile(Inbox() + "/c.MAI", "Subject: c\r\n\r\nx\r\n");
  WriteFile(Inbox() + "/d.MAI", "Subject: d\r\nX-QATempFlags: \\Answered\r\n\r\nx\r\n");
  ASSERT_EQ(Direct_StoreIndex_InsertItemEx("po", "box", "Inbox", "a.MAI,b.MAI,c.MAI",
                                           "\\Seen \\Flagged,,$Label"),
            1);
  ASSERT_EQ(Direct_StoreIndex_InsertItemEx("po", "box", "Inbox", "d.MAI", nullptr), 1);
  const auto rows = Rows(Inbox());
  EXPECT_EQ(rows.at("a.MAI").at("FLAGSTATUS"), "\\Seen \\Flagged");  // the file's own gave way
  EXPECT_EQ(rows.at("a.MAI").at("READ"), "1");
  EXPECT_EQ(rows.at("b.MAI").at("FLAGSTATUS"), "\\RECENT");
  EXPECT_EQ(rows.at("c.MAI").at("FLAGSTATUS"), "$Label \\RECENT");
  EXPECT_EQ(rows.at("d.MAI").at("FLAGSTATUS"), "\\Answered \\RECENT");
  EXPECT_EQ(rows.at("d.MAI").at("UID"), "4");
  FolderDetails status{};
  GetCachedStatus("po", "box", "Inbox", &status);
  EXPECT_EQ(status.Total, 4);
  EXPECT_EQ(status.Seen, 1);

  // A groups delivery goes to the groups index, not the messages'.
  WriteFile(Mailbox() + "/Contacts/g.GRP", "NAME:Team\r\nUID:1\r\nann@x\r\n");
  ASSERT_EQ(Direct_StoreIndex_InsertItemEx("po", "box", "Contacts", "g.GRP", "$QAGROUP"), 1);
  EXPECT_TRUE(Exists(Mailbox() + "/Contacts/_groups.xml"));
  EXPECT_FALSE(Exists(Mailbox() + "/Contacts/_index.xml"));
  EXPECT_EQ(Rows(Mailbox() + "/Contacts", 54).count("g.GRP"), 1u);
}

TEST_F(MessageDeliveryTest, DuplicatesAreDeletedSetAsideOrLeftBySetting) {
  for (const char* name : {"1.MAI", "2.MAI", "3.MAI", "4.MAI"}) {
    WriteFile(Inbox() + "/" + name, Message(1, 10));
  }
  UseSettings({"\"Prevent Message Duplicates\"=dword:00000001"});
  ModuleSettings().prevent_duplicates = 1;
  ASSERT_EQ(Direct_StoreIndex_InsertItem("po", "box", "Inbox", "1.MAI"), 1);
  EXPECT_EQ(Rows(Inbox()).at("1.MAI").at("MSGID"), "<1@example.org>");

  EXPECT_EQ(Direct_StoreIndex_InsertItem("po", "box", "Inbox", "2.MAI"), 0);
  EXPECT_FALSE(Exists(Inbox() + "/2.MAI"));
  ModuleSettings().prevent_duplicates = 2;
  EXPECT_EQ(Direct_StoreIndex_InsertItem("po", "box", "Inbox", "3.MAI"), 0);
  EXPECT_TRUE(Exists(Inbox() + "/3.MAI.DUP"));
  ModuleSettings().prevent_duplicates = 3;
  EXPECT_EQ(Direct_StoreIndex_InsertItem("po", "box", "Inbox", "4.MAI"), 0);
  EXPECT_TRUE(Exists(Inbox() + "/4.MAI"));
  EXPECT_EQ(Rows(Inbox()).size(), 1u);
  EXPECT_FALSE(Exists(Inbox() + "/_index.blk"));
}

TEST_F(MessageDeliveryTest, BrandingWritesTheUidIntoTheDeliveredFile) {
  UseSettings({"\"UID Branding Enabled\"=dword:00000001"});
  WriteFile(Inbox() + "/1.MAI", "From: a@b\r\n\r\nbody\r\n");
  WriteFile(Inbox() + "/2.MAI", "From: a@b\r\nX-UID: 1.1\r\n\r\nbody\r\n");
  ASSERT_EQ(Direct_StoreIndex_InsertItem("po", "box", "Inbox", "1.MAI"), 1);
  ASSERT_EQ(Direct_StoreIndex_InsertItem("po", "box", "Inbox", "2.MAI"), 1);
  const std::string first = ReadFile(Inbox() + "/1.MAI");
  const std::string second = ReadFile(Inbox() + "/2.MAI");
  EXPECT_TRUE(first.starts_with("From: a@b\r\nX-UID: ")) << first;
  EXPECT_TRUE(first.ends_with(".1\r\n\r\nbody\r\n")) << first;
  EXPECT_TRUE(second.ends_with(".2\r\n\r\nbody\r\n")) << second;
  const auto rows = Rows(Inbox());
  EXPECT_EQ(rows.at("1.MAI").at("SIZE"), std::to_string(first.size()));
  EXPECT_EQ(rows.at("2.MAI").at("UID"), "2");
}

}  // namespace
}  // namespace qaaisp
