// qastore end to end: the real binary over a generated store in a temporary
// mail root, its output parsed as a script would parse it.
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "platform/env.h"
#include "storegen/message_generator.h"
#include "storegen/store_generator.h"
#include "test_env.h"

extern char** environ;

namespace qaaisp::qastore {
namespace {

using Json = nlohmann::ordered_json;
using testing::Exists;
using testing::ReadFile;
using testing::TempDir;
using testing::WriteFile;

struct ToolRun {
  int exit_code = -1;
  std::string out;
  std::string err;
  Json json() const { return Json::parse(out); }
};

// Runs qastore with args, collecting both output streams whole.
ToolRun Qastore(const std::vector<std::string>& args) {
  int out_pipe[2];
  int err_pipe[2];
  if (::pipe2(out_pipe, O_CLOEXEC) != 0 || ::pipe2(err_pipe, O_CLOEXEC) != 0) std::abort();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, out_pipe[1], 1);
  posix_spawn_file_actions_adddup2(&actions, err_pipe[1], 2);
  const pid_t pid = testing::SpawnWithActions(
      QASTORE_BINARY, args, testing::EnvironmentWith({"QAAISP_REGISTRY="}), &actions);
  if (pid <= 0) std::abort();
  posix_spawn_file_actions_destroy(&actions);
  ::close(out_pipe[1]);
  ::close(err_pipe[1]);
  ToolRun run;
  pollfd fds[2] = {{out_pipe[0], POLLIN, 0}, {err_pipe[0], POLLIN, 0}};
  std::string* sinks[2] = {&run.out, &run.err};
  int open_streams = 2;
  while (open_streams > 0) {
    if (::poll(fds, 2, -1) < 0) break;
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || fds[i].revents == 0) continue;
      char buffer[65536];
      const ssize_t n = ::read(fds[i].fd, buffer, sizeof buffer);
      if (n > 0) {
        sinks[i]->append(buffer, static_cast<size_t>(n));
      } else {
        ::close(fds[i].fd);
        fds[i].fd = -1;
        --open_streams;
      }
    }
  }
  int status = 0;
  ::waitpid(pid, &status, 0);
  run.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

class QastoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    storegen::StorePlan plan;
    plan.root = root_.path();
    plan.postoffice = "example.com";
    plan.mailboxes = {"anna", "ben"};
    plan.messages = 80;
    plan.seed = 7;
    storegen::StoreReport report;
    std::string error;
    ASSERT_TRUE(storegen::GenerateStore(platform::Env::Default(), plan, &report, &error)) << error;
    messages_ = report.messages;
  }

  ToolRun Tool(std::vector<std::string> args) {
    args.insert(args.begin(), {"--root", root_.path(), "--progress", "none"});
    return Qastore(args);
  }
  std::string Inbox(const std::string& mailbox = "anna") {
    return root_.Sub("example.com/MAILROOT/" + mailbox + "/INBOX");
  }
  std::vector<std::string> InboxIds() {
    std::vector<std::string> ids;
    for (const Json& row : Tool({"list", "-p", "example.com", "-m", "anna", "-f", "json"}).json()) {
      ids.push_back(row["ID"].get<std::string>());
    }
    return ids;
  }

  TempDir root_;
  uint32_t messages_ = 0;
};

