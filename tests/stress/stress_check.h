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

// Workers sleep a quarter of the library's polling second. A block-file
// wait then gives up after 61 polls, about 15 s: far beyond any honest hold
// in this run, so a waiter does not break a live holder's lock. Orphans left
// by kills are cleared on a waiter's first retry ("Index Unblock Mode").
inline constexpr const char* kSleepScale = "0.25";
inline constexpr int64_t kLockBreakNs = 61 * 250'000'000LL;

// One process as the driver saw it.
struct WorkerRun {
  int worker = 0;
  std::string log_path;
  std::string events_path;
  bool killed = false;
  bool replacement = false;  // started in place of a killed one
  int64_t reaped_at = 0;     // CLOCK_MONOTONIC ns when its end was seen
  int64_t last_logged = 0;   // filled by the check
  int64_t killed_at = 0;     // CLOCK_MONOTONIC ns of the kill, as it logged it
  bool torn = false;         // killed with an index file open for writing
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
  int interrupted = 0;           // operations a kill cut short
  int torn_kills = 0;            // kills with an index file open for writing
  int lost_by_older_commit = 0;  // acknowledged updates an older load saved over
  int lost_by_crash = 0;         // acknowledged updates lost to a torn index
  int lastuid_drops = 0;         // a LastUID sample below an earlier one
  int load_failures = 0;         // "Failed to deserialise index" reports
  int load_failures_torn = 0;    // of those, while a torn index awaited repair
  int lock_breaks = 0;           // operations that waited past the block limit
  int lost_by_lock_break = 0;    // acknowledged updates lost to a broken lock
  int unindexed_after_kill = 0;  // files of deliveries a kill cut short
  int stale_rows = 0;
  int failed_opens_after_kill = 0;  // first opens of replacement processes
  int opens_timed_out_after_kill = 0;
  std::vector<std::string> violations;

  std::string Summary() const;
};

FinalState ParseFinalState(const std::string& verify_output);

// Checks everything; counts and violations go into the result.
Counts Check(std::vector<WorkerRun> runs, const FinalState& final_state);

}  // namespace qaaisp::stress
