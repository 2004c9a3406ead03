#include "store/store_index_open.h"

#include <gtest/gtest.h>

#include <vector>

#include "index/store_paths.h"
#include "platform/path_case.h"
#include "store/store_test_support.h"

namespace qaaisp {
namespace {

using namespace store_testing;

// Stands in for the folder re-scan: records the call and rebuilds the rows
// from the folder's "*.MAI" files, as the real scan would.
std::vector<int> g_scans;
int FakeScan(StoreIndex* index, int scan_mode) {
  g_scans.push_back(scan_mode);
  platform::Env* env = platform::Env::Default();
  std::vector<platform::DirEntry> entries;
  env->ListDirectory(index->folder_path.str(), true, &entries);
  index->table.UnInit();
  index->table.LoadState = LoadFull;
  for (const auto& e : entries) {
    if (!platform::MatchPattern("*.MAI", e.name)) continue;
    IndexItem item;
    item.Create();
    item.SetProperty("ID", e.name);
    item.SetIntegerForced("SIZE", static_cast<int32_t>(e.size));
    index->table.Insert(&item, UidClash::kNextFree);
  }
  SaveIndexFile(&index->table, index->folder_path.str(), 0);
  return 1;
}

std::vector<std::string> g_notified;
void RecordNotify(const std::string& dir, const std::string&, const std::string&,
                  const char* payload) {
  g_notified.push_back(dir + "|" + payload);
}

class StoreIndexOpenTest : public StoreTest {
 protected:
  StoreIndexOpenTest() {
    g_scans.clear();
    g_notified.clear();
    SetFolderScanRoutine(FakeScan);
    SetContactScanRoutine(FakeScan);
    SetNotifyRoutine(RecordNotify);
  }

