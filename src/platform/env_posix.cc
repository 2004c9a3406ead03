// The POSIX backend of Env. Windows share modes are emulated with flock():
// a shared open takes LOCK_SH, an exclusive one LOCK_EX, and deleting or
// replacing a file first needs LOCK_EX on it, so a file held by another
// handle reports a sharing violation (32) as it would on Windows.
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

#include "platform/env.h"
#include "platform/win32_error.h"

namespace qaaisp::platform {
namespace {

thread_local uint32_t t_last_error = 0;

std::string ParentOf(const std::string& path) {
  auto pos = path.find_last_of('/');
  if (pos == std::string::npos) return ".";
  if (pos == 0) return "/";
  return path.substr(0, pos);
}

bool ParentMissing(const std::string& path) {
  struct stat st;
  return ::stat(ParentOf(path).c_str(), &st) != 0 || !S_ISDIR(st.st_mode);
}

void SetErrnoError(int err, const std::string& path, bool directory = false) {
  bool parent_missing = (err == ENOENT || err == ENOTDIR) && ParentMissing(path);
  SetLastErrorCode(Win32ErrorFromErrno(err, parent_missing, directory));
}

FileTime FromTimespec(const struct timespec& ts) {
  return FileTimeFromUnixNanos(ts.tv_sec, ts.tv_nsec);
}

struct timespec ToTimespec(FileTime ft) {
  int64_t ticks = static_cast<int64_t>(ft.ticks()) - static_cast<int64_t>(kUnixEpochTicks);
  struct timespec ts;
  ts.tv_sec = ticks / static_cast<int64_t>(kTicksPerSecond);
  ts.tv_nsec = (ticks % static_cast<int64_t>(kTicksPerSecond)) * 100;
  if (ts.tv_nsec < 0) {
    ts.tv_nsec += 1000000000;
    ts.tv_sec -= 1;
  }
  return ts;
}

// Takes LOCK_EX on an existing file for the length of a delete or replace.
// Returns -1 with 32 when another handle holds the file, -2 when the file
// cannot be opened (the caller then lets the real call report the error).
// The lock must be on the file the name still shows once it is held: the
// file opened may have been deleted and replaced meanwhile (a block file
// freed and taken again), and deleting the name would then remove the new
// holder's file. Only a holder of the lock deletes, so a name that still
// shows the locked file keeps showing it until the delete.
int LockForRemoval(const std::string& path) {
  for (;;) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0) return -2;
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
      ::close(fd);
      SetLastErrorCode(kErrorSharingViolation);
      return -1;
    }
    struct stat held, named;
    if (::fstat(fd, &held) != 0) return fd;
    if (::lstat(path.c_str(), &named) != 0) {
      const int err = errno;
      ::close(fd);
      errno = err;
      return -2;
    }
    // A file already unlinked may have passed its inode number on to the
    // new one, so the numbers match only for a file that is still linked.
    if (held.st_nlink > 0 && held.st_ino == named.st_ino && held.st_dev == named.st_dev) {
      return fd;
    }
    ::close(fd);
  }
}

class PosixFile final : public File {
 public:
  PosixFile(int fd, std::string path) : fd_(fd), path_(std::move(path)) {}
  ~PosixFile() override { ::close(fd_); }

  int64_t ReadAt(uint64_t offset, void* buffer, size_t n) override {
    size_t done = 0;
    while (done < n) {
      ssize_t r = ::pread(fd_, static_cast<char*>(buffer) + done, n - done,
                          static_cast<off_t>(offset + done));
      if (r < 0) {
        if (errno == EINTR) continue;
        SetLastErrorCode(Win32ErrorFromErrno(errno));
        return -1;
      }
      if (r == 0) break;
      done += static_cast<size_t>(r);
    }
    return static_cast<int64_t>(done);
  }

  bool WriteAt(uint64_t offset, const void* data, size_t n) override {
    size_t done = 0;
    while (done < n) {
      ssize_t r = ::pwrite(fd_, static_cast<const char*>(data) + done, n - done,
                           static_cast<off_t>(offset + done));
      if (r < 0) {
        if (errno == EINTR) continue;
        SetLastErrorCode(Win32ErrorFromErrno(errno));
        return false;
      }
      done += static_cast<size_t>(r);
    }
    return true;
  }

