#include "store/direct_store_index.h"

#include <gtest/gtest.h>

#include "store/folder_status_file.h"
#include "store/store_test_support.h"

namespace qaaisp {
namespace {

using namespace store_testing;

class DirectStoreIndexTest : public StoreTest {
 protected:
  DirectStoreIndexTest() : inbox_(Folder("Inbox")) {}

  FolderDetails Status() {
    FolderDetails d{};
    ReadFolderStatusFile(&env_, inbox_ + "/_FOLDER.DAT", &d);
    return d;
  }
  void Deliver(const std::string& name, size_t bytes) {
    WriteFile(inbox_ + "/" + name, std::string(bytes, 'x'));
  }

  std::string inbox_;
};

TEST_F(DirectStoreIndexTest, DeliveryIndexesFilesAndKeepsTheSideFilesInStep) {
  // Rows of the file's size alone, whatever indexer is registered.
  SetInsertFromFileRoutine(InsertRowWithFileSize);
  WriteFile(MailboxDir() + "/_DIRSIZE.TMP", "100");
  Deliver("1.MAI", 1536);  // 2 KB rounded
  Deliver("2.MAI", 511);   // 0 KB rounded
  Deliver("3.MAI", 4096);

  EXPECT_EQ(Direct_StoreIndex_InsertItemEx("po", "box", "Inbox", "1.MAI,2.MAI", "\\Seen,"), 1);
  EXPECT_EQ(Direct_StoreIndex_InsertItemEx("po", "box", "Inbox", "3.MAI", nullptr), 1);
  EXPECT_EQ(RowsOnDisk(inbox_),
            (std::vector<std::string>{"1.MAI::1536", "2.MAI::511", "3.MAI::4096"}));
  EXPECT_EQ(ReadFile(MailboxDir() + "/_DIRSIZE.TMP"), "106");
  FolderDetails d = Status();
  EXPECT_EQ(d.Total, 3);
  EXPECT_EQ(d.Seen, 1);
  EXPECT_EQ(d.RecentCount, 3);
  EXPECT_EQ(d.RecentCount2, 3);
  EXPECT_EQ(d.LastUID, 3);
  EXPECT_FALSE(Exists(inbox_ + "/_index.blk"));

  // A file that is not there makes no row, changes nothing and fails.
  std::string before = ReadFile(inbox_ + "/_index.xml");
  EXPECT_EQ(Direct_StoreIndex_InsertItemEx("po", "box", "Inbox", "9.MAI", nullptr), 0);
  EXPECT_EQ(ReadFile(inbox_ + "/_index.xml"), before);
  EXPECT_EQ(Status().Total, 3);
}

TEST_F(DirectStoreIndexTest, FlagUpdatesMergeAndCount) {
  WriteFile(inbox_ + "/_index.xml", IndexText(3, {{"1.MAI", 1, "\\Recent", 100},
                                                  {"2.MAI", 2, "\\Seen \\Flagged", 200},
                                                  {"3.MAI", 3, "\\Recent", 300}}));
  FolderDetails start{};
  start.Total = 3;
  start.Seen = 1;
  start.Flagged = 1;
  WriteFolderStatusFile(&env_, inbox_ + "/_FOLDER.DAT", start);

  EXPECT_EQ(Direct_StoreIndex_UpdateItem("po", "box", "Inbox", "1.MAI", "+\\Seen"), 1);
  EXPECT_EQ(Status().Seen, 2);
  EXPECT_EQ(Direct_StoreIndex_UpdateItem("po", "box", "Inbox", "2.MAI", "\\Answered"), 1);
  EXPECT_EQ(Direct_StoreIndex_UpdateItem("po", "box", "Inbox", "3.MAI", "SIZE=333"), 1);
  EXPECT_EQ(RowsOnDisk(inbox_),
            (std::vector<std::string>{"1.MAI:\\Recent \\Seen:100", "2.MAI:\\Answered:200",
                                      "3.MAI:\\Recent:333"}));
  FolderDetails d = Status();
  EXPECT_EQ(d.Seen, 1);
  EXPECT_EQ(d.Flagged, 0);
  EXPECT_EQ(d.Answered, 1);

  // "READ" follows "\Seen" both ways.
  StoreIndex index;
  ASSERT_TRUE(LoadIndexForClass(&index.table, &index, inbox_, 0, "po", "box", false, true, LoadFull,
                                0, false, false, true, false));
  EXPECT_EQ(index.table.by_id().find("1.MAI")->second->GetInteger("READ"), 1);
  EXPECT_EQ(index.table.by_id().find("2.MAI")->second->GetInteger("READ"), 0);

  // An update that changes nothing leaves the index file alone.
  std::string before = ReadFile(inbox_ + "/_index.xml");
  env_.Advance(10);
  EXPECT_EQ(Direct_StoreIndex_UpdateItem("po", "box", "Inbox", "1.MAI", "+\\SEEN"), 1);
  EXPECT_EQ(Direct_StoreIndex_UpdateItem("po", "box", "Inbox", "7.MAI", "+\\Seen"), 1);
  EXPECT_EQ(ReadFile(inbox_ + "/_index.xml"), before);
  EXPECT_FALSE(Exists(inbox_ + "/_index.blk"));
}

TEST_F(DirectStoreIndexTest, RemovalLowersCountersButNeverBelowZero) {
  const std::string full = IndexText(3, {{"1.MAI", 1, "\\Recent", 2048},
                                         {"2.MAI", 2, "\\Seen", 1024},
                                         {"3.MAI", 3, "\\Recent", 100}});
  WriteFile(inbox_ + "/_index.xml", full);
  WriteFile(MailboxDir() + "/_DIRSIZE.TMP", "10");
  FolderDetails start{};
  start.Total = 3;
  start.RecentCount = 1;  // already lower than the rows say
  start.RecentCount2 = 2;
  WriteFolderStatusFile(&env_, inbox_ + "/_FOLDER.DAT", start);

  EXPECT_EQ(Direct_StoreIndex_RemoveItem("po", "box", "Inbox", "1.MAI,2.MAI,3.MAI,8.MAI"), 1);
  EXPECT_TRUE(RowsOnDisk(inbox_).empty());
  FolderDetails d = Status();
  EXPECT_EQ(d.Total, 0);
  EXPECT_EQ(d.Seen, 0);
  EXPECT_EQ(d.RecentCount, 0);
  EXPECT_EQ(d.RecentCount2, 0);
  EXPECT_EQ(ReadFile(MailboxDir() + "/_DIRSIZE.TMP"), "7");  // 2 + 1 + 0 KB
  // The file keeps its length: removed rows stay as tombstones.
  EXPECT_EQ(ReadFile(inbox_ + "/_index.xml").size(), full.size());
}

TEST_F(DirectStoreIndexTest, CallsThatCannotLoadFailAndMarkTheFolder) {
  EXPECT_EQ(Direct_StoreIndex_InsertItemEx("", "box", "Inbox", "1.MAI", nullptr), 0);
  // The folder's directory does not exist: no block file can be made there.
  EXPECT_EQ(Direct_StoreIndex_UpdateItem("po", "box", "Gone", "1.MAI", "+\\Seen"), 0);
  EXPECT_EQ(Direct_StoreIndex_RemoveItem("po", "box", "Gone", "1.MAI"), 0);
  EXPECT_FALSE(Exists(MailboxDir() + "/Gone"));
  EXPECT_EQ(env_.sleep_count(), 0);
}

// Every file call of a delivery and of a flag change fails once, in turn:
// the folder must end as it was or as intended, or be marked for a re-scan,
// and never be left locked or unreadable.
TEST_F(DirectStoreIndexTest, AnyFailedFileCallLeavesTheFolderRecoverable) {
  SetInsertFromFileRoutine(InsertRowWithFileSize);
  testing::FaultInjectionEnv faults;
  ScopedDefaultEnv use_faults(&faults);
  const std::vector<std::string> before = {"1.MAI:\\Seen:10", "2.MAI:\\Recent:20"};
  for (const bool delivery : {true, false}) {
    for (int n = 1;; ++n) {
      const std::string mailbox = std::string(delivery ? "d" : "u") + std::to_string(n);
      const std::string folder = Folder("Inbox", mailbox);
      WriteFile(folder + "/_index.xml",
                IndexText(2, {{"1.MAI", 1, "\\Seen", 10}, {"2.MAI", 2, "\\Recent", 20}}));
      WriteFile(folder + "/3.MAI", std::string(30, 'x'));
      faults.Reset();
      faults.FailAt(n);
      int result =
          delivery
              ? Direct_StoreIndex_InsertItemEx("po", mailbox.c_str(), "Inbox", "3.MAI", nullptr)
              : Direct_StoreIndex_UpdateItem("po", mailbox.c_str(), "Inbox", "2.MAI", "+\\Seen");
      const bool failed_a_call = faults.calls() >= n;
      faults.FailAt(0);

      SCOPED_TRACE((delivery ? "delivery, call " : "update, call ") + std::to_string(n));
      EXPECT_FALSE(Exists(folder + "/_index.blk"));
      const std::vector<std::string> after = RowsOnDisk(folder);
      const std::vector<std::string> intended =
          delivery ? std::vector<std::string>{before[0], before[1], "3.MAI::30"}
                   : std::vector<std::string>{before[0], "2.MAI:\\Recent \\Seen:20"};
      if (result == 1) {
        EXPECT_EQ(after, intended);
      } else {
        EXPECT_TRUE(after == before || Exists(folder + "/_CHANGE.DTY"));
      }
      if (!failed_a_call) {
        EXPECT_EQ(result, 1);
        break;
      }
    }
  }
}

// A removal alone writes tombstones and sets no other mark, so only the
// writer's result tells that it failed; the folder must be marked then.
TEST_F(DirectStoreIndexTest, ARemovalWhoseTombstoneFailsMarksTheFolder) {
  testing::FaultInjectionEnv faults;
  ScopedDefaultEnv use_faults(&faults);
  int tombstone_write = 0;
  for (const char* mailbox : {"clean", "failing"}) {
    const std::string folder = Folder("Inbox", mailbox);
    WriteFile(folder + "/_index.xml",
              IndexText(2, {{"1.MAI", 1, "\\Seen", 10}, {"2.MAI", 2, "", 20}}));
    faults.Reset();
    faults.FailAt(tombstone_write);
    const int result = Direct_StoreIndex_RemoveItem("po", mailbox, "Inbox", "1.MAI");
    faults.FailAt(0);
    if (tombstone_write == 0) {
      EXPECT_EQ(result, 1);
      EXPECT_FALSE(Exists(folder + "/_CHANGE.DTY"));
      const std::vector<std::string> log = faults.log();
      for (size_t i = 0; i < log.size() && tombstone_write == 0; ++i) {
        if (log[i] == "write:" + folder + "/_index.xml") tombstone_write = static_cast<int>(i) + 1;
      }
      ASSERT_GT(tombstone_write, 0);
      continue;
    }
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(Exists(folder + "/_CHANGE.DTY"));
  }
}

}  // namespace
}  // namespace qaaisp
