// status and size: what a folder's index and side files say about it, and
// mailbox sizes as recorded beside what the files add up to.
#include <chrono>
#include <memory>

#include "base/store_files.h"
#include "index/store_paths.h"
#include "qaaisp/qaaisp.h"
#include "qastore/commands.h"
#include "qastore/folder_snapshot.h"
#include "qastore/store_walk.h"
#include "store/folder_status_file.h"

namespace qaaisp::qastore {
namespace {

struct StatusOptions {
  Place place;
  int opens = 2;
  bool dry_run = false;
};

// A size file's number (kilobytes) and age in seconds; null when there is
// none.
Json SizeFileRecord(platform::Env* env, const std::string& path, Json* age) {
  platform::FileInfo info;
  std::string text;
  if (!env->Stat(path, &info) || !platform::ReadWholeFile(env, path, &text)) {
    *age = nullptr;
    return nullptr;
  }
  text.resize(std::min<size_t>(text.size(), 2048));
  uint64_t value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') break;
    value = value * 10 + static_cast<uint64_t>(c - '0');
  }
  const int64_t seconds = platform::UnixSecondsFromFileTime(env->NowFileTime()) -
                          platform::UnixSecondsFromFileTime(info.write_time);
  *age = seconds < 0 ? 0 : seconds;
  return value;
}

// The size measure by directory walk: every file whose name does not begin
// with "_", each rounded down to whole kilobytes.
uint64_t WalkKilobytes(platform::Env* env, const std::string& dir) {
  std::vector<platform::DirEntry> entries;
  uint64_t total = 0;
  if (!env->ListDirectory(dir, true, &entries)) return 0;
  for (const platform::DirEntry& e : entries) {
    if (e.name.empty() || e.name[0] == '_') continue;
    total += e.is_directory ? WalkKilobytes(env, dir + "/" + e.name)
                            : static_cast<uint32_t>(e.size) >> 10;
  }
  return total;
}

int RunStatus(const ToolContext& context, const StatusOptions& options) {
  const std::string path = FolderDirectory(options.place);
  if (!platform::DirectoryExists(context.env, path)) {
    ReportError("no folder " + path);
    return kExitError;
  }
  IndexSnapshot index;
  if (!ReadIndexSnapshot(context.env, path, kClassMessage, &index)) {
    ReportError("cannot read " + index.path);
    return kExitError;
  }
  FolderDetails d{};
  index.table->GetFolderDetails(&d);
  Json r = {{"folder", options.place.folder},
            {"path", path},
            {"index", !index.present        ? "missing"
                      : index.fault.empty() ? "ok"
                                            : "malformed: " + index.fault},
            {"index_bytes", index.file_size},
            {"messages", d.Total},
            {"seen", d.Seen},
            {"unseen", d.Total - d.Seen},
            {"recent", d.Recent},
            {"flagged", d.Flagged},
            {"answered", d.Answered},
            {"deleted", d.Deleted},
            {"first_seen", d.FirstSeen},
            {"last_uid", static_cast<uint32_t>(d.LastUID)}};
  const std::string status_path = FolderStatusPathIn(path);
  if (platform::FileExists(context.env, status_path)) {
    FolderDetails cached{};
    ReadFolderStatusFile(context.env, status_path, &cached);
    r["cached_messages"] = cached.Total;
    r["cached_seen"] = cached.Seen;
    r["cached_recent_count"] = cached.RecentCount;
    r["cached_last_uid"] = static_cast<uint32_t>(cached.LastUID);
  } else {
    r["cached_messages"] = nullptr;
  }
  const ItemFiles item_files = ListMessageFiles(path);
  uint64_t bytes = 0;
  for (const platform::DirEntry& e : item_files.files) bytes += e.size;
  r["message_files"] = item_files.files.size();
  r["message_bytes"] = bytes;
  Json age;
  r["size_file_kb"] = SizeFileRecord(context.env, path + "/" + files::kDirSize, &age);
  r["dirty"] = platform::FileExists(context.env, path + "/" + files::kChangeFlag);
  r["blocked"] = platform::FileExists(context.env, path + "/" + files::kIndexBlk);
  Result result;
  result.records = std::move(r);
  context.Print(result);
  return kExitOk;
}

int RunSize(const ToolContext& context, const StatusOptions& options) {
  std::vector<MailboxRef> boxes;
  std::string error;
  if (!FindMailboxes(context.env, options.place, &boxes, &error)) {
    ReportError(error);
    return kExitError;
  }
  Result result;
  uint64_t measured_total = 0;
  Progress progress(context.progress(), "mailboxes", boxes.size(), context.env);
  for (size_t i = 0; i < boxes.size(); ++i) {
    const MailboxRef& box = boxes[i];
    Json age;
    Json recorded = SizeFileRecord(context.env, box.path + "/" + files::kDirSize, &age);
    const uint64_t measured = WalkKilobytes(context.env, box.path);
    measured_total += measured;
    // What the folder indexes add up to, as the folder size sum counts.
    std::vector<FolderRef> folders;
    FindFolders(context.env, {box.postoffice, box.mailbox, "INBOX", false}, &folders, &error);
    uint64_t indexed = 0;
    uint64_t rows = 0;
    for (const FolderRef& f : folders) {
      IndexSnapshot index;
      if (!ReadIndexSnapshot(context.env, f.path, kClassMessage, &index)) continue;
      for (const auto& [id, row] : index.table->by_id()) {
        indexed += static_cast<uint32_t>(row->GetInteger("SIZE"));
      }
      rows += index.table->by_id().size();
    }
    result.records.push_back(Json{{"postoffice", box.postoffice},
                                  {"mailbox", box.mailbox},
                                  {"recorded_kb", recorded},
                                  {"recorded_age_s", age},
                                  {"measured_kb", measured},
                                  {"indexed_kb", indexed / 1024},
                                  {"folders", folders.size()},
                                  {"rows", rows}});
    progress.Update(i + 1, box.postoffice + "/" + box.mailbox);
  }
  progress.Finish();
  result.summary = std::to_string(boxes.size()) + " mailboxes, " + std::to_string(measured_total) +
                   " KB measured";
  context.Print(result);
  return kExitOk;
}

// Opens a folder's index through the exports as a server does, several
// times in one process: the first open loads the file, and later ones keep
// the rows in memory for as long as the file is unchanged.
int RunOpen(const ToolContext& context, const StatusOptions& options) {
  const Place& place = options.place;
  const std::string path = FolderDirectory(place);
  if (!platform::DirectoryExists(context.env, path)) {
    ReportError("no folder " + path);
    return kExitError;
  }
  Result result;
  if (options.dry_run) {
    // An open re-scans a folder marked as changed or without an index.
    const bool scan = platform::FileExists(context.env, path + "/" + files::kChangeFlag) ||
                      !platform::FileExists(context.env, path + "/" + files::kIndexXml);
    result.records.push_back(
        Json{{"open", 1}, {"result", scan ? "would re-scan, then load" : "would load"}});
    context.Print(result);
    return kExitOk;
  }
  StoreIndex* index = StoreIndex_New();
  StoreIndex_Init(index);
  StoreIndex_SetNames(index, place.postoffice.c_str(), place.mailbox.c_str(), place.folder.c_str(),
                      kClassMessage);
  StoreIndex_SetPaths(index);
  bool failed = false;
  for (int i = 1; i <= options.opens; ++i) {
    const auto started = std::chrono::steady_clock::now();
    const int opened = StoreIndex_Open(index, 1);
    const auto elapsed = std::chrono::steady_clock::now() - started;
    failed = failed || opened == 0;
    result.records.push_back(
        Json{{"open", i},
             {"result", opened == 2   ? "cached"
                        : opened == 1 ? "loaded"
                                      : "failed"},
             {"rows", StoreIndex_GetRowCount(index)},
             {"us", std::chrono::duration_cast<std::chrono::microseconds>(elapsed).count()}});
  }
  StoreIndex_Release(index);
  StoreIndex_Delete(index);
  context.Print(result);
  return failed ? kExitError : kExitOk;
}

}  // namespace

