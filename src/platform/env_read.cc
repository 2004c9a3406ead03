// Whole-file reads into a reused buffer, and the portable forms of
// Env::ReadFileWhole and Env::FillEntryInfo that any Env (fakes included)
// gets by default.
#include "platform/env.h"

namespace qaaisp::platform {

char* ReadBuffer::Prepare(size_t n) {
  if (n > capacity_ || !data_) {
    // Grown with room to spare, so that a run of slightly larger files does
    // not reallocate at each one.
    const size_t room = n > capacity_ + capacity_ / 2 ? n : capacity_ + capacity_ / 2;
    data_.reset(new char[room == 0 ? 1 : room]);
    capacity_ = room == 0 ? 1 : room;
  }
  size_ = 0;
  return data_.get();
}

void ReadBuffer::Release() {
  data_.reset();
  size_ = 0;
  capacity_ = 0;
}

bool Env::ReadFileWhole(const std::string& path, ShareMode share, ReadBuffer* out, FileInfo* info) {
  OpenOptions options;
  options.share = share;
  std::unique_ptr<File> file = OpenFile(path, options);
  FileTime write_time;
  if (!file || !file->GetWriteTime(&write_time)) return false;
  const int64_t size = file->Size();
  if (size < 0) return false;
  char* data = out->Prepare(static_cast<size_t>(size));
  const int64_t got = size ? file->ReadAt(0, data, static_cast<size_t>(size)) : 0;
  if (got < 0) return false;
  out->SetSize(static_cast<size_t>(got));
  info->exists = true;
  info->is_directory = false;
  info->size = static_cast<uint64_t>(size);
  info->write_time = write_time;
  return true;
}

void Env::FillEntryInfo(const std::string& dir, DirEntry* entries, size_t count, bool* gone) {
  for (size_t i = 0; i < count; ++i) {
    FileInfo info;
    gone[i] = !Stat(dir == "/" ? "/" + entries[i].name : dir + "/" + entries[i].name, &info) ||
              !info.exists;
    if (gone[i]) continue;
    entries[i].is_directory = info.is_directory;
    entries[i].size = info.size;
    entries[i].write_time = info.write_time;
    entries[i].creation_time = info.creation_time;
  }
}

}  // namespace qaaisp::platform
