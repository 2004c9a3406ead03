// Walks the entries of one directory that match a listing pattern, the way
// the store always listed folders: "dir/*.MAI" matches without regard to
// case, and the walk can be limited to files or to directories.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/env.h"

namespace qaaisp {

class FileIterator {
 public:
  // What the walk yields.
  enum Filter : uint32_t { kFiles = 1, kDirectories = 2, kFilesAndDirectories = 3 };

  // pattern_path is a directory and a pattern as its last component ("/a/b/*.MAI",
  // "\" accepted for "/"). The directory is matched to an existing one
  // without regard to case. With with_info each entry has its size and
  // times, at the price of a stat per entry.
  explicit FileIterator(const std::string& pattern_path, uint32_t filter = kFilesAndDirectories,
                        bool with_info = false);

  // True if the directory could be listed (even when nothing matched).
  bool ok() const { return ok_; }
  // 0 if something matched, 2 if the directory had no match, 3 if the
  // directory could not be listed.
  uint32_t error() const { return error_; }
  const std::string& directory() const { return directory_; }

  bool Done() const { return position_ >= entries_.size(); }
  void Next() { ++position_; }
  const platform::DirEntry& entry() const { return entries_[position_]; }
  const std::string& name() const { return entries_[position_].name; }
  // directory() + "/" + name().
  std::string path() const;

  // Orders the entries not yet walked by name, byte for byte or without
  // regard to ASCII case (ties then fall back to bytes, so the order is
  // the same in every process).
  void SortByName(bool ignore_case);

  // Number of matching entries in all, walked or not.
  size_t size() const { return entries_.size(); }

  // For a walk listed without info, the sizes and times in parts: after
  // one call of PrepareInfo, threads may fill disjoint ranges of entries
  // with FillInfo (a stat each) at once; DropVanished then drops the
  // entries that had gone meanwhile, before the walk.
  void PrepareInfo();
  void FillInfo(size_t begin, size_t end);
  void DropVanished();

 private:
  std::string directory_;
  std::vector<platform::DirEntry> entries_;
  std::unique_ptr<bool[]> gone_;
  size_t position_ = 0;
  bool ok_ = false;
  uint32_t error_ = 0;
};

}  // namespace qaaisp
