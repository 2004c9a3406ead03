#include "qastore/folder_snapshot.h"

#include "base/store_files.h"
#include "index/property_map.h"
#include "locks/file_iterator.h"
#include "persist/index_load_target.h"
#include "persist/stream_index_reader.h"
#include "store/store_index_files.h"

namespace qaaisp::qastore {

bool ReadIndexFile(platform::Env* env, const std::string& index_path, IndexSnapshot* out) {
  out->path = index_path;
  platform::FileInfo info;
  out->present = env->Stat(index_path, &info) && !info.is_directory;
  if (!out->present) return true;
  out->file_size = info.size;
  out->write_time = info.write_time;
  std::string bytes;
  if (!platform::ReadWholeFile(env, index_path, &bytes)) return false;
  // The stream reader's own pass, over bytes in memory: it accepts every
  // form of the file the library writes and reports the first fault,
  // without the recovery steps of a load (which move files about).
  persist::StreamPassOptions options;
  options.mode = LoadFull;
  options.garbage_threshold = 0xFFFFFFFFu;
  persist::StreamPassOutcome outcome;
  {
    const size_t slash = index_path.find_last_of('/');
    persist::IndexLoadTarget target(out->table.get(),
                                    slash == std::string::npos ? "" : index_path.substr(0, slash));
    outcome = persist::RunStreamIndexPass(bytes, options, &target);
  }
  out->fault = outcome.fault;
  // The rows are all there is: a lookup must not try to load them again.
  out->table->LoadState = LoadFull;
  return true;
}

bool ReadIndexSnapshot(platform::Env* env, const std::string& folder_path, int32_t item_class,
                       IndexSnapshot* out) {
  return ReadIndexFile(env, IndexFilePath(folder_path, item_class), out);
}

ItemFiles ListMessageFiles(const std::string& folder_path) {
  ItemFiles out;
  FileIterator it(folder_path + "/*.MAI", FileIterator::kFiles, /*with_info=*/true);
  out.listed = it.ok();
  it.SortByName(/*ignore_case=*/true);
  for (; !it.Done(); it.Next()) {
    const std::string& name = it.name();
    if (name.empty() || name[0] == '_' || name[0] == '.') continue;
    if (name.size() >= kIndexableNameLimit) {
      out.too_long.push_back(name);
      continue;
    }
    out.files.push_back(it.entry());
  }
  return out;
}

Json RowValue(const IndexItemPropertyContainer& row, const std::string& name) {
  if (!row.HasValue(name)) return nullptr;
  const PropertyKey key = LookupProperty(name, row.local_map());
  if (key.type == kPropertyInteger) return row.GetIntegerAt(key);
  return row.GetText(name);
}

Json RowRecord(const IndexItemPropertyContainer& row, bool with_positions) {
  PropertyValues values;
  row.Flatten(nullptr, &values);
  Json record = Json::object();
  record["ID"] = row.GetText("ID");
  record["UID"] = row.Uid();
  for (const auto& [name, value] : values) {
    if (name == "ID" || name == "UID") continue;
    if (!with_positions && (name == "SEQ" || name == "IDX")) continue;
    record[name] = RowValue(row, name);
  }
  if (with_positions) {
    record["FileOffset"] = row.FileOffset;
    record["FileLength"] = row.FileLength;
  }
  return record;
}

std::vector<std::string> SplitFlags(const std::string& flags) {
  std::vector<std::string> words;
  size_t i = 0;
  while (i < flags.size()) {
    const size_t blank = flags.find(' ', i);
    const size_t end = blank == std::string::npos ? flags.size() : blank;
    if (end > i) words.push_back(flags.substr(i, end - i));
    i = end + 1;
  }
  return words;
}

}  // namespace qaaisp::qastore