TEST_F(QastoreTest, RebuildListDeliverFlagVerifyAndDump) {
  // A store of files without indexes differs from what its indexes say.
  ToolRun before = Tool({"verify", "-p", "example.com", "-f", "json", "--skip-flags"});
  EXPECT_EQ(before.exit_code, 1) << before.err;
  EXPECT_EQ(before.json()[0]["finding"], "missing index");

  ToolRun rebuild = Tool({"rebuild", "-p", "example.com", "-f", "json"});
  ASSERT_EQ(rebuild.exit_code, 0) << rebuild.out << rebuild.err;
  size_t rows = 0;
  for (const Json& folder : rebuild.json()) {
    EXPECT_EQ(folder["result"], "rebuilt") << folder.dump();
    rows += folder["rows"].get<size_t>();
  }
  EXPECT_EQ(rows, messages_);
  EXPECT_EQ(Tool({"verify", "-p", "example.com"}).exit_code, 0);

  ToolRun list = Tool({"list", "-p", "example.com", "-m", "anna", "-f", "json"});
  ASSERT_EQ(list.exit_code, 0) << list.err;
  const Json listed = list.json();
  ASSERT_TRUE(listed.is_array());
  uint32_t last_uid = 0;
  for (const Json& row : listed) {
    EXPECT_TRUE(Exists(Inbox() + "/" + row["ID"].get<std::string>()));
    EXPECT_GT(row["UID"].get<uint32_t>(), last_uid) << "rows come in UID order";
    last_uid = row["UID"].get<uint32_t>();
    EXPECT_FALSE(row["FLAGSTATUS"].get<std::string>().empty());
  }

  // A delivery takes the next UID and the flags it was given.
  const std::string message = root_.Sub("new.eml");
  storegen::MessageGenerator generator(99);
  WriteFile(message, generator.Next(storegen::MessageKind::kMixed).text);
  ToolRun deliver = Tool(
      {"deliver", "-p", "example.com", "-m", "anna", "--flags", "\\Seen", "-f", "json", message});
  ASSERT_EQ(deliver.exit_code, 0) << deliver.out << deliver.err;
  const Json delivered = deliver.json()[0];
  ASSERT_EQ(delivered["result"], "delivered");
  EXPECT_EQ(delivered["uid"].get<uint32_t>(), last_uid + 1);
  const std::string id = delivered["id"].get<std::string>();
  EXPECT_EQ(ReadFile(Inbox() + "/" + id), ReadFile(message));

  ToolRun flag =
      Tool({"flag", "-p", "example.com", "-m", "anna", "--add", "Flagged", "-f", "json", id});
  ASSERT_EQ(flag.exit_code, 0) << flag.err;
  const std::string flags = flag.json()[0]["after"].get<std::string>();
  EXPECT_NE(flags.find("\\Flagged"), std::string::npos) << flags;
  EXPECT_NE(flags.find("\\Seen"), std::string::npos) << flags;

  // A server's open loads once, then keeps the rows while the file stands.
  ToolRun open = Tool({"open", "-p", "example.com", "-m", "anna", "--times", "3", "-f", "json"});
  ASSERT_EQ(open.exit_code, 0) << open.err;
  EXPECT_EQ(open.json()[0]["result"], "loaded");
  EXPECT_EQ(open.json()[2]["result"], "cached");
  EXPECT_EQ(open.json()[2]["rows"].get<size_t>(), listed.size() + 1);

  // Consistent again; the flag lives only in the index and is reported so.
  ToolRun verify = Tool({"verify", "-p", "example.com", "-m", "anna", "-f", "json"});
  EXPECT_EQ(verify.exit_code, 0) << verify.out;
  bool at_risk = false;
  for (const Json& f : verify.json()) {
    EXPECT_EQ(f["finding"], "flags at risk") << f.dump();
    if (f["item"] == id)
      at_risk = f["detail"].get<std::string>().find("\\Flagged") != std::string::npos;
  }
  EXPECT_TRUE(at_risk);

  ToolRun status = Tool({"status", "-p", "example.com", "-m", "anna", "-f", "json"});
  ASSERT_EQ(status.exit_code, 0);
  EXPECT_EQ(status.json()["messages"].get<size_t>(), listed.size() + 1);
  EXPECT_EQ(status.json()["cached_messages"], status.json()["messages"]);
  EXPECT_EQ(status.json()["last_uid"].get<uint32_t>(), last_uid + 1);

  ToolRun dump = Tool({"dump", "-f", "json", Inbox() + "/_index.xml", Inbox() + "/_FOLDER.DAT"});
  ASSERT_EQ(dump.exit_code, 0) << dump.err;
  const Json dumped = dump.json();
  EXPECT_EQ(dumped[0]["rows"].size(), listed.size() + 1);
  EXPECT_EQ(dumped[0]["last_uid"].get<uint32_t>(), last_uid + 1);
  EXPECT_TRUE(dumped[0]["fault"].get<std::string>().empty());
  EXPECT_EQ(dumped[1]["total"].get<size_t>(), listed.size() + 1);
  for (const Json& row : dumped[0]["rows"]) EXPECT_GT(row["FileOffset"].get<int64_t>(), 0);
}

