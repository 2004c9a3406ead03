#include "stress_check.h"

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>

namespace qaaisp::stress {
namespace {

struct Op {
  int worker = 0;
  std::string op, id, arg;
  int64_t begin = 0, end = 0;  // end 0: cut short by a kill
  int result = 0, save = 0;
  int64_t load = 0;  // for commits: when the load they rest on began
  int load_failures = 0;
  bool acknowledged() const { return end != 0 && result == 1 && (op != "commit" || save == 1); }
};

struct Sample {
  int64_t before = 0, after = 0;
  uint32_t uid = 0;
};

constexpr size_t kMaxViolationTexts = 20;

void Violation(Counts* counts, const std::string& text) {
  if (counts->violations.size() < kMaxViolationTexts)
    counts->violations.push_back(text);
  else if (counts->violations.size() == kMaxViolationTexts)
    counts->violations.push_back("...");
}

// Also gives the time of the last step the worker logged, and notes the
// moment of its kill.
int64_t ReadLog(WorkerRun& run, std::vector<Op>* ops, std::vector<Sample>* samples) {
  int64_t last = 0;
  std::ifstream in(run.log_path);
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream words(line);
    std::string kind;
    words >> kind;
    if (kind == "B") {
      Op op;
      op.worker = run.worker;
      words >> op.begin >> op.op >> op.id >> op.arg;
      ops->push_back(op);
      last = std::max(last, op.begin);
    } else if (kind == "E" && !ops->empty()) {
      Op& op = ops->back();
      std::string name, id;
      words >> op.end >> name >> id >> op.result >> op.save >> op.load;
      last = std::max(last, op.end);
    } else if (kind == "R" && !ops->empty()) {
      int64_t at = 0;
      int n = 0;
      words >> at >> n;
      ops->back().load_failures += n;
    } else if (kind == "K") {
      int torn = 0;
      words >> run.killed_at >> torn;
      run.torn = torn != 0;
    } else if (kind == "L") {
      Sample s;
      words >> s.before >> s.after >> s.uid;
      samples->push_back(s);
      last = std::max(last, s.after);
    }
  }
  return last;
}

// Ends of the operations that waited long enough to break a lock.
std::vector<int64_t> g_long_op_ends;

bool LockBreakNear(int64_t from, int64_t to) {
  return std::any_of(g_long_op_ends.begin(), g_long_op_ends.end(), [&](int64_t end) {
    return end >= from - kLockBreakNs && end <= to + kLockBreakNs;
  });
}

bool HasFlag(const std::string& flags, const std::string& flag) {
  std::istringstream words(flags);
  std::string word;
  while (words >> word) {
    if (word.size() == flag.size() &&
        std::equal(word.begin(), word.end(), flag.begin(),
                   [](char a, char b) { return std::tolower(a) == std::tolower(b); })) {
      return true;
    }
  }
  return false;
}

// A commit whose load began before `until` and whose save ended after
// `from` wrote rows older than what was acknowledged in between.
bool OlderCommitSpans(const std::vector<Op>& commits, int64_t from, int64_t until) {
  return std::any_of(commits.begin(), commits.end(), [&](const Op& c) {
    return c.end != 0 && c.load != 0 && c.load < until && c.end > from;
  });
}

// The kill time of a torn index: the reaping time when the worker died
// before it could log its kill.
int64_t TornAt(const WorkerRun& r) { return r.killed_at ? r.killed_at : r.reaped_at; }

bool TornKillAfter(const std::vector<WorkerRun>& runs, int64_t t) {
  return std::any_of(runs.begin(), runs.end(),
                     [&](const WorkerRun& r) { return r.killed && r.torn && TornAt(r) > t; });
}

// An operation that loaded the index and succeeded: the index was readable
// (or repaired) between its begin and end.
bool LoadedFine(const Op& op) {
  return op.end != 0 && op.result == 1 && op.load_failures == 0 &&
         (op.op == "deliver" || op.op == "update" || op.op == "remove" || op.op == "open" ||
          (op.op == "scan" && op.arg == "open2"));
}

// A load may fail only on an index that a kill left half written and that
// nothing has repaired yet: some torn kill came before the failure, and no
// operation loaded the index fine wholly between that kill and the failure.
bool TornAndUnrepaired(const std::vector<WorkerRun>& runs, const std::vector<int64_t>& fine_ends,
                       const std::vector<int64_t>& fine_begins_by_end, const Op& failed) {
  const int64_t failed_at = failed.end ? failed.end : failed.begin;
  for (const WorkerRun& r : runs) {
    if (!r.killed || !r.torn || TornAt(r) >= failed_at) continue;
    // The first fine load that began after the kill, by its end.
    bool repaired = false;
    auto from = std::upper_bound(fine_ends.begin(), fine_ends.end(), TornAt(r));
    for (auto it = from; it != fine_ends.end() && *it < failed.begin; ++it) {
      if (fine_begins_by_end[static_cast<size_t>(it - fine_ends.begin())] > TornAt(r)) {
        repaired = true;
        break;
      }
    }
    if (!repaired) return true;
  }
  return false;
}

// LastUID as sampled by all processes: a sample taken wholly after another
// must never be lower.
void CheckLastUid(std::vector<Sample> samples, Counts* counts) {
  if (samples.empty()) return;
  std::sort(samples.begin(), samples.end(),
            [](const Sample& a, const Sample& b) { return a.before < b.before; });
  std::vector<Sample> by_after = samples;
  std::sort(by_after.begin(), by_after.end(),
            [](const Sample& a, const Sample& b) { return a.after < b.after; });
  size_t next = 0;
  const Sample* highest = nullptr;
  for (const Sample& s : samples) {
    while (next < by_after.size() && by_after[next].after < s.before) {
      if (!highest || by_after[next].uid > highest->uid) highest = &by_after[next];
      ++next;
    }
    if (!highest || highest->uid <= s.uid) continue;
    ++counts->lastuid_drops;
    Violation(counts, "LastUID went down from " + std::to_string(highest->uid) + " to " +
                          std::to_string(s.uid));
    highest = &s;  // judge the next drop from here
  }
}

}  // namespace

