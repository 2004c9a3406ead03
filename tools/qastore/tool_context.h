// What every qastore command shares: the exit codes, the global options,
// the start of the library, and the naming of a postoffice, mailbox and
// folder on the command line.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

#include "platform/env.h"
#include "qastore/output.h"
#include "qastore/progress.h"

namespace qaaisp::qastore {

enum ExitCode : int {
  kExitOk = 0,
  kExitFindings = 1,  // verify found differences, or locks found stale ones
  kExitUsage = 2,
  kExitError = 3,
  kExitPartial = 4,  // some items or folders failed, others were done
};

// The text of qastore --help that lists them.
inline constexpr const char* kExitCodeHelp =
    "Exit codes: 0 ok, 1 findings (verify found differences, locks left stale block files), "
    "2 usage, 3 error, "
    "4 partial failure (some folders or items failed).\n"
    "The mail root comes from --root, or from the settings file named by QAAISP_REGISTRY "
    "(\"Mail Root Directory\", \"Mail Root\" or \"Data Directory\").";

struct ToolContext {
  std::string root;  // --root, absolute; empty: from the settings
  std::string format_name = "table";
  std::string progress_name = "auto";
  platform::Env* env = platform::Env::Default();
  // The command chosen on the command line; run after parsing.
  std::function<int()> run;

  OutputFormat format() const;
  ProgressMode progress() const;
  // Prints a rendered result on standard output.
  void Print(const Result& result) const;
};

// Starts the library as a service process would, and puts --root in force.
// Gives false (with the reason on standard error) when no mail root is
// known.
bool StartLibrary(const ToolContext& context);
void StopLibrary();

// A place in the store as the options name it. The INBOX is named, not
// left empty: the exports file a folder's side files by its name, and an
// empty name would put them in the mailbox's directory.
struct Place {
  std::string postoffice;
  std::string mailbox;
  std::string folder = "INBOX";
  bool folder_given = false;
};

// -p, -m and -F on a command; required ones must be given.
void AddPlaceOptions(CLI::App* command, Place* place, bool postoffice_required,
                     bool mailbox_required);

// The directory of a folder, as the index exports form it.
std::string FolderDirectory(const Place& place);

// "qastore: " and the text on standard error.
void ReportError(const std::string& text);

// Forms a result for the given key: the combined exit code of a run in
// which ok_count things succeeded and failed_count failed.
int CombinedExit(size_t ok_count, size_t failed_count);

}  // namespace qaaisp::qastore
