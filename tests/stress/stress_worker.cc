// One process of the multi-process stress run. It works on one folder
// through the C exports only, as a mail service does, and logs every step
// to its own file so that the checker can tell what was acknowledged when:
//
//   B <ns> <op> <id> <arg>                    an operation begins
//   E <ns> <op> <id> <result> <save> <load>   it ended (save and load only
//                                              for commits through an index)
//   L <ns before> <ns after> <LastUID>        LastUID read from the file
//   R <ns> <count>                            index loads that failed during
//                                              the last operation
//   K <ns> <torn>                             killed now; torn 1 if an index
//                                              file was open for writing
//
// Times are CLOCK_MONOTONIC nanoseconds, comparable between processes.
//
//   stress_worker run <dir> <po> <mbox> <folder> <worker> <seed> <ops> <log> <kill_at>
//   stress_worker verify <dir> <po> <mbox> <folder>
//
// kill_at > 0 ends the process with SIGKILL at that file-system call.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include "index/store_index.h"
#include "index/store_paths.h"
#include "kill_env.h"
#include "persist/index_serialiser.h"
#include "qaaisp/qaaisp.h"

namespace {

int64_t Now() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return int64_t{ts.tv_sec} * 1000000000 + ts.tv_nsec;
}

bool FileExists(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

// Unbuffered appends, so that a kill loses no line already written.
class Log {
 public:
  explicit Log(const std::string& path)
      : fd_(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644)) {}
  ~Log() {
    if (fd_ >= 0) ::close(fd_);
  }
  bool ok() const { return fd_ >= 0; }
  void Line(const std::string& text) {
    std::string line = text + "\n";
    if (::write(fd_, line.data(), line.size()) < 0) std::perror("log");
  }

 private:
  int fd_;
};

class Worker {
 public:
  Worker(std::string dir, const char* po, const char* mbox, const char* folder, int id,
         uint32_t seed, Log* log)
      : dir_(std::move(dir)),
        po_(po),
        mbox_(mbox),
        folder_(folder),
        id_(id),
        rng_(seed),
        log_(log),
        index_(StoreIndex_New()) {
    StoreIndex_SetNames(index_, po, mbox, folder, 0);
    StoreIndex_SetPaths(index_);
  }
  ~Worker() {
    StoreIndex_Release(index_);
    StoreIndex_Delete(index_);
  }

  void Run(int ops) {
    // A fresh process opens first: after a kill, this is the open that
    // must find the folder usable again.
    Open();
    NoteLoadFailures();
    for (int i = 1; i < ops; ++i) {
      const int pick = Pick(100);
      if (pick < 28) {
        Deliver();
      } else if (pick < 58) {
        Update();
      } else if (pick < 76) {
        Remove();
      } else if (pick < 86) {
        Open();
      } else if (pick < 97) {
        Commit();
      } else {
        Scan();
      }
      SampleLastUid();
      NoteLoadFailures();
    }
  }

 private:
  int Pick(int n) { return static_cast<int>(rng_() % static_cast<uint32_t>(n)); }

  void Begin(const char* op, const std::string& id, const std::string& arg) {
    log_->Line("B " + std::to_string(Now()) + " " + op + " " + id + " " + arg);
  }
  void End(const char* op, const std::string& id, int result, int save = 0, int64_t load = 0) {
    log_->Line("E " + std::to_string(Now()) + " " + op + " " + id + " " + std::to_string(result) +
               " " + std::to_string(save) + " " + std::to_string(load));
  }

  // Writes a new message file of a few hundred bytes to a few kilobytes.
  std::string WriteMessage() {
    const std::string name = "w" + std::to_string(id_) + "_" + std::to_string(++sequence_) + ".MAI";
    std::string text = "From: Worker " + std::to_string(id_) + " <w" + std::to_string(id_) +
                       "@example.com>\r\nTo: box@example.com\r\nSubject: stress " + name +
                       "\r\nMessage-ID: <" + name +
                       "@stress.example>\r\n"
                       "Date: Sat, 21 Nov 2026 10:00:00 +0000\r\n\r\n";
    const int lines = 4 + Pick(120);
    for (int i = 0; i < lines; ++i)
      text += "A line of body text, number " + std::to_string(i) + "\r\n";
    FILE* f = std::fopen((dir_ + "/" + name).c_str(), "wb");
    if (!f) return "";
    std::fwrite(text.data(), 1, text.size(), f);
    std::fclose(f);
    return name;
  }

