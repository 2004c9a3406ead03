// The one-call transactions of delivery and protocol services on folders of
// 1,000 and 50,000 rows, through the stream reader and writer: one delivery,
// one flag change on the oldest and on the newest row, and one removal.
//
// A delivery loads only the header and appends one element, so its cost
// must not grow with the folder; a flag change loads only its row and
// rewrites from that row on, so on the oldest row it costs a pass over the
// file.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "base/library_settings.h"
#include "platform/registry.h"
#include "qaaisp/qaaisp.h"

namespace {

namespace fs = std::filesystem;

std::string& Root() {
  static std::string root = [] {
    std::string tmpl = (fs::temp_directory_path() / "qaaisp-direct-bench-XXXXXX").string();
    if (!::mkdtemp(tmpl.data())) std::abort();
    return tmpl;
  }();
  return root;
}

void WriteText(const std::string& path, const std::string& text) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
}

// The settings that choose the stream reader and writer, before anything
// reads them.
void UseStreamMembers() {
  std::string reg = Root() + "/settings.reg";
  WriteText(reg,
            "Windows Registry Editor Version 5.00\r\n\r\n"
            "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Wow6432Node\\Quill Arbor\\Quill Arbor]\r\n"
            "\"Use XML Stream Index Deserialisation\"=dword:00000001\r\n"
            "\"Use XML Stream Index Serialisation\"=dword:00000001\r\n\r\n");
  qaaisp::platform::Registry::ResetProcessForTesting({reg});
  qaaisp::ModuleSettings().mail_root = Root();
}

std::string MessageFileName(int n) { return std::to_string(1000000 + n) + ".MAI"; }

// A folder of rows as a mail server keeps them, in the exact stream form.
std::string IndexText(int rows) {
  std::string text;
  text.reserve(static_cast<size_t>(rows) * 420 + 64);
  char header[40];
  std::snprintf(header, sizeof header, "<BASEELEMENT LASTUID=\"x%08x\">", rows);
  text += header;
  for (int uid = 1; uid <= rows; ++uid) {
    char row[512];
    std::snprintf(row, sizeof row,
                  "<ELEMENT ID=\"%s\" UID=\"%d\"><ATTACHMENTS>0</ATTACHMENTS>"
                  "<CLASS>IPM.Note</CLASS><FLAGSTATUS>\\Recent</FLAGSTATUS>"
                  "<FROM>Sender %d &lt;sender%d@example.org&gt;</FROM><IMPORTANCE>3</IMPORTANCE>"
                  "<MESSAGEDATE>2024-03-%02dT10:%02d:00</MESSAGEDATE>"
                  "<MODIFIEDDATE>1710000000</MODIFIEDDATE><READ>0</READ>"
                  "<RECEIVED>2024-03-%02dT10:%02d:05</RECEIVED><SIZE>%d</SIZE><STATE>0</STATE>"
                  "<SUBJECT>Quarterly figures, part %d</SUBJECT>"
                  "<TO>recipient@example.org</TO></ELEMENT>",
                  MessageFileName(uid).c_str(), uid, uid % 97, uid % 97, uid % 28 + 1, uid % 60,
                  uid % 28 + 1, uid % 60, 2000 + uid % 50000, uid);
    text += row;
  }
  text += "</BASEELEMENT>\r\n";
  return text;
}

// A fresh mailbox with one folder of that many rows; gives the mailbox name.
std::string MakeFolder(const std::string& name, int rows) {
  std::string mailbox = name + "_" + std::to_string(rows);
  std::string folder = Root() + "/po/MAILROOT/" + mailbox + "/Inbox";
  WriteText(folder + "/_index.xml", IndexText(rows));
  WriteText(Root() + "/po/MAILROOT/" + mailbox + "/_DIRSIZE.TMP", "1000");
  return mailbox;
}

void BM_Delivery(benchmark::State& state) {
  const int rows = static_cast<int>(state.range(0));
  const std::string mailbox = MakeFolder("deliver", rows);
  const std::string folder = Root() + "/po/MAILROOT/" + mailbox + "/Inbox/";
  const std::string message(3000, 'm');
  int next = rows;
  for (auto _ : state) {
    state.PauseTiming();
    std::string name = MessageFileName(++next);
    WriteText(folder + name, message);
    state.ResumeTiming();
    if (Direct_StoreIndex_InsertItem("po", mailbox.c_str(), "Inbox", name.c_str()) != 1) {
      state.SkipWithError("delivery failed");
      break;
    }
  }
  state.counters["rows"] = rows;
}

void FlagChange(benchmark::State& state, bool oldest) {
  const int rows = static_cast<int>(state.range(0));
  const std::string mailbox = MakeFolder(oldest ? "flag_oldest" : "flag_newest", rows);
  const std::string id = MessageFileName(oldest ? 1 : rows);
  bool seen = false;
  for (auto _ : state) {
    seen = !seen;
    if (Direct_StoreIndex_UpdateItem("po", mailbox.c_str(), "Inbox", id.c_str(),
                                     seen ? "+\\Seen" : "-\\Seen") != 1) {
      state.SkipWithError("flag change failed");
      break;
    }
  }
  state.counters["rows"] = rows;
}
void BM_FlagChangeOldest(benchmark::State& state) { FlagChange(state, true); }
void BM_FlagChangeNewest(benchmark::State& state) { FlagChange(state, false); }

void BM_Removal(benchmark::State& state) {
  const int rows = static_cast<int>(state.range(0));
  const std::string mailbox = MakeFolder("remove", rows);
  // From the middle on, one row a call, as an expunge of single messages.
  int next = rows / 2;
  for (auto _ : state) {
    std::string id = MessageFileName(++next);
    if (Direct_StoreIndex_RemoveItem("po", mailbox.c_str(), "Inbox", id.c_str()) != 1) {
      state.SkipWithError("removal failed");
      break;
    }
  }
  state.counters["rows"] = rows;
}

// Few enough calls that no folder changes much in size while it is measured,
// and no removal run reaches the tombstone count that forces a rewrite.
BENCHMARK(BM_Delivery)->Arg(1000)->Arg(50000)->Iterations(300)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FlagChangeOldest)
    ->Arg(1000)
    ->Arg(50000)
    ->Iterations(30)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FlagChangeNewest)
    ->Arg(1000)
    ->Arg(50000)
    ->Iterations(30)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Removal)->Arg(1000)->Arg(50000)->Iterations(200)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  UseStreamMembers();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::error_code ec;
  fs::remove_all(Root(), ec);
  return 0;
}
