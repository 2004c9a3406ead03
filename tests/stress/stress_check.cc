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

void ReadLog(const WorkerRun& run, std::vector<Op>* ops, std::vector<Sample>* samples) {
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
    } else if (kind == "E" && !ops->empty()) {
      Op& op = ops->back();
      std::string name, id;
      words >> op.end >> name >> id >> op.result >> op.save >> op.load;
    } else if (kind == "L") {
      Sample s;
      words >> s.before >> s.after >> s.uid;
      samples->push_back(s);
    }
  }
}

int CountLoadFailures(const std::string& events_path) {
  std::ifstream in(events_path);
  std::string line;
  int n = 0;
  while (std::getline(in, line)) {
    if (line.find("Failed to deserialise index") != std::string::npos) ++n;
  }
  return n;
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

bool KillAfter(const std::vector<WorkerRun>& runs, int64_t t) {
  return std::any_of(runs.begin(), runs.end(),
                     [&](const WorkerRun& r) { return r.killed && r.reaped_at > t; });
}

// LastUID as sampled by all processes: a sample taken wholly after another
// must not be lower, unless an older load's save or a rebuild came between.
void CheckLastUid(std::vector<Sample> samples, const std::vector<Op>& commits,
                  const std::vector<WorkerRun>& runs, Counts* counts) {
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
    const bool older_save = std::any_of(commits.begin(), commits.end(), [&](const Op& c) {
      return c.end != 0 && c.load < highest->after && c.end > highest->before && c.end < s.after;
    });
    if (older_save || KillAfter(runs, highest->before)) {
      ++counts->lastuid_drops_allowed;
    } else {
      Violation(counts, "LastUID went down from " + std::to_string(highest->uid) + " to " +
                            std::to_string(s.uid));
    }
    highest = &s;  // judge the next drop from here
  }
}

}  // namespace

std::string Counts::Summary() const {
  std::ostringstream out;
  out << "ops " << ops << " (deliveries " << deliveries << ", updates " << updates << ", removals "
      << removals << ", opens " << opens << ", commits " << commits << ", re-scans " << scans
      << "), failed " << failed_ops << ", kills " << kills << ", cut short " << interrupted
      << ", lost by older commits " << lost_by_older_commit << ", lost flags by crashes "
      << lost_by_crash << ", LastUID drops explained " << lastuid_drops_allowed
      << ", load failures " << load_failures << ", unindexed after kills " << unindexed_after_kill
      << ", stale rows " << stale_rows << ", violations " << violations.size();
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

Counts Check(const std::vector<WorkerRun>& runs, const FinalState& final_state) {
  Counts counts;
  std::vector<Op> ops;
  std::vector<Sample> samples;
  std::map<int, std::vector<size_t>> by_worker;
  for (const WorkerRun& run : runs) {
    size_t first = ops.size();
    ReadLog(run, &ops, &samples);
    for (size_t i = first; i < ops.size(); ++i) by_worker[run.worker].push_back(i);
    if (run.killed) ++counts.kills;
    counts.load_failures += CountLoadFailures(run.events_path);
    // The first open of a process that replaces a killed one must succeed.
    if (run.replacement && first < ops.size() && ops[first].op == "open" && ops[first].end != 0 &&
        ops[first].result == 0) {
      Violation(&counts, "open after a kill failed (worker " + std::to_string(run.worker) + ")");
    }
  }
  std::vector<Op> commits;
  std::set<std::string> cut_short_files;
  for (const Op& op : ops) {
    ++counts.ops;
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
  CheckLastUid(samples, commits, runs, &counts);

  // Each acknowledged flag change must still show, unless an older load's
  // save or a kill accounts for its loss. Only the last change of a flag on a
  // row is judged, and only if no unacknowledged change of it came later.
  static const char* const kFlags[] = {"\\Flagged", "\\Answered", "\\Seen"};
  for (const auto& [worker, indexes] : by_worker) {
    std::map<std::string, int64_t> delivered_at;
    std::map<std::pair<std::string, std::string>, const Op*> last;  // (id, flag)
    std::set<std::pair<std::string, std::string>> unsure;
    for (size_t i : indexes) {
      const Op& op = ops[i];
      if (op.op == "deliver" || (op.op == "commit" && op.arg == "insert")) {
        delivered_at[op.id] = op.begin;
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
      if (OlderCommitSpans(commits, delivered_at[key.first], update->end)) {
        ++counts.lost_by_older_commit;
      } else if (KillAfter(runs, update->begin)) {
        ++counts.lost_by_crash;
      } else {
        Violation(&counts, "acknowledged " + update->arg + " on " + key.first +
                               " is not in the index (flags:" + row->second.flags + ")");
      }
    }
  }
  return counts;
}

}  // namespace qaaisp::stress
