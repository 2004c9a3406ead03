#include "qastore/store_dump.h"

#include <algorithm>

#include "base/dates.h"
#include "base/store_files.h"
#include "index/index_item.h"
#include "message/message_index.h"
#include "message/message_properties.h"
#include "message/message_settings.h"
#include "persist/index_offsets.h"
#include "platform/path_case.h"
#include "qastore/folder_snapshot.h"
#include "store/folder_status_file.h"

namespace qaaisp::qastore {
namespace {

enum class FileKind { kIndex, kStatus, kOffsets, kSize, kMarker, kMessage, kUnknown };

FileKind KindOf(const std::string& name) {
  using platform::EqualsNoCase;
  for (const char* n : {files::kIndexXml, files::kGroupsXml, files::kIndexBak, files::kIndexBad}) {
    if (EqualsNoCase(name, n)) return FileKind::kIndex;
  }
  if (EqualsNoCase(name, files::kFolderDat)) return FileKind::kStatus;
  if (EqualsNoCase(name, files::kIndexBin) || EqualsNoCase(name, files::kGroupsBin)) {
    return FileKind::kOffsets;
  }
  if (EqualsNoCase(name, files::kDirSize)) return FileKind::kSize;
  for (const char* n :
       {files::kChangeFlag, files::kCachedFlag, files::kFolderDty, files::kIndexDat}) {
    if (EqualsNoCase(name, n)) return FileKind::kMarker;
  }
  if (platform::MatchPattern("*.blk", name)) return FileKind::kMarker;
  if (platform::MatchPattern("*.MAI", name)) return FileKind::kMessage;
  return FileKind::kUnknown;
}

const char* KindName(FileKind kind) {
  switch (kind) {
    case FileKind::kIndex:
      return "index";
    case FileKind::kStatus:
      return "status record";
    case FileKind::kOffsets:
      return "offset table";
    case FileKind::kSize:
      return "size file";
    case FileKind::kMarker:
      return "marker";
    case FileKind::kMessage:
      return "message";
    case FileKind::kUnknown:
      break;
  }
  return "other";
}

uint32_t Le32(const std::string& bytes, size_t at) {
  uint32_t v = 0;
  for (int i = 3; i >= 0; --i) v = (v << 8) | static_cast<unsigned char>(bytes[at + i]);
  return v;
}

std::string TimeText(platform::FileTime t) {
  char text[40];
  if (t.IsZero() || !FormatExtendedDate(t, text, sizeof text)) return "-";
  return std::string(text) + "Z";
}

std::string BaseName(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool DumpIndex(platform::Env* env, const std::string& path, Result* out, std::string* error) {
  IndexSnapshot index;
  if (!ReadIndexFile(env, path, &index)) {
    *error = "cannot read " + path;
    return false;
  }
  // Rows in the order they stand in the file.
  std::vector<const IndexItemPropertyContainer*> rows;
  for (const auto& [uid, row] : index.table->by_uid()) rows.push_back(row);
  std::sort(rows.begin(), rows.end(),
            [](const auto* a, const auto* b) { return a->FileOffset < b->FileOffset; });
  for (const IndexItemPropertyContainer* row : rows) {
    out->records.push_back(RowRecord(*row, /*with_positions=*/true));
  }
  const std::string state = index.fault.empty() ? "well formed" : "malformed: " + index.fault;
  out->summary = BaseName(path) + ": " + std::to_string(index.file_size) + " bytes, last UID " +
                 std::to_string(index.table->LastUID) + ", " + std::to_string(rows.size()) +
                 " rows, " + state;
  out->document = Json{{"file", path},
                       {"kind", "index"},
                       {"bytes", index.file_size},
                       {"modified", TimeText(index.write_time)},
                       {"last_uid", index.table->LastUID},
                       {"fault", index.fault},
                       {"rows", out->records}};
  return true;
}

bool DumpMessage(const std::string& path, Result* out, std::string* error) {
  // What a scan makes of the file, without brands: the row it would get.
  MessageHeaderInfo info;
  info.Reset();
  SetBounded(&info.FileName, BaseName(path), kFileNameFieldSize);
  uint64_t size = 0;
  if (!IndexMessage(path, &info, false, UidBrandingSetting(), kAttachmentsVerified, false, &size)) {
    *error = "cannot read " + path;
    return false;
  }
  info.Size = static_cast<uint32_t>(size);
  IndexItem item;
  item.Create();
  SetMessageProperties(&item, &info, /*keys_only=*/false);
  out->records = RowRecord(*item.container(), /*with_positions=*/false);
  out->records.erase("UID");
  return true;
}

// One line about a store file, for the overview of a directory.
std::string Summary(platform::Env* env, const std::string& path, FileKind kind) {
  std::string bytes;
  std::string error;
  switch (kind) {
    case FileKind::kIndex: {
      IndexSnapshot index;
      if (!ReadIndexFile(env, path, &index)) return "unreadable";
      return std::to_string(index.table->by_id().size()) + " rows, last UID " +
             std::to_string(index.table->LastUID) +
             (index.fault.empty() ? "" : ", malformed: " + index.fault);
    }
    case FileKind::kStatus: {
      if (!platform::ReadWholeFile(env, path, &bytes)) return "unreadable";
      Json r = FolderDetailsRecord(bytes, &error);
      if (r.is_null()) return error;
      return std::to_string(r["total"].get<int32_t>()) + " messages, " +
             std::to_string(r["seen"].get<int32_t>()) + " seen, last UID " +
             std::to_string(r["last_uid"].get<uint32_t>());
    }
    case FileKind::kOffsets: {
      Json header;
      Json rows = Json::array();
      if (!platform::ReadWholeFile(env, path, &bytes)) return "unreadable";
      if (!OffsetTableRecords(bytes, &header, &rows, &error)) return error;
      return std::to_string(rows.size()) + " records";
    }
    case FileKind::kSize:
      if (!platform::ReadWholeFile(env, path, &bytes)) return "unreadable";
      return bytes.substr(0, 20) + " KB";
    default:
      return "";
  }
}

bool DumpDirectory(platform::Env* env, const std::string& path, Result* out) {
  std::vector<platform::DirEntry> entries;
  if (!env->ListDirectory(path, true, &entries)) return false;
  std::sort(entries.begin(), entries.end(),
            [](const auto& a, const auto& b) { return a.name < b.name; });
  size_t messages = 0;
  uint64_t message_bytes = 0;
  for (const platform::DirEntry& e : entries) {
    if (e.is_directory) continue;
    const FileKind kind = KindOf(e.name);
    if (kind == FileKind::kMessage && e.name[0] != '_') {
      ++messages;
      message_bytes += e.size;
      continue;
    }
    out->records.push_back(Json{{"file", e.name},
                                {"kind", KindName(kind)},
                                {"bytes", e.size},
                                {"modified", TimeText(e.write_time)},
                                {"summary", Summary(env, path + "/" + e.name, kind)}});
  }
  out->summary =
      std::to_string(messages) + " message files, " + std::to_string(message_bytes) + " bytes";
  return true;
}

}  // namespace

Json FolderDetailsRecord(const std::string& bytes, std::string* error) {
  static const char* const kFields[] = {
      "reserved0", "deleted", "reserved2",    "answered",       "flagged",  "first_seen", "total",
      "seen",      "recent",  "recent_count", "recent_count_2", "last_uid", "reserved12"};
  if (bytes.size() != kFolderDetailsBytes) {
    *error = "not a status record: " + std::to_string(bytes.size()) + " bytes instead of 52";
    return nullptr;
  }
  Json r = Json::object();
  for (size_t i = 0; i < 13; ++i) {
    const uint32_t v = Le32(bytes, i * 4);
    if (i == 11) {
      r[kFields[i]] = v;
    } else {
      r[kFields[i]] = static_cast<int32_t>(v);
    }
  }
  return r;
}

bool OffsetTableRecords(const std::string& bytes, Json* header, Json* rows, std::string* error) {
  if (bytes.size() < persist::kOffsetTableHeaderBytes) {
    *error = "too short for the offset table's header";
    return false;
  }
  const size_t body = bytes.size() - persist::kOffsetTableHeaderBytes;
  *header = Json{{"version", Le32(bytes, 0)},
                 {"records", body / persist::kOffsetRecordBytes},
                 {"trailing_bytes", body % persist::kOffsetRecordBytes}};
  for (size_t at = persist::kOffsetTableHeaderBytes;
       at + persist::kOffsetRecordBytes <= bytes.size(); at += persist::kOffsetRecordBytes) {
    const uint64_t received = Le32(bytes, at + 8) | (uint64_t{Le32(bytes, at + 12)} << 32);
    rows->push_back(Json{{"row", rows->size() + 1},
                         {"offset", Le32(bytes, at)},
                         {"uid", Le32(bytes, at + 4)},
                         {"received", TimeText(platform::FileTime::FromTicks(received))}});
  }
  return true;
}

bool DumpPath(platform::Env* env, const std::string& path, Result* out, std::string* error) {
  platform::FileInfo info;
  if (!env->Stat(path, &info)) {
    *error = "no such file or directory: " + path;
    return false;
  }
  if (info.is_directory) {
    if (DumpDirectory(env, path, out)) return true;
    *error = "cannot list " + path;
    return false;
  }
  const FileKind kind = KindOf(BaseName(path));
  std::string bytes;
  switch (kind) {
    case FileKind::kIndex:
      return DumpIndex(env, path, out, error);
    case FileKind::kMessage:
      return DumpMessage(path, out, error);
    case FileKind::kUnknown:
      *error = "not a file of the store: " + path;
      return false;
    default:
      break;
  }
  if (!platform::ReadWholeFile(env, path, &bytes)) {
    *error = "cannot read " + path;
    return false;
  }
  if (kind == FileKind::kStatus) {
    out->records = FolderDetailsRecord(bytes, error);
    return !out->records.is_null();
  }
  if (kind == FileKind::kOffsets) {
    Json header;
    if (!OffsetTableRecords(bytes, &header, &out->records, error)) return false;
    out->summary = BaseName(path) + ": version " +
                   std::to_string(header["version"].get<uint32_t>()) + ", " +
                   std::to_string(out->records.size()) + " records";
    out->document = Json{
        {"file", path}, {"kind", "offset table"}, {"header", header}, {"records", out->records}};
    return true;
  }
  out->records = Json{{"file", path},
                      {"kind", KindName(kind)},
                      {"bytes", info.size},
                      {"modified", TimeText(info.write_time)}};
  if (kind == FileKind::kSize) out->records["kilobytes"] = LeadingDecimal(bytes);
  return true;
}

}  // namespace qaaisp::qastore
