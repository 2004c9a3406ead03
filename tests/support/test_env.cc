#include "test_env.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "platform/registry.h"
#include "platform/win32_error.h"
#include "qaaisp/qaaisp.h"

namespace qaaisp::testing {

namespace fs = std::filesystem;

std::vector<std::string> EnvironmentWith(const std::vector<std::string>& overrides) {
  std::vector<std::string> env;
  for (char** e = environ; *e; ++e) {
    const std::string entry = *e;
    const std::string name = entry.substr(0, entry.find('=') + 1);
    bool overridden = false;
    for (const std::string& o : overrides) overridden = overridden || o.rfind(name, 0) == 0;
    if (!overridden) env.push_back(entry);
  }
  env.insert(env.end(), overrides.begin(), overrides.end());
  return env;
}

pid_t SpawnWithActions(const std::string& program, const std::vector<std::string>& args,
                       const std::vector<std::string>& env,
                       const posix_spawn_file_actions_t* actions) {
  std::vector<std::string> env_text = env;
  std::vector<char*> envp;
  for (auto& e : env_text) envp.push_back(e.data());
  envp.push_back(nullptr);
  std::vector<std::string> argv_text = {program};
  argv_text.insert(argv_text.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (auto& a : argv_text) argv.push_back(a.data());
  argv.push_back(nullptr);
  pid_t pid = 0;
  if (posix_spawn(&pid, argv[0], actions, nullptr, argv.data(), envp.data()) != 0) pid = -1;
  return pid;
}

pid_t SpawnProcess(const std::string& program, const std::vector<std::string>& args,
                   const std::vector<std::string>& env, const std::string& out_file) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, out_file.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                   0644);
  const pid_t pid = SpawnWithActions(program, args, env, &actions);
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

TempDir::TempDir() {
  const char* base = std::getenv("TMPDIR");
  std::string tmpl = std::string(base && *base ? base : "/tmp") + "/qaaisp-XXXXXX";
  char* made = ::mkdtemp(tmpl.data());
  if (!made) std::abort();
  path_ = made;
}

TempDir::~TempDir() {
  std::error_code ec;
  fs::remove_all(path_, ec);
}

void MakeDirs(const std::string& path) {
  std::error_code ec;
  fs::create_directories(path, ec);
}

void WriteFile(const std::string& path, const std::string& content) {
  MakeDirs(fs::path(path).parent_path());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
  ASSERT_TRUE(out.good()) << path;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

bool Exists(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

FakeClockEnv::FakeClockEnv() : platform::EnvWrapper(platform::Env::Default()) {
  // Start the fake wall clock at 2026-01-01 00:00:00 UTC.
  start_ticks_ = platform::kUnixEpochTicks + 1767225600ULL * platform::kTicksPerSecond;
}

platform::FileTime FakeClockEnv::NowFileTime() {
  return platform::FileTime::FromTicks(start_ticks_ + (tick_ms_.load() - 1000000) * 10000);
}

void FakeClockEnv::SleepMs(uint32_t ms) {
  tick_ms_ += ms;
  slept_ms_ += ms;
  int n = ++sleep_count_;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    sleeps_.push_back(ms);
  }
  if (on_sleep_) on_sleep_(n);
}

std::vector<uint32_t> FakeClockEnv::sleeps() {
  std::lock_guard<std::mutex> lock(mutex_);
  return sleeps_;
}

void FakeClockEnv::ReportEvent(platform::EventType type, uint32_t id, const std::string& source,
                               const std::string& first, const std::string& second) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    events_.push_back({type, id, source, first, second});
  }
  target()->ReportEvent(type, id, source, first, second);
}

void FakeClockEnv::DebugOutput(const std::string& text) {
  std::lock_guard<std::mutex> lock(mutex_);
  debug_ += text;
}

std::vector<RecordedEvent> FakeClockEnv::events() {
  std::lock_guard<std::mutex> lock(mutex_);
  return events_;
}

std::string FakeClockEnv::debug_output() {
  std::lock_guard<std::mutex> lock(mutex_);
  return debug_;
}

std::vector<std::string> FaultInjectionEnv::log() {
  std::lock_guard<std::mutex> lock(log_mutex_);
  return log_;
}

bool FaultInjectionEnv::Tick(const std::string& what, bool* short_write) {
  int n = ++calls_;
  {
    std::lock_guard<std::mutex> lock(log_mutex_);
    log_.push_back(what);
  }
  if (n != fail_at_) return false;
  if (short_write && fault_ == Fault::kShortWrite) {
    *short_write = true;
    return false;
  }
  platform::SetLastErrorCode(error_);
  return true;
}

void FaultInjectionEnv::AfterCall() {
  if (kill_after_ > 0 && calls_.load() == kill_after_) ::kill(::getpid(), SIGKILL);
}

