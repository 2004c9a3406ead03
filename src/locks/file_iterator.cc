#include "locks/file_iterator.h"

#include <algorithm>

#include "platform/path_case.h"
#include "platform/win32_error.h"

namespace qaaisp {
namespace {

bool HasWildcard(const std::string& pattern) {
  return pattern.find_first_of("*?") != std::string::npos;
}

bool Wanted(const platform::DirEntry& e, uint32_t filter) {
  return e.is_directory ? (filter & FileIterator::kDirectories) != 0
                        : (filter & FileIterator::kFiles) != 0;
}

}  // namespace

FileIterator::FileIterator(const std::string& pattern_path, uint32_t filter, bool with_info) {
  platform::Env* env = platform::Env::Default();
  std::string native = platform::ToNativeSeparators(pattern_path);
  size_t slash = native.find_last_of('/');
  std::string dir = slash == std::string::npos ? "." : native.substr(0, slash == 0 ? 1 : slash);
  std::string pattern = slash == std::string::npos ? native : native.substr(slash + 1);
  directory_ = platform::ResolveCaseInsensitive(env, dir);

  if (!pattern.empty() && !HasWildcard(pattern)) {
    // A plain name: one stat for the usual exact spelling, a listing only
    // when that misses.
    std::string full = platform::ResolveCaseInsensitive(
        env, directory_ == "/" ? "/" + pattern : directory_ + "/" + pattern);
    platform::FileInfo info;
    ok_ = platform::DirectoryExists(env, directory_);
    if (ok_ && env->Stat(full, &info)) {
      platform::DirEntry e;
      e.name = full.substr(full.find_last_of('/') + 1);
      e.is_directory = info.is_directory;
      e.size = info.size;
      e.write_time = info.write_time;
      e.creation_time = info.creation_time;
      if (Wanted(e, filter)) entries_.push_back(std::move(e));
    }
  } else {
    std::vector<platform::DirEntry> all;
    ok_ = env->ListDirectory(directory_, with_info, &all);
    if (ok_) {
      entries_.reserve(all.size());
      for (auto& e : all) {
        if (Wanted(e, filter) && (pattern.empty() || platform::MatchPattern(pattern, e.name))) {
          entries_.push_back(std::move(e));
        }
      }
    }
  }
  if (!ok_) {
    error_ = platform::kErrorPathNotFound;
  } else if (entries_.empty()) {
    error_ = platform::kErrorFileNotFound;
  }
}

std::string FileIterator::path() const {
  return directory_ == "/" ? "/" + name() : directory_ + "/" + name();
}

void FileIterator::PrepareInfo() { gone_ = std::make_unique<bool[]>(entries_.size()); }

void FileIterator::FillInfo(size_t begin, size_t end) {
  end = std::min(end, entries_.size());
  if (begin >= end) return;
  platform::Env::Default()->FillEntryInfo(directory_, entries_.data() + begin, end - begin,
                                          gone_.get() + begin);
}

void FileIterator::DropVanished() {
  if (!gone_) return;
  size_t kept = 0;
  for (size_t i = 0; i < entries_.size(); ++i) {
    if (gone_[i]) continue;
    if (kept != i) entries_[kept] = std::move(entries_[i]);
    ++kept;
  }
  entries_.resize(kept);
  gone_.reset();
  if (entries_.empty() && ok_) error_ = platform::kErrorFileNotFound;
}

void FileIterator::SortByName(bool ignore_case) {
  auto first = entries_.begin() + static_cast<std::ptrdiff_t>(std::min(position_, entries_.size()));
  if (ignore_case) {
    std::sort(first, entries_.end(), [](const platform::DirEntry& a, const platform::DirEntry& b) {
      int c = platform::CompareNoCase(a.name, b.name);
      return c != 0 ? c < 0 : a.name < b.name;
    });
  } else {
    std::sort(first, entries_.end(), [](const platform::DirEntry& a, const platform::DirEntry& b) {
      return a.name < b.name;
    });
  }
}

}  // namespace qaaisp
