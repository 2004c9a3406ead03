#include "qastore/folder_audit.h"

#include <map>

#include "base/store_files.h"
#include "index/index_item.h"
#include "index/store_paths.h"
#include "message/message_header_info.h"
#include "message/message_index.h"
#include "message/message_properties.h"
#include "message/message_settings.h"
#include "platform/path_case.h"
#include "qastore/folder_snapshot.h"
#include "store/folder_status_file.h"

namespace qaaisp::qastore {
namespace {

bool HasFlag(const std::vector<std::string>& flags, const std::string& flag) {
  for (const std::string& f : flags) {
    if (platform::EqualsNoCase(f, flag)) return true;
  }
  return false;
}

Json Finding(const FolderRef& folder, const char* kind, const std::string& item,
             const std::string& detail) {
  return Json{{"folder", folder.Label()}, {"finding", kind}, {"item", item}, {"detail", detail}};
}

}  // namespace

bool FolderAudit::HasFindings() const {
  return !index_fault.empty() || !rows_without_files.empty() || !files_without_rows.empty() ||
         !changed_files.empty() || !unindexable_files.empty() || status_differs ||
         (!index_present && files > 0);
}

void FolderAudit::AppendFindings(const FolderRef& folder, Json* out) const {
  if (!index_present && files > 0) {
    out->push_back(Finding(folder, "missing index", "",
                           std::to_string(files) + " message files and no index file"));
  }
  if (!index_fault.empty()) out->push_back(Finding(folder, "malformed index", "", index_fault));
  for (const std::string& id : rows_without_files) {
    out->push_back(Finding(folder, "missing file", id, "row without its file"));
  }
  if (index_present) {
    for (const std::string& id : files_without_rows) {
      out->push_back(Finding(folder, "unindexed file", id, "file without a row"));
    }
  }
  for (const std::string& id : changed_files) {
    out->push_back(Finding(folder, "changed file", id, "size or time differ from the row"));
  }
  for (const std::string& id : unindexable_files) {
    out->push_back(Finding(folder, "unindexable file", id, "name of 64 characters or more"));
  }
  if (status_differs) out->push_back(Finding(folder, "status differs", "", status_detail));
  for (const LostFlags& lost : flags_at_risk) {
    std::string words;
    for (const std::string& f : lost.flags) words += (words.empty() ? "" : " ") + f;
    out->push_back(Finding(folder, "flags at risk", lost.id, words));
  }
}

std::string FlagsFromFile(const std::string& folder_path, const std::string& file_name) {
  // As a scan of a folder without its index makes the row. The folder stamp
  // only decides UIDs, not flags, and reading it may create the stamp file,
  // so it is left at 0 here.
  MessageHeaderInfo info;
  info.Reset();
  SetBounded(&info.FileName, file_name, kFileNameFieldSize);
  if (!IndexMessage(folder_path + "/" + file_name, &info, /*clear_flags=*/false,
                    UidBrandingSetting(), kAttachmentsVerified, /*ignore_read=*/false)) {
    return "";
  }
  IndexItem item;
  item.Create();
  SetMessageProperties(&item, &info, /*keys_only=*/false);
  std::string flags;
  item.GetProperty("FLAGSTATUS", &flags);
  return flags;
}

bool AuditFolder(platform::Env* env, const FolderRef& folder, const AuditOptions& options,
                 FolderAudit* out, std::string* error) {
  *out = FolderAudit{};
  IndexSnapshot index;
  if (!ReadIndexSnapshot(env, folder.path, kClassMessage, &index)) {
    *error = "cannot read " + index.path;
    return false;
  }
  out->index_present = index.present;
  out->index_fault = index.fault;
  out->rows = index.table->by_id().size();
  out->last_uid = index.table->LastUID;
  out->marked_dirty = platform::FileExists(env, folder.path + "/" + files::kChangeFlag);

  const ItemFiles item_files = ListMessageFiles(folder.path);
  out->files = item_files.files.size();
  out->unindexable_files = item_files.too_long;
  std::map<std::string, const platform::DirEntry*, std::less<>> by_name;
  for (const platform::DirEntry& e : item_files.files) by_name.emplace(e.name, &e);

  for (const auto& [id, row] : index.table->by_id()) {
    auto file = by_name.find(id);
    if (file == by_name.end()) {
      // A row may name a file the listing pattern does not take.
      if (!platform::FileExists(env, folder.path + "/" + id)) out->rows_without_files.push_back(id);
      continue;
    }
    const platform::DirEntry& entry = *file->second;
    const uint32_t row_size = static_cast<uint32_t>(row->GetInteger("SIZE"));
    const uint32_t row_time = static_cast<uint32_t>(row->GetInteger("MODIFIEDDATE"));
    if (row_size != static_cast<uint32_t>(entry.size) ||
        row_time != PackedModifiedDate(entry.write_time)) {
      out->changed_files.push_back(id);
    }
    if (options.check_flags) {
      const std::vector<std::string> file_flags = SplitFlags(FlagsFromFile(folder.path, id));
      LostFlags lost{id, {}};
      for (const std::string& flag : SplitFlags(row->GetText("FLAGSTATUS"))) {
        if (!HasFlag(file_flags, flag)) lost.flags.push_back(flag);
      }
      if (!lost.flags.empty()) out->flags_at_risk.push_back(std::move(lost));
    }
  }
  out->flags_checked = options.check_flags;
  for (const platform::DirEntry& e : item_files.files) {
    if (!index.table->by_id().contains(e.name)) out->files_without_rows.push_back(e.name);
  }

  // The status file is a cache that may be absent; when present, its total
  // and last UID must agree with the rows.
  const std::string status_path = FolderStatusPathIn(folder.path);
  if (index.present && platform::FileExists(env, status_path)) {
    FolderDetails cached{};
    ReadFolderStatusFile(env, status_path, &cached);
    const size_t total = index.table->by_id().size();
    if (static_cast<size_t>(cached.Total) != total ||
        static_cast<uint32_t>(cached.LastUID) != index.table->LastUID) {
      out->status_differs = true;
      out->status_detail = "status file: " + std::to_string(cached.Total) + " messages, last UID " +
                           std::to_string(static_cast<uint32_t>(cached.LastUID)) +
                           "; index: " + std::to_string(total) + " messages, last UID " +
                           std::to_string(index.table->LastUID);
    }
  }
  return true;
}

}  // namespace qaaisp::qastore