TEST_F(QastoreTest, VerifyFindsAFileRemovedBehindTheIndexAndDryRunsWriteNothing) {
  ASSERT_EQ(Tool({"rebuild", "-p", "example.com", "-m", "anna"}).exit_code, 0);
  const std::vector<std::string> ids = InboxIds();
  ASSERT_GE(ids.size(), 3u);
  ASSERT_EQ(::unlink((Inbox() + "/" + ids[1]).c_str()), 0);

  ToolRun verify = Tool(
      {"verify", "-p", "example.com", "-m", "anna", "-F", "INBOX", "-f", "json", "--skip-flags"});
  EXPECT_EQ(verify.exit_code, 1);
  ASSERT_EQ(verify.json().size(), 1u) << verify.out;
  EXPECT_EQ(verify.json()[0]["finding"], "missing file");
  EXPECT_EQ(verify.json()[0]["item"], ids[1]);

  // Every changing command's dry run leaves every byte and time alone.
  auto snapshot = [&] {
    std::vector<std::string> state;
    for (const char* name : {"_index.xml", "_FOLDER.DAT", "_CHANGE.DTY", "_index.blk"}) {
      const std::string path = Inbox() + "/" + name;
      struct stat st {};
      const bool there = ::stat(path.c_str(), &st) == 0;
      state.push_back(there ? ReadFile(path) + "@" + std::to_string(st.st_mtim.tv_nsec) : "-");
    }
    state.push_back(Exists(Inbox() + "/" + ids[0]) ? "present" : "gone");
    return state;
  };
  const auto state = snapshot();
  ToolRun rescan =
      Tool({"rescan", "-p", "example.com", "-m", "anna", "-F", "INBOX", "--dry-run", "-f", "json"});
  EXPECT_EQ(rescan.exit_code, 0);
  EXPECT_EQ(rescan.json()[0]["dropped_rows"], 1);
  EXPECT_EQ(Tool({"rebuild", "-p", "example.com", "--from-files", "--dry-run"}).exit_code, 0);
  EXPECT_EQ(Tool({"remove", "-p", "example.com", "-m", "anna", "--dry-run", ids[0]}).exit_code, 0);
  EXPECT_EQ(
      Tool({"flag", "-p", "example.com", "-m", "anna", "--dry-run", "--set", "Deleted", ids[0]})
          .exit_code,
      0);
  EXPECT_EQ(
      Tool({"deliver", "-p", "example.com", "-m", "anna", "--dry-run", Inbox() + "/" + ids[0]})
          .exit_code,
      0);
  EXPECT_EQ(snapshot(), state);

  // The re-scan drops the row, and the folder is consistent again.
  ToolRun repaired =
      Tool({"rescan", "-p", "example.com", "-m", "anna", "-F", "INBOX", "-f", "json"});
  ASSERT_EQ(repaired.exit_code, 0) << repaired.out << repaired.err;
  EXPECT_EQ(repaired.json()[0]["rows"].get<size_t>(), ids.size() - 1);
  EXPECT_EQ(Tool({"verify", "-p", "example.com", "-m", "anna", "--skip-flags"}).exit_code, 0);

  ToolRun removed =
      Tool({"remove", "-p", "example.com", "-m", "anna", "-f", "json", ids[0], "nope"});
  EXPECT_EQ(removed.exit_code, 4) << "one of two failed";
  EXPECT_FALSE(Exists(Inbox() + "/" + ids[0]));
  EXPECT_EQ(InboxIds().size(), ids.size() - 2);

  // A new folder has no index to deliver into: it gets one first.
  EXPECT_EQ(Tool({"deliver", "-p", "example.com", "-m", "ben", "-F", "Fresh/Folder",
                  Inbox() + "/" + ids[2]})
                .exit_code,
            3);
  ToolRun fresh = Tool({"deliver", "-p", "example.com", "-m", "ben", "-F", "Fresh/Folder",
                        "--create", "-f", "json", Inbox() + "/" + ids[2]});
  ASSERT_EQ(fresh.exit_code, 0) << fresh.out << fresh.err;
  EXPECT_EQ(fresh.json()[0]["uid"], 1);
}

TEST_F(QastoreTest, RebuildFromFilesKeepsUidsRisingAndOnlyTheFilesFlags) {
  ASSERT_EQ(Tool({"rebuild", "-p", "example.com", "-m", "ben", "-F", "INBOX"}).exit_code, 0);
  const Json before = Tool({"list", "-p", "example.com", "-m", "ben", "-f", "json"}).json();
  ASSERT_FALSE(before.empty());
  const std::string id = before[0]["ID"].get<std::string>();
  ASSERT_EQ(Tool({"flag", "-p", "example.com", "-m", "ben", "--add", "$Work", id}).exit_code, 0);
  const uint32_t last_uid = before.back()["UID"].get<uint32_t>();

  ToolRun rebuild =
      Tool({"rebuild", "-p", "example.com", "-m", "ben", "-F", "INBOX", "--from-files"});
  ASSERT_EQ(rebuild.exit_code, 0) << rebuild.out << rebuild.err;
  EXPECT_TRUE(Exists(Inbox("ben") + "/_index.xml.bad"));
  const Json after = Tool({"list", "-p", "example.com", "-m", "ben", "-f", "json"}).json();
  ASSERT_EQ(after.size(), before.size());
  for (const Json& row : after) {
    EXPECT_GT(row["UID"].get<uint32_t>(), last_uid);
    EXPECT_EQ(row["FLAGSTATUS"].get<std::string>().find("$Work"), std::string::npos);
  }
}

