// deliver, flag and remove: changes to a folder through the one-call
// exports that delivery agents and protocol services use, so the tool
// takes the same locks and keeps the same side files as they do.
#include <memory>
#include <set>

#include "base/store_files.h"
#include "index/store_paths.h"
#include "platform/path_case.h"
#include "platform/win32_error.h"
#include "qaaisp/qaaisp.h"
#include "qastore/commands.h"
#include "qastore/folder_rescan.h"
#include "qastore/folder_snapshot.h"
#include "store/flag_update.h"

namespace qaaisp::qastore {
namespace {

struct ChangeOptions {
  Place place;
  std::vector<std::string> paths;  // files to deliver
  std::vector<std::string> ids;
  std::string flags;
  std::vector<std::string> add, remove, set;
  bool create = false;
  bool keep_file = false;
  bool dry_run = false;
};

// Writes bytes into the folder under a new name, made from the time as
// delivery agents name files; a name already taken moves the number on.
bool StoreMessageFile(platform::Env* env, const std::string& folder_path, const std::string& bytes,
                      std::string* name) {
  uint64_t number = env->NowFileTime().ticks() / 10000;
  for (int attempt = 0; attempt < 1000; ++attempt, ++number) {
    char text[32];
    std::snprintf(text, sizeof text, "%012llX.MAI", static_cast<unsigned long long>(number));
    platform::OpenOptions options;
    options.write = true;
    options.disposition = platform::OpenDisposition::kCreateNew;
    std::unique_ptr<platform::File> file = env->OpenFile(folder_path + "/" + text, options);
    if (!file) {
      if (platform::LastError() == platform::kErrorFileExists) continue;
      return false;
    }
    *name = text;
    if (file->WriteAt(0, bytes.data(), bytes.size())) return true;
    file.reset();
    env->RemoveFile(folder_path + "/" + text);
    return false;
  }
  return false;
}

bool MakeFolder(platform::Env* env, const std::string& path) {
  if (path.empty() || platform::DirectoryExists(env, path)) return true;
  const size_t slash = path.find_last_of('/');
  if (slash != std::string::npos && slash > 0 && !MakeFolder(env, path.substr(0, slash))) {
    return false;
  }
  return env->MakeDirectory(path) || platform::DirectoryExists(env, path);
}

int RunDeliver(const ToolContext& context, const ChangeOptions& options) {
  const Place& place = options.place;
  const std::string folder_path = FolderDirectory(place);
  if (!platform::DirectoryExists(context.env, folder_path)) {
    if (!options.create) {
      ReportError("no folder " + folder_path + " (give --create to make it)");
      return kExitError;
    }
    if (!options.dry_run && !MakeFolder(context.env, folder_path)) {
      ReportError("cannot make " + folder_path);
      return kExitError;
    }
  }
  // A folder without an index, or one marked as changed, is re-scanned
  // first: a delivery's own load would re-scan it and take in the new file
  // before the delivery itself could.
  if (!options.dry_run &&
      (!platform::FileExists(context.env, folder_path + "/" + files::kIndexXml) ||
       platform::FileExists(context.env, folder_path + "/" + files::kChangeFlag))) {
    const RepairOutcome scan =
        RepairFolder({place.postoffice, place.mailbox, place.folder, folder_path, kClassMessage},
                     RepairKind::kRescan);
    if (!scan.ok) {
      ReportError("cannot index " + folder_path + ": " + scan.error);
      return kExitError;
    }
  }
  Result result;
  size_t ok = 0;
  size_t failed = 0;
  for (const std::string& source : options.paths) {
    Json r = {{"file", source}};
    std::string bytes;
    std::string name;
    if (!platform::ReadWholeFile(context.env, source, &bytes)) {
      r["result"] = "failed";
      r["detail"] = "cannot read (error " + std::to_string(platform::LastError()) + ")";
    } else if (options.dry_run) {
      r["result"] = "dry run";
      r["detail"] = std::to_string(bytes.size()) + " bytes would be delivered";
    } else if (!StoreMessageFile(context.env, folder_path, bytes, &name)) {
      r["result"] = "failed";
      r["detail"] =
          "cannot write into the folder (error " + std::to_string(platform::LastError()) + ")";
    } else {
      const int inserted = Direct_StoreIndex_InsertItemEx(
          place.postoffice.c_str(), place.mailbox.c_str(), place.folder.c_str(), name.c_str(),
          options.flags.empty() ? nullptr : options.flags.c_str());
      // The row is what counts: a re-scan by another process may have taken
      // the file in first, and then the insert itself finds its ID taken.
      IndexSnapshot index;
      ReadIndexSnapshot(context.env, folder_path, kClassMessage, &index);
      auto row = index.table->by_id().find(name);
      if (row != index.table->by_id().end()) {
        r["result"] = "delivered";
        r["id"] = name;
        r["uid"] = row->second->Uid();
      } else {
        // A copy that the index refused would only show up as an unindexed
        // file: it goes again.
        context.env->RemoveFile(folder_path + "/" + name);
        r["result"] = "failed";
        r["detail"] = inserted == 1 ? "the row is not in the saved index"
                                    : "the index refused it (unreadable, or a duplicate)";
      }
    }
    (r["result"] == "failed" ? failed : ok) += 1;
    result.records.push_back(std::move(r));
  }
  context.Print(result);
  return CombinedExit(ok, failed);
}

// Flag names as users type them: the system flags get their backslash,
// keywords stay as they are.
std::string FlagWord(const std::string& flag) {
  static const char* const kSystemFlags[] = {"Seen",    "Answered", "Flagged",
                                             "Deleted", "Draft",    "Recent"};
  for (const char* system : kSystemFlags) {
    if (platform::EqualsNoCase(flag, system)) return std::string("\\") + system;
  }
  return flag;
}

std::string UpdateText(const ChangeOptions& options) {
  std::string text;
  for (size_t i = 0; i < options.set.size(); ++i) {
    // The first word with no sign replaces every flag; the rest are added.
    text += (text.empty() ? "" : " ") + std::string(i == 0 ? "" : "+") + FlagWord(options.set[i]);
  }
  for (const std::string& f : options.add) text += (text.empty() ? "+" : " +") + FlagWord(f);
  for (const std::string& f : options.remove) text += (text.empty() ? "-" : " -") + FlagWord(f);
  return text;
}

std::string JoinIds(const std::vector<std::string>& ids) {
  std::string joined;
  for (const std::string& id : ids) joined += (joined.empty() ? "" : ",") + id;
  return joined;
}

// Splits the requested identifiers into those with rows and records of
// those without.
std::vector<std::string> PresentIds(const IndexSnapshot& index, const std::vector<std::string>& ids,
                                    Result* result, size_t* failed) {
  std::vector<std::string> present;
  std::set<std::string> seen;
  for (const std::string& id : ids) {
    if (!seen.insert(id).second) continue;
    if (index.table->by_id().contains(id)) {
      present.push_back(id);
    } else {
      result->records.push_back(Json{{"id", id}, {"result", "failed"}, {"detail", "no such row"}});
      ++*failed;
    }
  }
  return present;
}

int RunFlag(const ToolContext& context, const ChangeOptions& options) {
  const std::string update = UpdateText(options);
  if (update.empty()) {
    ReportError("flag needs --add, --remove or --set");
    return kExitUsage;
  }
  const Place& place = options.place;
  const std::string folder_path = FolderDirectory(place);
  IndexSnapshot before;
  if (!ReadIndexSnapshot(context.env, folder_path, kClassMessage, &before) || !before.present) {
    ReportError("no index in " + folder_path);
    return kExitError;
  }
  Result result;
  size_t failed = 0;
  const std::vector<std::string> ids = PresentIds(before, options.ids, &result, &failed);
  bool saved = true;
  if (!options.dry_run && !ids.empty()) {
    saved = Direct_StoreIndex_UpdateItem(place.postoffice.c_str(), place.mailbox.c_str(),
                                         place.folder.c_str(), JoinIds(ids).c_str(),
                                         update.c_str()) == 1;
  }
  IndexSnapshot after;
  ReadIndexSnapshot(context.env, folder_path, kClassMessage, &after);
  for (const std::string& id : ids) {
    const std::string old_flags = before.table->by_id().at(id)->GetText("FLAGSTATUS");
    std::string new_flags;
    if (options.dry_run) {
      MergeFlagUpdate(old_flags, update, &new_flags, nullptr);
    } else if (auto row = after.table->by_id().find(id); row != after.table->by_id().end()) {
      new_flags = row->second->GetText("FLAGSTATUS");
    }
    result.records.push_back(Json{{"id", id},
                                  {"result", options.dry_run ? "dry run"
                                             : saved         ? "done"
                                                             : "failed"},
                                  {"before", old_flags},
                                  {"after", new_flags}});
  }
  context.Print(result);
  return CombinedExit(saved ? ids.size() : 0, failed + (saved ? 0 : ids.size()));
}

int RunRemove(const ToolContext& context, const ChangeOptions& options) {
  const Place& place = options.place;
  const std::string folder_path = FolderDirectory(place);
  IndexSnapshot index;
  if (!ReadIndexSnapshot(context.env, folder_path, kClassMessage, &index) || !index.present) {
    ReportError("no index in " + folder_path);
    return kExitError;
  }
  Result result;
  size_t failed = 0;
  std::vector<std::string> removable;
  for (const std::string& id : PresentIds(index, options.ids, &result, &failed)) {
    // The file goes first: should the row then stay, a re-scan drops it,
    // whereas a file without its row would come back as a new message.
    const std::string path = folder_path + "/" + id;
    if (options.dry_run || options.keep_file || !platform::FileExists(context.env, path) ||
        context.env->RemoveFile(path)) {
      removable.push_back(id);
    } else {
      result.records.push_back(Json{{"id", id},
                                    {"result", "failed"},
                                    {"detail", "cannot delete the file (error " +
                                                   std::to_string(platform::LastError()) + ")"}});
      ++failed;
    }
  }
  bool saved = true;
  if (!options.dry_run && !removable.empty()) {
    saved = Direct_StoreIndex_RemoveItem(place.postoffice.c_str(), place.mailbox.c_str(),
                                         place.folder.c_str(), JoinIds(removable).c_str()) == 1;
  }
  for (const std::string& id : removable) {
    result.records.push_back(Json{{"id", id},
                                  {"result", options.dry_run ? "dry run"
                                             : saved         ? "removed"
                                                             : "failed"}});
  }
  context.Print(result);
  return CombinedExit(saved ? removable.size() : 0, failed + (saved ? 0 : removable.size()));
}

void AddChange(CLI::App* command, ToolContext* context, std::shared_ptr<ChangeOptions> options,
               int (*run)(const ToolContext&, const ChangeOptions&)) {
  AddPlaceOptions(command, &options->place, true, true);
  command->add_flag("--dry-run", options->dry_run, "Report what would change and write nothing");
  command->callback([context, options, run] {
    context->run = [context, options, run] { return run(*context, *options); };
  });
}

}  // namespace

void AddChangeCommands(CLI::App* app, ToolContext* context) {
  auto deliver_options = std::make_shared<ChangeOptions>();
  CLI::App* deliver = app->add_subcommand(
      "deliver", "Deliver message files into a folder, as a delivery agent does");
  deliver->add_option("files", deliver_options->paths, "Message files to deliver")->required();
  deliver->add_option("--flags", deliver_options->flags,
                      "Flag text for the new rows, such as \"\\Seen \\Flagged\"");
  deliver->add_flag("--create", deliver_options->create, "Make the folder if it is missing");
  AddChange(deliver, context, deliver_options, RunDeliver);

  auto flag_options = std::make_shared<ChangeOptions>();
  CLI::App* flag = app->add_subcommand("flag", "Add, remove or set the flags of rows");
  flag->add_option("ids", flag_options->ids, "Row IDs (file names)")->required();
  flag->add_option("--add", flag_options->add, "Flags to add (Seen, Flagged, $Label1, ...)")
      ->delimiter(',');
  flag->add_option("--remove", flag_options->remove, "Flags to remove")->delimiter(',');
  flag->add_option("--set", flag_options->set, "Flags that replace all others")->delimiter(',');
  AddChange(flag, context, flag_options, RunFlag);

  auto remove_options = std::make_shared<ChangeOptions>();
  CLI::App* remove = app->add_subcommand("remove", "Remove messages: their files and rows");
  remove->add_option("ids", remove_options->ids, "Row IDs (file names)")->required();
  remove->add_flag("--keep-file", remove_options->keep_file, "Remove only the row");
  AddChange(remove, context, remove_options, RunRemove);
}

}  // namespace qaaisp::qastore
