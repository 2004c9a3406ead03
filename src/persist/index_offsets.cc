#include "persist/index_offsets.h"

#include "base/dates.h"

namespace qaaisp::persist {
namespace {

void PutLittleEndian(uint64_t value, int bytes, std::string* out) {
  for (int i = 0; i < bytes; ++i) out->push_back(static_cast<char>((value >> (8 * i)) & 0xFF));
}

}  // namespace

bool IndexOffsetTable::Set(platform::Env* env, int64_t index, uint32_t offset, uint32_t uid,
                           uint64_t received) {
  if (index < 1 || index > static_cast<int64_t>(records_.size())) {
    env->DebugOutput(kOffsetSlotError);
    return false;
  }
  records_[static_cast<size_t>(index - 1)] = OffsetRecord{offset, uid, received};
  return true;
}

std::string IndexOffsetTable::EncodeHeader() {
  std::string header;
  PutLittleEndian(kOffsetTableVersion, 4, &header);
  header.append(kOffsetTableHeaderBytes - 4, '\0');
  return header;
}

std::string IndexOffsetTable::EncodeRecords() const {
  std::string out;
  out.reserve(records_.size() * kOffsetRecordBytes);
  for (const OffsetRecord& r : records_) {
    PutLittleEndian(r.offset, 4, &out);
    PutLittleEndian(r.uid, 4, &out);
    PutLittleEndian(r.received, 8, &out);
  }
  return out;
}

void IndexOffsetTable::Store(platform::Env* env, const std::string& path,
                             bool index_filtered) const {
  if (index_filtered || given_up_) {
    env->RemoveFile(path);
    return;
  }
  platform::OpenOptions options;
  options.read = false;
  options.write = true;
  if (append_mode_) {
    if (!platform::FileExists(env, path)) return;
    options.disposition = platform::OpenDisposition::kOpenExisting;
    std::unique_ptr<platform::File> file = env->OpenFile(path, options);
    if (file == nullptr) {
      env->RemoveFile(path);
      return;
    }
    int64_t end = file->Size();
    std::string records = EncodeRecords();
    if (end < 0 || !file->WriteAt(static_cast<uint64_t>(end), records.data(), records.size())) {
      // A half-appended table would misplace every later record.
      file.reset();
      env->RemoveFile(path);
    }
    return;
  }
  options.disposition = platform::OpenDisposition::kCreateAlways;
  std::unique_ptr<platform::File> file = env->OpenFile(path, options);
  if (file == nullptr) {
    env->RemoveFile(path);
    return;
  }
  std::string bytes = EncodeHeader() + EncodeRecords();
  if (!file->WriteAt(0, bytes.data(), bytes.size())) {
    file.reset();
    env->RemoveFile(path);
  }
}

uint64_t ReceivedFileTime(std::string_view received) {
  std::string text(received);
  platform::FileTime time;
  ParseExtendedDate(text.c_str(), &time);
  return time.ticks();
}

std::string OffsetTablePath(const std::string& index_path) {
  std::string path = index_path;
  if (path.size() >= 4 && path.compare(path.size() - 4, 4, ".xml") == 0) {
    path.replace(path.size() - 4, 4, ".bin");
  }
  return path;
}

}  // namespace qaaisp::persist