TEST_F(QastoreTest, LocksReportsAndRemovesOnlyStaleBlockFiles) {
  const std::string stale = Inbox() + "/_index.blk";
  const std::string fresh = Inbox("ben") + "/_index.blk";
  WriteFile(stale, "");
  WriteFile(fresh, "");
  const timespec old_times[2] = {{0, UTIME_OMIT}, {::time(nullptr) - 3600, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, stale.c_str(), old_times, 0), 0);

  // An old block file that a holder keeps open is in use, whatever its age.
  const std::string held = root_.Sub("example.com/MAILROOT/anna/Projects/_index.blk");
  WriteFile(held, "");
  ASSERT_EQ(::utimensat(AT_FDCWD, held.c_str(), old_times, 0), 0);
  platform::OpenOptions exclusive;
  exclusive.share = platform::ShareMode::kShareNone;
  std::unique_ptr<platform::File> holder = platform::Env::Default()->OpenFile(held, exclusive);
  ASSERT_TRUE(holder);

  ToolRun listed = Tool({"locks", "-p", "example.com", "-f", "json"});
  EXPECT_EQ(listed.exit_code, 1) << "a stale block file is a finding";
  ASSERT_EQ(listed.json().size(), 3u);
  for (const Json& lock : listed.json()) {
    const bool is_held =
        lock["block_file"].get<std::string>().find("Projects") != std::string::npos;
    EXPECT_EQ(lock["open"], is_held);
  }
  EXPECT_EQ(Tool({"locks", "-p", "example.com", "--remove-stale", "--dry-run"}).exit_code, 1);
  EXPECT_TRUE(Exists(stale));

  ToolRun removed = Tool({"locks", "-p", "example.com", "--remove-stale", "-f", "json"});
  EXPECT_EQ(removed.exit_code, 0) << removed.out;
  EXPECT_FALSE(Exists(stale));
  EXPECT_TRUE(Exists(fresh)) << "a young block file may have a live holder";
  EXPECT_TRUE(Exists(held));
}

TEST_F(QastoreTest, FormatsUsageAndHelp) {
  ASSERT_EQ(Tool({"rebuild", "-p", "example.com", "-m", "anna", "-F", "INBOX"}).exit_code, 0);
  ToolRun tab =
      Tool({"list", "-p", "example.com", "-m", "anna", "-f", "tab", "--fields", "UID,ID"});
  ASSERT_EQ(tab.exit_code, 0);
  EXPECT_EQ(tab.out.substr(0, tab.out.find('\n')), "UID\tID");
  ToolRun flow = Tool({"list", "-p", "example.com", "-m", "anna", "-f", "flow", "--limit", "1",
                       "--fields", "UID,FLAGSTATUS"});
  EXPECT_EQ(flow.out.rfind("UID=1 FLAGSTATUS=", 0), 0u) << flow.out;
  EXPECT_EQ(std::count(flow.out.begin(), flow.out.end(), '\n'), 1);

  ToolRun settings = Tool({"settings", "-f", "json"});
  ASSERT_EQ(settings.exit_code, 0);
  EXPECT_GT(settings.json().size(), 20u);
  EXPECT_EQ(Tool({"settings", "--non-default", "-f", "json"}).json().back()["source"], "--root");

  EXPECT_EQ(Tool({"frobnicate"}).exit_code, 2);
  EXPECT_EQ(Tool({"list", "-m", "anna"}).exit_code, 2);
  EXPECT_EQ(Tool({"list", "-p", "example.com", "-m", "anna", "-f", "xml"}).exit_code, 2);
  EXPECT_EQ(Tool({"list", "-p", "nowhere", "-m", "anna"}).exit_code, 3);
  ToolRun help = Qastore({"--help"});
  EXPECT_EQ(help.exit_code, 0);
  EXPECT_NE(help.out.find("4 partial failure"), std::string::npos);
  EXPECT_EQ(Qastore({"verify", "--help"}).exit_code, 0);
}

}  // namespace
}  // namespace qaaisp::qastore