std::string Counts::Summary() const {
  std::ostringstream out;
  out << "ops " << ops << " (deliveries " << deliveries << ", updates " << updates << ", removals "
      << removals << ", opens " << opens << ", commits " << commits << ", re-scans " << scans
      << ")\n  failed " << failed_ops << ", kills " << kills << " (" << torn_kills
      << " with the index open for writing), cut short " << interrupted
      << ", lock waits past the limit " << lock_breaks << "\n  lost updates: by older commits "
      << lost_by_older_commit << ", by crashes " << lost_by_crash << ", by broken locks "
      << lost_by_lock_break << "\n  LastUID drops " << lastuid_drops << "\n  load failures "
      << load_failures << " (" << load_failures_torn << " of an index a kill left half written)"
      << ", unindexed after kills " << unindexed_after_kill << ", stale rows " << stale_rows
      << "\n  first opens after a kill that failed " << failed_opens_after_kill << " (and "
      << opens_timed_out_after_kill << " that timed out on the block file)"
      << "\n  violations " << violations.size();
  return out.str();
}

FinalState ParseFinalState(const std::string& verify_output) {
  FinalState state;
  std::istringstream lines(verify_output);
  std::string line;
  while (std::getline(lines, line)) {
    std::istringstream words(line);
    std::string kind;
    words >> kind;
    if (kind == "open") words >> state.open_result;
    if (kind == "loadfailed") state.load_failed = true;
    if (kind == "stale") words >> state.stale_rows;
    if (kind == "lastuid") words >> state.last_uid;
    if (kind != "row") continue;
    std::string id;
    FinalState::Row row;
    words >> id >> row.uid;
    std::getline(words, row.flags);
    if (!state.rows.emplace(id, row).second) state.duplicate_ids.push_back(id);
  }
  return state;
}

