// Every write path run with each of its file-system calls failing in turn:
// the disk full, an I/O error, a short write, a failed rename. The folder
// must end as it was or as intended: a save that did not go through leaves
// it marked as changed, the side files hold their old figure, their new one
// or none, and the next open finds every message indexed and none changed.
#include <filesystem>
#include <iostream>

#include "folder_fixture.h"
#include "platform/win32_error.h"
#include "qaaisp/qaaisp.h"

namespace qaaisp::crash_testing {
namespace {

using testing::FaultInjectionEnv;

struct FaultKind {
  const char* name;
  uint32_t error;
  FaultInjectionEnv::Fault fault;
  const char* calls;  // the calls it applies to, by log prefix; "" for all
};

constexpr FaultKind kFaultKinds[] = {
    {"disk full", platform::kErrorDiskFull, FaultInjectionEnv::Fault::kError, ""},
    {"I/O error", platform::kErrorGenFailure, FaultInjectionEnv::Fault::kError, ""},
    {"short write", platform::kErrorDiskFull, FaultInjectionEnv::Fault::kShortWrite, "write:"},
    {"failed rename", platform::kErrorAccessDenied, FaultInjectionEnv::Fault::kError, "rename:"},
};

struct Operation {
  const char* name;
  std::function<void(FolderFixture*)> prepare;
  std::function<void(FolderFixture*)> op;
  // Whether the operation writes the status and size files itself, rather
  // than through a re-scan that measures them afresh.
  bool writes_side_files = true;
};

bool StartsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

class FaultInjectionTest : public FolderFixture {
 protected:
  explicit FaultInjectionTest(std::vector<std::string> settings = {})
      : FolderFixture(std::move(settings)) {}

 protected:
  static constexpr const char* kAbsent = "<absent>";

  // The status and size files, each as its bytes or kAbsent.
  std::map<std::string, std::string> SideFiles() {
    std::map<std::string, std::string> files;
    for (const std::string& path :
         {Inbox() + "/_FOLDER.DAT", Inbox() + "/_DIRSIZE.TMP", MailboxDir() + "/_DIRSIZE.TMP"}) {
      files[path] = testing::Exists(path) ? testing::ReadFile(path) : kAbsent;
    }
    return files;
  }

  RunTally FailEveryCall(const Operation& operation) {
    int calls = 0;
    std::vector<std::string> log;
    std::map<std::string, std::string> sides_before;
    const ExpectedFolder expected = CleanRun(
        [&] {
          operation.prepare(this);
          sides_before = SideFiles();
        },
        [&] { operation.op(this); }, &calls, &log);
    const std::map<std::string, std::string> sides_after = SideFiles();
    EXPECT_GT(calls, 0) << operation.name;
    RunTally tally;
    for (const FaultKind& kind : kFaultKinds) {
      for (int call = 1; call <= calls; ++call) {
        const std::string& what = log[static_cast<size_t>(call - 1)];
        if (!StartsWith(what, kind.calls)) continue;
        FreshCopy();
        operation.prepare(this);
        env_.Reset();
        env_.FailAt(call, kind.error, kind.fault);
        operation.op(this);
        env_.Reset();
        const std::string where = std::string(operation.name) + ", " + kind.name + " at call " +
                                  std::to_string(call) + " (" + what + ")";
        // Whatever failed, an index that loads but is out of step with the
        // files is flagged; a damaged one announces itself to the next load.
        if (IndexOutOfStepWithFiles()) {
          EXPECT_TRUE(ChangeFlagExists()) << where;
        }
        for (const auto& [path, bytes] : SideFiles()) {
          if (!operation.writes_side_files) break;
          const bool kept =
              bytes == sides_before.at(path) || bytes == sides_after.at(path) || bytes == kAbsent;
          EXPECT_TRUE(kept) << where << ": " << path << " holds \"" << bytes << "\"";
        }
        EXPECT_EQ(CheckRecovered(expected, &tally), "") << where;
      }
    }
    std::cout << "fault " << operation.name << ": " << tally.points << " points, "
              << tally.flags_lost << " flags lost, " << tally.in_flight_lost
              << " changes not made, " << tally.dirty_marked << " left marked as changed\n";
    return tally;
  }
};

void Nothing(FolderFixture*) {}

void DamageIndex(FolderFixture* f) {
  const std::string index = f->Inbox() + "/_index.xml";
  std::string text = testing::ReadFile(index);
  testing::WriteFile(index, text.substr(0, text.size() / 2));
}

TEST_F(FaultInjectionTest, DirectWritesEndAsTheyWereOrAsMeant) {
  BuildTemplate();
  const Operation operations[] = {
      {"save",
       [](FolderFixture* f) {
         testing::WriteFile(f->Inbox() + "/25.MAI", FolderFixture::Message(25));
       },
       [](FolderFixture*) { Direct_StoreIndex_InsertItem("po", "box", "Inbox", "25.MAI"); }},
      {"in-place update", Nothing,
       [](FolderFixture*) {
         Direct_StoreIndex_UpdateItem("po", "box", "Inbox", "10.MAI", "+\\Flagged +\\Answered");
       }},
      {"removal", [](FolderFixture* f) { std::filesystem::remove(f->Inbox() + "/7.MAI"); },
       [](FolderFixture*) { Direct_StoreIndex_RemoveItem("po", "box", "Inbox", "7.MAI"); }},
  };
  for (const Operation& operation : operations) {
    EXPECT_EQ(FailEveryCall(operation).flags_lost, 0) << operation.name;
  }
}

// The backup taken by a full open, the restore of a damaged index from it,
// and the quarantine of a damaged index that has none.
TEST_F(FaultInjectionTest, RecoveryFilesEndAsTheyWereOrAsMeant) {
  BuildTemplate();
  auto open = [](FolderFixture* f) { f->OpenAndRelease(); };
  const Operation operations[] = {
      {"backup", [](FolderFixture* f) { std::filesystem::remove(f->Inbox() + "/_index.xml.bak"); },
       open, false},
      {"restore", DamageIndex, open, false},
      {"quarantine",
       [](FolderFixture* f) {
         DamageIndex(f);
         std::filesystem::remove(f->Inbox() + "/_index.xml.bak");
       },
       open, false},
  };
  for (const Operation& operation : operations) {
    EXPECT_EQ(FailEveryCall(operation).flags_lost, 0) << operation.name;
  }
}

class FaultDuringRebuildTest : public FaultInjectionTest {
 protected:
  FaultDuringRebuildTest() : FaultInjectionTest({"\"UID Branding Enabled\"=dword:00000001"}) {}
};

// A re-scan that takes in new messages and strips the flags recorded in two
// of their headers, rewriting those files.
TEST_F(FaultDuringRebuildTest, ARebuildWithBrandingEndsAsItWasOrAsMeant) {
  BuildTemplate();
  const Operation rebuild{"rebuild",
                          [](FolderFixture* f) {
                            const std::string inbox = f->Inbox();
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
                          [](FolderFixture* f) { ScanFolders(f->Inbox().c_str()); }};
  EXPECT_EQ(FailEveryCall(rebuild).flags_lost, 0);
}

}  // namespace
}  // namespace qaaisp::crash_testing
