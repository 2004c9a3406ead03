// The invariant check of a stress run: reads what the workers logged and
// what the folder holds afterwards, counts what was done, and sorts every
// deviation into a loss the design allows (an older load saved over newer
// rows; a kill that took a save with it) or a violation.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace qaaisp::stress {

// One process as the driver saw it.
struct WorkerRun {
  int worker = 0;
  std::string log_path;
  std::string events_path;
  bool killed = false;
  bool replacement = false;  // started in place of a killed one
  int64_t reaped_at = 0;     // CLOCK_MONOTONIC ns when its end was seen
};

// The folder after the run, as the verifying load printed it.
struct FinalState {
  int open_result = -1;
  bool load_failed = false;
  int stale_rows = 0;  // rows of a plain load whose file was gone
  struct Row {
    uint32_t uid = 0;
    std::string flags;
  };
  std::map<std::string, Row> rows;  // by ID
  std::vector<std::string> duplicate_ids;
  uint32_t last_uid = 0;
  std::vector<std::string> files;  // *.MAI on disk
};

struct Counts {
  int ops = 0, deliveries = 0, updates = 0, removals = 0, opens = 0, commits = 0, scans = 0;
  int failed_ops = 0;
  int kills = 0;
  int interrupted = 0;            // operations a kill cut short
  int lost_by_older_commit = 0;   // acknowledged updates an older load saved over
  int lost_by_crash = 0;          // acknowledged updates lost to a kill
  int lastuid_drops_allowed = 0;  // LastUID lowered by an older load's save or a rebuild
  int load_failures = 0;          // "Failed to deserialise index" reports
  int unindexed_after_kill = 0;   // files of deliveries a kill cut short
  int stale_rows = 0;
  std::vector<std::string> violations;

  std::string Summary() const;
};

FinalState ParseFinalState(const std::string& verify_output);

// Checks everything; counts and violations go into the result.
Counts Check(const std::vector<WorkerRun>& runs, const FinalState& final_state);

}  // namespace qaaisp::stress