void AddStatusCommands(CLI::App* app, ToolContext* context) {
  auto status_options = std::make_shared<StatusOptions>();
  CLI::App* status = app->add_subcommand(
      "status", "Show a folder's status: counts from its rows, its status file and its sizes");
  AddPlaceOptions(status, &status_options->place, true, true);
  status->callback([context, status_options] {
    context->run = [context, status_options] { return RunStatus(*context, *status_options); };
  });

  auto open_options = std::make_shared<StatusOptions>();
  CLI::App* open = app->add_subcommand(
      "open",
      "Open a folder's index as a server does, several times in one process, and time each "
      "open: the first loads (re-scanning a folder marked as changed), later ones use the "
      "cached rows while the index file is unchanged");
  AddPlaceOptions(open, &open_options->place, true, true);
  open->add_option("--times", open_options->opens, "Opens in a row")
      ->check(CLI::Range(1, 1000))
      ->capture_default_str();
  open->add_flag("--dry-run", open_options->dry_run, "Tell what the first open would do");
  open->callback([context, open_options] {
    context->run = [context, open_options] { return RunOpen(*context, *open_options); };
  });

  auto size_options = std::make_shared<StatusOptions>();
  CLI::App* size = app->add_subcommand(
      "size",
      "Show mailbox sizes: the recorded size file, a walk of the files, and the sum of the "
      "indexes");
  CLI::Option* po = size->add_option("-p,--postoffice", size_options->place.postoffice,
                                     "Postoffice (default: all)");
  size->add_option("-m,--mailbox", size_options->place.mailbox, "Mailbox (default: all)")
      ->needs(po);
  size->callback([context, size_options] {
    context->run = [context, size_options] { return RunSize(*context, *size_options); };
  });
}

}  // namespace qaaisp::qastore
