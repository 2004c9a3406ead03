// The checker itself, on small hand-written logs: what it forgives must be
// exactly what a torn index explains, and nothing else.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "stress_check.h"
#include "test_env.h"

namespace qaaisp::stress {
namespace {

using testing::TempDir;
using testing::WriteFile;

class StressCheckTest : public ::testing::Test {
 protected:
  WorkerRun Run(int worker, const std::string& log, bool killed = false, int64_t reaped = 0) {
    WorkerRun run;
    run.worker = worker;
    run.log_path = dir_.Sub("w" + std::to_string(worker) + ".log");
    WriteFile(run.log_path, log);
    run.killed = killed;
    run.reaped_at = reaped;
    return run;
  }
  static FinalState Folder(const std::string& verify, std::vector<std::string> files) {
    FinalState state = ParseFinalState(verify);
    state.files = std::move(files);
    return state;
  }

  TempDir dir_;
};

TEST_F(StressCheckTest, LoadFailuresAreForgivenOnlyUntilATornIndexIsRepaired) {
  std::vector<WorkerRun> runs = {
      Run(0,
          "B 100 open - 1\nE 110 open - 1 0 0\n"
          "B 200 deliver a.MAI -\nK 205 1\n",
          /*killed=*/true, /*reaped=*/210),
      Run(1,
          "B 300 open - 1\nR 305 1\nE 310 open - 0 0 0\n"  // the torn file
          "B 400 deliver b.MAI -\nE 410 deliver b.MAI 1 0 0\n"
          "B 500 update b.MAI +\\Seen\nR 505 1\nE 510 update b.MAI 0 0 0\n"),
  };
  Counts counts = Check(runs, Folder("open 1\nrow b.MAI 1 \nlastuid 1\n", {"b.MAI"}));
  EXPECT_EQ(counts.torn_kills, 1);
  EXPECT_EQ(counts.load_failures, 2);
  EXPECT_EQ(counts.load_failures_torn, 1);
  ASSERT_EQ(counts.violations.size(), 1u);
  EXPECT_EQ(counts.violations[0], "index failed to load during update b.MAI");

  // A kill with no index file open for writing explains nothing.
  runs[0] =
      Run(0, "B 100 open - 1\nE 110 open - 1 0 0\nB 200 deliver a.MAI -\nK 205 0\n", true, 210);
  counts = Check(runs, Folder("open 1\nrow b.MAI 1 \nlastuid 1\n", {"b.MAI"}));
  EXPECT_EQ(counts.load_failures_torn, 0);
  EXPECT_EQ(counts.violations.size(), 2u);
}

TEST_F(StressCheckTest, EveryLastUidDropAndBrokenInvariantIsAViolation) {
  std::vector<WorkerRun> runs = {
      Run(0, "L 10 20 5\nL 50 60 5\n"),
      Run(1, "L 30 40 4\nL 15 55 3\n"),  // the second overlaps 5 in time
  };
  Counts counts = Check(runs, Folder("open 1\nlastuid 9\n", {}));
  EXPECT_EQ(counts.lastuid_drops, 1);
  ASSERT_EQ(counts.violations.size(), 1u);
  EXPECT_EQ(counts.violations[0], "LastUID went down from 5 to 4");

  counts = Check({}, Folder("open 1\nrow a.MAI 3 \nrow b.MAI 3 \nrow c.MAI 9 \nlastuid 8\n",
                            {"a.MAI", "b.MAI", "c.MAI", "d.MAI"}));
  EXPECT_EQ(counts.violations,
            (std::vector<std::string>{"UID used twice: 3", "UID above LastUID: c.MAI",
                                      "file without a row: d.MAI"}));
}

}  // namespace
}  // namespace qaaisp::stress