  bool Truncate(uint64_t size) override {
    if (::ftruncate(fd_, static_cast<off_t>(size)) != 0) {
      SetLastErrorCode(Win32ErrorFromErrno(errno));
      return false;
    }
    return true;
  }

  bool Sync() override {
    if (::fdatasync(fd_) != 0) {
      SetLastErrorCode(Win32ErrorFromErrno(errno));
      return false;
    }
    return true;
  }

  int64_t Size() override {
    struct stat st;
    if (::fstat(fd_, &st) != 0) {
      SetLastErrorCode(Win32ErrorFromErrno(errno));
      return -1;
    }
    return st.st_size;
  }

  bool GetWriteTime(FileTime* out) override {
    struct stat st;
    if (::fstat(fd_, &st) != 0) {
      SetLastErrorCode(Win32ErrorFromErrno(errno));
      return false;
    }
    *out = FromTimespec(st.st_mtim);
    return true;
  }

  bool SetTimes(const FileTime* /*creation*/, const FileTime* access,
                const FileTime* write) override {
    // Linux cannot set a birth time; callers that need a stable creation
    // stamp get it from the folder stamp instead.
    struct timespec ts[2];
    ts[0].tv_nsec = UTIME_OMIT;
    ts[1].tv_nsec = UTIME_OMIT;
    if (access) ts[0] = ToTimespec(*access);
    if (write) ts[1] = ToTimespec(*write);
    if (::futimens(fd_, ts) != 0) {
      SetLastErrorCode(Win32ErrorFromErrno(errno));
      return false;
    }
    return true;
  }

  const std::string& path() const override { return path_; }

 private:
  int fd_;
  std::string path_;
};

class PosixModule final : public Module {
 public:
  explicit PosixModule(void* handle) : handle_(handle) {}
  ~PosixModule() override { ::dlclose(handle_); }
  void* Symbol(const char* name) override { return ::dlsym(handle_, name); }

 private:
  void* handle_;
};

double SleepScale() {
  static const double scale = [] {
    const char* v = std::getenv("QAAISP_SLEEP_SCALE");
    if (!v || !*v) return 1.0;
    char* end = nullptr;
    double d = std::strtod(v, &end);
    return (end != v && d >= 0) ? d : 1.0;
  }();
  return scale;
}

std::string EscapeEventField(const std::string& s) {
  std::string out;
  out.reserve(s.size());
  for (char c : s) {
    switch (c) {
      case '\r':
        out += "\\r";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\\':
        out += "\\\\";
        break;
      default:
        out += c;
    }
  }
  return out;
}

void AppendToFile(const std::string& path, const std::string& text) {
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (fd < 0) return;
  // One write call per line keeps lines from several processes whole.
  ssize_t ignored = ::write(fd, text.data(), text.size());
  (void)ignored;
  ::close(fd);
}

// Fills an entry of the directory dfd from one stat of it, as a listing
// gives it; false if it has gone.
bool StatEntry(int dfd, bool with_info, DirEntry* entry) {
  struct statx sx;
  if (::statx(dfd, entry->name.c_str(), AT_SYMLINK_NOFOLLOW,
              STATX_BASIC_STATS | (with_info ? STATX_BTIME : 0), &sx) != 0) {
    return false;
  }
  entry->is_directory = S_ISDIR(sx.stx_mode);
  entry->size = sx.stx_size;
  entry->write_time = FileTimeFromUnixNanos(sx.stx_mtime.tv_sec, sx.stx_mtime.tv_nsec);
  if (sx.stx_mask & STATX_BTIME) {
    entry->creation_time = FileTimeFromUnixNanos(sx.stx_btime.tv_sec, sx.stx_btime.tv_nsec);
  }
  return true;
}

