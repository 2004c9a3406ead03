// An Env that kills its own process with SIGKILL at a chosen file-system
// call, so that a stress run can end a writer at any moment of its work
// (between two writes of an index, between a delete and a move) and replay
// the same moment from the same seed. Every call that touches a file counts,
// the reads and writes through an open File included.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/env.h"

namespace qaaisp::stress {

class KillEnv : public platform::EnvWrapper {
 public:
  // Dies at the kill_at-th counted call; 0 never dies. Just before, tells
  // on_kill whether the folder's index file was open for writing then, that
  // is, whether the kill may leave it half written.
  KillEnv(platform::Env* target, uint64_t kill_at, std::function<void(bool)> on_kill = {});

  // Counts one call and dies if it is the chosen one.
  void Tick();
  uint64_t calls() const { return calls_.load(); }
  // Index files open for writing through this Env.
  std::atomic<int>& index_writers() { return index_writers_; }

  std::unique_ptr<platform::File> OpenFile(const std::string& path,
                                           const platform::OpenOptions& options) override;
  bool RemoveFile(const std::string& path) override;
  bool RenamePath(const std::string& from, const std::string& to, bool replace) override;
  bool CopyFileTo(const std::string& from, const std::string& to, bool fail_if_exists) override;
  bool Stat(const std::string& path, platform::FileInfo* info) override;
  bool MakeDirectory(const std::string& path) override;
  bool ListDirectory(const std::string& dir, bool with_info,
                     std::vector<platform::DirEntry>* out) override;

 private:
  const uint64_t kill_at_;
  const std::function<void(bool)> on_kill_;
  std::atomic<uint64_t> calls_{0};
  std::atomic<int> index_writers_{0};
};

}  // namespace qaaisp::stress
