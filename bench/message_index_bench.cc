// Header indexing of 10,000 generated message files (2 to 20 KB; plain,
// alternative and mixed with attachments; encoded words and folded
// headers), by each reader into a row, beside the time to read the same
// files once with plain whole-file reads. One run each: the figure of
// interest is rows per second against files per second.
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "index/index_item.h"
#include "message/message_index.h"
#include "message/message_properties.h"
#include "platform/env.h"

namespace {

namespace platform = qaaisp::platform;

constexpr int kMessageCount = 10000;

class Generator {
 public:
  explicit Generator(uint32_t seed) : random_(seed) {}

  std::string Message(int n) {
    const size_t target = 2048 + Below(18 * 1024);
    std::string m;
    for (size_t hop = 0, hops = 2 + Below(3); hop < hops; ++hop) {
      m += "Received: from mx" + std::to_string(Below(90)) + ".example.net\r\n\tby mail." +
           "example.org with ESMTPS id " + std::to_string(random_()) +
           "\r\n\tfor <ann@example.org>; Tue, 14 Nov 2023 10:" + std::to_string(10 + Below(50)) +
           ":00 +0000\r\n";
    }
    m += "From: " + std::string(Below(2) ? "=?UTF-8?Q?J=C3=BCrgen_M=C3=BCller?=" : "Ann") +
         " <sender" + std::to_string(Below(1000)) + "@example.net>\r\n";
    m += "To: team@example.org,\r\n =?UTF-8?B?w4lsb2RpZQ==?= <elodie@example.org>\r\n";
    m += "Subject: " +
         std::string(Below(2) ? "=?UTF-8?Q?caf=C3=A9?= =?UTF-8?Q?_report?=" : "Weekly figures") +
         " " + std::to_string(n) + "\r\n";
    m += "Date: Tue, 14 Nov 2023 10:" + std::to_string(10 + Below(50)) + ":33 +0100\r\n";
    m += "Message-ID: <" + std::to_string(random_()) + "@mail.example.net>\r\n";
    m += "X-Priority: " + std::to_string(1 + Below(5)) + "\r\nMIME-Version: 1.0\r\n";
    const std::string boundary = "----=_Part_" + std::to_string(n);
    switch (Below(3)) {
      case 0:
        m += "Content-Type: text/plain; charset=utf-8\r\n\r\n";
        while (m.size() < target) m += Line();
        return m;
      case 1:
        m += "Content-Type: multipart/alternative; boundary=\"" + boundary + "\"\r\n\r\n";
        m += "--" + boundary + "\r\nContent-Type: text/plain\r\n\r\n";
        while (m.size() < target / 2) m += Line();
        m += "\r\n--" + boundary + "\r\nContent-Type: text/html\r\n\r\n<html>";
        while (m.size() < target) m += "<p>" + Line();
        return m + "</html>\r\n--" + boundary + "--\r\n";
      default:
        m += "Content-Type: multipart/mixed; boundary=\"" + boundary + "\"\r\n\r\n";
        m += "--" + boundary + "\r\nContent-Type: text/plain\r\n\r\n" + Line() + Line();
        m += "\r\n--" + boundary +
             "\r\nContent-Type: application/pdf; name=a.pdf\r\nContent-Disposition: attachment;"
             " filename=a.pdf\r\nContent-Transfer-Encoding: base64\r\n\r\n";
        while (m.size() < target) m += std::string(76, 'Q') + "\r\n";
        return m + "--" + boundary + "--\r\n";
    }
  }

 private:
  size_t Below(size_t n) { return static_cast<size_t>(random_() % n); }
  std::string Line() {
    static const char* const kWords[] = {"quarter", "figures", "meeting", "draft", "budget",
                                         "notes",   "agenda",  "review",  "team",  "summary"};
    std::string line;
    while (line.size() < 70) line += std::string(kWords[Below(10)]) + " ";
    return line + "\r\n";
  }

  std::mt19937 random_;
};

// The message files, written once into a temporary folder.
class MessageFolder {
 public:
  MessageFolder() {
    const char* tmp = std::getenv("TMPDIR");
    dir_ = std::filesystem::path(tmp && *tmp ? tmp : "/tmp") /
           ("qaaisp-index-bench-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir_);
    Generator generator(20231114);
    platform::Env* env = platform::Env::Default();
    for (int n = 1; n <= kMessageCount; ++n) {
      const std::string text = generator.Message(n);
      paths_.push_back((dir_ / (std::to_string(n) + ".MAI")).string());
      platform::WriteWholeFileAtomic(env, paths_.back(), text);
      bytes_ += static_cast<int64_t>(text.size());
    }
  }
  ~MessageFolder() {
    std::error_code ec;
    std::filesystem::remove_all(dir_, ec);
  }
  const std::vector<std::string>& paths() const { return paths_; }
  int64_t bytes() const { return bytes_; }

 private:
  std::filesystem::path dir_;
  std::vector<std::string> paths_;
  int64_t bytes_ = 0;
};

MessageFolder& Folder() {
  static MessageFolder folder;
  return folder;
}

void BM_PlainRead(benchmark::State& state) {
  platform::Env* env = platform::Env::Default();
  std::string text;
  for (auto _ : state) {
    for (const std::string& path : Folder().paths()) {
      platform::ReadWholeFile(env, path, &text);
      benchmark::DoNotOptimize(text.data());
    }
  }
  state.SetItemsProcessed(state.iterations() * kMessageCount);
  state.SetBytesProcessed(state.iterations() * Folder().bytes());
}

template <int kNewIndexing>
void BM_IndexIntoRows(benchmark::State& state) {
  qaaisp::MessageHeaderInfo info;
  int64_t rows = 0;
  for (auto _ : state) {
    for (const std::string& path : Folder().paths()) {
      info.Reset();
      info.FileName = path.substr(path.rfind('/') + 1);
      const int read = kNewIndexing
                           ? qaaisp::IndexMessageByMime(path, &info, false, 0)
                           : qaaisp::IndexMessageByLines(path, &info, false, 0,
                                                         qaaisp::kAttachmentsVerified, false);
      if (!read) continue;
      IndexItem row;
      row.Create();
      qaaisp::SetMessageProperties(&row, &info, false);
      ++rows;
    }
  }
  if (rows != state.iterations() * kMessageCount) state.SkipWithError("a message gave no row");
  state.SetItemsProcessed(rows);
  state.SetBytesProcessed(state.iterations() * Folder().bytes());
}

BENCHMARK(BM_PlainRead)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_IndexIntoRows<1>)
    ->Name("BM_IndexByMimeReader")
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_IndexIntoRows<0>)
    ->Name("BM_IndexByLineReader")
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

}  // namespace

// The files are written before any timing starts.
int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  Folder();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
