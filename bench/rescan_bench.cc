// The folder re-scan over folders of 1,000, 10,000 and 50,000 messages
// from the sample store generator (plain, alternative, with attachments,
// invitations, list mail, forwards, legacy 8-bit): a rebuild from nothing,
// and a re-scan of a folder whose index is up to date (with a fresh load of
// the index, and with the rows still held from the last scan, as an open
// index keeps them). Beside each stands the time to read, or to stat, the
// same files with plain calls; the counters "x_read" and "x_stat" give the
// ratio to those, and "user_ms" and "sys_ms" the processor time the process
// spent meanwhile on all its threads. One run each: every rebuild must start from nothing, and
// the figures are seconds long.
//
// A scan reads new files on helper threads, one fewer than the processors
// (the counter "helpers"), and lists the folder on one while the index
// loads; the plain baselines use one thread.
//
// The stream reader and writer are chosen through a registry file of the
// benchmark's own. The folders go to a fresh directory under $TMPDIR (or
// /tmp), removed at the end; QAAISP_BENCH_DIR names a directory where they
// are kept instead, and found again by later runs, since writing 61,000
// files takes minutes on some disks.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "index/store_index.h"
#include "message/folder_rescan.h"
#include "message/parse_ahead.h"
#include "platform/env.h"
#include "qaaisp/qaaisp.h"
#include "store/rescan_wiring.h"
#include "storegen/message_generator.h"
#include "storegen/store_generator.h"

namespace {

namespace fs = std::filesystem;

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
  const uint32_t seed = static_cast<uint32_t>(count);
  qaaisp::storegen::MessageGenerator generator(seed);
  for (int64_t i = 0; i < count; ++i) {
    const std::string name = qaaisp::storegen::MessageFileName(seed, static_cast<uint32_t>(i + 1));
    const std::string text = generator.Next().text;
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

// Processor time of the whole process, all threads, in user and kernel
// mode: on a shared machine it moves less than the wall clock, and it says
// where a change went.
struct ProcessorTime {
  double user = 0;
  double kernel = 0;
  static ProcessorTime Now() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& t) { return t.tv_sec + t.tv_usec / 1e6; };
    return {seconds(usage.ru_utime), seconds(usage.ru_stime)};
  }
  void ReportSince(benchmark::State& state, const ProcessorTime& start) const {
    state.counters["user_ms"] = (user - start.user) * 1000;
    state.counters["sys_ms"] = (kernel - start.kernel) * 1000;
  }
};

void Report(benchmark::State& state, int64_t count, double seconds) {
  state.SetItemsProcessed(count);
  state.counters["helpers"] = qaaisp::ParseAhead::HelperCount();
  if (g_read_seconds.count(count)) state.counters["x_read"] = seconds / g_read_seconds[count];
  if (g_stat_seconds.count(count)) state.counters["x_stat"] = seconds / g_stat_seconds[count];
}

void BM_PlainRead(benchmark::State& state) {
  const std::string& folder = FolderOf(state.range(0));
  std::string buffer;
  const auto read_all = [&] {
    return EachMessageFile(folder, [&](const std::string& path) {
      int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
      struct stat info;
      if (fd < 0 || ::fstat(fd, &info) != 0) std::abort();
      buffer.resize(static_cast<size_t>(info.st_size));
      if (::read(fd, buffer.data(), buffer.size()) != info.st_size) std::abort();
      ::close(fd);
    });
  };
  // An untimed pass first brings the files into the page cache, so that
  // the timed one reads them from there, as the rebuild after it does.
  read_all();
  for (auto _ : state) {
    const double start = Seconds();
    const ProcessorTime cpu_start = ProcessorTime::Now();
    const int64_t files = read_all();
    g_read_seconds[state.range(0)] = Seconds() - start;
    ProcessorTime::Now().ReportSince(state, cpu_start);
    benchmark::DoNotOptimize(files);
  }
  state.SetItemsProcessed(state.range(0));
}

void BM_PlainStat(benchmark::State& state) {
  const std::string& folder = FolderOf(state.range(0));
  for (auto _ : state) {
    const double start = Seconds();
    const ProcessorTime cpu_start = ProcessorTime::Now();
    int64_t bytes = 0;
    EachMessageFile(folder, [&](const std::string& path) {
      struct stat info;
      if (::stat(path.c_str(), &info) != 0) std::abort();
      bytes += info.st_size;
    });
    g_stat_seconds[state.range(0)] = Seconds() - start;
    ProcessorTime::Now().ReportSince(state, cpu_start);
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
    const ProcessorTime cpu_start = ProcessorTime::Now();
    if (qaaisp::ScanStoreIndex(index.get(), 1) != 1 ||
        index->table.size() != static_cast<size_t>(count)) {
      state.SkipWithError("rebuild lost rows");
    }
    Report(state, count, Seconds() - start);
    ProcessorTime::Now().ReportSince(state, cpu_start);
    state.PauseTiming();
    index.reset();  // the rows' teardown is not the rebuild's
    state.ResumeTiming();
  }
}

