// rebuild, rescan and verify: the commands that compare or reconcile a
// folder's index with its files, over one folder, a mailbox, a postoffice
// or the whole mail root.
#include <cstdio>
#include <memory>

#include "message/message_insert.h"
#include "qastore/commands.h"
#include "qastore/folder_audit.h"
#include "qastore/folder_rescan.h"
#include "qastore/store_walk.h"

namespace qaaisp::qastore {
namespace {

struct RepairOptions {
  Place place;
  RepairKind kind = RepairKind::kRescan;
  bool from_files = false;
  bool dry_run = false;
  bool skip_flags = false;
};

std::string Seconds(uint64_t ms) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f s", static_cast<double>(ms) / 1000.0);
  return text;
}

// The message folders in scope; the others are noted as skipped.
bool MessageFolders(const ToolContext& context, const Place& place, std::vector<FolderRef>* out,
                    Json* skipped) {
  std::string error;
  std::vector<FolderRef> all;
  if (!FindFolders(context.env, place, &all, &error)) {
    ReportError(error);
    return false;
  }
  for (FolderRef& f : all) {
    if (IsMessageClass(f.item_class)) {
      out->push_back(std::move(f));
    } else if (skipped) {
      skipped->push_back(
          Json{{"folder", f.Label()},
               {"result", "skipped"},
               {"detail", "not a message folder (class " + std::to_string(f.item_class) + ")"}});
    }
  }
  return true;
}

Json DryRunRecord(const FolderRef& folder, const FolderAudit& audit, bool from_files) {
  Json r = {{"folder", folder.Label()}, {"result", "dry run"}};
  r["rows"] = audit.rows;
  r["files"] = audit.files;
  if (from_files) {
    r["new_rows"] = audit.files;
    r["dropped_rows"] = audit.rows;
    size_t lost = 0;
    for (const LostFlags& l : audit.flags_at_risk) lost += l.flags.size();
    r["flags_lost"] = lost;
  } else {
    r["new_rows"] = audit.index_present ? audit.files_without_rows.size() : audit.files;
    r["dropped_rows"] = audit.rows_without_files.size();
    r["reread_rows"] = audit.changed_files.size();
  }
  return r;
}

int RunRepair(const ToolContext& context, const RepairOptions& options) {
  Result result;
  std::vector<FolderRef> folders;
  if (!MessageFolders(context, options.place, &folders, &result.records)) return kExitError;
  const RepairKind kind = options.kind == RepairKind::kRebuild && options.from_files
                              ? RepairKind::kRebuildFromFiles
                              : options.kind;
  const uint64_t started = context.env->TickCountMs();
  size_t ok = 0;
  size_t failed = 0;
  size_t rows = 0;
  Progress progress(context.progress(), "folders", folders.size(), context.env);
  for (size_t i = 0; i < folders.size(); ++i) {
    const FolderRef& folder = folders[i];
    if (options.dry_run) {
      FolderAudit audit;
      std::string error;
      AuditOptions audit_options;
      audit_options.check_flags = kind == RepairKind::kRebuildFromFiles;
      if (AuditFolder(context.env, folder, audit_options, &audit, &error)) {
        result.records.push_back(
            DryRunRecord(folder, audit, kind == RepairKind::kRebuildFromFiles));
        ++ok;
      } else {
        result.records.push_back(
            Json{{"folder", folder.Label()}, {"result", "failed"}, {"detail", error}});
        ++failed;
      }
    } else {
      const uint64_t folder_started = context.env->TickCountMs();
      const RepairOutcome outcome = RepairFolder(folder, kind);
      Json r = {{"folder", folder.Label()},
                {"result",
                 outcome.ok ? (kind == RepairKind::kRescan ? "rescanned" : "rebuilt") : "failed"},
                {"rows_before", outcome.rows_before},
                {"rows", outcome.rows_after},
                {"last_uid", outcome.last_uid},
                {"ms", context.env->TickCountMs() - folder_started}};
      if (!outcome.ok) r["detail"] = outcome.error;
      result.records.push_back(std::move(r));
      (outcome.ok ? ok : failed) += 1;
      rows += outcome.rows_after;
    }
    progress.Update(i + 1, folder.Label());
  }
  progress.Finish();
  const char* verb = options.dry_run               ? "Checked"
                     : kind == RepairKind::kRescan ? "Re-scanned"
                                                   : "Rebuilt";
  result.summary =
      std::string(verb) + " " + std::to_string(ok) + " folders" +
      (options.dry_run ? " (nothing written)" : " (" + std::to_string(rows) + " rows)") +
      (failed ? ", " + std::to_string(failed) + " failed" : "") + " in " +
      Seconds(context.env->TickCountMs() - started);
  context.Print(result);
  return CombinedExit(ok, failed);
}

int RunVerify(const ToolContext& context, const RepairOptions& options) {
  Result result;
  std::vector<FolderRef> folders;
  if (!MessageFolders(context, options.place, &folders, nullptr)) return kExitError;
  AuditOptions audit_options;
  audit_options.check_flags = !options.skip_flags;
  size_t differing = 0;
  size_t failed = 0;
  size_t at_risk = 0;
  Progress progress(context.progress(), "folders", folders.size(), context.env);
  for (size_t i = 0; i < folders.size(); ++i) {
    FolderAudit audit;
    std::string error;
    if (!AuditFolder(context.env, folders[i], audit_options, &audit, &error)) {
      result.records.push_back(Json{{"folder", folders[i].Label()},
                                    {"finding", "unreadable"},
                                    {"item", ""},
                                    {"detail", error}});
      ++failed;
    } else {
      audit.AppendFindings(folders[i], &result.records);
      differing += audit.HasFindings() ? 1 : 0;
      at_risk += audit.flags_at_risk.size();
    }
    progress.Update(i + 1, folders[i].Label());
  }
  progress.Finish();
  result.summary = "Verified " + std::to_string(folders.size()) + " folders: " +
                   (differing == 0 ? std::string("consistent")
                                   : std::to_string(differing) + " with differences") +
                   (options.skip_flags ? ""
                                       : "; " + std::to_string(at_risk) +
                                             " messages with flags only the index keeps");
  context.Print(result);
  if (failed > 0) return failed == folders.size() ? kExitError : kExitPartial;
  return differing > 0 ? kExitFindings : kExitOk;
}

}  // namespace