// The body of ReadFileWhole on an open descriptor; the share check comes
// before the read, as an open with that share mode would make it.
bool ReadOpenFile(int fd, ShareMode share, ReadBuffer* out, FileInfo* info) {
  struct stat st;
  if (::fstat(fd, &st) != 0) {
    SetLastErrorCode(Win32ErrorFromErrno(errno));
    return false;
  }
  if (S_ISDIR(st.st_mode)) {
    SetLastErrorCode(kErrorAccessDenied);
    return false;
  }
  if (share != ShareMode::kShareAny) {
    const int op = (share == ShareMode::kShareNone ? LOCK_EX : LOCK_SH) | LOCK_NB;
    if (::flock(fd, op) != 0) {
      SetLastErrorCode(errno == EWOULDBLOCK ? kErrorSharingViolation : Win32ErrorFromErrno(errno));
      return false;
    }
  }
  const size_t size = static_cast<size_t>(st.st_size);
  char* data = out->Prepare(size);
  size_t done = 0;
  while (done < size) {
    const ssize_t r = ::pread(fd, data + done, size - done, static_cast<off_t>(done));
    if (r < 0) {
      if (errno == EINTR) continue;
      SetLastErrorCode(Win32ErrorFromErrno(errno));
      return false;
    }
    if (r == 0) break;  // the file shrank meanwhile
    done += static_cast<size_t>(r);
  }
  out->SetSize(done);
  info->exists = true;
  info->is_directory = false;
  info->size = static_cast<uint64_t>(st.st_size);
  info->write_time = FromTimespec(st.st_mtim);
  SetLastErrorCode(0);
  return true;
}

thread_local HeldDirectory* t_held_directory = nullptr;

}  // namespace

