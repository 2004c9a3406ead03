// Every export through the shared library, fed what a careless or hostile
// caller passes: null pointers, names past the 1023 bytes a store field
// holds, names that climb out with "..", and bytes that are no UTF-8. Each
// call must give its failure result without faulting, and nothing may appear
// outside the mail root.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "base/setting_names.h"
#include "qaaisp/qaaisp.h"
#include "test_env.h"

namespace {

namespace fs = std::filesystem;
using qaaisp::testing::RegText;
using qaaisp::testing::TempDir;
using qaaisp::testing::WriteFile;

// The library picks its settings file once, as it loads, from
// QAAISP_REGISTRY. A run without one names a file of its own and starts
// again, so that the fixture can point the mail root at its temp dir.
const bool kSettingsFileNamed = [] {
  const char* named = std::getenv("QAAISP_REGISTRY");
  if (named && *named) return true;
  const std::string file =
      (fs::temp_directory_path() / ("qaaisp-bad-input-" + std::to_string(::getpid()) + ".reg"))
          .string();
  ::setenv("QAAISP_REGISTRY", file.c_str(), 1);
  std::ifstream in("/proc/self/cmdline", std::ios::binary);
  std::string line((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::vector<char*> args;
  for (size_t at = 0; at < line.size(); at = line.find('\0', at) + 1) args.push_back(&line[at]);
  args.push_back(nullptr);
  ::execv("/proc/self/exe", args.data());
  return false;
}();

// Deep enough that every climb in kBadTexts still lands inside the temp dir,
// where the snapshot sees it.
constexpr int kRootDepth = 10;

std::string MailRootBelow(const std::string& parent) {
  std::string root = parent;
  for (int i = 0; i < kRootDepth; ++i) root += "/d";
  return root + "/root";
}

// Every path under parent except the mail root's own tree.
std::set<std::string> Outside(const std::string& parent, const std::string& root) {
  std::set<std::string> paths;
  std::error_code ec;
  for (auto it = fs::recursive_directory_iterator(parent, ec);
       it != fs::recursive_directory_iterator(); it.increment(ec)) {
    const std::string path = it->path().string();
    if (path == root || path.rfind(root + "/", 0) == 0) {
      it.disable_recursion_pending();
      continue;
    }
    paths.insert(path);
  }
  return paths;
}

const std::string kLong(1100, 'a');
const std::string kLongClimb = [] {
  std::string s;
  while (s.size() < 1030) s += "../";
  return s + "escape";
}();

constexpr const char* kNotUtf8 = "\xff\xfe\x80\xc3(";

// nullptr stands for a null pointer.
const std::vector<const char*> kBadTexts = {
    nullptr,
    kLong.c_str(),
    kLongClimb.c_str(),
    "..",
    "../escape",
    "../../escape",
    "../../../../escape",
    "INBOX/../../../../../../../escape",
    "..\\..\\..\\escape",
    "a/b",
    kNotUtf8,
    "../\xe9t\xe9",
};

std::string Show(const char* text) {
  if (!text) return "(null)";
  std::string s(text);
  if (s.size() > 40) s = s.substr(0, 40) + "...(" + std::to_string(s.size()) + ")";
  return s;
}

constexpr int64_t kVoid = 0x7eadbeef;
// Any result will do: the call has no failure result of its own.
constexpr int64_t kAny = 0x7eadbeee;

struct Call {
  const char* name;
  int64_t expected;
  std::function<int64_t(const char* bad)> run;
  // Item identifiers are bytes compared as they stand, so one that is no
  // UTF-8 is merely absent, and the call answers as for any absent item.
  bool takes_any_bytes = false;
};

class BadInputTest : public ::testing::Test {
 protected:
  BadInputTest() : root_(MailRootBelow(parent_.path())), registry_(std::getenv("QAAISP_REGISTRY")) {
    EXPECT_TRUE(kSettingsFileNamed);
    WriteFile(
        registry_,
        RegText({{qaaisp::settings::kProductKey,
                  {"\"" + std::string(qaaisp::settings::kMailRoot) + "\"=\"" + root_ + "\""}}}));
    // Each fixture's file must look new to the library's change test.
    static int generation = 0;
    fs::last_write_time(registry_,
                        fs::file_time_type::clock::now() + std::chrono::seconds(++generation));
    inbox_ = root_ + "/PO/MAILROOT/user/INBOX";
    WriteFile(inbox_ + "/1.MAI",
              "From: a@example.org\r\nSubject: hi\r\nMessage-ID: <1@x>\r\n\r\nbody\r\n");
    EXPECT_EQ(StoreLibrary_Init(), 1);
    before_ = Outside(parent_.path(), root_);
  }
  ~BadInputTest() override {
    StoreLibrary_UnInit();
    std::error_code ec;
    fs::remove(registry_, ec);
  }

  // A path a caller would name: the inbox with the bad text below it.
  std::string Below(const char* bad) const { return inbox_ + "/" + (bad ? bad : ""); }

  TempDir parent_;
  std::string root_;
  std::string registry_;
  std::string inbox_;
  std::set<std::string> before_;
};

// A fresh index named by the caller's texts, opened the way a C caller does.
int64_t OpenNamed(const char* po, const char* mbox, const char* folder,
                  const std::function<int64_t(StoreIndex*)>& then) {
  StoreIndex* ix = StoreIndex_New();
  if (!ix) return -99;
  StoreIndex_Init(ix);
  int64_t named = StoreIndex_SetNames(ix, po, mbox, folder, 0);
  StoreIndex_SetPaths(ix);
  int64_t result = then(ix);
  StoreIndex_Release(ix);
  StoreIndex_Delete(ix);
  // A refused name is the caller's answer; what follows must still be
  // harmless, which the snapshot checks.
  return named == 1 ? result : 0;
}

TEST_F(BadInputTest, EveryExportRefusesBadTextsAndStaysInsideTheMailRoot) {
  FolderDetails details;
  const FolderDetails ten = {0, 0, 0, 0, 0, 0, 10, 0, 0, 0, 0, 10, 0};
  QA_HANDLE handle = nullptr;
  MessageSummaryRecord summary;
  char cut[16];

  auto zeroed = [](const FolderDetails& d) {
    static const FolderDetails zero{};
    return std::memcmp(&d, &zero, sizeof d) == 0;
  };
  auto open_inbox = [](const std::function<int64_t(StoreIndex*)>& then) {
    return OpenNamed("PO", "user", "INBOX", [&](StoreIndex* ix) {
      const int opened = StoreIndex_Open(ix, 1);
      return opened == 1 || opened == 2 ? then(ix) : -98;
    });
  };

  const std::vector<Call> calls = {
      // Names of an index, then each call that works through one.
      {"SetNames+Open po", 0,
       [](const char* b) {
         return OpenNamed(b, "user", "INBOX",
                          [](StoreIndex* ix) { return StoreIndex_Open(ix, 1); });
       }},
      {"SetNames+Open mbox", 0,
       [](const char* b) {
         return OpenNamed("PO", b, "INBOX", [](StoreIndex* ix) { return StoreIndex_Open(ix, 1); });
       }},
      {"SetNames+Open folder", 0,
       [](const char* b) {
         return OpenNamed("PO", "user", b, [](StoreIndex* ix) { return StoreIndex_Open(ix, 5); });
       }},
      {"SetNames+Save po", 0,
       [](const char* b) {
         return OpenNamed(b, "user", "INBOX", [](StoreIndex* ix) { return StoreIndex_Save(ix); });
       }},
      {"SetNames+Save folder", 0,
       [](const char* b) {
         return OpenNamed("PO", "user", b, [](StoreIndex* ix) { return StoreIndex_Save(ix); });
       }},
      {"SetNames+Scan mbox", kAny,
       [](const char* b) {
         return OpenNamed("PO", b, "INBOX", [](StoreIndex* ix) { return StoreIndex_Scan(ix); });
       }},
      {"StoreIndex_InsertItem", 0,
       [&](const char* b) {
         return open_inbox([&](StoreIndex* ix) { return StoreIndex_InsertItem(ix, b, 0); });
       }},
      {"StoreIndex_RemoveItem", kAny,
       [&](const char* b) {
         return open_inbox([&](StoreIndex* ix) { return StoreIndex_RemoveItem(ix, b); });
       }},
      {"GetStoreItemByMessageID", 0,
       [&](const char* b) {
         std::memset(&summary, 0, sizeof summary);
         return open_inbox([&](StoreIndex* ix) {
           return GetStoreItemByMessageID(ix, b, 0, &summary) + summary.UID;
         });
       }},
      // The one-call services, each text in turn.
      {"Direct insert po", 0,
       [](const char* b) {
         return Direct_StoreIndex_InsertItemEx(b, "user", "INBOX", "1.MAI", "SEEN");
       }},
      {"Direct insert mbox", 0,
       [](const char* b) { return Direct_StoreIndex_InsertItem("PO", b, "INBOX", "1.MAI"); }},
      {"Direct insert folder", 0,
       [](const char* b) { return Direct_StoreIndex_InsertItem("PO", "user", b, "1.MAI"); }},
      {"Direct insert file", 0,
       [](const char* b) {
         return Direct_StoreIndex_InsertItemEx("PO", "user", "INBOX", b, "SEEN");
       }},
      {"Direct update po", 0,
       [](const char* b) {
         return Direct_StoreIndex_UpdateItem(b, "user", "INBOX", "1.MAI", "SEEN");
       }},
      {"Direct update folder", 0,
       [](const char* b) {
         return Direct_StoreIndex_UpdateItem("PO", "user", b, "1.MAI", "SEEN");
       }},
      {"Direct update ids", 0,
       [](const char* b) { return Direct_StoreIndex_UpdateItem("PO", "user", "INBOX", b, "SEEN"); },
       true},
      {"Direct remove mbox", 0,
       [](const char* b) { return Direct_StoreIndex_RemoveItem("PO", b, "INBOX", "1.MAI"); }},
      {"Direct remove folder", 0,
       [](const char* b) { return Direct_StoreIndex_RemoveItem("PO", "user", b, "1.MAI"); }},
      {"Direct remove ids", 0,
       [](const char* b) { return Direct_StoreIndex_RemoveItem("PO", "user", "INBOX", b); }, true},
      // The status cache: a refused name reads as zeros and writes nothing.
      {"GetCachedStatus po", 1,
       [&](const char* b) {
         std::memset(&details, 0x55, sizeof details);
         GetCachedStatus(b, "user", "INBOX", &details);
         return static_cast<int64_t>(zeroed(details));
       }},
      {"GetCachedStatus folder", 1,
       [&](const char* b) {
         std::memset(&details, 0x55, sizeof details);
         GetCachedStatus("PO", "user", b, &details);
         return static_cast<int64_t>(zeroed(details));
       }},
      {"SetCachedStatus po", kVoid,
       [&](const char* b) {
         SetCachedStatus(b, "user", "INBOX", &ten);
         return kVoid;
       }},
      {"SetCachedStatus mbox", kVoid,
       [&](const char* b) {
         SetCachedStatus("PO", b, "INBOX", &ten);
         return kVoid;
       }},
      {"SetCachedStatus folder", kVoid,
       [&](const char* b) {
         SetCachedStatus("PO", "user", b, &ten);
         return kVoid;
       }},
      // Calls on a path the caller names in full.
      {"WaitForAccessToIndexFileEx", 0,
       [&](const char* b) {
         handle = nullptr;
         return WaitForAccessToIndexFileEx(b ? (Below(b) + "/_index.blk").c_str() : nullptr, 1,
                                           &handle);
       }},
      {"UnBlockIndexFileAccessEx", 0,
       [&](const char* b) {
         handle = nullptr;
         return UnBlockIndexFileAccessEx(b ? (Below(b) + "/_index.blk").c_str() : nullptr, 1,
                                         &handle);
       }},
      {"ScanFolders", 0,
       [&](const char* b) { return ScanFolders(b ? Below(b).c_str() : nullptr); }},
      {"GetXMLDataEx text", 0,
       [&](const char* b) { return GetXMLDataEx(b, "<a>", "</a>", cut, sizeof cut) != nullptr; }},
  };

  // One list of every miss, so a regression shows as a table.
  std::string misses;
  for (const Call& call : calls) {
    for (const char* bad : kBadTexts) {
      const int64_t result = call.run(bad);
      const bool any = call.expected == kAny || (call.takes_any_bytes && bad == kNotUtf8);
      if (result != call.expected && !any) {
        misses += std::string(call.name) + " with " + Show(bad) + " gave " +
                  std::to_string(result) + "\n";
      }
      const std::set<std::string> after = Outside(parent_.path(), root_);
      if (after != before_) {
        for (const std::string& path : after) {
          if (!before_.count(path)) misses += std::string(call.name) + " made " + path + "\n";
        }
        before_ = after;
      }
    }
  }
  EXPECT_EQ(misses, "");
}

TEST_F(BadInputTest, NullObjectsAndRecordsGiveTheFailureResult) {
  EXPECT_EQ(StoreIndex_SetPaths(nullptr), 0);
  EXPECT_EQ(StoreIndex_Init(nullptr), 0);
  EXPECT_EQ(StoreIndex_Open(nullptr, 1), 0);
  EXPECT_EQ(StoreIndex_Get(nullptr), 0);
  EXPECT_EQ(StoreIndex_Scan(nullptr), 0);
  EXPECT_EQ(StoreIndex_Close(nullptr), 0);
  EXPECT_EQ(StoreIndex_Release(nullptr), 0);
  EXPECT_EQ(StoreIndex_Save(nullptr), 0);
  EXPECT_EQ(StoreIndex_InsertItem(nullptr, "1.MAI", 0), 0);
  EXPECT_EQ(StoreIndex_RemoveItem(nullptr, "1.MAI"), 0);
  EXPECT_EQ(GetStoreItemByMessageID(nullptr, "1.MAI", 0, nullptr), 0);
  EXPECT_EQ(StoreIndex_SetNames(nullptr, "PO", "user", "INBOX", 0), 0);
  EXPECT_EQ(StoreIndex_GetRowCount(nullptr), 0);
  StoreIndex_Delete(nullptr);
  IndexItem_Delete(nullptr);
  GetCachedStatus("PO", "user", "INBOX", nullptr);
  SetCachedStatus("PO", "user", "INBOX", nullptr);
  EXPECT_EQ(WaitForAccessToIndexFileEx((inbox_ + "/_index.blk").c_str(), 1, nullptr), 0);
  EXPECT_EQ(UnixTimeToFileTime(0, nullptr), 1);
  EXPECT_EQ(GetXMLDataEx("<a>x</a>", nullptr, nullptr, nullptr, 0), nullptr);
  const char* text = "<a>x</a>";
  EXPECT_EQ(GetXMLDataEx(text, "<a>", "</a>", nullptr, 0), text + 8);
  EXPECT_EQ(Memory_Free(nullptr), 1);
  EXPECT_EQ(SetLoggingFunction(nullptr, nullptr, nullptr, nullptr), 0);

  // An open index, asked with a null record, still answers and keeps its row.
  StoreIndex* ix = StoreIndex_New();
  ASSERT_NE(ix, nullptr);
  StoreIndex_Init(ix);
  ASSERT_EQ(StoreIndex_SetNames(ix, "PO", "user", "INBOX", 0), 1);
  StoreIndex_SetPaths(ix);
  EXPECT_EQ(StoreIndex_Open(ix, 1), 1);
  EXPECT_EQ(StoreIndex_GetRowCount(ix), 1);
  GetStoreItemByMessageID(ix, "1.MAI", 0, nullptr);
  EXPECT_EQ(StoreIndex_InsertItem(ix, nullptr, 0), 0);
  EXPECT_EQ(StoreIndex_RemoveItem(ix, nullptr), 0);
  EXPECT_EQ(StoreIndex_GetRowCount(ix), 1);
  EXPECT_EQ(StoreIndex_Release(ix), 1);
  StoreIndex_Delete(ix);
  EXPECT_EQ(Outside(parent_.path(), root_), before_);
}

}  // namespace
