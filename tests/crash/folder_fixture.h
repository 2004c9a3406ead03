// A mail root with one message folder, made once per test as a template
// and copied fresh for every run, and the checks a folder must pass after
// something went wrong while it was being written: the next open recovers
// it, every message file has exactly one row and every row its file, UIDs
// are unique, no message file is lost or changed, and flags set before the
// failed write are still there.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "base/library_settings.h"
#include "test_env.h"

namespace qaaisp::crash_testing {

// One message file as the folder must hold it after a run: its bytes as
// before or as after the operation, and the flags of its row, likewise.
struct ExpectedMessage {
  std::set<std::string> contents;
  std::set<std::string> flags_before;
  std::set<std::string> flags_after;
  bool existed_before = false;
};

// By file name, the message files that must be there after a run.
using ExpectedFolder = std::map<std::string, ExpectedMessage>;

// Tallies of one loop over the points of an operation.
struct RunTally {
  int points = 0;
  int flags_lost = 0;      // flags set before the operation, gone after
  int in_flight_lost = 0;  // rows whose change by the operation is gone
  int dirty_marked = 0;    // runs that left the folder marked as changed
};

class FolderFixture : public ::testing::Test {
 public:
  std::string Inbox() const { return run_root_ + "/po/MAILROOT/box/Inbox"; }
  std::string MailboxDir() const { return run_root_ + "/po/MAILROOT/box"; }
  // Opens the folder as a server does and lets it go; gives the open's result.
  int OpenAndRelease();

 protected:
  static constexpr int kMessages = 24;
  static constexpr const char* kPostoffice = "po";
  static constexpr const char* kMailbox = "box";
  static constexpr const char* kFolder = "Inbox";

  // settings: extra registry lines under the product key. With
  // stream_members the stream reader and writer are chosen and backups
  // taken; otherwise the document member works alone, as by default.
  explicit FolderFixture(std::vector<std::string> settings = {}, bool stream_members = true);
  ~FolderFixture() override;

  // Builds the template: kMessages delivered, flags set on some, a backup
  // of the index taken by a full load.
  void BuildTemplate();
  // Replaces the run folder with a copy of the template and points the
  // mail root at it.
  void FreshCopy();

  std::string TemplateInbox() const { return template_.Sub("po/MAILROOT/box/Inbox"); }

  static std::string Message(int n);

  // The message files of the run folder with their bytes, and the flags of
  // their rows as a plain load finds them.
  struct Snapshot {
    std::map<std::string, std::string> files;
    std::map<std::string, std::set<std::string>> flags;
  };
  Snapshot Capture();
  // What a run may leave: the files of after, each as before or after.
  static ExpectedFolder Expect(const Snapshot& before, const Snapshot& after);

  // Opens the folder as a server would (recovery included) and checks it
  // against expected, adding flag losses to tally. Gives the failures, one
  // per line, empty when the folder is sound.
  std::string CheckRecovered(const ExpectedFolder& expected, RunTally* tally);

  // Runs prepare and op on a fresh copy with nothing failing; gives what op
  // is meant to do to the folder as it was before prepare, with the number of counted file-system
  // calls it made and their names.
  ExpectedFolder CleanRun(const std::function<void()>& prepare, const std::function<void()>& op,
                          int* calls, std::vector<std::string>* log = nullptr);

  // Forks a child that runs op on the current copy and kills itself after
  // its call numbered `call`. True if the child died by that kill.
  static bool RunKilledAfter(testing::FaultInjectionEnv* env, int call,
                             const std::function<void()>& op);

  bool ChangeFlagExists() const;
  // Whether the index file loads as it stands but lacks a row for a message
  // file or has one for a file that is gone.
  bool IndexOutOfStepWithFiles();

  testing::TempDir template_;
  testing::TempDir runs_;
  std::string run_root_;
  testing::ScopedRegistry registry_;
  testing::FaultInjectionEnv env_;
  testing::ScopedDefaultEnv scoped_env_;
  const bool stream_members_;
  LibrarySettings saved_;
  // The LastUID of the fresh copy's index file: no recovery may go below.
  uint32_t last_uid_before_ = 0;
};

// Flags of a FLAGSTATUS text, upper case, "\RECENT" left out: a re-scan may
// set it on a row it makes again, and no client's change is lost by that.
std::set<std::string> FlagSet(const std::string& flag_status);

}  // namespace qaaisp::crash_testing