HeldDirectory::HeldDirectory(const std::string& path) : path_(path), outer_(t_held_directory) {
  while (path_.size() > 1 && path_.back() == '/') path_.pop_back();
  handle_ = ::open(path_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  t_held_directory = this;
}

HeldDirectory::~HeldDirectory() {
  t_held_directory = outer_;
  if (handle_ >= 0) ::close(handle_);
}

const char* HeldDirectory::NameInHeld(const std::string& path, int* handle) {
  const HeldDirectory* held = t_held_directory;
  if (held == nullptr || held->handle_ < 0) return nullptr;
  const std::string& dir = held->path_;
  if (path.size() <= dir.size() + 1 || path.compare(0, dir.size(), dir) != 0 ||
      path[dir.size()] != '/') {
    return nullptr;
  }
  const char* name = path.c_str() + dir.size() + 1;
  // Only a plain name: anything that would climb or descend walks the path.
  if (std::strchr(name, '/') != nullptr || std::strcmp(name, "..") == 0 ||
      std::strcmp(name, ".") == 0) {
    return nullptr;
  }
  *handle = held->handle_;
  return name;
}

namespace {

class PosixEnv final : public Env {
 public:
  bool TakesConcurrentCalls() override { return true; }

  std::unique_ptr<File> OpenFile(const std::string& path, const OpenOptions& o) override {
    int flags = O_CLOEXEC;
    if (o.read && o.write) {
      flags |= O_RDWR;
    } else if (o.write) {
      flags |= O_WRONLY;
    } else {
      flags |= O_RDONLY;
    }
    switch (o.disposition) {
      case OpenDisposition::kOpenExisting:
        break;
      case OpenDisposition::kCreateNew:
        flags |= O_CREAT | O_EXCL;
        break;
      case OpenDisposition::kCreateAlways:
        flags |= O_CREAT;
        break;
      case OpenDisposition::kOpenAlways:
        flags |= O_CREAT;
        break;
      case OpenDisposition::kTruncateExisting:
        break;
    }
    int fd = ::open(path.c_str(), flags, 0644);
    if (fd < 0) {
      SetErrnoError(errno, path);
      return nullptr;
    }
    struct stat st;
    if (::fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
      ::close(fd);
      SetLastErrorCode(kErrorAccessDenied);
      return nullptr;
    }
    if (o.share != ShareMode::kShareAny) {
      int op = (o.share == ShareMode::kShareNone ? LOCK_EX : LOCK_SH) | LOCK_NB;
      if (::flock(fd, op) != 0) {
        ::close(fd);
        SetLastErrorCode(errno == EWOULDBLOCK ? kErrorSharingViolation
                                              : Win32ErrorFromErrno(errno));
        return nullptr;
      }
      // Creation and lock are one step on Windows but two here: a file
      // deleted in between (a block file broken by a waiter) is no longer
      // the one the name shows, and holding it would lock nothing.
      if (o.disposition == OpenDisposition::kCreateNew && ::fstat(fd, &st) == 0 &&
          st.st_nlink == 0) {
        ::close(fd);
        return OpenFile(path, o);
      }
    }
    // Truncation waits until the share check passed, as on Windows.
    if (o.disposition == OpenDisposition::kCreateAlways ||
        o.disposition == OpenDisposition::kTruncateExisting) {
      if (::ftruncate(fd, 0) != 0) {
        SetLastErrorCode(Win32ErrorFromErrno(errno));
        ::close(fd);
        return nullptr;
      }
    }
    SetLastErrorCode(0);
    return std::make_unique<PosixFile>(fd, path);
  }

  // One fstat serves the directory test, the size and the time.
  bool ReadFileWhole(const std::string& path, ShareMode share, ReadBuffer* out,
                     FileInfo* info) override {
    int held = -1;
    const char* name = HeldDirectory::NameInHeld(path, &held);
    const int fd = name ? ::openat(held, name, O_RDONLY | O_CLOEXEC)
                        : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
      SetErrnoError(errno, path);
      return false;
    }
    const bool done = ReadOpenFile(fd, share, out, info);
    ::close(fd);
    return done;
  }

  bool RemoveFile(const std::string& path) override {
    int fd = LockForRemoval(path);
    if (fd == -1) return false;
    // Gone when we looked: an unlink now could only take a file made since.
    if (fd == -2 && (errno == ENOENT || errno == ENOTDIR)) {
      SetErrnoError(errno, path);
      return false;
    }
    int rc = ::unlink(path.c_str());
    int err = errno;
    if (fd >= 0) ::close(fd);
    if (rc != 0) {
      SetErrnoError(err, path);
      return false;
    }
    return true;
  }

  bool RenamePath(const std::string& from, const std::string& to, bool replace) override {
    int src_fd = LockForRemoval(from);
    if (src_fd == -1) return false;
    int dst_fd = -2;
    struct stat st;
    bool target_exists = ::lstat(to.c_str(), &st) == 0;
    if (target_exists) {
      if (!replace || S_ISDIR(st.st_mode)) {
        if (src_fd >= 0) ::close(src_fd);
        SetLastErrorCode(S_ISDIR(st.st_mode) ? kErrorAlreadyExists : kErrorAlreadyExists);
        return false;
      }
      dst_fd = LockForRemoval(to);
      if (dst_fd == -1) {
        if (src_fd >= 0) ::close(src_fd);
        return false;
      }
    }
    int rc = ::rename(from.c_str(), to.c_str());
    int err = errno;
    if (src_fd >= 0) ::close(src_fd);
    if (dst_fd >= 0) ::close(dst_fd);
    if (rc != 0) {
      SetErrnoError(err, err == ENOENT && !ParentMissing(from) ? to : from);
      return false;
    }
    return true;
  }

  bool CopyFileTo(const std::string& from, const std::string& to, bool fail_if_exists) override {
    int in = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0) {
      SetErrnoError(errno, from);
      return false;
    }
    struct stat st;
    if (::fstat(in, &st) != 0 || S_ISDIR(st.st_mode)) {
      ::close(in);
      SetLastErrorCode(kErrorAccessDenied);
      return false;
    }
    int flags = O_WRONLY | O_CREAT | O_CLOEXEC | (fail_if_exists ? O_EXCL : O_TRUNC);
    int out = ::open(to.c_str(), flags, 0644);
    if (out < 0) {
      int err = errno;
      ::close(in);
      SetErrnoError(err, to);
      return false;
    }
    char buffer[1 << 16];
    bool ok = true;
    for (;;) {
      ssize_t r = ::read(in, buffer, sizeof buffer);
      if (r < 0 && errno == EINTR) continue;
      if (r <= 0) {
        ok = r == 0;
        break;
      }
      ssize_t off = 0;
      while (off < r) {
        ssize_t w = ::write(out, buffer + off, static_cast<size_t>(r - off));
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) {
          ok = false;
          break;
        }
        off += w;
      }
      if (!ok) break;
    }
    int err = errno;
    if (ok) {
      // A copy keeps the source's last-write time, as CopyFile does.
      struct timespec ts[2] = {st.st_atim, st.st_mtim};
      ::futimens(out, ts);
    }
    ::close(in);
    ::close(out);
    if (!ok) {
      SetLastErrorCode(Win32ErrorFromErrno(err));
      ::unlink(to.c_str());
      return false;
    }
    return true;
  }

  bool Stat(const std::string& path, FileInfo* info) override {
    *info = FileInfo{};
    struct statx sx;
    if (::statx(AT_FDCWD, path.c_str(), 0, STATX_BASIC_STATS | STATX_BTIME, &sx) != 0) {
      SetErrnoError(errno, path);
      return false;
    }
    info->exists = true;
    info->is_directory = S_ISDIR(sx.stx_mode);
    info->size = sx.stx_size;
    info->write_time = FileTimeFromUnixNanos(sx.stx_mtime.tv_sec, sx.stx_mtime.tv_nsec);
    info->access_time = FileTimeFromUnixNanos(sx.stx_atime.tv_sec, sx.stx_atime.tv_nsec);
    if (sx.stx_mask & STATX_BTIME) {
      info->creation_time = FileTimeFromUnixNanos(sx.stx_btime.tv_sec, sx.stx_btime.tv_nsec);
    }
    return true;
  }

  bool MakeDirectory(const std::string& path) override {
    if (::mkdir(path.c_str(), 0755) != 0) {
      SetErrnoError(errno, path, /*directory=*/true);
      return false;
    }
    return true;
  }

  bool RemoveDirectory(const std::string& path) override {
    if (::rmdir(path.c_str()) != 0) {
      SetErrnoError(errno, path, true);
      return false;
    }
    return true;
  }

  bool ListDirectory(const std::string& dir, bool with_info, std::vector<DirEntry>* out) override {
    out->clear();
    DIR* d = ::opendir(dir.c_str());
    if (!d) {
      SetErrnoError(errno, dir);
      return false;
    }
    int dfd = ::dirfd(d);
    while (struct dirent* e = ::readdir(d)) {
      if (e->d_name[0] == '.' &&
          (e->d_name[1] == 0 || (e->d_name[1] == '.' && e->d_name[2] == 0))) {
        continue;
      }
      DirEntry entry;
      entry.name = e->d_name;
      if (with_info || e->d_type == DT_UNKNOWN) {
        if (!StatEntry(dfd, with_info, &entry)) continue;  // vanished between readdir and stat
      } else {
        entry.is_directory = e->d_type == DT_DIR;
      }
      out->push_back(std::move(entry));
    }
    ::closedir(d);
    return true;
  }

  void FillEntryInfo(const std::string& dir, DirEntry* entries, size_t count, bool* gone) override {
    const int dfd = ::open(dir.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    for (size_t i = 0; i < count; ++i) gone[i] = dfd < 0 || !StatEntry(dfd, true, &entries[i]);
    if (dfd >= 0) ::close(dfd);
  }

  FileTime NowFileTime() override {
    struct timespec ts;
    ::clock_gettime(CLOCK_REALTIME, &ts);
    return FromTimespec(ts);
  }

  uint64_t TickCountMs() override {
    struct timespec ts;
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * 1000 + static_cast<uint64_t>(ts.tv_nsec) / 1000000;
  }

  void SleepMs(uint32_t ms) override {
    double scaled = ms * SleepScale();
    if (scaled <= 0) return;
    std::this_thread::sleep_for(std::chrono::microseconds(static_cast<int64_t>(scaled * 1000)));
  }

  void ReportEvent(EventType type, uint32_t event_id, const std::string& source,
                   const std::string& first, const std::string& second) override {
    int priority = type == kEventError ? LOG_ERR : type == kEventWarning ? LOG_WARNING : LOG_INFO;
    {
      std::lock_guard<std::mutex> lock(syslog_mutex_);
      ::openlog(source.c_str(), LOG_PID | LOG_NDELAY, LOG_MAIL);
      ::syslog(priority, "%s %s", first.c_str(), second.c_str());
      ::closelog();
    }
    std::string file = GetEnvVar("QAAISP_EVENT_LOG");
    if (!file.empty()) {
      std::string line = std::to_string(static_cast<int>(type)) + "\t" + std::to_string(event_id) +
                         "\t" + EscapeEventField(source) + "\t" + EscapeEventField(first) + "\t" +
                         EscapeEventField(second) + "\n";
      AppendToFile(file, line);
    }
  }

  void DebugOutput(const std::string& text) override {
    std::string file = GetEnvVar("QAAISP_DEBUG_OUTPUT");
    if (!file.empty()) AppendToFile(file, text);
  }

  std::string GetEnvVar(const char* name) override {
    const char* v = std::getenv(name);
    return v ? v : "";
  }

  std::string HostProgramPath() override {
    char buffer[4096];
    ssize_t n = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    if (n < 0) return "";
    return std::string(buffer, static_cast<size_t>(n));
  }

  uint32_t ProcessId() override { return static_cast<uint32_t>(::getpid()); }
  uint32_t ThreadId() override { return static_cast<uint32_t>(::syscall(SYS_gettid)); }

  std::unique_ptr<Module> LoadModule(const std::string& path) override {
    void* h = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!h) {
      SetLastErrorCode(kErrorFileNotFound);
      return nullptr;
    }
    return std::make_unique<PosixModule>(h);
  }

 private:
  std::mutex syslog_mutex_;
};