Counts Check(std::vector<WorkerRun> runs, const FinalState& final_state) {
  Counts counts;
  std::vector<Op> ops;
  std::vector<Sample> samples;
  std::map<int, std::vector<size_t>> by_worker;
  for (WorkerRun& run : runs) {
    size_t first = ops.size();
    run.last_logged = ReadLog(run, &ops, &samples);
    for (size_t i = first; i < ops.size(); ++i) by_worker[run.worker].push_back(i);
    if (run.killed) ++counts.kills;
    if (run.killed && run.torn) ++counts.torn_kills;
    // The first open of a process that replaces a killed one. One that
    // waited past the block limit timed out on the lock: that is no failure
    // to recover.
    const Op* open = first < ops.size() ? &ops[first] : nullptr;
    if (run.replacement && open && open->op == "open" && open->end != 0 && open->result == 0) {
      ++(open->end - open->begin > kLockBreakNs ? counts.opens_timed_out_after_kill
                                                : counts.failed_opens_after_kill);
    }
  }
  std::vector<Op> commits;
  std::set<std::string> cut_short_files;
  g_long_op_ends.clear();
  for (const Op& op : ops) {
    if (op.end != 0 && op.end - op.begin > kLockBreakNs) g_long_op_ends.push_back(op.end);
  }
  counts.lock_breaks = static_cast<int>(g_long_op_ends.size());
  std::vector<const Op*> fine;
  for (const Op& op : ops) {
    if (LoadedFine(op)) fine.push_back(&op);
  }
  std::sort(fine.begin(), fine.end(), [](const Op* a, const Op* b) { return a->end < b->end; });
  std::vector<int64_t> fine_ends, fine_begins;
  for (const Op* op : fine) {
    fine_ends.push_back(op->end);
    fine_begins.push_back(op->begin);
  }
  std::vector<int64_t> load_failure_times;
  for (const Op& op : ops) {
    ++counts.ops;
    if (op.load_failures) {
      load_failure_times.push_back(op.end ? op.end : op.begin);
      counts.load_failures += op.load_failures;
      // The index may be unreadable only after a kill in the middle of its
      // writing, until the recovery that the failed load itself starts.
      if (TornAndUnrepaired(runs, fine_ends, fine_begins, op)) {
        counts.load_failures_torn += op.load_failures;
      } else {
        Violation(&counts, "index failed to load during " + op.op + " " + op.id);
      }
    }
    if (op.op == "deliver") ++counts.deliveries;
    if (op.op == "update") ++counts.updates;
    if (op.op == "remove") ++counts.removals;
    if (op.op == "open") ++counts.opens;
    if (op.op == "scan") ++counts.scans;
    if (op.op == "commit") {
      ++counts.commits;
      (op.arg == "insert" ? counts.deliveries : counts.removals)++;
      commits.push_back(op);
    }
    if (op.end == 0) {
      ++counts.interrupted;
      if (op.id != "-") cut_short_files.insert(op.id);
    } else if (op.op == "commit" ? op.save == 0 : op.result == 0) {
      ++counts.failed_ops;
    }
  }

  if (final_state.open_result == 0) Violation(&counts, "the open after the run failed");
  if (final_state.load_failed) Violation(&counts, "the verifying load failed");
  counts.stale_rows = final_state.stale_rows;
  for (const std::string& id : final_state.duplicate_ids) Violation(&counts, "two rows for " + id);
  std::set<uint32_t> uids;
  for (const auto& [id, row] : final_state.rows) {
    if (!uids.insert(row.uid).second)
      Violation(&counts, "UID used twice: " + std::to_string(row.uid));
    if (row.uid > final_state.last_uid) Violation(&counts, "UID above LastUID: " + id);
  }
  for (const std::string& file : final_state.files) {
    if (final_state.rows.count(file)) continue;
    if (cut_short_files.count(file)) {
      ++counts.unindexed_after_kill;
    } else {
      Violation(&counts, "file without a row: " + file);
    }
  }
  CheckLastUid(samples, &counts);

  // Each acknowledged flag change must still show, unless an older load's
  // save or a kill accounts for its loss. Only the last change of a flag on a
  // row is judged, and only if no unacknowledged change of it came later.
  static const char* const kFlags[] = {"\\Flagged", "\\Answered", "\\Seen"};
  for (const auto& [worker, indexes] : by_worker) {
    std::map<std::string, const Op*> delivered;
    std::map<std::pair<std::string, std::string>, const Op*> last;  // (id, flag)
    std::set<std::pair<std::string, std::string>> unsure;
    for (size_t i : indexes) {
      const Op& op = ops[i];
      if (op.op == "deliver" || (op.op == "commit" && op.arg == "insert")) {
        delivered[op.id] = &op;
      }
      if (op.op != "update") continue;
      for (const char* flag : kFlags) {
        if (op.arg.find(flag) == std::string::npos) continue;
        auto key = std::make_pair(op.id, std::string(flag));
        if (op.acknowledged()) {
          last[key] = &op;
          unsure.erase(key);
        } else {
          unsure.insert(key);
        }
      }
    }
    for (const auto& [key, update] : last) {
      if (unsure.count(key)) continue;
      auto row = final_state.rows.find(key.first);
      if (row == final_state.rows.end()) continue;
      const bool want = update->arg[0] == '+';
      if (HasFlag(row->second.flags, key.second) == want) continue;
      // Saved over the update itself, or over the row's delivery, so that the
      // row was missing until a re-scan brought it back without its flags.
      const Op* delivery = delivered[key.first];
      const int64_t delivery_end = delivery && delivery->end ? delivery->end : update->begin;
      if (OlderCommitSpans(commits, update->begin, update->end) ||
          (delivery && OlderCommitSpans(commits, delivery->begin, delivery_end))) {
        ++counts.lost_by_older_commit;
      } else if (TornKillAfter(runs, update->begin) &&
                 std::any_of(load_failure_times.begin(), load_failure_times.end(),
                             [begin = update->begin](int64_t t) { return t > begin; })) {
        // A kill tore the index after the update, and the rebuild that
        // followed could not know the flag.
        ++counts.lost_by_crash;
      } else if (LockBreakNear(update->begin, update->end)) {
        ++counts.lost_by_lock_break;
      } else {
        Violation(&counts, "acknowledged " + update->arg + " on " + key.first +
                               " is not in the index (flags:" + row->second.flags + ")");
      }
    }
  }
  return counts;
}

}  // namespace qaaisp::stress
