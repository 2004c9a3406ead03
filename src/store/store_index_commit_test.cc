#include "store/store_index_commit.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

#include "store/folder_status_file.h"
#include "store/store_index_open.h"
#include "store/store_test_support.h"

namespace qaaisp {
namespace {

using namespace store_testing;

class StoreIndexCommitTest : public StoreTest {
 protected:
  StoreIndexCommitTest() : inbox_(Folder("Inbox")) {
    WriteFile(inbox_ + "/_index.xml",
              IndexText(2, {{"1.MAI", 1, "\\Seen", 10}, {"2.MAI", 2, "\\Recent", 20}}));
  }
  std::string inbox_;
};

TEST_F(StoreIndexCommitTest, CommitOfAnUnchangedIndexTouchesNothing) {
  auto index = OpenableIndex("Inbox");
  ASSERT_EQ(qaaisp::StoreIndex_Open(index.get(), kOpenFullCheck), 1);
  struct stat before {};
  ::stat((inbox_ + "/_index.xml").c_str(), &before);

  EXPECT_EQ(qaaisp::StoreIndex_Commit(index.get()), 2);
  struct stat after {};
  ::stat((inbox_ + "/_index.xml").c_str(), &after);
  EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);
  EXPECT_EQ(before.st_ino, after.st_ino);
  EXPECT_FALSE(Exists(inbox_ + "/_FOLDER.DAT"));
  EXPECT_FALSE(Exists(inbox_ + "/_index.blk"));
}

TEST_F(StoreIndexCommitTest, CommitSavesRowsAndTheFolderStatus) {
  SetInsertFromFileRoutine(InsertRowWithFileSize);
  WriteFile(inbox_ + "/3.MAI", std::string(30, 'x'));
  auto index = OpenableIndex("Inbox");
  ASSERT_EQ(qaaisp::StoreIndex_Open(index.get(), kOpenFullCheck), 1);
  EXPECT_EQ(qaaisp::StoreIndex_InsertItem(index.get(), "3.MAI", 0), 1);
  EXPECT_EQ(qaaisp::StoreIndex_InsertItem(index.get(), "missing.MAI", 0), 0);
  EXPECT_EQ(qaaisp::StoreIndex_RemoveItem(index.get(), "1.MAI"), 1);
  ASSERT_EQ(index->changed, 1);

  EXPECT_EQ(qaaisp::StoreIndex_Commit(index.get()), 1);
  EXPECT_EQ(index->changed, 0);
  EXPECT_EQ(RowsOnDisk(inbox_), (std::vector<std::string>{"2.MAI:\\Recent:20", "3.MAI::30"}));
  FolderDetails d{};
  ReadFolderStatusFile(&env_, inbox_ + "/_FOLDER.DAT", &d);
  EXPECT_EQ(d.Total, 2);
  EXPECT_EQ(d.Recent, 1);
  EXPECT_EQ(d.Seen, 0);
  EXPECT_EQ(d.LastUID, 3);
  EXPECT_FALSE(Exists(inbox_ + "/_CHANGE.DTY"));

  // The rows in memory are those of the file just written.
  EXPECT_EQ(qaaisp::StoreIndex_Open(index.get(), kOpenFullCheck), 2);
}

TEST_F(StoreIndexCommitTest, CommitRefusesWhatItCannotDoSafely) {
  EXPECT_EQ(qaaisp::StoreIndex_Commit(nullptr), 0);
  StoreIndex bare;  // no mutex, no path
  qaaisp::StoreIndex_Init(&bare);
  bare.changed = 1;
  EXPECT_EQ(qaaisp::StoreIndex_Commit(&bare), 0);
  SetStoreIndexNames(&bare, "po", "box", "Inbox", 0);
  SetStoreIndexPaths(&bare);
  EXPECT_EQ(qaaisp::StoreIndex_Commit(&bare), 0);
  EXPECT_EQ(bare.changed, 1);

  // An index that never loaded is never written over the file.
  auto index = OpenableIndex("Inbox");
  index->changed = 1;
  std::string before = ReadFile(inbox_ + "/_index.xml");
  EXPECT_EQ(qaaisp::StoreIndex_Save(index.get()), 0);
  EXPECT_EQ(ReadFile(inbox_ + "/_index.xml"), before);
}

TEST_F(StoreIndexCommitTest, MessageSummaryComesFromTheRow) {
  WriteFile(inbox_ + "/_index.xml",
            "<BASEELEMENT LASTUID=\"x00000007\"><ELEMENT ID=\"7.MAI\" UID=\"7\">"
            "<ATTACHMENTS>1</ATTACHMENTS><FLAGSTATUS>\\Seen</FLAGSTATUS><FROM>Ann &lt;a@b&gt;"
            "</FROM><IMPORTANCE>2</IMPORTANCE><SUBJECT>Hello</SUBJECT></ELEMENT>"
            "</BASEELEMENT>\r\n");
  auto index = OpenableIndex("Inbox");
  MessageSummaryRecord record;
  std::memset(&record, 0x55, sizeof record);
  EXPECT_EQ(qaaisp::GetStoreItemByMessageID(index.get(), "7.MAI", 0, &record), 0);  // unloaded
  ASSERT_EQ(qaaisp::StoreIndex_Open(index.get(), kOpenFullCheck), 1);
  EXPECT_EQ(qaaisp::GetStoreItemByMessageID(index.get(), "nope", 0, &record), 0);
  EXPECT_EQ(record.UID, 0x55555555);  // untouched

  ASSERT_EQ(qaaisp::GetStoreItemByMessageID(index.get(), "7.MAI", 0, &record), 1);
  EXPECT_EQ(record.UID, 7);
  EXPECT_EQ(record.SEQ, 1);
  EXPECT_STREQ(record.From, "Ann <a@b>");
  EXPECT_STREQ(record.Subject, "Hello");
  EXPECT_STREQ(record.Received, "");
  EXPECT_STREQ(record.FlagStatus, "\\Seen");
  EXPECT_EQ(record.Attachments, 1);
  EXPECT_EQ(record.Importance, 2);
}

// Rewrites the index file from another process, bypassing the block file,
// and gives the file a time of its own.
void RewriteInChildProcess(const std::string& path, const std::string& bytes) {
  pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    int fd = ::open(path.c_str(), O_WRONLY | O_TRUNC);
    bool ok =
        fd >= 0 && ::write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    struct timespec times[2] = {{1500000000, 0}, {1500000000, 0}};
    ok = ok && ::futimens(fd, times) == 0;
    ::_exit(ok ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST_F(StoreIndexCommitTest, AFileRewrittenUnderATransactionMarksTheFolderDirty) {
  StoreIndex index;
  qaaisp::StoreIndex_Init(&index);
  BlockHandle handle = nullptr;
  ASSERT_EQ(qaaisp::StoreIndex_LockAndLoadEx(&index, "po", "box", "Inbox", 1, &handle, LoadFull),
            1);
  EXPECT_TRUE(Exists(inbox_ + "/_index.blk"));
  ASSERT_NE(handle, nullptr);

  RewriteInChildProcess(inbox_ + "/_index.xml",
                        IndexText(9, {{"1.MAI", 1, "", 10}, {"9.MAI", 9, "", 90}}));
  IndexItem row;
  ASSERT_TRUE(index.table.FindById("2.MAI", &row, false));
  row.SetProperty("FLAGSTATUS", "\\Seen");
  row.Detach();

  EXPECT_EQ(qaaisp::StoreIndex_SaveAndClose(&index, 1, 1, &handle, nullptr), 0);
  EXPECT_TRUE(Exists(inbox_ + "/_CHANGE.DTY"));
  EXPECT_FALSE(Exists(inbox_ + "/_index.blk"));
  EXPECT_FALSE(Exists(inbox_ + "/_FOLDER.DAT"));

  // Without an interloper the same transaction commits and counts.
  std::remove((inbox_ + "/_CHANGE.DTY").c_str());
  StoreIndex again;
  qaaisp::StoreIndex_Init(&again);
  ASSERT_EQ(qaaisp::StoreIndex_LockAndLoadEx(&again, "po", "box", "Inbox", 0, &handle, LoadFull),
            1);
  EXPECT_EQ(handle, nullptr);  // held without a handle
  EXPECT_EQ(qaaisp::StoreIndex_SaveAndClose(&again, 1, 0, &handle, nullptr), 1);
  EXPECT_FALSE(Exists(inbox_ + "/_CHANGE.DTY"));
  EXPECT_FALSE(Exists(inbox_ + "/_index.blk"));
  FolderDetails d{};
  ReadFolderStatusFile(&env_, inbox_ + "/_FOLDER.DAT", &d);
  EXPECT_EQ(d.Total, 2);
}

TEST_F(StoreIndexCommitTest, ASaveFromAnOlderLoadNeverLowersLastUid) {
  SetInsertFromFileRoutine(InsertRowWithFileSize);
  WriteFile(inbox_ + "/3.MAI", std::string(30, 'x'));
  auto index = OpenableIndex("Inbox");
  ASSERT_EQ(qaaisp::StoreIndex_Open(index.get(), kOpenFullCheck), 1);
  // Another process delivers up to UID 9 after this load.
  RewriteInChildProcess(inbox_ + "/_index.xml",
                        IndexText(9, {{"1.MAI", 1, "", 10}, {"9.MAI", 9, "", 90}}));
  ASSERT_EQ(qaaisp::StoreIndex_InsertItem(index.get(), "3.MAI", 0), 1);

  EXPECT_EQ(qaaisp::StoreIndex_Commit(index.get()), 1);
  // The older rows go out as they were, with the folder marked for a
  // re-scan, but UIDs up to 9 have been handed out and stay spent.
  EXPECT_EQ(ReadFile(inbox_ + "/_index.xml").substr(0, 33), "<BASEELEMENT LASTUID=\"x00000009\">");
  EXPECT_TRUE(Exists(inbox_ + "/_CHANGE.DTY"));
}

TEST_F(StoreIndexCommitTest, LockAndLoadNeedsAPostofficeAndAReachableFolder) {
  StoreIndex index;
  qaaisp::StoreIndex_Init(&index);
  BlockHandle handle = nullptr;
  EXPECT_EQ(qaaisp::StoreIndex_LockAndLoadEx(&index, "", "box", "Inbox", 1, &handle, LoadFull), 0);
  ASSERT_FALSE(env_.events().empty());
  EXPECT_NE(env_.events().back().first.find("Empty postoffice name"), std::string::npos);
  EXPECT_EQ(qaaisp::StoreIndex_LockAndLoadEx(&index, "po", "box", "Gone", 1, &handle, LoadFull), 0);
  EXPECT_EQ(env_.sleep_count(), 0);
}

}  // namespace
}  // namespace qaaisp
