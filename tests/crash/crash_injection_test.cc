// A writer killed after each file-system call of a save, an in-place
// update, a removal and a rebuild: the next open must bring the folder back
// with every message indexed once, no message lost or changed, and no flag
// lost but the one being written when the writer died.
#include <filesystem>
#include <iostream>

#include "folder_fixture.h"
#include "qaaisp/qaaisp.h"

namespace qaaisp::crash_testing {
namespace {

struct Operation {
  const char* name;
  std::function<void(const std::string& inbox)>
      prepare;  // not counted, done before the writer starts
  std::function<void(const std::string& inbox)> op;
};

class CrashInjectionTest : public FolderFixture {
 protected:
  explicit CrashInjectionTest(std::vector<std::string> settings = {}, bool stream_members = true)
      : FolderFixture(std::move(settings), stream_members) {}

  // Kills the writer after each of its calls in turn, each time on a fresh
  // copy, and checks the folder that the next open finds.
  RunTally KillAtEveryCall(const Operation& operation) {
    int calls = 0;
    const ExpectedFolder expected =
        CleanRun([&] { operation.prepare(Inbox()); }, [&] { operation.op(Inbox()); }, &calls);
    EXPECT_GT(calls, 0);
    RunTally tally;
    for (int call = 1; call <= calls; ++call) {
      FreshCopy();
      operation.prepare(Inbox());
      EXPECT_TRUE(RunKilledAfter(&env_, call, [&] { operation.op(Inbox()); }))
          << operation.name << ": the writer outlived call " << call;
      const std::string failures = CheckRecovered(expected, &tally);
      EXPECT_EQ(failures, "") << operation.name << ", killed after call " << call;
    }
    std::cout << "crash " << operation.name << ": " << tally.points << " points, "
              << tally.flags_lost << " flags lost, " << tally.in_flight_lost
              << " in-flight changes lost, " << tally.dirty_marked << " left marked as changed\n";
    return tally;
  }

  // A delivery of message 25 and a removal of message 7 through the exports.
  static Operation Delivery(const char* name) {
    return {
        name,
        [](const std::string& inbox) {
          testing::WriteFile(inbox + "/25.MAI", FolderFixture::Message(25));
        },
        [](const std::string&) { Direct_StoreIndex_InsertItem("po", "box", "Inbox", "25.MAI"); }};
  }
  static Operation Removal(const char* name) {
    return {
        name, [](const std::string& inbox) { std::filesystem::remove(inbox + "/7.MAI"); },
        [](const std::string&) { Direct_StoreIndex_RemoveItem("po", "box", "Inbox", "7.MAI"); }};
  }
};

void Nothing(const std::string&) {}

TEST_F(CrashInjectionTest, DirectWritesSurviveAKillAtEveryCall) {
  BuildTemplate();
  const Operation operations[] = {
      Delivery("save"),
      {"in-place update", Nothing,
       [](const std::string&) {
         Direct_StoreIndex_UpdateItem("po", "box", "Inbox", "10.MAI", "+\\Flagged +\\Answered");
       }},
      Removal("removal"),
  };
  for (const Operation& operation : operations) {
    RunTally tally = KillAtEveryCall(operation);
    EXPECT_EQ(tally.flags_lost, 0) << operation.name;
  }
}

// The document member, with no backup to fall back on: a save killed at
// any point must leave an index that loads, or one whose rebuild counts on
// from the UIDs handed out. A removal makes the index shorter: killed after
// the write and before the file is cut to length, it leaves the new rows
// with old bytes behind them.
class CrashWithDefaultsTest : public CrashInjectionTest {
 protected:
  CrashWithDefaultsTest() : CrashInjectionTest({}, /*stream_members=*/false) {}
};

TEST_F(CrashWithDefaultsTest, SavesKilledAtEveryCallLoseNoUid) {
  BuildTemplate();
  for (const Operation& operation : {Delivery("document save"), Removal("document removal")}) {
    RunTally tally = KillAtEveryCall(operation);
    EXPECT_EQ(tally.flags_lost, 0) << operation.name;
  }
}

class CrashDuringRebuildTest : public CrashInjectionTest {
 protected:
  CrashDuringRebuildTest() : CrashInjectionTest({"\"UID Branding Enabled\"=dword:00000001"}) {}
};

// Messages that arrived without being indexed, two of them with flags
// recorded in their headers, are taken in by a re-scan that rewrites those
// two files.
TEST_F(CrashDuringRebuildTest, ARebuildSurvivesAKillAtEveryCall) {
  BuildTemplate();
  const Operation rebuild{"rebuild",
                          [](const std::string& inbox) {
                            for (int n = 25; n <= 28; ++n) {
                              std::string text = FolderFixture::Message(n);
                              if (n % 2 == 0) text.insert(0, "X-QATempFlags: \\Seen\r\n");
                              testing::WriteFile(inbox + "/" + std::to_string(n) + ".MAI", text);
                            }
                            testing::WriteFile(
                                inbox + "/_CHANGE.DTY",
                                "This file is a flag file that denotes that this folder has been "
                                "changed");
                          },
                          [](const std::string& inbox) { ScanFolders(inbox.c_str()); }};
  RunTally tally = KillAtEveryCall(rebuild);
  EXPECT_EQ(tally.flags_lost, 0);
}

}  // namespace
}  // namespace qaaisp::crash_testing
