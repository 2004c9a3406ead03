// The subcommands of qastore, each family in its own file. Each Add
// function declares its options on the application and, when chosen, puts
// its run in context->run.
#pragma once

#include <CLI/CLI.hpp>

#include "qastore/tool_context.h"

namespace qaaisp::qastore {

// rebuild, rescan, verify (repair_commands.cc)
void AddRepairCommands(CLI::App* app, ToolContext* context);
// list, show (row_commands.cc)
void AddRowCommands(CLI::App* app, ToolContext* context);
// deliver, flag, remove (change_commands.cc)
void AddChangeCommands(CLI::App* app, ToolContext* context);
// status, size (status_commands.cc)
void AddStatusCommands(CLI::App* app, ToolContext* context);
// locks (lock_commands.cc)
void AddLockCommands(CLI::App* app, ToolContext* context);
// dump, settings (info_commands.cc)
void AddInfoCommands(CLI::App* app, ToolContext* context);

// Builds the whole command line; the caller parses and then runs
// context->run.
void BuildApp(CLI::App* app, ToolContext* context);

// Parses and runs: the process's exit code.
int RunQastore(int argc, char** argv);

}  // namespace qaaisp::qastore
