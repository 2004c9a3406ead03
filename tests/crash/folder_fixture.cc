#include "folder_fixture.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <sstream>

#include "index/store_index.h"
#include "message/message_settings.h"
#include "persist/index_serialiser.h"
#include "persist/last_uid_floor.h"
#include "persist/persist_settings.h"
#include "persist/stream_index_writer.h"
#include "qaaisp/qaaisp.h"

namespace qaaisp::crash_testing {
namespace {

namespace fs = std::filesystem;

std::string Settings(std::vector<std::string> extra, bool stream_members) {
  if (stream_members) {
    extra.push_back("\"Use XML Stream Index Deserialisation\"=dword:00000001");
    extra.push_back("\"Use XML Stream Index Serialisation\"=dword:00000001");
    extra.push_back("\"Backup Index\"=dword:00000001");
  }
  return testing::ProductRegText(extra);
}

void ResetSettingCaches() {
  ResetMessageSettingsForTesting();
  persist::ResetPersistSettingsForTesting();
  persist::ResetIndexWriteSettingsForTesting();
}

// Copies a tree with the files' write times, so that rows stay in step with
// their files and nothing is re-read only because it was copied.
void CopyTree(const fs::path& from, const fs::path& to) {
  fs::create_directories(to);
  for (const auto& entry : fs::directory_iterator(from)) {
    fs::path target = to / entry.path().filename();
    if (entry.is_directory()) {
      CopyTree(entry.path(), target);
    } else {
      fs::copy_file(entry.path(), target);
      fs::last_write_time(target, fs::last_write_time(entry.path()));
    }
  }
}

bool IsMessageFile(const std::string& name) {
  if (name.empty() || name[0] == '_' || name[0] == '.' || name.size() < 4) return false;
  std::string ext = name.substr(name.size() - 4);
  for (char& c : ext) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return ext == ".MAI";
}

std::string Join(const std::set<std::string>& flags) {
  std::string text;
  for (const std::string& f : flags) text += (text.empty() ? "" : " ") + f;
  return "{" + text + "}";
}

}  // namespace

std::set<std::string> FlagSet(const std::string& flag_status) {
  std::set<std::string> flags;
  std::istringstream words(flag_status);
  std::string word;
  while (words >> word) {
    for (char& c : word) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    if (word != "\\RECENT") flags.insert(word);
  }
  return flags;
}

FolderFixture::FolderFixture(std::vector<std::string> settings, bool stream_members)
    : registry_(Settings(std::move(settings), stream_members)),
      scoped_env_(&env_),
      stream_members_(stream_members) {
  ResetSettingCaches();
  saved_ = ModuleSettings();
  ModuleSettings().notification_mode = 0;
  ModuleSettings().prevent_duplicates = 0;
  run_root_ = runs_.Sub("run");
}

FolderFixture::~FolderFixture() {
  ModuleSettings() = saved_;
  ResetSettingCaches();
}

std::string FolderFixture::Message(int n) {
  return "From: sender" + std::to_string(n) + "@example.org\r\nTo: box@example.org\r\n" +
         "Subject: Message " + std::to_string(n) + "\r\nMessage-ID: <" + std::to_string(n) +
         "@example.org>\r\nDate: Wed, 1 Feb 2023 07:00:00 +0000\r\n\r\n" +
         std::string(static_cast<size_t>(n * 53 % 700), 'b') + "\r\n";
}

void FolderFixture::BuildTemplate() {
  ModuleSettings().mail_root = template_.path();
  testing::WriteFile(template_.Sub("po/MAILROOT/box/_DIRSIZE.TMP"), "0");
  testing::WriteFile(TemplateInbox() + "/_DIRSIZE.TMP", "0");
  for (int n = 1; n <= kMessages; ++n) {
    const std::string name = std::to_string(n) + ".MAI";
    testing::WriteFile(TemplateInbox() + "/" + name, Message(n));
    ASSERT_EQ(Direct_StoreIndex_InsertItem(kPostoffice, kMailbox, kFolder, name.c_str()), 1);
  }
  // Some rows carry flags that no run may lose.
  for (int n = 1; n <= kMessages; ++n) {
    const std::string name = std::to_string(n) + ".MAI";
    if (n % 3 == 0) {
      ASSERT_EQ(
          Direct_StoreIndex_UpdateItem(kPostoffice, kMailbox, kFolder, name.c_str(), "+\\Seen"), 1);
    }
    if (n % 4 == 0) {
      ASSERT_EQ(
          Direct_StoreIndex_UpdateItem(kPostoffice, kMailbox, kFolder, name.c_str(), "+\\Flagged"),
          1);
    }
  }
  // A server's full open takes the backup that recovery falls back on; the
  // one taken before the flags were set goes first, as its age would have
  // replaced it in service.
  std::filesystem::remove(TemplateInbox() + "/_index.xml.bak");
  StoreIndex* index = StoreIndex_New();
  StoreIndex_SetNames(index, kPostoffice, kMailbox, kFolder, 0);
  StoreIndex_SetPaths(index);
  ASSERT_GE(StoreIndex_Open(index, 1), 1);
  StoreIndex_Release(index);
  StoreIndex_Delete(index);
  ASSERT_EQ(testing::Exists(TemplateInbox() + "/_index.xml.bak"), stream_members_);
}

void FolderFixture::FreshCopy() {
  std::error_code ec;
  fs::remove_all(run_root_, ec);
  CopyTree(template_.path(), run_root_);
  ModuleSettings().mail_root = run_root_;
  last_uid_before_ = persist::LastUidInIndexFile(Inbox(), 0);
}

namespace {

std::map<std::string, std::string> MessageFiles(const std::string& folder) {
  std::map<std::string, std::string> files;
  for (const auto& entry : fs::directory_iterator(folder)) {
    const std::string name = entry.path().filename().string();
    if (entry.is_regular_file() && IsMessageFile(name)) {
      files[name] = testing::ReadFile(entry.path().string());
    }
  }
  return files;
}

// A plain load: no recovery, no rebuild, nothing written.
bool LoadQuietly(const std::string& folder, StoreIndex* index) {
  return LoadIndexForClass(&index->table, index, folder, 0, "po", "box", false, true, LoadFull, 0,
                           false, false, false, false);
}

}  // namespace

bool FolderFixture::IndexOutOfStepWithFiles() {
  if (!testing::Exists(Inbox() + "/_index.xml")) return false;
  StoreIndex index;
  if (!LoadQuietly(Inbox(), &index)) return false;
  const std::map<std::string, std::string> files = MessageFiles(Inbox());
  if (files.size() != index.table.by_id().size()) return true;
  for (const auto& [id, row] : index.table.by_id()) {
    if (!files.count(id)) return true;
  }
  return false;
}

FolderFixture::Snapshot FolderFixture::Capture() {
  Snapshot snapshot;
  snapshot.files = MessageFiles(Inbox());
  StoreIndex index;
  EXPECT_TRUE(LoadQuietly(Inbox(), &index));
  for (const auto& [id, row] : index.table.by_id()) {
    snapshot.flags[id] = FlagSet(row->GetText("FLAGSTATUS"));
  }
  return snapshot;
}

ExpectedFolder FolderFixture::Expect(const Snapshot& before, const Snapshot& after) {
  ExpectedFolder expected;
  for (const auto& [name, bytes] : after.files) {
    ExpectedMessage& m = expected[name];
    m.contents.insert(bytes);
    auto old = before.files.find(name);
    if (old != before.files.end()) m.contents.insert(old->second);
    auto old_flags = before.flags.find(name);
    m.existed_before = old_flags != before.flags.end();
    if (m.existed_before) m.flags_before = old_flags->second;
    auto new_flags = after.flags.find(name);
    if (new_flags != after.flags.end()) m.flags_after = new_flags->second;
  }
  return expected;
}

ExpectedFolder FolderFixture::CleanRun(const std::function<void()>& prepare,
                                       const std::function<void()>& op, int* calls,
                                       std::vector<std::string>* log) {
  FreshCopy();
  // Taken before the preparation, which may damage what a load would show.
  Snapshot before = Capture();
  prepare();
  const std::map<std::string, std::string> prepared = MessageFiles(Inbox());
  env_.Reset();
  op();
  *calls = env_.calls();
  if (log) *log = env_.log();
  env_.Reset();
  Snapshot after = Capture();
  ExpectedFolder expected = Expect(before, after);
  // Files the preparation wrote may also stay as it wrote them.
  for (auto& [name, m] : expected) {
    auto file = prepared.find(name);
    if (file != prepared.end()) m.contents.insert(file->second);
  }
  return expected;
}

bool FolderFixture::RunKilledAfter(testing::FaultInjectionEnv* env, int call,
                                   const std::function<void()>& op) {
  std::fflush(stdout);
  std::fflush(stderr);
  pid_t pid = ::fork();
  if (pid == 0) {
    env->Reset();
    env->KillAfter(call);
    op();
    ::_exit(0);
  }
  int status = 0;
  if (pid < 0 || ::waitpid(pid, &status, 0) != pid) return false;
  return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
}

int FolderFixture::OpenAndRelease() {
  StoreIndex* index = StoreIndex_New();
  StoreIndex_SetNames(index, kPostoffice, kMailbox, kFolder, 0);
  StoreIndex_SetPaths(index);
  const int opened = StoreIndex_Open(index, 1);
  StoreIndex_Release(index);
  StoreIndex_Delete(index);
  return opened;
}

bool FolderFixture::ChangeFlagExists() const { return testing::Exists(Inbox() + "/_CHANGE.DTY"); }

std::string FolderFixture::CheckRecovered(const ExpectedFolder& expected, RunTally* tally) {
  std::ostringstream failures;
  env_.Reset();
  if (ChangeFlagExists()) ++tally->dirty_marked;
  StoreIndex* index = StoreIndex_New();
  StoreIndex_SetNames(index, kPostoffice, kMailbox, kFolder, 0);
  StoreIndex_SetPaths(index);
  const int opened = StoreIndex_Open(index, 1);
  if (opened < 1) failures << "the open gave " << opened << "\n";

  const std::map<std::string, std::string> on_disk = MessageFiles(Inbox());
  const auto& by_id = index->table.by_id();
  const uint32_t last_uid = index->table.LastUID;
  if (last_uid < last_uid_before_)
    failures << "LastUID went down from " << last_uid_before_ << " to " << last_uid << "\n";
  std::set<uint32_t> uids;
  for (const auto& [id, row] : by_id) {
    if (!on_disk.count(id)) failures << "row " << id << " has no file\n";
    const uint32_t uid = static_cast<uint32_t>(row->GetInteger("UID"));
    if (uid == 0 || uid > last_uid || !uids.insert(uid).second)
      failures << "row " << id << " has UID " << uid << "\n";
  }
  for (const auto& [name, bytes] : on_disk) {
    if (!expected.count(name)) failures << "file " << name << " should not be there\n";
  }
  for (const auto& [name, m] : expected) {
    auto file = on_disk.find(name);
    if (file == on_disk.end()) {
      failures << "file " << name << " is lost\n";
      continue;
    }
    if (!m.contents.count(file->second)) failures << "file " << name << " is changed\n";
    auto row = by_id.find(name);
    if (row == by_id.end()) {
      failures << "file " << name << " has no row\n";
      continue;
    }
    const std::set<std::string> flags = FlagSet(row->second->GetText("FLAGSTATUS"));
    if (flags == m.flags_after) continue;
    if (m.existed_before && flags == m.flags_before) {
      ++tally->in_flight_lost;
      continue;
    }
    // Flags kept by both sides must be there; anything else is wrong.
    bool unexpected = false;
    for (const std::string& f : flags) {
      if (!m.flags_before.count(f) && !m.flags_after.count(f)) unexpected = true;
    }
    for (const std::string& f : m.flags_before) {
      if (m.flags_after.count(f) && !flags.count(f)) ++tally->flags_lost;
    }
    if (unexpected) {
      failures << "row " << name << " has flags " << Join(flags) << ", not " << Join(m.flags_after)
               << "\n";
    }
  }
  StoreIndex_Release(index);
  StoreIndex_Delete(index);
  ++tally->points;
  return failures.str();
}

}  // namespace qaaisp::crash_testing