std::atomic<Env*> g_test_env{nullptr};

}  // namespace

uint32_t LastError() { return t_last_error; }
void SetLastErrorCode(uint32_t code) { t_last_error = code; }

uint32_t Win32ErrorFromErrno(int err, bool parent_missing, bool directory) {
  switch (err) {
    case 0:
      return kErrorSuccess;
    case ENOENT:
    case ENOTDIR:
      return parent_missing ? kErrorPathNotFound : kErrorFileNotFound;
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
      return kErrorAccessDenied;
    case EEXIST:
      return directory ? kErrorAlreadyExists : kErrorFileExists;
    case ENOTEMPTY:
      return kErrorDirNotEmpty;
    case ENAMETOOLONG:
      return kErrorFilenameExcedRange;
    case ENOSPC:
    case EDQUOT:
      return kErrorDiskFull;
    case EMFILE:
    case ENFILE:
      return kErrorTooManyOpenFiles;
    case ENOMEM:
      return kErrorNotEnoughMemory;
    case EBADF:
      return kErrorInvalidHandle;
    case EINVAL:
      return kErrorInvalidParameter;
    case EWOULDBLOCK:
      return kErrorSharingViolation;
    case EBUSY:
      return kErrorBusy;
    case EPIPE:
      return kErrorBrokenPipe;
    case EIO:
      return kErrorGenFailure;
    case ETIMEDOUT:
      return kErrorTimeout;
    default:
      return kErrorGenFailure;
  }
}