void AddRepairCommands(CLI::App* app, ToolContext* context) {
  auto add = [&](const char* name, const char* help, RepairKind kind) {
    auto options = std::make_shared<RepairOptions>();
    options->kind = kind;
    CLI::App* command = app->add_subcommand(name, help);
    AddPlaceOptions(command, &options->place, false, false);
    command->add_flag("--dry-run", options->dry_run, "Report what would change and write nothing");
    if (kind == RepairKind::kRebuild) {
      command->add_flag("--from-files", options->from_files,
                        "Ignore the index: make every row from its file (flags only the index "
                        "keeps are lost; UIDs continue above the old last UID)");
    }
    command->callback([context, options] {
      context->run = [context, options] { return RunRepair(*context, *options); };
    });
  };
  add("rebuild",
      "Rebuild the indexes of a folder, a mailbox, a postoffice or the whole root from the "
      "message files, keeping what the index files give",
      RepairKind::kRebuild);
  add("rescan",
      "Re-scan folders: rows for new files, no rows for vanished ones, changed files read again",
      RepairKind::kRescan);

  auto options = std::make_shared<RepairOptions>();
  CLI::App* verify = app->add_subcommand(
      "verify",
      "Compare indexes with their files, read-only: rows without files, files without rows, "
      "changed files, malformed indexes and stale status files, which give exit 1; and the "
      "flags a rebuild from the files alone would lose, which are listed but do not count");
  AddPlaceOptions(verify, &options->place, false, false);
  verify->add_flag("--skip-flags", options->skip_flags,
                   "Do not read message files to find flags only the index keeps");
  verify->callback([context, options] {
    context->run = [context, options] { return RunVerify(*context, *options); };
  });
}

}  // namespace qaaisp::qastore
