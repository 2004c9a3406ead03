#include "message/folder_rescan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "index/store_index.h"
#include "message/message_header_info.h"
#include "message/message_test_support.h"
#include "message/parse_ahead.h"
#include "message/uid_branding.h"
#include "persist/index_serialiser.h"
#include "persist/persist_settings.h"
#include "persist/stream_index_writer.h"
#include "platform/socket.h"
#include "platform/win32_error.h"

namespace qaaisp {
namespace {

using namespace message_testing;
using qaaisp::testing::Exists;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

std::string Message(const std::string& subject, const std::string& extra = "") {
  return "From: Ann <ann@example.org>\r\nSubject: " + subject + "\r\n" + extra +
         "Date: Tue, 14 Nov 2023 10:00:00 +0000\r\n\r\nBody of " + subject + "\r\n";
}

// Counts the message files opened, and can fail the opening of one name or
// run a step at the nth opening.
class CountingEnv : public FakeClockEnv {
 public:
  std::unique_ptr<platform::File> OpenFile(const std::string& path,
                                           const platform::OpenOptions& options) override {
    if (path.ends_with(".MAI") && !options.write) {
      const int n = ++message_opens_;
      if (n == run_at_ && step_) step_();
      if (!fail_name_.empty() && path.ends_with("/" + fail_name_)) {
        platform::SetLastErrorCode(platform::kErrorAccessDenied);
        return nullptr;
      }
    }
    return FakeClockEnv::OpenFile(path, options);
  }
  int message_opens() const { return message_opens_.load(); }
  void FailOpening(const std::string& name) { fail_name_ = name; }
  void AtOpening(int n, std::function<void()> step) {
    run_at_ = n;
    step_ = std::move(step);
  }

 private:
  std::atomic<int> message_opens_{0};
  std::string fail_name_;
  int run_at_ = 0;
  std::function<void()> step_;
};

// The rows of a folder's saved index, as a fresh load gives them:
// "ID:UID", or "ID:UID:FLAGSTATUS" with flags.
std::vector<std::string> SavedRowsIn(const std::string& folder, bool flags = false,
                                     int32_t* load_state = nullptr) {
  SORTEDSTOREINDEXTYPE loaded;
  LoadIndexForClass(&loaded, nullptr, folder, 0, "", "", false, true, LoadFull, 0, false, false,
                    true, false);
  if (load_state) *load_state = loaded.LoadState;
  std::vector<std::string> rows;
  for (const auto& [uid, row] : loaded.by_uid()) {
    rows.push_back(std::string(row->IdView()) + ":" + std::to_string(row->Uid()) +
                   (flags ? ":" + row->GetText("FLAGSTATUS") : ""));
  }
  return rows;
}

// Forgets every setting the scan and its readers and writers keep.
void ResetSettings() {
  ResetMessageSettingsForTesting();
  ResetRescanSettingsForTesting();
  persist::ResetPersistSettingsForTesting();
  persist::ResetIndexWriteSettingsForTesting();
}

struct StatusCall {
  std::string folder;
  FolderDetails details;
};
std::vector<StatusCall>* g_status_calls = nullptr;
void RecordStatus(const std::string& folder, const FolderDetails& details) {
  g_status_calls->push_back({folder, details});
}

class FolderRescanTest : public ::testing::Test {
 protected:
  explicit FolderRescanTest(std::vector<std::string> extra = {})
      : registry_(Registry(std::move(extra))), scoped_env_(&env_) {
    ResetSettings();
    g_status_calls = &status_calls_;
    SetFolderStatusWriter(&RecordStatus);
    RegisterMessageRescan();
  }
  ~FolderRescanTest() override {
    SetFolderStatusWriter(nullptr);
    g_status_calls = nullptr;
    ResetSettings();
  }
  static std::string Registry(std::vector<std::string> values) {
    values.push_back(Dword("Use XML Stream Index Deserialisation", 1));
    values.push_back(Dword("Use XML Stream Index Serialisation", 1));
    return ProductRegText(values);
  }

