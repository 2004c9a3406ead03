// list and show: the rows of a folder's index, read without lock or
// change.
#include <memory>

#include "index/store_paths.h"
#include "qastore/commands.h"
#include "qastore/folder_snapshot.h"

namespace qaaisp::qastore {
namespace {

constexpr const char* kDefaultFields = "UID,ID,FLAGSTATUS,SIZE,RECEIVED,FROM,SUBJECT";

struct RowOptions {
  Place place;
  std::vector<std::string> fields;
  bool all_fields = false;
  size_t limit = 0;
  std::string id;
  uint32_t uid = 0;
};

// Reads the folder's index for a row command; false (reported) when the
// folder is missing, or has message files but no index.
bool ReadFolderRows(const ToolContext& context, const Place& place, IndexSnapshot* index) {
  const std::string path = FolderDirectory(place);
  if (!platform::DirectoryExists(context.env, path)) {
    ReportError("no folder " + path);
    return false;
  }
  if (!ReadIndexSnapshot(context.env, path, kClassMessage, index)) {
    ReportError("cannot read " + index->path);
    return false;
  }
  if (!index->present && !ListMessageFiles(path).files.empty()) {
    ReportError("the folder " + path + " has message files but no index; run qastore rebuild");
    return false;
  }
  if (!index->fault.empty()) ReportError("warning: malformed index: " + index->fault);
  return true;
}

int RunList(const ToolContext& context, const RowOptions& options) {
  IndexSnapshot index;
  if (!ReadFolderRows(context, options.place, &index)) return kExitError;
  Result result;
  std::vector<std::string> fields = options.fields;
  if (fields.empty()) fields = CLI::detail::split(kDefaultFields, ',');
  for (const auto& [uid, row] : index.table->by_uid()) {
    if (options.limit > 0 && result.records.size() >= options.limit) break;
    if (options.all_fields) {
      result.records.push_back(RowRecord(*row, /*with_positions=*/false));
      continue;
    }
    Json record = Json::object();
    for (const std::string& f : fields) {
      record[f] = f == "UID" ? Json(row->Uid()) : RowValue(*row, f);
    }
    result.records.push_back(std::move(record));
  }
  result.summary = std::to_string(result.records.size()) + " of " +
                   std::to_string(index.table->by_uid().size()) + " rows, last UID " +
                   std::to_string(index.table->LastUID);
  context.Print(result);
  return kExitOk;
}

int RunShow(const ToolContext& context, const RowOptions& options) {
  if (options.id.empty() && options.uid == 0) {
    ReportError("show needs the row's ID or --uid");
    return kExitUsage;
  }
  IndexSnapshot index;
  if (!ReadFolderRows(context, options.place, &index)) return kExitError;
  const IndexItemPropertyContainer* row = nullptr;
  if (!options.id.empty()) {
    auto found = index.table->by_id().find(options.id);
    if (found != index.table->by_id().end()) row = found->second;
  } else {
    row = index.table->FindByUid(options.uid);
  }
  if (!row) {
    ReportError("no row " +
                (options.id.empty() ? "with UID " + std::to_string(options.uid) : options.id));
    return kExitError;
  }
  Result result;
  result.records = RowRecord(*row, /*with_positions=*/true);
  context.Print(result);
  return kExitOk;
}

}  // namespace

void AddRowCommands(CLI::App* app, ToolContext* context) {
  auto list_options = std::make_shared<RowOptions>();
  CLI::App* list = app->add_subcommand("list", "List the rows of a folder's index in UID order");
  AddPlaceOptions(list, &list_options->place, true, true);
  list->add_option("--fields", list_options->fields,
                   std::string("Index fields to show (default ") + kDefaultFields + ")")
      ->delimiter(',');
  list->add_flag("--all-fields", list_options->all_fields, "Show every field of every row");
  list->add_option("--limit", list_options->limit, "Show at most this many rows");
  list->callback([context, list_options] {
    context->run = [context, list_options] { return RunList(*context, *list_options); };
  });

  auto show_options = std::make_shared<RowOptions>();
  CLI::App* show = app->add_subcommand("show", "Show every field of one row");
  AddPlaceOptions(show, &show_options->place, true, true);
  CLI::Option* id = show->add_option("id", show_options->id, "The row's ID (its file name)");
  CLI::Option* uid = show->add_option("--uid", show_options->uid, "The row's UID");
  id->excludes(uid);
  show->callback([context, show_options] {
    context->run = [context, show_options] { return RunShow(*context, *show_options); };
  });
}

}  // namespace qaaisp::qastore
