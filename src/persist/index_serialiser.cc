#include "persist/index_serialiser.h"

#include <algorithm>
#include <cstdio>

#include "base/report.h"
#include "base/store_files.h"
#include "index/index_block.h"
#include "index/store_index.h"
#include "persist/index_report.h"
#include "persist/index_text.h"
#include "persist/last_uid_floor.h"
#include "persist/msxml_index_serialiser.h"
#include "persist/persist_settings.h"
#include "persist/stream_index_serialiser.h"
#include "persist/unindexed_index_serialiser.h"
#include "platform/env.h"
#include "platform/win32_error.h"

namespace qaaisp {
namespace {

constexpr int kPresenceTests = 10;
constexpr uint32_t kPresenceRetryMs = 200;
constexpr int32_t kClassCalendar = 2;
constexpr int32_t kClassContacts = 1;
constexpr int32_t kClassGroups = 54;
constexpr int32_t kClassContactsAndGroups = 55;

platform::Env* Env() { return platform::Env::Default(); }

// Repeats the table's stored load, registered once with the index layer.
const bool kLoaderRegistered = (SetIndexLoader(&ReloadIndexAtLevel), true);

// While a restored backup is merged with the files: the LastUID that the
// damaged index or the folder's status had reached, which the older backup
// must not take the UID counter below.
thread_local uint32_t t_restore_floor = 0;

}  // namespace

void StoreIndexSerialiser::BackupSerialisation(const std::string&) {}
bool StoreIndexSerialiser::RestoreSerialisationBackup(const std::string&) { return false; }
bool StoreIndexSerialiser::QuarantineSerialisation(const std::string&) { return false; }
bool StoreIndexSerialiser::IndexXMLBackupExists(const std::string&) { return false; }
uint32_t StoreIndexSerialiser::BackupAgeMinutes(const std::string&) { return 0; }
void StoreIndexSerialiser::IndexXMLDeleteBackupSerialisation(const std::string&) {}

int32_t StoreIndexSerialiser::Deserialise(SORTEDSTOREINDEXTYPE* index, const LoadRequest& request,
                                          bool delete_change_file) {
  if (!SupportsFieldFilter()) index->FieldFilter.clear();
  index->LoadState = GuardedOr<int32_t>(0, "StoreIndexSerialiser::Deserialise", __LINE__,
                                        [&] { return DeserialiseHook(index, request); });
  if (index->LoadState != LoadFailed) persist::RaiseToFloor(&index->LastUID, t_restore_floor);
  if (index->LoadState == LoadFull) {
    if (delete_change_file)
      Env()->RemoveFile(persist::JoinPath(request.folder, files::kChangeFlag));
    if (!request.quiet && persist::BackupIndexSetting() == 1 && SupportsBackup()) {
      try {
        uint32_t interval = persist::BackupIndexIntervalMinutes();
        if (!IndexXMLBackupExists(request.folder) || BackupAgeMinutes(request.folder) > interval) {
          BackupSerialisation(request.folder);
        }
      } catch (...) {
        // A failed backup never spoils a good load.
        std::fputs("Exception occurred when backing up\n", stdout);
        std::fflush(stdout);
      }
    }
  } else if (index->LoadState == LoadFailed) {
    // Whatever rebuilds this index counts on from the highest LastUID the
    // folder is known to have reached, so no UID is handed out twice.
    persist::RaiseToFloor(&index->LastUID,
                          persist::RecoveryLastUidFloor(request.folder, request.item_class));
    RecoverFromBackup(index, request);
  }
  return index->LoadState;
}

void StoreIndexSerialiser::RecoverFromBackup(SORTEDSTOREINDEXTYPE* index,
                                             const LoadRequest& request) {
  const std::string& folder = request.folder;
  std::string message = "Failed to deserialise index: " + folder + ".";
  if (!request.quiet && persist::BackupIndexSetting() == 1 && SupportsBackup()) {
    if (!IndexXMLBackupExists(folder)) {
      // Nothing to recover from: move the bad file aside and leave the
      // index unloaded, which leads the caller to a rebuild.
      message += " Unable to find recovery index. Recovering Index (there may be some flag loss)";
      QuarantineSerialisation(folder);
    } else if (!RestoreSerialisationBackup(folder)) {
      message += " Failed to restore backup index. RestoreSerialisationBackup returned:" +
                 std::to_string(platform::LastError());
    } else {
      // The backup is never trusted as it stands: it is merged with a scan
      // of the item files.
      UnindexedStoreIndexSerialiser recovery(this, /*owns_wrapped=*/false);
      LoadRequest merge = request;
      merge.verify_files = 1;
      merge.quiet = false;
      const uint32_t outer_floor = t_restore_floor;
      t_restore_floor = std::max(outer_floor, index->LastUID);
      index->LoadState = recovery.DeserialiseHook(index, merge);
      t_restore_floor = outer_floor;
      if (index->LoadState == LoadFailed) {
        message += " Backup Index is also corrupt.";
        IndexXMLDeleteBackupSerialisation(folder);
      } else {
        message += " Successfully loaded recovery index.";
      }
    }
  }
  message += "\n";
  Trace(8, message);
  if (!request.quiet) ReportIndexEvent(message);
}

int StoreIndexSerialiser::Serialise(SORTEDSTOREINDEXTYPE* index, const std::string& folder,
                                    int32_t item_class) {
  return GuardedOr(0, "StoreIndexSerialiser::Serialise", __LINE__,
                   [&] { return SerialiseHook(index, folder, item_class); });
}

int32_t NullStoreIndexDeserialiser::DeserialiseHook(SORTEDSTOREINDEXTYPE* index,
                                                    const LoadRequest& request) {
  if (!request.keep) index->UnInit();
  return LoadFull;
}

std::unique_ptr<StoreIndexSerialiser> CreateIndexDeserialiser(const std::string& folder,
                                                              int32_t item_class, bool rebuild,
                                                              bool force_rebuild,
                                                              bool* change_marker_seen) {
  if (change_marker_seen) *change_marker_seen = false;
  if (folder.empty()) return std::make_unique<NullStoreIndexDeserialiser>();
  platform::Env* env = Env();
  std::string path = persist::IndexFilePath(folder, item_class);
  bool exists = false;
  for (int test = 0; test < kPresenceTests; ++test) {
    if (platform::FileExists(env, path)) {
      exists = true;
      break;
    }
    env->SleepMs(kPresenceRetryMs);
  }
  std::unique_ptr<StoreIndexSerialiser> chosen;
  bool marker = false;
  if (exists) {
    if (persist::UseStreamDeserialisationSetting() == 1) {
      chosen = std::make_unique<StreamXMLStoreIndexSerialiser>();
    } else {
      chosen = std::make_unique<MSXMLStoreIndexSerialiser>();
    }
    if (rebuild) marker = platform::FileExists(env, persist::JoinPath(folder, files::kChangeFlag));
  } else if (rebuild) {
    chosen = std::make_unique<UnindexedStoreIndexSerialiser>(nullptr);
  } else {
    chosen = std::make_unique<NullStoreIndexDeserialiser>();
  }
  if (change_marker_seen) *change_marker_seen = marker;
  bool wrap = exists && ((rebuild && marker) || force_rebuild);
  // Every load of a calendar re-reads its item files in this mode; a
  // rebuild already does.
  if (!wrap && item_class == kClassCalendar && persist::CalendarReIndexModeSetting() != 0 &&
      !dynamic_cast<UnindexedStoreIndexSerialiser*>(chosen.get())) {
    wrap = true;
  }
  if (wrap) chosen = std::make_unique<UnindexedStoreIndexSerialiser>(chosen.release());
  return chosen;
}

std::unique_ptr<StoreIndexSerialiser> CreateIndexSerialiser() {
  if (persist::UseStreamSerialisationSetting() == 1) {
    return std::make_unique<StreamXMLStoreIndexSerialiser>();
  }
  return std::make_unique<MSXMLStoreIndexSerialiser>();
}

bool LoadIndexFile(SORTEDSTOREINDEXTYPE* index, StoreIndex* lock_owner, const std::string& folder,
                   int32_t item_class, const std::string& postoffice, const std::string& mailbox,
                   bool only_if_unloaded, bool lock_held, int32_t mode, int32_t verify_files,
                   bool rebuild, bool force_rebuild, bool report_failures, bool keep) {
  (void)kLoaderRegistered;
  index->folder_path = folder;
  index->index_type = item_class;
  index->postoffice = postoffice;
  index->mailbox = mailbox;
  index->onlyIfUnloaded = only_if_unloaded;
  index->lockHeld = lock_held;
  index->verifyFiles = verify_files;
  index->rebuild = rebuild;
  index->forceRebuild = force_rebuild;
  index->reportFailures = report_failures;
  index->keep = keep;
  if (only_if_unloaded && index->LoadState != LoadFailed) return true;
  if (lock_owner) lock_owner->folder_path = folder;

  bool marker = false;
  std::unique_ptr<StoreIndexSerialiser> serialiser =
      CreateIndexDeserialiser(folder, item_class, rebuild, force_rebuild, &marker);
  // A blank folder has nothing on disk to guard: the null member loads it.
  const bool take_access = !lock_held && !folder.empty();
  if (take_access && (!lock_owner || !BlockIndexFile(lock_owner))) return false;
  LoadRequest request;
  request.folder = folder;
  request.item_class = item_class;
  request.postoffice = postoffice;
  request.mailbox = mailbox;
  request.mode = mode;
  request.keep = keep;
  request.verify_files = verify_files;
  request.quiet = !report_failures;
  // The change marker goes once a rebuild it asked for has loaded in full.
  index->LoadState = serialiser->Deserialise(index, request, rebuild && marker);
  if (take_access) UnBlockIndexFile(lock_owner);
  return index->LoadState >= mode;
}

bool LoadIndexForClass(SORTEDSTOREINDEXTYPE* index, StoreIndex* lock_owner,
                       const std::string& folder, int32_t item_class, const std::string& postoffice,
                       const std::string& mailbox, bool only_if_unloaded, bool lock_held,
                       int32_t mode, int32_t verify_files, bool rebuild, bool force_rebuild,
                       bool report_failures, bool keep) {
  // A process that saves through a writer that needs every row must never
  // hold a partial index.
  bool full_only = CreateIndexSerialiser()->RequiresFullLoad();
  mode = std::max(mode, full_only ? int32_t{LoadFull} : int32_t{LoadHeader});
  if (item_class != kClassContactsAndGroups) {
    return LoadIndexFile(index, lock_owner, folder, item_class, postoffice, mailbox,
                         only_if_unloaded, lock_held, mode, verify_files, rebuild, force_rebuild,
                         report_failures, keep);
  }
  LoadIndexFile(index, lock_owner, folder, kClassContacts, postoffice, mailbox, only_if_unloaded,
                lock_held, mode, verify_files, rebuild, force_rebuild, report_failures, keep);
  return LoadIndexFile(index, lock_owner, folder, kClassGroups, postoffice, mailbox,
                       only_if_unloaded, lock_held, mode, verify_files, false, false, false, true);
}

int SaveIndexFile(SORTEDSTOREINDEXTYPE* index, const std::string& folder, int32_t item_class,
                  bool* written) {
  // A save never lowers the LastUID on disk: another process may have
  // handed out UIDs since this index was loaded.
  persist::RaiseToFloor(&index->LastUID, persist::LastUidInIndexFile(folder, item_class));
  std::unique_ptr<StoreIndexSerialiser> serialiser = CreateIndexSerialiser();
  const bool ok = serialiser->Serialise(index, folder, item_class) == 1;
  if (written) *written = ok;
  if (ok) {
    index->FirstModifiedUID = 0;
    index->FullRewriteRequired = false;
    platform::FileInfo info;
    if (Env()->Stat(persist::IndexFilePath(folder, item_class), &info) && info.exists) {
      index->IndexFileDate = info.write_time.ticks();
    }
  }
  return 1;
}

bool IndexFileExists(const std::string& folder, int32_t /*item_class*/) {
  return platform::FileExists(Env(), persist::JoinPath(folder, files::kIndexXml));
}

int ReloadIndexAtLevel(SORTEDSTOREINDEXTYPE* index, int32_t level) {
  return LoadIndexFile(index, index->owner, index->folder_path, index->index_type,
                       index->postoffice, index->mailbox, index->onlyIfUnloaded, index->lockHeld,
                       level, index->verifyFiles, index->rebuild, index->forceRebuild,
                       index->reportFailures, index->keep)
             ? 1
             : 0;
}

}  // namespace qaaisp
