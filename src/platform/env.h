// The only door to the operating system. Everything the store touches outside
// memory (files, directories, times, sleeping, events, modules) goes through an
// Env, so tests swap in one with a fake clock or with injected faults.
//
// Failures are reported the way the store's logic expects them: the call
// returns false (or null) and the calling thread's last error holds a Win32
// error number (see win32_error.h).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/file_time.h"

namespace qaaisp::platform {

// How an open file shares itself with other opens, emulated with advisory
// locks: kShareNone makes every other shared or exclusive open fail with 32
// (sharing violation) while this handle lives; kShareRead/kShareReadWrite
// coexist with each other; kShareAny takes no lock at all.
enum class ShareMode { kShareAny, kShareRead, kShareReadWrite, kShareNone };

enum class OpenDisposition {
  kOpenExisting,  // fail with 2/3 if missing
  kCreateNew,     // fail with 80 if present (O_EXCL)
  kCreateAlways,  // create or truncate
  kOpenAlways,    // create if missing
  kTruncateExisting,
};

struct OpenOptions {
  bool read = true;
  bool write = false;
  OpenDisposition disposition = OpenDisposition::kOpenExisting;
  ShareMode share = ShareMode::kShareReadWrite;
};

// An open file. Reads and writes are positional so one handle can serve
// readers at several offsets; there is no hidden file pointer.
class File {
 public:
  virtual ~File() = default;
  // Reads up to n bytes at offset; returns bytes read (0 at end) or -1.
  virtual int64_t ReadAt(uint64_t offset, void* buffer, size_t n) = 0;
  // Writes all n bytes at offset; false on any failure, including a short write.
  virtual bool WriteAt(uint64_t offset, const void* data, size_t n) = 0;
  virtual bool Truncate(uint64_t size) = 0;
  virtual bool Sync() = 0;
  virtual int64_t Size() = 0;
  // Last-write time; false on failure.
  virtual bool GetWriteTime(FileTime* out) = 0;
  // Sets creation (where the file system keeps one), access and write times;
  // a null pointer leaves that time as it is.
  virtual bool SetTimes(const FileTime* creation, const FileTime* access,
                        const FileTime* write) = 0;
  virtual const std::string& path() const = 0;
};

struct FileInfo {
  bool exists = false;
  bool is_directory = false;
  uint64_t size = 0;
  FileTime write_time;
  FileTime access_time;
  // Birth time where the file system keeps one; otherwise zero.
  FileTime creation_time;
};

struct DirEntry {
  std::string name;
  bool is_directory = false;
  uint64_t size = 0;
  FileTime write_time;
  FileTime creation_time;
};

// A buffer that whole files are read into, one after the other: it grows to
// the largest file read and is neither cleared nor shrunk between files, so
// that reading a folder of files costs no allocation per file.
class ReadBuffer {
 public:
  std::string_view view() const { return {data_.get(), size_}; }
  size_t capacity() const { return capacity_; }
  // Room for n bytes at data(); what it held before is not kept.
  char* Prepare(size_t n);
  // The number of bytes that hold the file, at most the prepared room.
  void SetSize(size_t n) { size_ = n < capacity_ ? n : capacity_; }
  // Gives the memory back.
  void Release();

 private:
  std::unique_ptr<char[]> data_;
  size_t size_ = 0;
  size_t capacity_ = 0;
};

// Loaded dynamic module.
class Module {
 public:
  virtual ~Module() = default;
  virtual void* Symbol(const char* name) = 0;
};

enum EventType : uint16_t { kEventError = 1, kEventWarning = 2, kEventInformation = 4 };

class Env {
 public:
  virtual ~Env() = default;

  // The process-wide environment: the real one unless a test installed another.
  static Env* Default();
  // Installs env as Default() for the life of the returned token's holder
  // (tests only); null restores the real one.
  static void SetDefaultForTesting(Env* env);

  // Files.
  virtual std::unique_ptr<File> OpenFile(const std::string& path, const OpenOptions& options) = 0;
  virtual bool RemoveFile(const std::string& path) = 0;
  // Renames; with replace an existing target file is replaced atomically.
  virtual bool RenamePath(const std::string& from, const std::string& to, bool replace) = 0;
  virtual bool CopyFileTo(const std::string& from, const std::string& to, bool fail_if_exists) = 0;
  virtual bool Stat(const std::string& path, FileInfo* info) = 0;
  // Reads the file at path whole into out, opened for reading with share,
  // and gives its size and last-write time from the same open in info
  // (exists set; the creation and access times are not filled). False,
  // with the last error set, if it cannot be opened or read. The default
  // goes through OpenFile and the File calls; a backend may do it in fewer
  // system calls. EnvWrapper keeps the default, so that a test's OpenFile
  // sees every read.
  virtual bool ReadFileWhole(const std::string& path, ShareMode share, ReadBuffer* out,
                             FileInfo* info);