  void Deliver() {
    const std::string name = WriteMessage();
    if (name.empty()) return;
    const char* flags = Pick(2) ? "\\Seen" : nullptr;
    Begin("deliver", name, flags ? flags : "-");
    int result = Direct_StoreIndex_InsertItemEx(po_, mbox_, folder_, name.c_str(), flags);
    End("deliver", name, result);
    (result == 1 ? indexed_ : unsure_).push_back(name);
  }

  void Update() {
    if (indexed_.empty()) return;
    static const char* const kUpdates[] = {"+\\Flagged",  "-\\Flagged", "+\\Answered",
                                           "-\\Answered", "+\\Seen",    "-\\Seen"};
    const std::string& id = indexed_[Pick(static_cast<int>(indexed_.size()))];
    const char* update = kUpdates[Pick(6)];
    Begin("update", id, update);
    End("update", id, Direct_StoreIndex_UpdateItem(po_, mbox_, folder_, id.c_str(), update));
  }

  // Takes one of this worker's files out of its lists.
  std::string TakeOwnFile() {
    std::vector<std::string>& from = !unsure_.empty() && Pick(4) == 0 ? unsure_ : indexed_;
    if (from.empty()) return "";
    const size_t at = static_cast<size_t>(Pick(static_cast<int>(from.size())));
    std::string id = from[at];
    from[at] = from.back();
    from.pop_back();
    return id;
  }

  // The file goes first, as a service deletes it: a kill in between leaves
  // a row without a file, which a verifying load drops.
  void Remove() {
    const std::string id = TakeOwnFile();
    if (id.empty()) return;
    Begin("remove", id, "-");
    ::unlink((dir_ + "/" + id).c_str());
    End("remove", id, Direct_StoreIndex_RemoveItem(po_, mbox_, folder_, id.c_str()));
  }

  void Open() {
    Begin("open", "-", "1");
    const int64_t start = Now();
    const int result = StoreIndex_Open(index_, 1);
    End("open", "-", result);
    loaded_at_ = result ? start : 0;
  }

  // A change through the held index, saved over whatever the file holds now:
  // the load it rests on may be several operations old.
  void Commit() {
    if (loaded_at_ == 0) return;
    const bool insert = Pick(2) == 0 || indexed_.empty();
    const std::string id = insert ? WriteMessage() : TakeOwnFile();
    if (id.empty()) return;
    Begin("commit", id, insert ? "insert" : "remove");
    int changed = 0;
    if (insert) {
      changed = StoreIndex_InsertItem(index_, id.c_str(), 0);
    } else {
      ::unlink((dir_ + "/" + id).c_str());
      changed = StoreIndex_RemoveItem(index_, id.c_str());
    }
    const int saved = StoreIndex_Save(index_);
    End("commit", id, changed, saved, loaded_at_);
    if (insert) (changed == 1 && saved == 1 ? indexed_ : unsure_).push_back(id);
  }

  void Scan() {
    if (Pick(2) == 0) {
      Begin("scan", "-", "folders");
      End("scan", "-", ScanFolders(dir_.c_str()));
    } else {
      Begin("scan", "-", "open2");
      const int64_t start = Now();
      const int result = StoreIndex_Open(index_, 2);
      End("scan", "-", result);
      loaded_at_ = result ? start : 0;
    }
  }

