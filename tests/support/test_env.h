// Test doubles for the platform layer: an Env over real files in a temporary
// directory with a fake clock and sleeper, and one that injects faults.
#pragma once

#include <spawn.h>
#include <sys/types.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "platform/env.h"

namespace qaaisp::testing {

// A fresh directory under $TMPDIR, removed with everything in it at the end.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  std::string Sub(const std::string& rel) const { return path_ + "/" + rel; }

 private:
  std::string path_;
};

// Writes a file (making its parent directories); aborts the test on failure.
void WriteFile(const std::string& path, const std::string& content);
std::string ReadFile(const std::string& path);
bool Exists(const std::string& path);
void MakeDirs(const std::string& path);

// This process's environment with each NAME=value of overrides in place of
// any entry of that name.
std::vector<std::string> EnvironmentWith(const std::vector<std::string>& overrides);

// Starts program with args, exactly the environment env (NAME=value entries)
// and the given file actions (or none); gives its pid, or -1.
pid_t SpawnWithActions(const std::string& program, const std::vector<std::string>& args,
                       const std::vector<std::string>& env,
                       const posix_spawn_file_actions_t* actions);

// As SpawnWithActions, with standard output going to out_file.
pid_t SpawnProcess(const std::string& program, const std::vector<std::string>& args,
                   const std::vector<std::string>& env, const std::string& out_file);

struct RecordedEvent {
  platform::EventType type;
  uint32_t id;
  std::string source, first, second;
};

// Real files, fake time: sleeps advance the clock at once and are counted.
class FakeClockEnv : public platform::EnvWrapper {
 public:
  FakeClockEnv();

  platform::FileTime NowFileTime() override;
  uint64_t TickCountMs() override { return tick_ms_.load(); }
  void SleepMs(uint32_t ms) override;
  void ReportEvent(platform::EventType type, uint32_t id, const std::string& source,
                   const std::string& first, const std::string& second) override;
  void DebugOutput(const std::string& text) override;

  void Advance(uint64_t ms) { tick_ms_ += ms; }
  int sleep_count() const { return sleep_count_.load(); }
  uint64_t slept_ms() const { return slept_ms_.load(); }
  std::vector<uint32_t> sleeps();
  std::vector<RecordedEvent> events();
  std::string debug_output();
  // Runs before each sleep returns (after the clock moved), with the count so
  // far; lets a test change the world between two polls.
  void OnSleep(std::function<void(int)> hook) { on_sleep_ = std::move(hook); }

 private:
  std::atomic<uint64_t> tick_ms_{1000000};
  uint64_t start_ticks_;
  std::atomic<int> sleep_count_{0};
  std::atomic<uint64_t> slept_ms_{0};
  std::mutex mutex_;
  std::vector<uint32_t> sleeps_;
  std::vector<RecordedEvent> events_;
  std::string debug_;
  std::function<void(int)> on_sleep_;
};

// Fails chosen calls: every call that changes the file system is numbered
// from 1 in the order it is made, and the one numbered fail_at fails with
// the chosen error (or, for writes, writes half and then fails). In a child
// process it can instead kill itself with SIGKILL right after a numbered
// call, leaving the disk as a crash at that point would.
class FaultInjectionEnv : public FakeClockEnv {
 public:
  enum class Fault { kError, kShortWrite };

  void FailAt(int call, uint32_t error = 112, Fault fault = Fault::kError) {
    fail_at_ = call;
    error_ = error;
    fault_ = fault;
  }
  // Kills the process once the call numbered `call` has been made.
  void KillAfter(int call) { kill_after_ = call; }
  int calls() const { return calls_.load(); }
  // Names of the calls made, in order ("open:/p", "write:/p", "rename:/a>/b").
  std::vector<std::string> log();
  void Reset() {
    calls_ = 0;
    fail_at_ = 0;
    std::lock_guard<std::mutex> lock(log_mutex_);
    log_.clear();
  }

  std::unique_ptr<platform::File> OpenFile(const std::string& path,
                                           const platform::OpenOptions& options) override;
  bool RemoveFile(const std::string& path) override;
  bool RenamePath(const std::string& from, const std::string& to, bool replace) override;
  bool CopyFileTo(const std::string& from, const std::string& to, bool fail_if_exists) override;
  bool MakeDirectory(const std::string& path) override;
  bool RemoveDirectory(const std::string& path) override;

  // Counts one call; true if it is to fail (the last error is then set).
  bool Tick(const std::string& what, bool* short_write = nullptr);
  // Runs once a counted call has been made; kills the process at its mark.
  void AfterCall();

 private:
  std::atomic<int> calls_{0};
  int fail_at_ = 0;
  int kill_after_ = 0;
  uint32_t error_ = 112;
  Fault fault_ = Fault::kError;
  std::mutex log_mutex_;
  std::vector<std::string> log_;
};

// Installs an Env as the process default for a scope.
class ScopedDefaultEnv {
 public:
  explicit ScopedDefaultEnv(platform::Env* env) { platform::Env::SetDefaultForTesting(env); }
  ~ScopedDefaultEnv() { platform::Env::SetDefaultForTesting(nullptr); }
};

// Points the process registry at a .reg file with the given values for a
// scope (lines such as "\"Mail Root\"=\"/x\"" under the product key).
class ScopedRegistry {
 public:
  // content is the whole .reg text.
  explicit ScopedRegistry(const std::string& content);
  ~ScopedRegistry();
  // Writes new content (and moves its time on so the change is seen).
  void Rewrite(const std::string& content);
  const std::string& path() const { return path_; }

 private:
  TempDir dir_;
  std::string path_;
  int generation_ = 0;
};

// Builds .reg text: a header and [HKEY_LOCAL_MACHINE\<key>] sections.
std::string RegText(const std::vector<std::pair<std::string, std::vector<std::string>>>& keys);

// .reg text of the product's own key holding the given value lines.
std::string ProductRegText(const std::vector<std::string>& lines);

// A folder status record ("_FOLDER.DAT") that holds last_uid and zeros.
std::string FolderStatusRecord(uint32_t last_uid);

}  // namespace qaaisp::testing
