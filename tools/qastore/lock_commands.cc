// locks: the block files of the store, their age, whether a process keeps
// them open, and the removal of stale ones. A block file that nobody
// removed is an orphan: waiters spend a minute before they break it, so
// clearing old ones after a crash spares every server that wait.
#include <memory>

#include "base/library_settings.h"
#include "platform/path_case.h"
#include "platform/win32_error.h"
#include "qastore/commands.h"
#include "qastore/store_walk.h"

namespace qaaisp::qastore {
namespace {

// The library's own waiters break a lock after about a minute; a block file
// five minutes old has outlived any holder that is still working.
constexpr uint32_t kDefaultStaleSeconds = 300;

struct LockOptions {
  Place place;
  uint32_t older_than = kDefaultStaleSeconds;
  bool remove_stale = false;
  bool dry_run = false;
};

struct BlockFile {
  std::string path;
  int64_t age_seconds = 0;
  bool open = false;  // a holder keeps it open, so it cannot be deleted
};

void CollectBlockFiles(platform::Env* env, const std::string& dir, bool recurse,
                       std::vector<std::string>* out) {
  std::vector<platform::DirEntry> entries;
  if (!env->ListDirectory(dir, false, &entries)) return;
  for (const platform::DirEntry& e : entries) {
    if (e.is_directory) {
      if (recurse && !e.name.empty() && e.name[0] != '.') {
        CollectBlockFiles(env, dir + "/" + e.name, true, out);
      }
    } else if (platform::MatchPattern("*.blk", e.name)) {
      out->push_back(dir + "/" + e.name);
    }
  }
}

// Whether another handle holds the file: an exclusive open fails with a
// sharing violation while it does. The probe's own handle lives only for
// the test.
bool HeldOpen(platform::Env* env, const std::string& path) {
  platform::OpenOptions options;
  options.share = platform::ShareMode::kShareNone;
  std::unique_ptr<platform::File> file = env->OpenFile(path, options);
  return !file && platform::LastError() == platform::kErrorSharingViolation;
}

std::string Relative(const std::string& path) {
  const std::string& root = ModuleSettings().mail_root;
  if (path.compare(0, root.size(), root) == 0 && path.size() > root.size()) {
    return path.substr(root.size() + 1);
  }
  return path;
}

int RunLocks(const ToolContext& context, const LockOptions& options) {
  std::vector<std::string> paths;
  if (options.place.folder_given) {
    CollectBlockFiles(context.env, FolderDirectory(options.place), false, &paths);
  } else {
    std::vector<MailboxRef> boxes;
    std::string error;
    if (!FindMailboxes(context.env, options.place, &boxes, &error)) {
      ReportError(error);
      return kExitError;
    }
    for (const MailboxRef& box : boxes) CollectBlockFiles(context.env, box.path, true, &paths);
  }
  std::sort(paths.begin(), paths.end());
  const int64_t now = platform::UnixSecondsFromFileTime(context.env->NowFileTime());
  Result result;
  size_t stale = 0;
  size_t removed = 0;
  size_t failed = 0;
  for (const std::string& path : paths) {
    platform::FileInfo info;
    if (!context.env->Stat(path, &info)) continue;  // released meanwhile
    BlockFile block{path, now - platform::UnixSecondsFromFileTime(info.write_time),
                    HeldOpen(context.env, path)};
    const bool is_stale = !block.open && block.age_seconds >= int64_t{options.older_than};
    std::string action = is_stale ? "stale" : "in use";
    if (is_stale) {
      ++stale;
      if (options.remove_stale && options.dry_run) {
        action = "would remove";
      } else if (options.remove_stale) {
        if (context.env->RemoveFile(path) ||
            platform::LastError() == platform::kErrorFileNotFound) {
          action = "removed";
          ++removed;
        } else {
          action = "failed (error " + std::to_string(platform::LastError()) + ")";
          ++failed;
        }
      }
    }
    result.records.push_back(Json{{"block_file", Relative(path)},
                                  {"age_s", block.age_seconds < 0 ? 0 : block.age_seconds},
                                  {"open", block.open},
                                  {"state", action}});
  }
  result.summary =
      std::to_string(paths.size()) + " block files, " + std::to_string(stale) +
      " stale (unopened, " + std::to_string(options.older_than) + " s or older)" +
      (options.remove_stale && !options.dry_run ? ", " + std::to_string(removed) + " removed" : "");
  context.Print(result);
  if (failed > 0) return removed > 0 ? kExitPartial : kExitError;
  if (stale > removed) return kExitFindings;
  return kExitOk;
}

}  // namespace

void AddLockCommands(CLI::App* app, ToolContext* context) {
  auto options = std::make_shared<LockOptions>();
  CLI::App* locks = app->add_subcommand(
      "locks",
      "List block files with their age; exit 1 when stale ones are left. --remove-stale "
      "deletes those that no process keeps open and that are older than --older-than");
  AddPlaceOptions(locks, &options->place, false, false);
  locks->add_option("--older-than", options->older_than, "Age in seconds that makes one stale")
      ->capture_default_str();
  locks->add_flag("--remove-stale", options->remove_stale, "Delete the stale block files");
  locks->add_flag("--dry-run", options->dry_run, "With --remove-stale: report, delete nothing");
  locks->callback([context, options] {
    context->run = [context, options] { return RunLocks(*context, *options); };
  });
}

}  // namespace qaaisp::qastore
