// The folder re-scan over generated message folders of 1,000, 10,000 and
// 50,000 files: a rebuild from nothing, and a re-scan of a folder whose
// index is up to date (with a fresh load of the index, and with the rows
// still held from the last scan, as an open index keeps them). Beside each
// stands the time to read, or to stat, the same files with plain calls; the
// counters "x_read" and "x_stat" give the ratio to those. One run each:
// every rebuild must start from nothing, and the figures are seconds long.
//
// The stream reader and writer are chosen through a registry file of the
// benchmark's own. The folders go to a fresh directory under $TMPDIR (or
// /tmp), removed at the end; QAAISP_BENCH_DIR names a directory where they
// are kept instead, and found again by later runs, since writing 61,000
// files takes minutes on some disks.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <string>

#include "base/base64.h"
#include "index/store_index.h"
#include "message/folder_rescan.h"
#include "qaaisp/qaaisp.h"
#include "store/rescan_wiring.h"

namespace {

namespace fs = std::filesystem;

// Messages as a mail server stores them: a Received chain, encoded words,
// folded addresses; plain, alternative, and mixed with an attachment.
class MessageMaker {
 public:
  explicit MessageMaker(uint32_t seed) : random_(seed) {}

  std::string Next(int serial) {
    std::string m;
    for (uint32_t hop = 0, hops = 2 + Below(3); hop < hops; ++hop) {
      m += "Received: from mx" + std::to_string(Below(90)) +
           ".example.net (mx.example.net [192.0.2." + std::to_string(Below(250)) +
           "])\r\n\tby mail.example.org with ESMTPS id " + std::to_string(random_()) +
           "\r\n\tfor <ann@example.org>; Tue, 14 Nov 2023 1" + std::to_string(Below(10)) + ":" +
           std::to_string(10 + Below(50)) + ":0" + std::to_string(Below(10)) + " +0000\r\n";
    }
    m += "From: " +
         std::string(Below(3) == 0 ? "=?UTF-8?Q?J=C3=BCrgen_M=C3=BCller?=" : "Ann Example") +
         " <sender" + std::to_string(Below(5000)) + "@example.net>\r\n";
    m += "To: team@example.org,\r\n =?ISO-8859-1?Q?=C9lodie?= <elodie@example.org>\r\n";
    if (Below(4) == 0) m += "Cc: board@example.org\r\n";
    m += "Subject: " +
         std::string(Below(3) == 0 ? "=?UTF-8?Q?R=C3=A9sum=C3=A9?= =?UTF-8?Q?_of_the_week?="
                                   : "Figures for the week") +
         " " + std::to_string(serial) + "\r\n";
    m += "Date: Tue, 14 Nov 2023 10:" + std::to_string(10 + Below(50)) + ":33 +0100\r\n";
    m += "Message-ID: <" + std::to_string(random_()) + "." + std::to_string(serial) +
         "@mail.example.net>\r\nMIME-Version: 1.0\r\n";
    if (Below(5) == 0) m += "List-Unsubscribe: <mailto:leave@lists.example.net>\r\n";
    const std::string boundary =
        "----=_Part_" + std::to_string(serial) + "_" + std::to_string(random_());
    const size_t text = 1024 + Below(6 * 1024);
    switch (Below(20)) {
      case 0:
      case 1:
      case 2: {  // text with an attachment
        m += "Content-Type: multipart/mixed; boundary=\"" + boundary + "\"\r\n\r\n";
        m += "--" + boundary + "\r\nContent-Type: text/plain; charset=utf-8\r\n\r\n";
        Lines(text / 2, &m);
        m += "\r\n--" + boundary +
             "\r\nContent-Type: application/pdf; name=\"report.pdf\"\r\n"
             "Content-Disposition: attachment; filename=\"report.pdf\"\r\n"
             "Content-Transfer-Encoding: base64\r\n\r\n";
        std::string binary(4096 + Below(16 * 1024), '\0');
        for (char& c : binary) c = static_cast<char>(random_());
        const std::string encoded = qaaisp::Base64EncodeToString(binary);
        for (size_t at = 0; at < encoded.size(); at += 76) {
          m.append(encoded, at, 76).append("\r\n");
        }
        m += "--" + boundary + "--\r\n";
        return m;
      }
      case 3:
      case 4:
      case 5:
      case 6:
      case 7: {  // text and HTML
        m += "Content-Type: multipart/alternative; boundary=\"" + boundary + "\"\r\n\r\n";
        m += "--" + boundary +
             "\r\nContent-Type: text/plain; charset=utf-8\r\n"
             "Content-Transfer-Encoding: quoted-printable\r\n\r\n";
        Lines(text / 2, &m);
        m += "\r\n--" + boundary + "\r\nContent-Type: text/html; charset=utf-8\r\n\r\n<html><body>";
        Lines(text / 2, &m);
        m += "</body></html>\r\n--" + boundary + "--\r\n";
        return m;
      }
      default:
        m += "Content-Type: text/plain; charset=utf-8\r\n\r\n";
        Lines(text, &m);
        return m;
    }
  }