  std::string Path(const std::string& name) const { return folder_ + "/" + name; }
  void Put(const std::string& name, const std::string& text) { WriteFile(Path(name), text); }
  // Dates a file's last write far back, as a touch from elsewhere would
  // change it without a change of content.
  void SetWriteTime(const std::string& name, int64_t unix_seconds) {
    platform::OpenOptions options;
    options.write = true;
    std::unique_ptr<platform::File> file = env_.OpenFile(Path(name), options);
    ASSERT_TRUE(file);
    const platform::FileTime time = platform::FileTimeFromUnixNanos(unix_seconds, 0);
    ASSERT_TRUE(file->SetTimes(nullptr, nullptr, &time));
  }

  int Scan(SORTEDSTOREINDEXTYPE* index, platform::SocketHandle socket = platform::kNoSocket) {
    return ScanFoldersOrdered(index, folder_, socket, 1, true);
  }
  std::vector<std::string> SavedRows() { return SavedRowsIn(folder_); }
  static std::string Text(SORTEDSTOREINDEXTYPE& index, const char* id, const char* name) {
    auto found = index.by_id().find(std::string_view(id));
    return found == index.by_id().end() ? "<none>" : found->second->GetText(name);
  }

  TempDir dir_;
  std::string folder_ = dir_.path();
  ScopedRegistry registry_;
  CountingEnv env_;
  ScopedDefaultEnv scoped_env_;
  std::vector<StatusCall> status_calls_;
};

// Runs a test with every file call on the scan's thread, and with helper
// threads that list the folder and read new files ahead.
class WithHelpers : public ::testing::WithParamInterface<int> {
 protected:
  WithHelpers() { ParseAhead::SetHelperCountForTesting(GetParam()); }
  ~WithHelpers() { ParseAhead::SetHelperCountForTesting(-1); }
};

class ReconcileTest : public FolderRescanTest, public WithHelpers {};
INSTANTIATE_TEST_SUITE_P(Helpers, ReconcileTest, ::testing::Values(0, 1));

TEST_P(ReconcileTest, FilesChangedBehindTheIndexAreReconciled) {
  Put("b.MAI", Message("second"));
  Put("A.MAI", Message("first", "X-Read: 1\r\n"));
  Put("c.mai", Message("third"));
  Put("_work.MAI", Message("a work file"));
  Put(".hidden.MAI", Message("hidden"));
  Put(std::string(60, 'n') + ".MAI", Message("long name"));  // 64 characters
  Put("notes.txt", "not a message");
  qaaisp::testing::MakeDirs(Path("sub.MAI"));
  Put("_CHANGE.DTY", "dirty");

  SORTEDSTOREINDEXTYPE index;
  EXPECT_EQ(Scan(&index), 1);
  // Case-insensitive name order decides the UIDs.
  EXPECT_THAT(SavedRows(), ElementsAre("A.MAI:1", "b.MAI:2", "c.mai:3"));
  EXPECT_FALSE(Exists(Path("_CHANGE.DTY")));
  EXPECT_FALSE(Exists(Path("_index.blk")));
  const uint64_t bytes =
      Message("first", "X-Read: 1\r\n").size() + Message("second").size() + Message("third").size();
  EXPECT_EQ(ReadFile(Path("_DIRSIZE.TMP")), std::to_string(bytes / 1024));
  ASSERT_EQ(status_calls_.size(), 1u);
  EXPECT_EQ(status_calls_[0].details.Total, 3);
  EXPECT_EQ(status_calls_[0].details.Seen, 1);
  EXPECT_EQ(status_calls_[0].details.LastUID, 3);

  // A user's flags on the first message, saved.
  index.by_id().at("A.MAI")->SetText("FLAGSTATUS", "\\SEEN \\FLAGGED", true);
  SaveIndexFile(&index, folder_, 0);

  // Behind the index's back: one file touched, one changed, one gone, one new.
  SetWriteTime("A.MAI", 1600000000);
  Put("b.MAI", Message("second, edited at length"));
  std::remove(Path("c.mai").c_str());
  Put("d.MAI", Message("fourth"));
  const int opens = env_.message_opens();

  // Once with the rows held from the last scan, once from the file alone.
  SORTEDSTOREINDEXTYPE fresh;
  for (SORTEDSTOREINDEXTYPE* table : {&index, &fresh}) {
    SCOPED_TRACE(table == &index ? "held rows" : "fresh load");
    EXPECT_EQ(Scan(table), 1);
    EXPECT_THAT(SavedRows(), ElementsAre("A.MAI:1", "b.MAI:2", "d.MAI:4"));
    EXPECT_EQ(Text(*table, "A.MAI", "FLAGSTATUS"), "\\SEEN \\FLAGGED");
    EXPECT_EQ(Text(*table, "A.MAI", "MODIFIEDDATE"),
              std::to_string(PackedModifiedDate(platform::FileTimeFromUnixNanos(1600000000, 0))));
    EXPECT_EQ(Text(*table, "b.MAI", "SUBJECT"), "second, edited at length");
    EXPECT_EQ(Text(*table, "b.MAI", "SIZE"),
              std::to_string(Message("second, edited at length").size()));
  }
  // The first pass read the three files that changed or came; the second
  // found everything in agreement and read none.
  EXPECT_EQ(env_.message_opens() - opens, 3);
  EXPECT_EQ(status_calls_.back().details.Flagged, 1);
}

// The marks between "Z" and "a" sort below the letters, as names are
// compared folded to lower case; long shared beginnings and names that
// differ only in case still order the same in every process.
TEST_F(FolderRescanTest, NewFilesTakeTheirUidsInFoldedNameOrder) {
  for (const char* name : {"aC.MAI", "x.MAI", "AB2.MAI", "a_b.MAI", "pppppppppppppppp1.MAI",
                           "ab.MAI", "X.MAI", "A[.MAI", "PPPPPPPPPPPPPPPP0.MAI", "aA.MAI"}) {
    Put(name, Message(name));
  }
  SORTEDSTOREINDEXTYPE index;
  EXPECT_EQ(Scan(&index), 1);
  EXPECT_THAT(SavedRows(), ElementsAre("A[.MAI:1", "a_b.MAI:2", "aA.MAI:3", "ab.MAI:4", "AB2.MAI:5",
                                       "aC.MAI:6", "PPPPPPPPPPPPPPPP0.MAI:7",
                                       "pppppppppppppppp1.MAI:8", "X.MAI:9", "x.MAI:10"));
}

TEST_F(FolderRescanTest, UnreadableFilesHeldAccessAndAnEmptiedFolder) {
  // No block file can be had in a folder that is not there: nothing is done.
  SORTEDSTOREINDEXTYPE index;
  EXPECT_EQ(ScanFoldersOrdered(&index, Path("missing"), platform::kNoSocket, 1, true), 1);
  EXPECT_FALSE(Exists(Path("missing")));

  // An unreadable file makes no row and stops nothing; the caller's block
  // file is left alone; a new index file is dated now by the caller's clock.
  Put("1.MAI", Message("one"));
  Put("2.MAI", Message("two"));
  Put("3.MAI", Message("three"));
  Put("_index.blk", "");
  env_.FailOpening("2.MAI");
  EXPECT_EQ(ScanFoldersOrdered(&index, folder_, platform::kNoSocket, kBlockModeHeld, true), 1);
  EXPECT_THAT(SavedRows(), ElementsAre("1.MAI:1", "3.MAI:2"));
  EXPECT_TRUE(Exists(Path("_index.blk")));
  platform::FileInfo info;
  ASSERT_TRUE(env_.Stat(Path("_index.xml"), &info));
  EXPECT_EQ(info.write_time, env_.NowFileTime());

  // A folder emptied of messages keeps an index with no rows.
  for (const char* name : {"1.MAI", "2.MAI", "3.MAI"}) std::remove(Path(name).c_str());
  EXPECT_EQ(ScanFoldersOrdered(&index, folder_, platform::kNoSocket, kBlockModeHeld, true), 1);
  EXPECT_THAT(SavedRows(), ElementsAre());
  EXPECT_THAT(ReadFile(Path("_index.xml")), HasSubstr("<BASEELEMENT"));
}

class RescanLimitTest : public FolderRescanTest {
 protected:
  RescanLimitTest() : FolderRescanTest({Dword("Maximum Index Rows", 3)}) {}
};

TEST_F(RescanLimitTest, TheRowLimitAbortsOneFileShortAndSavesNothing) {
  Put("1.MAI", Message("one"));
  Put("2.MAI", Message("two"));
  SORTEDSTOREINDEXTYPE index;
  EXPECT_EQ(Scan(&index), 1);
  EXPECT_THAT(SavedRows(), ElementsAre("1.MAI:1", "2.MAI:2"));

  Put("3.MAI", Message("three"));
  Put("_CHANGE.DTY", "dirty");
  std::remove(Path("_DIRSIZE.TMP").c_str());
  const std::string before = ReadFile(Path("_index.xml"));
  EXPECT_EQ(Scan(&index), 1);
  EXPECT_EQ(ReadFile(Path("_index.xml")), before);
  EXPECT_TRUE(Exists(Path("_CHANGE.DTY")));
  // The size file is written all the same, from the files counted.
  EXPECT_EQ(ReadFile(Path("_DIRSIZE.TMP")), "0");
}

// The thousand messages are written once for the suite: file creation is
// the slow part here, and neither test changes a message. Each runs with
// the files read on the scan's thread and read ahead by helpers.
class RescanHeartbeatTest : public FolderRescanTest, public WithHelpers {
 protected:
  static void SetUpTestSuite() {
    shared_ = new TempDir;
    for (int i = 0; i < 1000; ++i) {
      char name[16];
      std::snprintf(name, sizeof name, "%04d.MAI", i);
      WriteFile(shared_->Sub(name), Message(name));
    }
  }
  static void TearDownTestSuite() {
    delete shared_;
    shared_ = nullptr;
  }
  void SetUp() override {
    folder_ = shared_->path();
    ASSERT_TRUE(platform::MakeSocketPair(&ours_, &client_));
    Put("_index.xml", "<BASEELEMENT LASTUID=\"x00000000\"></BASEELEMENT>\r\n");
    Put("_CHANGE.DTY", "dirty");
  }
  void TearDown() override {
    platform::CloseSocket(ours_);
    platform::CloseSocket(client_);
  }
  static TempDir* shared_;
  platform::SocketHandle ours_ = platform::kNoSocket;
  platform::SocketHandle client_ = platform::kNoSocket;
};
TempDir* RescanHeartbeatTest::shared_ = nullptr;
INSTANTIATE_TEST_SUITE_P(Helpers, RescanHeartbeatTest, ::testing::Values(0, 2));

TEST_P(RescanHeartbeatTest, AClientThatGoesAwayStopsTheScanWithinAHundredFiles) {
  env_.AtOpening(250, [this] {
    platform::CloseSocket(client_);
    client_ = platform::kNoSocket;
  });
  const std::string before = ReadFile(Path("_index.xml"));
  SORTEDSTOREINDEXTYPE index;
  EXPECT_EQ(Scan(&index, ours_), 1);
  // Helpers read up to a window's worth of files beyond the scan.
  EXPECT_LE(env_.message_opens(), 300 + (GetParam() ? int{ParseAhead::kWindow} : 0));
  EXPECT_EQ(ReadFile(Path("_index.xml")), before);
  EXPECT_TRUE(Exists(Path("_CHANGE.DTY")));
  EXPECT_TRUE(status_calls_.empty());
}

TEST_P(RescanHeartbeatTest, AQuietOrTalkingClientLetsTheScanFinish) {
  // Bytes the client sends meanwhile are read and dropped.
  env_.AtOpening(150, [this] { ASSERT_TRUE(platform::SendToSocket(client_, "NOOP\r\n", 6)); });
  SORTEDSTOREINDEXTYPE index;
  EXPECT_EQ(Scan(&index, ours_), 1);
  EXPECT_EQ(env_.message_opens(), 1000);
  EXPECT_EQ(SavedRows().size(), 1000u);
  EXPECT_FALSE(Exists(Path("_CHANGE.DTY")));
  // The socket is ours again, in blocking mode, with nothing left unread
  // but what came after the scan.
  ASSERT_TRUE(platform::SendToSocket(client_, "x", 1));
  char byte = 0;
  EXPECT_EQ(platform::ReceiveFromSocket(ours_, &byte, 1), 1);
  EXPECT_EQ(byte, 'x');
}

class BrandedRescanTest : public FolderRescanTest {
 protected:
  BrandedRescanTest()
      : FolderRescanTest({Dword("UID Branding Enabled", 1), Dword("New Indexing", 0)}) {}
};

TEST_F(BrandedRescanTest, ScannedFilesLoseTheirMarksAndAreNotReadAgain) {
  const uint32_t stamp = GetFolderStamp(folder_);
  Put("own.MAI", Message("own", UidLine(stamp, 17) + "X-QATempFlags: \\SEEN\r\n"));
  Put("foreign.MAI", Message("foreign", UidLine(stamp + 1, 5)));
  Put("plain.MAI", Message("plain"));
  SORTEDSTOREINDEXTYPE index;
  EXPECT_EQ(Scan(&index), 1);
  EXPECT_THAT(SavedRows(), ElementsAre("foreign.MAI:1", "own.MAI:2", "plain.MAI:3"));
  EXPECT_EQ(ReadFile(Path("own.MAI")), Message("own"));
  EXPECT_EQ(ReadFile(Path("foreign.MAI")), Message("foreign"));
  EXPECT_EQ(ReadFile(Path("plain.MAI")), Message("plain"));
  // The rows carry the rewritten files' sizes, so a second scan reads none.
  const int opens = env_.message_opens();
  SORTEDSTOREINDEXTYPE fresh;
  EXPECT_EQ(Scan(&fresh), 1);
  EXPECT_EQ(env_.message_opens(), opens);
}

// A folder of many new files, of several kinds, for the rebuilds that read
// ahead on helper threads; one in nine carries a brand of this folder.
void PutManyMessages(const std::string& folder, uint32_t stamp) {
  for (int i = 0; i < 200; ++i) {
    const std::string name = std::to_string(1000 + i * 7 % 200) + ".MAI";
    std::string extra;
    if (i % 3 == 0) extra += "X-Read: 1\r\n";
    if (i % 5 == 0) extra += "X-QATempFlags: \\FLAGGED\r\n";
    if (i % 9 == 0) extra += UidLine(stamp, static_cast<uint32_t>(i + 1));
    if (i % 4 == 0) extra += "Content-Type: text/calendar; method=REQUEST\r\n";
    WriteFile(folder + "/" + name, Message("message " + std::to_string(i), extra));
  }
}

// Reading ahead changes who reads a file, never what the index says.
TEST_F(FolderRescanTest, ARebuildReadingAheadOnHelpersSavesTheSameIndex) {
  PutManyMessages(folder_, 0);
  env_.FailOpening("1010.MAI");
  std::string saved[2];
  for (int helpers : {0, 3}) {
    ParseAhead::SetHelperCountForTesting(helpers);
    for (const char* name : {"_index.xml", "_FOLDER.DAT", "_DIRSIZE.TMP"})
      std::remove(Path(name).c_str());
    SORTEDSTOREINDEXTYPE index;
    EXPECT_EQ(Scan(&index), 1);
    saved[helpers != 0] = ReadFile(Path("_index.xml"));
  }
  ParseAhead::SetHelperCountForTesting(-1);
  EXPECT_EQ(saved[1], saved[0]);
  EXPECT_EQ(SavedRows().size(), 199u);
  // The status record counted beside the save is the one counted after it.
  ASSERT_EQ(status_calls_.size(), 2u);
  const FolderDetails& alone = status_calls_[0].details;
  EXPECT_EQ(alone.Total, 199);
  EXPECT_EQ(alone.LastUID, 199);
  EXPECT_GT(alone.Seen, 0);
  EXPECT_GT(alone.Flagged, 0);
  EXPECT_EQ(std::memcmp(&status_calls_[1].details, &alone, sizeof alone), 0);
}

TEST_F(BrandedRescanTest, ARebuildReadingAheadBrandsAsOneThreadDoes) {
  TempDir other;
  std::vector<std::string> rows[2];
  for (int helpers : {0, 3}) {
    const std::string folder = helpers ? other.path() : folder_;
    PutManyMessages(folder, GetFolderStamp(folder));
    ParseAhead::SetHelperCountForTesting(helpers);
    SORTEDSTOREINDEXTYPE index;
    EXPECT_EQ(ScanFoldersOrdered(&index, folder, platform::kNoSocket, 1, true), 1);
    rows[helpers != 0] = SavedRowsIn(folder, true);
  }
  ParseAhead::SetHelperCountForTesting(-1);
  EXPECT_EQ(rows[1], rows[0]);
  EXPECT_EQ(rows[0].size(), 200u);
  EXPECT_EQ(ReadFile(other.Sub("1000.MAI")), ReadFile(Path("1000.MAI")));
}

TEST_F(FolderRescanTest, ARebuildKeepsWhatTheIndexKnewAndSetsABadIndexAside) {
  Put("1.MAI", Message("one"));
  Put("2.MAI", Message("two"));
  ASSERT_TRUE(ScanFolders(folder_));
  SORTEDSTOREINDEXTYPE index;
  LoadIndexForClass(&index, nullptr, folder_, 0, "", "", false, true, LoadFull, 0, false, false,
                    true, false);
  index.by_id().at("2.MAI")->SetText("FLAGSTATUS", "\\ANSWERED", true);
  SaveIndexFile(&index, folder_, 0);
  std::remove(Path("1.MAI").c_str());
  Put("3.MAI", Message("three"));

  // Spelled as callers may spell it.
  std::string spelled = folder_ + "\\";
  EXPECT_TRUE(ScanFolders(spelled));
  EXPECT_THAT(SavedRows(), ElementsAre("2.MAI:2", "3.MAI:3"));
  EXPECT_THAT(ReadFile(Path("_index.xml")), HasSubstr("\\ANSWERED"));

  const std::string damaged = "<BASEELEMENT LASTUID=\"x00000003\"><ELEMENT ID=\"2.MAI";
  Put("_index.xml", damaged);
  ScanFolders(folder_);
  EXPECT_EQ(ReadFile(Path("_index.xml.bad")), damaged);
  // Every message is indexed again, under new UIDs above those the damaged
  // file had handed out, and the folder works.
  EXPECT_THAT(SavedRows(), ElementsAre("2.MAI:4", "3.MAI:5"));
  EXPECT_THAT(ReadFile(Path("_index.xml")), Not(HasSubstr("\\ANSWERED")));
  EXPECT_TRUE(ScanFolders(folder_));
}

// UIDs once handed out are never handed out again: a folder that lost its
// index counts on from its status record, and a table whose file went from
// under it counts on from its own LastUID.
TEST_F(FolderRescanTest, ALostIndexCountsOnFromWhatTheFolderHandedOut) {
  Put("1.MAI", Message("one"));
  Put("2.MAI", Message("two"));
  Put("_FOLDER.DAT", qaaisp::testing::FolderStatusRecord(20));
  SORTEDSTOREINDEXTYPE index;
  EXPECT_EQ(Scan(&index), 1);
  EXPECT_THAT(SavedRows(), ElementsAre("1.MAI:21", "2.MAI:22"));

  std::remove(Path("_index.xml").c_str());
  std::remove(Path("_FOLDER.DAT").c_str());
  Put("3.MAI", Message("three"));
  EXPECT_EQ(Scan(&index), 1);
  EXPECT_THAT(SavedRows(), ElementsAre("1.MAI:23", "2.MAI:24", "3.MAI:25"));
}

// A rebuild from nothing writes its index once, dated now; a table that
// made it knows that date, so it does not take its own file for another
// process's change.
TEST_F(FolderRescanTest, ARebuildFromNothingIsSavedOnceAndKnowsItsFileDate) {
  Put("1.MAI", Message("one"));
  ASSERT_TRUE(ScanFolders(folder_));
  platform::FileInfo written;
  ASSERT_TRUE(env_.Stat(Path("_index.xml"), &written));
  EXPECT_EQ(written.write_time.ticks(), env_.NowFileTime().ticks()) << "saved again after dating";

  std::remove(Path("_index.xml").c_str());
  StoreIndex index;
  index.folder_path = folder_;
  EXPECT_EQ(ScanStoreIndex(&index, 1), 1);
  ASSERT_TRUE(env_.Stat(Path("_index.xml"), &written));
  EXPECT_EQ(index.table.IndexFileDate, written.write_time.ticks());
}

// Every file call of a scan fails once in turn. The index must still load
// in full; unless it came out as intended, the folder must stay marked as
// changed (the index writer may have got part of the way); and a clean scan
// afterwards must lose nothing and reuse no UID.
TEST(RescanFaultTest, EachFailingFileCallLeavesTheFolderMarkedOrAsIntended) {
  ScopedRegistry registry(ProductRegText({Dword("Use XML Stream Index Deserialisation", 1),
                                          Dword("Use XML Stream Index Serialisation", 1)}));
  ResetSettings();
  qaaisp::testing::FaultInjectionEnv env;
  ScopedDefaultEnv scoped(&env);
  const std::string flagged = "a.MAI:1:\\SEEN \\FLAGGED";
  const std::vector<std::string> intended = {flagged, "c.MAI:3:\\RECENT"};
  for (int fail_at = 1;; ++fail_at) {
    SCOPED_TRACE("failing call " + std::to_string(fail_at));
    TempDir dir;
    const std::string folder = dir.path();
    env.Reset();
    WriteFile(folder + "/a.MAI", Message("a"));
    WriteFile(folder + "/b.MAI", Message("b"));
    SORTEDSTOREINDEXTYPE setup;
    ASSERT_EQ(ScanFoldersOrdered(&setup, folder, platform::kNoSocket, 1, true), 1);
    setup.by_id().at("a.MAI")->SetText("FLAGSTATUS", "\\SEEN \\FLAGGED", true);
    SaveIndexFile(&setup, folder, 0);
    ASSERT_THAT(SavedRowsIn(folder, true), ElementsAre(flagged, "b.MAI:2:\\RECENT"));
    std::remove((folder + "/b.MAI").c_str());
    WriteFile(folder + "/c.MAI", Message("c"));
    WriteFile(folder + "/_CHANGE.DTY", "changed");

    env.Reset();
    env.FailAt(fail_at);
    SORTEDSTOREINDEXTYPE index;
    ScanFoldersOrdered(&index, folder, platform::kNoSocket, 1, true);
    const bool failed = env.calls() >= fail_at;
    env.Reset();

    int32_t state = LoadFailed;
    const std::vector<std::string> rows = SavedRowsIn(folder, true, &state);
    EXPECT_EQ(state, LoadFull);
    if (rows != intended) {
      EXPECT_THAT(rows, ::testing::Contains(flagged));
      EXPECT_TRUE(Exists(folder + "/_CHANGE.DTY"));
    }
    EXPECT_FALSE(Exists(folder + "/_index.blk"));
    SORTEDSTOREINDEXTYPE clean;
    ASSERT_EQ(ScanFoldersOrdered(&clean, folder, platform::kNoSocket, 1, true), 1);
    const std::vector<std::string> after = SavedRowsIn(folder, true);
    ASSERT_EQ(after.size(), 2u);
    EXPECT_EQ(after[0], flagged);
    EXPECT_THAT(after[1], ::testing::MatchesRegex("c\\.MAI:[3-9]:\\\\RECENT"));
    if (!failed) break;
  }
}

}  // namespace
}  // namespace qaaisp