  void TouchIndex(const std::string& folder, const std::vector<TestRow>& rows) {
    WriteFile(folder + "/_index.xml", IndexText(rows.empty() ? 0 : rows.back().uid, rows));
    env_.Advance(10);
  }
};

TEST_F(StoreIndexOpenTest, ACachedIndexIsKeptUntilTheFileChanges) {
  std::string inbox = Folder("Inbox");
  TouchIndex(inbox, {{"1.MAI", 1, "\\Seen", 10}, {"2.MAI", 2, "", 20}});
  auto index = OpenableIndex("Inbox");

  ASSERT_EQ(qaaisp::StoreIndex_Open(index.get(), kOpenFullCheck), 1);
  EXPECT_EQ(index->row_count, 2);
  EXPECT_EQ(index->last_uid_at_open, 2u);
  EXPECT_EQ(index->IndexFileSize, ReadFile(inbox + "/_index.xml").size());
  IndexItemPropertyContainer* first = index->table.by_uid().begin()->second;

  // Unchanged file: the very rows in memory are reused.
  EXPECT_EQ(qaaisp::StoreIndex_Open(index.get(), kOpenFullCheck), 2);
  EXPECT_EQ(qaaisp::StoreIndex_Open(index.get(), kOpenFullCheckAlias), 2);
  EXPECT_EQ(qaaisp::StoreIndex_Open(index.get(), 3), 2);
  ASSERT_EQ(index->table.size(), 2u);
  EXPECT_EQ(index->table.by_uid().begin()->second, first);

  // Mode 5 loads whatever the time says.
  EXPECT_EQ(qaaisp::StoreIndex_Open(index.get(), kOpenLoadNow), 1);
  EXPECT_EQ(index->table.size(), 2u);

  // Another process rewrote the file: a fresh load.
  TouchIndex(inbox, {{"1.MAI", 1, "", 10}, {"2.MAI", 2, "", 20}, {"3.MAI", 3, "", 30}});
  EXPECT_EQ(qaaisp::StoreIndex_Open(index.get(), kOpenFullCheck), 1);
  EXPECT_EQ(index->row_count, 3);
  EXPECT_TRUE(g_scans.empty());
  EXPECT_FALSE(Exists(inbox + "/_index.blk"));
}

TEST_F(StoreIndexOpenTest, AMissingFolderIsNotCreated) {
  auto index = OpenableIndex("Nowhere");
  EXPECT_EQ(qaaisp::StoreIndex_Open(index.get(), kOpenFullCheck), 0);
  EXPECT_EQ(qaaisp::StoreIndex_Open(index.get(), kOpenLoadNow), 0);
  EXPECT_EQ(qaaisp::StoreIndex_Open(index.get(), kOpenRescan), 0);
  EXPECT_FALSE(Exists(MailboxDir() + "/Nowhere"));
  EXPECT_TRUE(g_scans.empty());
}

TEST_F(StoreIndexOpenTest, ChangeFlagOrMissingIndexBringsTheDirtyScan) {
  std::string sent = Folder("Sent");
  WriteFile(sent + "/1.MAI", "Subject: a\r\n\r\nbody");
  auto index = OpenableIndex("Sent");

  // No index file: dirty in modes 1 and 4.
  ASSERT_EQ(qaaisp::StoreIndex_Open(index.get(), kOpenNoNotify), 1);
  EXPECT_EQ(g_scans, std::vector<int>{QA_STOREINDEX_CHECKDIRTY});
  EXPECT_EQ(index->row_count, 1);

  // Clean now: the cache holds.
  EXPECT_EQ(qaaisp::StoreIndex_Open(index.get(), kOpenFullCheck), 2);
  EXPECT_EQ(g_scans.size(), 1u);

  WriteFile(sent + "/2.MAI", "Subject: b\r\n\r\nbody");
  WriteFile(sent + "/_CHANGE.DTY", "x");
  EXPECT_EQ(qaaisp::StoreIndex_Open(index.get(), kOpenFullCheck), 1);
  EXPECT_EQ(g_scans.size(), 2u);
  EXPECT_EQ(index->row_count, 2);
  EXPECT_FALSE(Exists(sent + "/_CHANGE.DTY"));

  // Mode 2 re-reads the files whatever the flags say.
  EXPECT_EQ(qaaisp::StoreIndex_Open(index.get(), kOpenRescan), 1);
  EXPECT_EQ(g_scans.back(), QA_STOREINDEX_REINDEX);
}

// A writer that died holding the block file may have left a message
// unindexed and no change flag: taking its block by force marks the folder
// and has the open bring it up to date at once.
TEST_F(StoreIndexOpenTest, ABlockLeftByADeadWriterBringsTheDirtyScan) {
  std::string sent = Folder("Sent");
  WriteFile(sent + "/1.MAI", "Subject: a\r\n\r\nbody");
  auto index = OpenableIndex("Sent");
  ASSERT_EQ(qaaisp::StoreIndex_Open(index.get(), kOpenFullCheck), 1);
  ASSERT_EQ(g_scans.size(), 1u);

  WriteFile(sent + "/2.MAI", "Subject: b\r\n\r\nbody");
  WriteFile(sent + "/_index.blk", "");
  auto other = OpenableIndex("Sent");
  EXPECT_EQ(qaaisp::StoreIndex_Open(other.get(), kOpenFullCheck), 1);
  EXPECT_EQ(g_scans.size(), 2u);
  EXPECT_EQ(other->row_count, 2);
  EXPECT_FALSE(Exists(sent + "/_index.blk"));
  EXPECT_FALSE(Exists(sent + "/_CHANGE.DTY"));  // the scan has dealt with it

  // A block that is merely free costs nothing more.
  EXPECT_EQ(qaaisp::StoreIndex_Open(other.get(), kOpenFullCheck), 2);
  EXPECT_EQ(g_scans.size(), 2u);
}

TEST_F(StoreIndexOpenTest, SomeClassesSkipTheDirtyTest) {
  // Contacts and groups together never test the change flag.
  std::string both = Folder("People");
  WriteFile(both + "/_CHANGE.DTY", "x");
  auto contacts = OpenableIndex("People", kClassContactsAndGroups);
  EXPECT_EQ(qaaisp::StoreIndex_Open(contacts.get(), kOpenFullCheck), 1);
  EXPECT_TRUE(Exists(both + "/_CHANGE.DTY"));

  // Calendars and tasks are never scanned here, even without an index.
  std::string calendar = Folder("Calendar");
  auto appointments = OpenableIndex("Calendar", kClassAppointment);
  EXPECT_EQ(qaaisp::StoreIndex_Open(appointments.get(), kOpenFullCheck), 1);
  EXPECT_TRUE(g_scans.empty());
}

TEST_F(StoreIndexOpenTest, InjectionFilesAreConsumedByTheInboxAlone) {
  std::string inbox = Folder("Inbox");
  Folder("Sent");
  TouchIndex(inbox, {{"1.MAI", 1, "", 10}});
  TouchIndex(MailboxDir() + "/Sent", {{"1.MAI", 1, "", 10}});
  for (const char* n : {"_4.NEW", "_12.NEW", "_9.NEW"}) WriteFile(MailboxDir() + "/" + n, "");

  auto sent = OpenableIndex("Sent");
  EXPECT_EQ(qaaisp::StoreIndex_Open(sent.get(), kOpenFullCheck), 1);
  EXPECT_TRUE(Exists(MailboxDir() + "/_12.NEW"));
  EXPECT_TRUE(g_scans.empty());

  auto inbox_index = OpenableIndex("\\INBOX");
  EXPECT_EQ(qaaisp::StoreIndex_Open(inbox_index.get(), kOpenFullCheck), 1);
  EXPECT_EQ(g_scans, std::vector<int>{QA_STOREINDEX_CHECKDIRTY});
  for (const char* n : {"_4.NEW", "_12.NEW", "_9.NEW"}) {
    EXPECT_FALSE(Exists(MailboxDir() + "/" + n)) << n;
  }
  EXPECT_TRUE(g_notified.empty());
}

TEST_F(StoreIndexOpenTest, NotificationModeFourNotifiesAndLeavesInjections) {
  ModuleSettings().notification_mode = 4;
  std::string inbox = Folder("Inbox");
  TouchIndex(inbox, {{"1.MAI", 1, "", 10}});
  WriteFile(MailboxDir() + "/_5.NEW", "");
  auto index = OpenableIndex("Inbox");

  EXPECT_EQ(qaaisp::StoreIndex_Open(index.get(), kOpenFullCheck), 1);
  EXPECT_TRUE(Exists(MailboxDir() + "/_5.NEW"));
  EXPECT_EQ(g_notified, std::vector<std::string>{MailboxDir() + "|COMMIT"});

  // Mode 4 skips the first notification, but a dirty folder still raises one.
  g_notified.clear();
  EXPECT_EQ(qaaisp::StoreIndex_Open(index.get(), kOpenNoNotify), 2);
  EXPECT_TRUE(g_notified.empty());
  WriteFile(inbox + "/_CHANGE.DTY", "x");
  EXPECT_EQ(qaaisp::StoreIndex_Open(index.get(), kOpenNoNotify), 1);
  EXPECT_EQ(g_notified.size(), 1u);
}

// Null objects are refused at the C boundary's own test of bad input.
TEST_F(StoreIndexOpenTest, LifecycleCallsOnAnOpenObject) {
  std::string inbox = Folder("Inbox");
  TouchIndex(inbox, {{"1.MAI", 1, "", 10}});
  auto index = OpenableIndex("Inbox");
  ASSERT_EQ(qaaisp::StoreIndex_Get(index.get()), 1);
  EXPECT_EQ(index->table.size(), 1u);
  EXPECT_EQ(qaaisp::StoreIndex_Close(index.get()), 1);
  EXPECT_EQ(index->table.size(), 0u);
  EXPECT_EQ(index->table.LoadState, LoadFailed);

  // A released object has lost its rows and mutex, not its names and path.
  ASSERT_EQ(qaaisp::StoreIndex_Open(index.get(), kOpenFullCheck), 1);
  EXPECT_EQ(qaaisp::StoreIndex_Release(index.get()), 1);
  EXPECT_EQ(index->hMutex, nullptr);
  EXPECT_EQ(index->table.size(), 0u);
  EXPECT_EQ(index->folder_path.str(), inbox);
}

}  // namespace
}  // namespace qaaisp