 private:
  uint32_t Below(uint32_t n) { return static_cast<uint32_t>(random_() % n); }
  void Lines(size_t bytes, std::string* m) {
    static const char* const kWords[] = {"the",     "figures", "week",   "report", "meeting",
                                         "budget",  "plan",    "review", "café",   "numbers",
                                         "quarter", "team",    "draft",  "agenda", "notes"};
    const size_t end = m->size() + bytes;
    while (m->size() < end) {
      for (int w = 0; w < 11; ++w) m->append(kWords[Below(15)]).append(" ");
      m->append("\r\n");
    }
  }
  std::mt19937 random_;
};

bool KeepFolders() {
  const char* kept = std::getenv("QAAISP_BENCH_DIR");
  return kept && *kept;
}

std::string BenchRoot() {
  static const std::string root = [] {
    std::string dir;
    if (KeepFolders()) {
      dir = std::string(std::getenv("QAAISP_BENCH_DIR")) + "/rescan_bench";
    } else {
      const char* base = std::getenv("TMPDIR");
      if (!base || !*base) base = "/tmp";
      dir = std::string(base) + "/rescan_bench_" + std::to_string(::getpid());
    }
    fs::create_directories(dir);
    return dir;
  }();
  return root;
}

// The stream reader and writer, before any setting is read.
void ChooseStreamMembers() {
  const std::string reg = BenchRoot() + "/settings.reg";
  FILE* file = std::fopen(reg.c_str(), "wb");
  if (!file) std::abort();
  std::fputs(
      "Windows Registry Editor Version 5.00\r\n\r\n"
      "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Wow6432Node\\Quill Arbor\\Quill Arbor]\r\n"
      "\"Use XML Stream Index Deserialisation\"=dword:00000001\r\n"
      "\"Use XML Stream Index Serialisation\"=dword:00000001\r\n",
      file);
  std::fclose(file);
  ::setenv("QAAISP_REGISTRY", reg.c_str(), 1);
}

const std::string& FolderOf(int64_t count) {
  static std::map<int64_t, std::string> folders;
  auto found = folders.find(count);
  if (found != folders.end()) return found->second;
  const std::string folder = BenchRoot() + "/Folder" + std::to_string(count);
  const std::string done = BenchRoot() + "/Folder" + std::to_string(count) + ".done";
  if (fs::exists(done)) return folders.emplace(count, folder).first->second;
  fs::create_directories(folder);
  MessageMaker maker(static_cast<uint32_t>(count));
  for (int64_t i = 0; i < count; ++i) {
    char name[16];
    std::snprintf(name, sizeof name, "%08X.MAI", static_cast<unsigned>(0x5A000000u + i * 7919));
    const std::string text = maker.Next(static_cast<int>(i));
    FILE* file = std::fopen((folder + "/" + name).c_str(), "wb");
    if (!file || std::fwrite(text.data(), 1, text.size(), file) != text.size()) std::abort();
    std::fclose(file);
  }
  std::fclose(std::fopen(done.c_str(), "wb"));
  return folders.emplace(count, folder).first->second;
}

// Plain-call baselines: every ".MAI" name of the folder, then per file a
// whole read or a stat.
template <typename PerFile>
int64_t EachMessageFile(const std::string& folder, PerFile per_file) {
  DIR* dir = ::opendir(folder.c_str());
  if (!dir) std::abort();
  int64_t files = 0;
  while (dirent* entry = ::readdir(dir)) {
    const std::string name = entry->d_name;
    if (name.size() < 4 || name.compare(name.size() - 4, 4, ".MAI") != 0) continue;
    per_file(folder + "/" + name);
    ++files;
  }
  ::closedir(dir);
  return files;
}

std::map<int64_t, double> g_read_seconds;
std::map<int64_t, double> g_stat_seconds;

double Seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void Report(benchmark::State& state, int64_t count, double seconds) {
  state.SetItemsProcessed(count);
  if (g_read_seconds.count(count)) state.counters["x_read"] = seconds / g_read_seconds[count];
  if (g_stat_seconds.count(count)) state.counters["x_stat"] = seconds / g_stat_seconds[count];
}

void BM_PlainRead(benchmark::State& state) {
  const std::string& folder = FolderOf(state.range(0));
  std::string buffer;
  for (auto _ : state) {
    const double start = Seconds();
    int64_t files = EachMessageFile(folder, [&](const std::string& path) {
      int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
      struct stat info;
      if (fd < 0 || ::fstat(fd, &info) != 0) std::abort();
      buffer.resize(static_cast<size_t>(info.st_size));
      if (::read(fd, buffer.data(), buffer.size()) != info.st_size) std::abort();
      ::close(fd);
    });
    g_read_seconds[state.range(0)] = Seconds() - start;
    benchmark::DoNotOptimize(files);
  }
  state.SetItemsProcessed(state.range(0));
}

void BM_PlainStat(benchmark::State& state) {
  const std::string& folder = FolderOf(state.range(0));
  for (auto _ : state) {
    const double start = Seconds();
    int64_t bytes = 0;
    EachMessageFile(folder, [&](const std::string& path) {
      struct stat info;
      if (::stat(path.c_str(), &info) != 0) std::abort();
      bytes += info.st_size;
    });
    g_stat_seconds[state.range(0)] = Seconds() - start;
    benchmark::DoNotOptimize(bytes);
  }
  state.SetItemsProcessed(state.range(0));
}

void RemoveIndexFiles(const std::string& folder) {
  for (const char* name : {"_index.xml", "_FOLDER.DAT", "_DIRSIZE.TMP", "_CHANGE.DTY"}) {
    ::unlink((folder + "/" + name).c_str());
  }
}

// A rebuild from nothing by the re-scan, as StoreIndex_Scan runs it.
void BM_RebuildFromNothing(benchmark::State& state) {
  const int64_t count = state.range(0);
  const std::string& folder = FolderOf(count);
  qaaisp::WireFolderRescan();
  for (auto _ : state) {
    state.PauseTiming();
    RemoveIndexFiles(folder);
    auto index = std::make_unique<StoreIndex>();
    index->folder_path = folder;
    state.ResumeTiming();
    const double start = Seconds();
    if (qaaisp::ScanStoreIndex(index.get(), 1) != 1 ||
        index->table.size() != static_cast<size_t>(count)) {
      state.SkipWithError("rebuild lost rows");
    }
    Report(state, count, Seconds() - start);
    state.PauseTiming();
    index.reset();  // the rows' teardown is not the rebuild's
    state.ResumeTiming();
  }
}

// The same through the export, which reads any index file first and saves
// the result once more as its own.
void BM_RebuildByExport(benchmark::State& state) {
  const int64_t count = state.range(0);
  const std::string& folder = FolderOf(count);
  for (auto _ : state) {
    state.PauseTiming();
    RemoveIndexFiles(folder);
    state.ResumeTiming();
    const double start = Seconds();
    if (ScanFolders(folder.c_str()) != 1) state.SkipWithError("ScanFolders failed");
    Report(state, count, Seconds() - start);
  }
}

// A re-scan that finds every file in agreement with its row. held keeps the
// rows of the scan before, as an open index does; otherwise each scan loads
// the index file afresh.
void RescanUpToDate(benchmark::State& state, bool held) {
  const int64_t count = state.range(0);
  const std::string& folder = FolderOf(count);
  qaaisp::WireFolderRescan();
  StoreIndex kept;
  kept.folder_path = folder;
  qaaisp::ScanStoreIndex(&kept, 1);  // brings the index up to date
  if (held) qaaisp::ScanStoreIndex(&kept, 1);
  for (auto _ : state) {
    std::unique_ptr<StoreIndex> fresh;
    StoreIndex* index = &kept;
    if (!held) {
      state.PauseTiming();
      fresh = std::make_unique<StoreIndex>();
      fresh->folder_path = folder;
      index = fresh.get();
      state.ResumeTiming();
    }
    const double start = Seconds();
    if (qaaisp::ScanStoreIndex(index, 1) != 1 || index->table.size() != static_cast<size_t>(count))
      state.SkipWithError("re-scan lost rows");
    Report(state, count, Seconds() - start);
    state.PauseTiming();
    fresh.reset();
    state.ResumeTiming();
  }
}
void BM_RescanUpToDateLoading(benchmark::State& state) { RescanUpToDate(state, false); }
void BM_RescanUpToDateHeld(benchmark::State& state) { RescanUpToDate(state, true); }

void Sizes(benchmark::internal::Benchmark* b) {
  b->Arg(1000)->Arg(10000)->Arg(50000)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
}

BENCHMARK(BM_PlainRead)->Apply(Sizes);
BENCHMARK(BM_PlainStat)->Apply(Sizes);
BENCHMARK(BM_RebuildFromNothing)->Apply(Sizes);
BENCHMARK(BM_RebuildByExport)
    ->Arg(50000)
    ->Iterations(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RescanUpToDateLoading)
    ->Arg(50000)
    ->Iterations(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RescanUpToDateHeld)
    ->Arg(50000)
    ->Iterations(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  ChooseStreamMembers();
  // Dates are made local through mktime, which with no TZ set looks at the
  // zone file again for every call; a service runs with its zone named.
  if (!std::getenv("TZ")) ::setenv("TZ", ":/etc/localtime", 1);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::error_code ignored;
  if (!KeepFolders()) fs::remove_all(BenchRoot(), ignored);
  return 0;
}
