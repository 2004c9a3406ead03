// The command line of qastore: global options, the subcommands, parsing,
// and the run of the chosen command with the library started.
#include <exception>
#include <filesystem>

#include "qastore/commands.h"

namespace qaaisp::qastore {

void BuildApp(CLI::App* app, ToolContext* context) {
  app->description(
      "qastore: the administrator's tool for a mail store. Rebuild and verify folder "
      "indexes, list and change rows, deliver messages, show status, sizes, block files, "
      "settings, and dump the store's files.");
  app->footer(kExitCodeHelp);
  app->require_subcommand(1);
  // Global options may also stand after the subcommand's name.
  app->fallthrough();
  app->add_option_function<std::string>(
      "--root",
      [context](const std::string& root) {
        // The library wants an absolute native path.
        context->root = std::filesystem::absolute(root).lexically_normal().string();
        while (context->root.size() > 1 && context->root.back() == '/') context->root.pop_back();
      },
      "Mail root (default: from the settings file named by QAAISP_REGISTRY)");
  app->add_option("-f,--format", context->format_name, "Output format: table, tab, flow or json")
      ->check(CLI::IsMember({"table", "tab", "flow", "json"}))
      ->capture_default_str();
  app->add_option("--progress", context->progress_name,
                  "Progress on standard error: auto (a line on a terminal), text, json (one "
                  "event a line) or none")
      ->check(CLI::IsMember({"auto", "text", "json", "none"}))
      ->capture_default_str();
  AddRepairCommands(app, context);
  AddRowCommands(app, context);
  AddChangeCommands(app, context);
  AddStatusCommands(app, context);
  AddLockCommands(app, context);
  AddInfoCommands(app, context);
}

int RunQastore(int argc, char** argv) {
  ToolContext context;
  CLI::App app;
  BuildApp(&app, &context);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    // Help goes to standard output with 0; any other mistake is a usage
    // error, explained on standard error.
    return app.exit(e) == 0 ? kExitOk : kExitUsage;
  }
  if (!context.run) return kExitUsage;
  if (!StartLibrary(context)) return kExitError;
  int code = kExitError;
  try {
    code = context.run();
  } catch (const std::exception& e) {
    ReportError(e.what());
  } catch (...) {
    ReportError("the command failed");
  }
  StopLibrary();
  return code;
}

}  // namespace qaaisp::qastore
