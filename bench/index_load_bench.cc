// Loading a folder's index file of 1,000, 10,000 and 100,000 typical message
// rows: in full through the stream reader and through the document member,
// and header only through the stream reader, side by side in one run. The
// stream reader is meant to be well ahead of the document member in full,
// and its header-only load to cost about the same whatever the folder's size.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <string>

#include "index/store_index.h"
#include "persist/index_serialiser.h"
#include "persist/msxml_index_serialiser.h"
#include "persist/stream_index_serialiser.h"
#include "platform/env.h"

namespace qaaisp {
namespace {

std::string Escape(const std::string& s) {
  std::string out;
  for (char c : s) {
    if (c == '&') {
      out += "&amp;";
    } else if (c == '<') {
      out += "&lt;";
    } else if (c == '>') {
      out += "&gt;";
    } else {
      out += c;
    }
  }
  return out;
}

// One message row as header indexing makes it, in the tag order of the file.
std::string RowElement(int n, std::mt19937* rng) {
  auto pick = [&](std::initializer_list<const char*> options) {
    return std::string(options.begin()[(*rng)() % options.size()]);
  };
  char id[64], date[64], msgid[96];
  std::snprintf(id, sizeof id, "2024%04d%06d-%05d.MAI", n % 1231 + 101, n % 235959, n);
  std::snprintf(date, sizeof date, "2024-%02d-%02dT%02d:%02d:%02d", n % 12 + 1, n % 28 + 1, n % 24,
                n % 60, (n * 7) % 60);
  std::snprintf(msgid, sizeof msgid, "<%08x.%d@mail%d.example.com>",
                static_cast<unsigned>((*rng)()), n, n % 17);
  std::map<std::string, std::string> props = {
      {"ATTACHMENTS", std::to_string((*rng)() % 3)},
      {"FLAGSTATUS", pick({"\\Seen", "\\Seen \\Answered", "\\Recent", "\\Flagged"})},
      {"FROM", pick({"Alice Example", "Bob Sample", "Carol Writer"}) + " <user" +
                   std::to_string(n % 977) + "@example.com>"},
      {"IMPORTANCE", "1"},
      {"MSGID", msgid},
      {"READ", "1"},
      {"RECEIVED", date},
      {"SIZE", std::to_string(1200 + (*rng)() % 90000)},
      {"STATE", "0"},
      {"SUBJECT", pick({"Re: quarterly figures & plans", "Meeting moved to Thursday",
                        "Invoice 2024-118 attached", "Fwd: <build> failed on main"}) +
                      " #" + std::to_string(n)},
      {"THREAD", msgid},
      {"TO", "Team List <team" + std::to_string(n % 13) + "@example.org>"},
  };
  std::string s = "<ELEMENT ID=\"" + std::string(id) + "\" UID=\"" + std::to_string(n) + "\">";
  for (const auto& [tag, value] : props) s += "<" + tag + ">" + Escape(value) + "</" + tag + ">";
  return s + "</ELEMENT>";
}

// A folder per size, made once for the run and removed at its end.
class Folders {
 public:
  Folders() {
    root_ = std::filesystem::temp_directory_path() /
            ("qaaisp_index_load_" + std::to_string(platform::Env::Default()->ProcessId()));
  }
  ~Folders() { std::filesystem::remove_all(root_); }

  const std::string& For(int rows) {
    auto it = paths_.find(rows);
    if (it != paths_.end()) return it->second;
    std::filesystem::path dir = root_ / std::to_string(rows);
    std::filesystem::create_directories(dir);
    std::mt19937 rng(rows);
    char header[40];
    std::snprintf(header, sizeof header, "<BASEELEMENT LASTUID=\"x%08x\">", rows);
    std::ofstream out(dir / "_index.xml", std::ios::binary);
    out << header;
    for (int n = 1; n <= rows; ++n) out << RowElement(n, &rng);
    out << "</BASEELEMENT>\r\n";
    return paths_[rows] = dir.string();
  }

 private:
  std::filesystem::path root_;
  std::map<int, std::string> paths_;
};

Folders& TheFolders() {
  static Folders folders;
  return folders;
}

void Load(benchmark::State& state, StoreIndexSerialiser* member, int32_t mode) {
  const int rows = static_cast<int>(state.range(0));
  LoadRequest request;
  request.folder = TheFolders().For(rows);
  request.mode = mode;
  request.quiet = true;
  auto index = std::make_unique<StoreIndex>();
  for (auto _ : state) {
    if (mode == LoadFull) {
      // Each load starts from an empty index; dropping the last one's rows
      // is not part of loading.
      state.PauseTiming();
      index = std::make_unique<StoreIndex>();
      state.ResumeTiming();
    }
    int32_t reached = member->Deserialise(&index->table, request, false);
    if (reached != mode) state.SkipWithError("load failed");
    benchmark::DoNotOptimize(index->table.LastUID);
  }
  state.counters["rows"] = static_cast<double>(index->table.size());
  state.counters["rows/s"] =
      benchmark::Counter(static_cast<double>(rows) * static_cast<double>(state.iterations()),
                         benchmark::Counter::kIsRate);
}

void BM_StreamReaderFull(benchmark::State& state) {
  StreamXMLStoreIndexSerialiser member;
  Load(state, &member, LoadFull);
}

void BM_DocumentMemberFull(benchmark::State& state) {
  MSXMLStoreIndexSerialiser member;
  Load(state, &member, LoadFull);
}

void BM_StreamReaderHeader(benchmark::State& state) {
  StreamXMLStoreIndexSerialiser member;
  Load(state, &member, LoadHeader);
}

BENCHMARK(BM_StreamReaderFull)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DocumentMemberFull)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StreamReaderHeader)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace qaaisp

BENCHMARK_MAIN();