  // Directories.
  virtual bool MakeDirectory(const std::string& path) = 0;
  virtual bool RemoveDirectory(const std::string& path) = 0;
  // Lists the entries of dir, "." and ".." excluded, in no particular order.
  // Without with_info only the names and the directory bit are filled, which
  // spares a stat per entry.
  virtual bool ListDirectory(const std::string& dir, bool with_info,
                             std::vector<DirEntry>* out) = 0;
  // Gives count entries listed from dir without info the sizes and times
  // a listing with info gives, one stat each; gone[i] is set for an entry
  // that has vanished since, cleared for the others. Threads may fill
  // disjoint entries at once. The default stats each by its path.
  virtual void FillEntryInfo(const std::string& dir, DirEntry* entries, size_t count, bool* gone);

  // Time.
  virtual FileTime NowFileTime() = 0;
  // Milliseconds from an arbitrary origin, never going back.
  virtual uint64_t TickCountMs() = 0;
  // Sleeps; the real Env scales by QAAISP_SLEEP_SCALE.
  virtual void SleepMs(uint32_t ms) = 0;

  // Events and debugger output.
  virtual void ReportEvent(EventType type, uint32_t event_id, const std::string& source,
                           const std::string& first, const std::string& second) = 0;
  virtual void DebugOutput(const std::string& text) = 0;

  // Processes and modules.
  virtual std::string GetEnvVar(const char* name) = 0;
  virtual std::string HostProgramPath() = 0;
  virtual uint32_t ProcessId() = 0;
  virtual uint32_t ThreadId() = 0;
  virtual std::unique_ptr<Module> LoadModule(const std::string& path) = 0;

  // Whether calls may come from several threads of one task at once. Work
  // that could be shared out to helper threads stays on the caller's thread
  // otherwise, so that a test's wrapper sees its calls one at a time and in
  // their order.
  virtual bool TakesConcurrentCalls() { return false; }
};

// Forwards every call to another Env; a test derives from it and overrides
// the one call it wants to change.
class EnvWrapper : public Env {
 public:
  explicit EnvWrapper(Env* target) : target_(target) {}
  Env* target() const { return target_; }

  std::unique_ptr<File> OpenFile(const std::string& path, const OpenOptions& options) override {
    return target_->OpenFile(path, options);
  }
  bool RemoveFile(const std::string& path) override { return target_->RemoveFile(path); }
  bool RenamePath(const std::string& from, const std::string& to, bool replace) override {
    return target_->RenamePath(from, to, replace);
  }
  bool CopyFileTo(const std::string& from, const std::string& to, bool fail_if_exists) override {
    return target_->CopyFileTo(from, to, fail_if_exists);
  }
  bool Stat(const std::string& path, FileInfo* info) override { return target_->Stat(path, info); }
  bool MakeDirectory(const std::string& path) override { return target_->MakeDirectory(path); }
  bool RemoveDirectory(const std::string& path) override { return target_->RemoveDirectory(path); }
  bool ListDirectory(const std::string& dir, bool with_info, std::vector<DirEntry>* out) override {
    return target_->ListDirectory(dir, with_info, out);
  }
  void FillEntryInfo(const std::string& dir, DirEntry* entries, size_t count, bool* gone) override {
    target_->FillEntryInfo(dir, entries, count, gone);
  }
  FileTime NowFileTime() override { return target_->NowFileTime(); }
  uint64_t TickCountMs() override { return target_->TickCountMs(); }
  void SleepMs(uint32_t ms) override { target_->SleepMs(ms); }
  void ReportEvent(EventType type, uint32_t event_id, const std::string& source,
                   const std::string& first, const std::string& second) override {
    target_->ReportEvent(type, event_id, source, first, second);
  }
  void DebugOutput(const std::string& text) override { target_->DebugOutput(text); }
  std::string GetEnvVar(const char* name) override { return target_->GetEnvVar(name); }
  std::string HostProgramPath() override { return target_->HostProgramPath(); }
  uint32_t ProcessId() override { return target_->ProcessId(); }
  uint32_t ThreadId() override { return target_->ThreadId(); }
  std::unique_ptr<Module> LoadModule(const std::string& path) override {
    return target_->LoadModule(path);
  }

 private:
  Env* target_;
};

// Holds a directory open while this thread reads many files directly in
// it: the real Env then reaches such a file by its name relative to the
// handle, sparing the walk of the whole path at each file. What is read is
// the same either way; a directory renamed meanwhile is still read under
// its new name. Holds nest, the innermost one counting; each thread that
// reads takes its own. Where the directory cannot be opened, or on a
// backend without relative opens, paths are walked as usual.
class HeldDirectory {
 public:
  explicit HeldDirectory(const std::string& path);
  HeldDirectory(const HeldDirectory&) = delete;
  HeldDirectory& operator=(const HeldDirectory&) = delete;
  ~HeldDirectory();

  // The name of path relative to the innermost directory this thread
  // holds, with its handle in *handle; null where path is not a file
  // directly in it.
  static const char* NameInHeld(const std::string& path, int* handle);

 private:
  std::string path_;
  int handle_ = -1;
  HeldDirectory* outer_ = nullptr;
};

// Whole-file helpers on top of an Env.
bool ReadWholeFile(Env* env, const std::string& path, std::string* out);
// Writes through a temporary beside the target and one final rename.
bool WriteWholeFileAtomic(Env* env, const std::string& path, std::string_view data);
bool FileExists(Env* env, const std::string& path);
bool DirectoryExists(Env* env, const std::string& path);

}  // namespace qaaisp::platform
