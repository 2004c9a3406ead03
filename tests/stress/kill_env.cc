#include "kill_env.h"

#include <signal.h>
#include <unistd.h>

#include <string_view>

namespace qaaisp::stress {
namespace {

// Passes every call on to the real file, counting those that read or change
// it, so that a kill can fall between two writes of one save.
class KillFile : public platform::File {
 public:
  KillFile(std::unique_ptr<platform::File> target, KillEnv* env, bool index_writer)
      : target_(std::move(target)), env_(env), index_writer_(index_writer) {
    if (index_writer_) ++env_->index_writers();
  }
  ~KillFile() override {
    if (index_writer_) --env_->index_writers();
  }

  int64_t ReadAt(uint64_t offset, void* buffer, size_t n) override {
    env_->Tick();
    return target_->ReadAt(offset, buffer, n);
  }
  bool WriteAt(uint64_t offset, const void* data, size_t n) override {
    env_->Tick();
    return target_->WriteAt(offset, data, n);
  }
  bool Truncate(uint64_t size) override {
    env_->Tick();
    return target_->Truncate(size);
  }
  bool Sync() override { return target_->Sync(); }
  int64_t Size() override { return target_->Size(); }
  bool GetWriteTime(platform::FileTime* out) override { return target_->GetWriteTime(out); }
  bool SetTimes(const platform::FileTime* creation, const platform::FileTime* access,
                const platform::FileTime* write) override {
    env_->Tick();
    return target_->SetTimes(creation, access, write);
  }
  const std::string& path() const override { return target_->path(); }

 private:
  std::unique_ptr<platform::File> target_;
  KillEnv* env_;
  const bool index_writer_;
};

bool IsIndexFile(const std::string& path) {
  constexpr std::string_view kName = "/_index.xml";
  return path.size() >= kName.size() &&
         path.compare(path.size() - kName.size(), kName.size(), kName.data(), kName.size()) == 0;
}

}  // namespace

KillEnv::KillEnv(platform::Env* target, uint64_t kill_at, std::function<void(bool)> on_kill)
    : EnvWrapper(target), kill_at_(kill_at), on_kill_(std::move(on_kill)) {}

void KillEnv::Tick() {
  if (++calls_ != kill_at_) return;
  if (on_kill_) on_kill_(index_writers_.load() > 0);
  // No clean-up of any kind: the process ends as a crash or kill -9 ends it.
  ::kill(::getpid(), SIGKILL);
}

std::unique_ptr<platform::File> KillEnv::OpenFile(const std::string& path,
                                                  const platform::OpenOptions& options) {
  Tick();
  std::unique_ptr<platform::File> file = EnvWrapper::OpenFile(path, options);
  if (!file) return nullptr;
  return std::make_unique<KillFile>(std::move(file), this, options.write && IsIndexFile(path));
}

bool KillEnv::RemoveFile(const std::string& path) {
  Tick();
  return EnvWrapper::RemoveFile(path);
}

bool KillEnv::RenamePath(const std::string& from, const std::string& to, bool replace) {
  Tick();
  return EnvWrapper::RenamePath(from, to, replace);
}

bool KillEnv::CopyFileTo(const std::string& from, const std::string& to, bool fail_if_exists) {
  Tick();
  return EnvWrapper::CopyFileTo(from, to, fail_if_exists);
}

bool KillEnv::Stat(const std::string& path, platform::FileInfo* info) {
  Tick();
  return EnvWrapper::Stat(path, info);
}

bool KillEnv::MakeDirectory(const std::string& path) {
  Tick();
  return EnvWrapper::MakeDirectory(path);
}

bool KillEnv::ListDirectory(const std::string& dir, bool with_info,
                            std::vector<platform::DirEntry>* out) {
  Tick();
  return EnvWrapper::ListDirectory(dir, with_info, out);
}

}  // namespace qaaisp::stress
