// dump and settings: the store's files in readable form, and the settings
// in force.
#include <memory>

#include "base/library_settings.h"
#include "qastore/commands.h"
#include "qastore/settings_catalogue.h"
#include "qastore/store_dump.h"

namespace qaaisp::qastore {
namespace {

struct InfoOptions {
  std::vector<std::string> paths;
  bool non_default = false;
};

int RunDump(const ToolContext& context, const InfoOptions& options) {
  size_t ok = 0;
  size_t failed = 0;
  // Several paths in JSON make one array, so the output stays one document.
  const bool gather = context.format() == OutputFormat::kJson && options.paths.size() > 1;
  Result gathered;
  for (const std::string& path : options.paths) {
    Result result;
    std::string error;
    if (!DumpPath(context.env, path, &result, &error)) {
      ReportError(error);
      ++failed;
      continue;
    }
    ++ok;
    if (gather) {
      gathered.records.push_back(result.document.is_null() ? result.records : result.document);
    } else {
      context.Print(result);
    }
  }
  if (gather) context.Print(gathered);
  return CombinedExit(ok, failed);
}

int RunSettings(const ToolContext& context, const InfoOptions& options) {
  Result result;
  for (const SettingEntry& entry : SettingCatalogue()) {
    const EffectiveSetting effective = ReadEffective(entry);
    if (options.non_default && !effective.differs) continue;
    const std::string default_text =
        entry.is_text ? entry.default_text : std::to_string(entry.default_number);
    result.records.push_back(Json{{"key", ShortKey(entry.key)},
                                  {"name", entry.name},
                                  {"value", effective.value},
                                  {"default", default_text},
                                  {"source", effective.from_file ? "settings file" : "default"},
                                  {"meaning", entry.meaning}});
  }
  // The mail root in force, which --root may override.
  const std::string& root = ModuleSettings().mail_root;
  if (!options.non_default || !context.root.empty()) {
    result.records.push_back(Json{{"key", "(in force)"},
                                  {"name", "mail root"},
                                  {"value", root},
                                  {"default", ""},
                                  {"source", context.root.empty() ? "settings" : "--root"},
                                  {"meaning", "where the postoffices are"}});
  }
  result.summary = "Settings file: " + context.env->GetEnvVar("QAAISP_REGISTRY") +
                   " (QAAISP_REGISTRY); keys below " + "HKEY_LOCAL_MACHINE\\" +
                   "SOFTWARE\\Wow6432Node\\Quill Arbor\\Quill Arbor";
  context.Print(result);
  return kExitOk;
}

}  // namespace

void AddInfoCommands(CLI::App* app, ToolContext* context) {
  auto dump_options = std::make_shared<InfoOptions>();
  CLI::App* dump = app->add_subcommand(
      "dump",
      "Show store files in readable form: _index.xml (every row and where it lies), "
      "_FOLDER.DAT, _index.bin, _DIRSIZE.TMP, flag and block files, what the indexer reads "
      "from a .MAI file, or an overview of a folder directory");
  dump->add_option("paths", dump_options->paths, "Files or folder directories")->required();
  dump->callback([context, dump_options] {
    context->run = [context, dump_options] { return RunDump(*context, *dump_options); };
  });

  auto settings_options = std::make_shared<InfoOptions>();
  CLI::App* settings = app->add_subcommand("settings", "Show the settings in force");
  settings->add_flag("--non-default", settings_options->non_default,
                     "Only those the settings file changes");
  settings->callback([context, settings_options] {
    context->run = [context, settings_options] { return RunSettings(*context, *settings_options); };
  });
}

}  // namespace qaaisp::qastore