  // Load failures are reported to the event log; counting them after each
  // operation ties them to a moment of the run.
  void NoteLoadFailures() {
    static const char* const events = std::getenv("QAAISP_EVENT_LOG");
    if (!events || !*events) return;
    FILE* f = std::fopen(events, "rb");
    if (!f) return;
    std::string added;
    if (std::fseek(f, events_seen_, SEEK_SET) == 0) {
      char buffer[4096];
      size_t n = 0;
      while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) added.append(buffer, n);
    }
    std::fclose(f);
    events_seen_ += static_cast<long>(added.size());
    int failures = 0;
    for (size_t at = 0; (at = added.find("Failed to deserialise index", at)) != std::string::npos;
         ++at) {
      ++failures;
    }
    if (failures) log_->Line("R " + std::to_string(Now()) + " " + std::to_string(failures));
  }

  // Reads LastUID from the head of the index file, as another reader would
  // see it; a file caught mid-rewrite gives no sample.
  void SampleLastUid() {
    const int64_t before = Now();
    char head[64] = {};
    FILE* f = std::fopen((dir_ + "/_index.xml").c_str(), "rb");
    if (!f) return;
    size_t n = std::fread(head, 1, sizeof head - 1, f);
    std::fclose(f);
    const int64_t after = Now();
    head[n] = '\0';
    // "x" and eight hexadecimal digits from the stream writer; plain decimal
    // from the document writer.
    const char* at = std::strstr(head, "LASTUID=\"");
    if (!at) return;
    at += 9;
    const bool hex = *at == 'x';
    if (hex) ++at;
    char* end = nullptr;
    const unsigned long uid = std::strtoul(at, &end, hex ? 16 : 10);
    if (end == at || *end != '"') return;
    log_->Line("L " + std::to_string(before) + " " + std::to_string(after) + " " +
               std::to_string(uid));
  }

  const std::string dir_;
  const char* po_;
  const char* mbox_;
  const char* folder_;
  const int id_;
  std::mt19937 rng_;
  Log* log_;
  StoreIndex* index_;
  int sequence_ = 0;
  int64_t loaded_at_ = 0;
  long events_seen_ = 0;
  std::vector<std::string> indexed_;  // delivered and acknowledged
  std::vector<std::string> unsure_;   // on disk, but the insert was not acknowledged
};

// Prints the folder as a service's next open leaves it, then as a loading
// that drops rows without files sees it.
int Verify(const std::string& dir, const char* po, const char* mbox, const char* folder) {
  StoreIndex* opener = StoreIndex_New();
  StoreIndex_SetNames(opener, po, mbox, folder, 0);
  StoreIndex_SetPaths(opener);
  std::printf("open %d\n", StoreIndex_Open(opener, 1));
  StoreIndex_Release(opener);
  StoreIndex_Delete(opener);

  for (int verify = 0; verify <= 1; ++verify) {
    StoreIndex index;
    qaaisp::SetStoreIndexNames(&index, po, mbox, folder, 0);
    qaaisp::SetStoreIndexPaths(&index);
    if (!qaaisp::LoadIndexForClass(&index.table, &index, dir, 0, po, mbox, false, false,
                                   qaaisp::LoadFull, verify, false, false, true, false)) {
      std::printf("loadfailed %d\n", verify);
      continue;
    }
    if (verify == 0) {
      int stale = 0;
      for (const auto& [uid, row] : index.table.by_uid()) {
        if (!FileExists(dir + "/" + row->GetText("ID"))) ++stale;
      }
      std::printf("stale %d\n", stale);
      continue;
    }
    for (const auto& [uid, row] : index.table.by_uid()) {
      std::printf("row %s %u %s\n", row->GetText("ID").c_str(), uid,
                  row->GetText("FLAGSTATUS").c_str());
    }
    std::printf("lastuid %u\n", index.table.LastUID);
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string command = argc > 1 ? argv[1] : "";
  if (command == "run" && argc == 11) {
    static Log log(argv[9]);
    if (!log.ok()) return 4;
    static qaaisp::stress::KillEnv env(
        qaaisp::platform::Env::Default(), std::strtoull(argv[10], nullptr, 10),
        [](bool torn) { log.Line("K " + std::to_string(Now()) + " " + (torn ? "1" : "0")); });
    qaaisp::platform::Env::SetDefaultForTesting(&env);
    if (StoreLibrary_Init() != 1) return 3;
    Worker worker(argv[2], argv[3], argv[4], argv[5], std::atoi(argv[6]),
                  static_cast<uint32_t>(std::strtoul(argv[7], nullptr, 10)), &log);
    worker.Run(std::atoi(argv[8]));
    // Lets the driver aim its kills within a worker's span of calls.
    log.Line("C " + std::to_string(env.calls()));
    return 0;
  }
  if (command == "verify" && argc == 6) {
    if (StoreLibrary_Init() != 1) return 3;
    return Verify(argv[2], argv[3], argv[4], argv[5]);
  }
  std::fprintf(stderr, "usage: stress_worker run|verify ...\n");
  return 2;
}