namespace {

class FaultFile : public platform::File {
 public:
  FaultFile(std::unique_ptr<platform::File> inner, FaultInjectionEnv* env)
      : inner_(std::move(inner)), env_(env) {}
  int64_t ReadAt(uint64_t offset, void* buffer, size_t n) override {
    return inner_->ReadAt(offset, buffer, n);
  }
  bool WriteAt(uint64_t offset, const void* data, size_t n) override {
    bool short_write = false;
    if (env_->Tick("write:" + inner_->path(), &short_write)) return false;
    if (short_write) {
      inner_->WriteAt(offset, data, n / 2);
      platform::SetLastErrorCode(platform::kErrorDiskFull);
      return false;
    }
    bool ok = inner_->WriteAt(offset, data, n);
    env_->AfterCall();
    return ok;
  }
  bool Truncate(uint64_t size) override {
    if (env_->Tick("truncate:" + inner_->path())) return false;
    bool ok = inner_->Truncate(size);
    env_->AfterCall();
    return ok;
  }
  bool Sync() override { return inner_->Sync(); }
  int64_t Size() override { return inner_->Size(); }
  bool GetWriteTime(platform::FileTime* out) override { return inner_->GetWriteTime(out); }
  bool SetTimes(const platform::FileTime* c, const platform::FileTime* a,
                const platform::FileTime* w) override {
    if (env_->Tick("settimes:" + inner_->path())) return false;
    bool ok = inner_->SetTimes(c, a, w);
    env_->AfterCall();
    return ok;
  }
  const std::string& path() const override { return inner_->path(); }

 private:
  std::unique_ptr<platform::File> inner_;
  FaultInjectionEnv* env_;
};

}  // namespace

std::unique_ptr<platform::File> FaultInjectionEnv::OpenFile(const std::string& path,
                                                            const platform::OpenOptions& o) {
  const bool counted = o.write || o.disposition != platform::OpenDisposition::kOpenExisting;
  if (counted && Tick("open:" + path)) return nullptr;
  auto f = FakeClockEnv::OpenFile(path, o);
  if (counted) AfterCall();
  if (!f) return nullptr;
  return std::make_unique<FaultFile>(std::move(f), this);
}

bool FaultInjectionEnv::RemoveFile(const std::string& path) {
  if (Tick("remove:" + path)) return false;
  bool ok = FakeClockEnv::RemoveFile(path);
  AfterCall();
  return ok;
}

bool FaultInjectionEnv::RenamePath(const std::string& from, const std::string& to, bool replace) {
  if (Tick("rename:" + from + ">" + to)) return false;
  bool ok = FakeClockEnv::RenamePath(from, to, replace);
  AfterCall();
  return ok;
}

bool FaultInjectionEnv::CopyFileTo(const std::string& from, const std::string& to, bool f) {
  if (Tick("copy:" + from + ">" + to)) return false;
  bool ok = FakeClockEnv::CopyFileTo(from, to, f);
  AfterCall();
  return ok;
}

bool FaultInjectionEnv::MakeDirectory(const std::string& path) {
  if (Tick("mkdir:" + path)) return false;
  bool ok = FakeClockEnv::MakeDirectory(path);
  AfterCall();
  return ok;
}

bool FaultInjectionEnv::RemoveDirectory(const std::string& path) {
  if (Tick("rmdir:" + path)) return false;
  bool ok = FakeClockEnv::RemoveDirectory(path);
  AfterCall();
  return ok;
}

ScopedRegistry::ScopedRegistry(const std::string& content) {
  path_ = dir_.Sub("settings.reg");
  Rewrite(content);
  platform::Registry::ResetProcessForTesting({path_});
}

ScopedRegistry::~ScopedRegistry() { platform::Registry::ResetProcessForTesting({}); }

void ScopedRegistry::Rewrite(const std::string& content) {
  WriteFile(path_, content);
  // Distinct modification times even within one clock tick.
  struct timespec ts[2];
  ts[0].tv_sec = ts[1].tv_sec = 1700000000 + (++generation_);
  ts[0].tv_nsec = ts[1].tv_nsec = 0;
  ::utimensat(AT_FDCWD, path_.c_str(), ts, 0);
}

std::string RegText(const std::vector<std::pair<std::string, std::vector<std::string>>>& keys) {
  std::string text = "Windows Registry Editor Version 5.00\r\n\r\n";
  for (const auto& [key, lines] : keys) {
    text += "[HKEY_LOCAL_MACHINE\\" + key + "]\r\n";
    for (const auto& line : lines) text += line + "\r\n";
    text += "\r\n";
  }
  return text;
}

std::string ProductRegText(const std::vector<std::string>& lines) {
  return RegText({{"SOFTWARE\\Wow6432Node\\Quill Arbor\\Quill Arbor", lines}});
}

std::string FolderStatusRecord(uint32_t last_uid) {
  std::string record(sizeof(FolderDetails), '\0');
  // Little-endian on disk, whatever the host.
  for (size_t i = 0; i < 4; ++i) {
    record[offsetof(FolderDetails, LastUID) + i] = static_cast<char>(last_uid >> (8 * i));
  }
  return record;
}

}  // namespace qaaisp::testing