// Counts the time asked for in sleeps, which are still taken, and reads
// whole files as the real Env does rather than by the wrapper's way.
class SleepCountingEnv : public qaaisp::platform::EnvWrapper {
 public:
  using EnvWrapper::EnvWrapper;
  void SleepMs(uint32_t ms) override {
    slept_ms_ += ms;
    EnvWrapper::SleepMs(ms);
  }
  bool ReadFileWhole(const std::string& path, qaaisp::platform::ShareMode share,
                     qaaisp::platform::ReadBuffer* out, qaaisp::platform::FileInfo* info) override {
    return target()->ReadFileWhole(path, share, out, info);
  }
  // Files are read as by the real Env, helper threads included.
  bool TakesConcurrentCalls() override { return target()->TakesConcurrentCalls(); }
  uint64_t slept_ms() const { return slept_ms_.load(); }

 private:
  std::atomic<uint64_t> slept_ms_{0};
};

// The same through the export, which looks for an index file to merge
// first. With none there, that look waits out its retries (ten sleeps of
// 200 ms) before the scan starts: "slept_ms" gives the time so spent, and
// "x_read_awake" the ratio to the plain read without it.
void BM_RebuildByExport(benchmark::State& state) {
  const int64_t count = state.range(0);
  const std::string& folder = FolderOf(count);
  qaaisp::platform::Env* real = qaaisp::platform::Env::Default();
  SleepCountingEnv counting(real);
  qaaisp::platform::Env::SetDefaultForTesting(&counting);
  for (auto _ : state) {
    state.PauseTiming();
    RemoveIndexFiles(folder);
    const uint64_t slept_before = counting.slept_ms();
    state.ResumeTiming();
    const double start = Seconds();
    if (ScanFolders(folder.c_str()) != 1) state.SkipWithError("ScanFolders failed");
    const double seconds = Seconds() - start;
    Report(state, count, seconds);
    const double slept = static_cast<double>(counting.slept_ms() - slept_before) / 1000;
    state.counters["slept_ms"] = slept * 1000;
    if (g_read_seconds.count(count)) {
      state.counters["x_read_awake"] = (seconds - slept) / g_read_seconds[count];
    }
  }
  qaaisp::platform::Env::SetDefaultForTesting(nullptr);
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
    const ProcessorTime cpu_start = ProcessorTime::Now();
    if (qaaisp::ScanStoreIndex(index, 1) != 1 || index->table.size() != static_cast<size_t>(count))
      state.SkipWithError("re-scan lost rows");
    Report(state, count, Seconds() - start);
    ProcessorTime::Now().ReportSince(state, cpu_start);
    state.PauseTiming();
    fresh.reset();
    state.ResumeTiming();
  }
}
void BM_RescanUpToDateLoading(benchmark::State& state) { RescanUpToDate(state, false); }
void BM_RescanUpToDateHeld(benchmark::State& state) { RescanUpToDate(state, true); }

void OneRun(benchmark::internal::Benchmark* b) {
  b->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
}

// Each size's plain read and stat run just before its rebuild, so that
// both find the same files in the page cache: reading the other sizes in
// between could push part of a large folder out on a machine with little
// cache to spare, and the rebuild would then wait on the disk.
const bool g_registered = [] {
  for (int64_t count : {1000, 10000, 50000}) {
    benchmark::RegisterBenchmark("BM_PlainRead", BM_PlainRead)->Arg(count)->Apply(OneRun);
    benchmark::RegisterBenchmark("BM_PlainStat", BM_PlainStat)->Arg(count)->Apply(OneRun);
    benchmark::RegisterBenchmark("BM_RebuildFromNothing", BM_RebuildFromNothing)
        ->Arg(count)
        ->Apply(OneRun);
  }
  benchmark::RegisterBenchmark("BM_RebuildByExport", BM_RebuildByExport)->Arg(50000)->Apply(OneRun);
  benchmark::RegisterBenchmark("BM_RescanUpToDateLoading", BM_RescanUpToDateLoading)
      ->Arg(50000)
      ->Apply(OneRun);
  benchmark::RegisterBenchmark("BM_RescanUpToDateHeld", BM_RescanUpToDateHeld)
      ->Arg(50000)
      ->Apply(OneRun);
  return true;
}();

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