Env* Env::Default() {
  Env* test = g_test_env.load(std::memory_order_acquire);
  if (test) return test;
  static PosixEnv* posix = new PosixEnv;  // never destroyed: used from exit handlers
  return posix;
}

void Env::SetDefaultForTesting(Env* env) { g_test_env.store(env, std::memory_order_release); }

bool ReadWholeFile(Env* env, const std::string& path, std::string* out) {
  out->clear();
  auto file = env->OpenFile(path, OpenOptions{});
  if (!file) return false;
  int64_t size = file->Size();
  if (size < 0) return false;
  out->resize(static_cast<size_t>(size));
  int64_t n = size ? file->ReadAt(0, out->data(), out->size()) : 0;
  if (n < 0) return false;
  out->resize(static_cast<size_t>(n));
  return true;
}

bool WriteWholeFileAtomic(Env* env, const std::string& path, std::string_view data) {
  std::string tmp =
      path + ".tmp" + std::to_string(env->ProcessId()) + "_" + std::to_string(env->ThreadId());
  {
    OpenOptions o;
    o.write = true;
    o.disposition = OpenDisposition::kCreateAlways;
    auto file = env->OpenFile(tmp, o);
    if (!file) return false;
    if (!file->WriteAt(0, data.data(), data.size())) {
      uint32_t err = LastError();
      file.reset();
      env->RemoveFile(tmp);
      SetLastErrorCode(err);
      return false;
    }
  }
  if (!env->RenamePath(tmp, path, /*replace=*/true)) {
    uint32_t err = LastError();
    env->RemoveFile(tmp);
    SetLastErrorCode(err);
    return false;
  }
  return true;
}

bool FileExists(Env* env, const std::string& path) {
  FileInfo info;
  return env->Stat(path, &info) && !info.is_directory;
}

bool DirectoryExists(Env* env, const std::string& path) {
  FileInfo info;
  return env->Stat(path, &info) && info.is_directory;
}

}  // namespace qaaisp::platform
