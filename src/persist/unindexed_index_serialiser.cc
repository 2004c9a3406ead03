#include "persist/unindexed_index_serialiser.h"

#include <algorithm>

#include "base/store_files.h"
#include "locks/file_iterator.h"
#include "locks/file_management.h"
#include "persist/index_report.h"
#include "persist/index_text.h"
#include "persist/last_uid_floor.h"
#include "platform/env.h"
#include "platform/path_case.h"

namespace qaaisp {
namespace {

constexpr int kBlockModeCallerHolds = 99;
constexpr int kPresenceTests = 10;
constexpr uint32_t kPresenceRetryMs = 200;
constexpr std::string_view kCalendarBegin = "BEGIN:VCALENDAR";
constexpr std::string_view kCalendarEnd = "END:VCALENDAR";

UnindexedScanRoutines g_routines;

size_t FindNoCase(std::string_view text, std::string_view part) {
  if (part.size() > text.size()) return std::string_view::npos;
  for (size_t i = 0; i + part.size() <= text.size(); ++i) {
    if (platform::EqualsNoCase(text.substr(i, part.size()), part)) return i;
  }
  return std::string_view::npos;
}

bool IndexFilePresent(const std::string& folder) {
  platform::Env* env = platform::Env::Default();
  std::string path = persist::JoinPath(folder, files::kIndexXml);
  for (int test = 0; test < kPresenceTests; ++test) {
    if (platform::FileExists(env, path)) return true;
    env->SleepMs(kPresenceRetryMs);
  }
  return false;
}

}  // namespace

void SetUnindexedScanRoutines(const UnindexedScanRoutines& routines) { g_routines = routines; }

bool IndexSavedAsItStands(const SORTEDSTOREINDEXTYPE& index, const std::string& folder,
                          int32_t item_class) {
  if (index.FirstModifiedUID != 0 || index.FullRewriteRequired || !index.removed_rows().empty() ||
      index.IndexFileDate == 0) {
    return false;
  }
  platform::FileInfo file;
  return platform::Env::Default()->Stat(persist::IndexFilePath(folder, item_class), &file) &&
         file.exists && !file.is_directory && file.write_time.ticks() == index.IndexFileDate;
}
const UnindexedScanRoutines& GetUnindexedScanRoutines() { return g_routines; }

UnindexedStoreIndexSerialiser::UnindexedStoreIndexSerialiser(StoreIndexSerialiser* wrapped,
                                                             bool owns_wrapped)
    : wrapped_(wrapped), owns_wrapped_(owns_wrapped) {}

UnindexedStoreIndexSerialiser::~UnindexedStoreIndexSerialiser() {
  if (owns_wrapped_) delete wrapped_;
}

int32_t UnindexedStoreIndexSerialiser::DeserialiseHook(SORTEDSTOREINDEXTYPE* index,
                                                       const LoadRequest& request) {
  return GuardedOr<int32_t>(0, "UnindexedStoreIndexSerialiser::DeserialiseHook", __LINE__, [&] {
    const std::string& folder = request.folder;
    index->ItemFilter.clear();
    int32_t result = LoadFull;
    if (wrapped_) {
      LoadRequest inner = request;
      inner.mode = LoadFull;
      inner.verify_files = 1;
      inner.quiet = true;
      index->LoadState = wrapped_->Deserialise(index, inner, false);
      if (index->LoadState == LoadFailed) {
        // The bad file goes aside and the scan starts from nothing; the
        // load as a whole has failed, which tells a recovery that the
        // backup it restored was no better.
        wrapped_->QuarantineSerialisation(folder);
        // The rows go, but not the LastUID the failed load kept as a floor.
        const uint32_t last_uid = index->LastUID;
        if (!request.keep) index->UnInit();
        index->LastUID = std::max(index->LastUID, last_uid);
        result = LoadFailed;
      }
    } else if (!request.keep) {
      index->UnInit();
      // No index file: the status record may still know UIDs handed out.
      persist::RaiseToFloor(&index->LastUID, persist::LastUidInFolderStatus(folder));
    }

    // The message scan saves what it built itself; when that save went
    // through and nothing changed since, a second one would only rewrite
    // the same bytes.
    bool saved_by_scan = false;
    switch (request.item_class) {
      case 0:
      case 23:
      case 25:
        if (g_routines.scan_messages) {
          g_routines.scan_messages(index, folder, kBlockModeCallerHolds);
          saved_by_scan =
              result != LoadFailed && IndexSavedAsItStands(*index, folder, request.item_class);
        }
        break;
      case 1:
        if (g_routines.scan_contacts) {
          g_routines.scan_contacts(index, folder, kBlockModeCallerHolds);
        }
        break;
      case 2:
        WalkCalendarFiles(index, request, "CAL");
        break;
      case 3:
        // Tasks are only rebuilt where there is no index to lose.
        if (!IndexFilePresent(folder)) WalkCalendarFiles(index, request, "TSK");
        break;
      case 54:
        if (!request.keep) index->UnInit();
        break;
      default:
        ReportIndexEvent(std::string("UnindexedStoreIndexSerialiser::DeserialiseHook") +
                         " called with invalid message class (" +
                         std::to_string(request.item_class) + ") for " + folder);
        result = LoadFailed;
        break;
    }
    if (saved_by_scan) return result;
    index->FullRewriteRequired = true;
    if (result != LoadFailed) SaveIndexFile(index, folder, request.item_class);
    return result;
  });
}

void UnindexedStoreIndexSerialiser::WalkCalendarFiles(SORTEDSTOREINDEXTYPE* index,
                                                      const LoadRequest& request,
                                                      const char* extension) {
  // Each item is read, deleted and written back by the calendar routine;
  // without that routine nothing may be touched.
  if (!g_routines.index_calendar_item) return;
  FileIterator files(request.folder + "/*." + extension, FileIterator::kFiles);
  if (!files.ok()) return;
  files.SortByName(false);
  platform::Env* env = platform::Env::Default();
  for (; !files.Done(); files.Next()) {
    const std::string& name = files.name();
    if (name.empty() || name[0] == '_' || name[0] == '.') continue;
    std::string path = persist::JoinPath(request.folder, name);
    IndexItem row;
    row.postoffice = request.postoffice;
    row.mailbox = request.mailbox;
    row.folder = request.folder;
    row.item_class = request.item_class;
    auto known = index->by_id().find(name);
    bool found = known != index->by_id().end();
    if (found) {
      row.Attach(known->second, false);
    } else {
      row.Create();
      row.SetPropertyForced("ID", name);
    }
    std::string text;
    ReadWholeFile(path, &text);
    env->RemoveFile(path);
    size_t begin = FindNoCase(text, kCalendarBegin);
    size_t end = FindNoCase(text, kCalendarEnd);
    if (begin != std::string::npos && end != std::string::npos) {
      text.resize(end + kCalendarEnd.size());
      g_routines.index_calendar_item(&row, request.item_class, path, text);
    }
    if (found) {
      row.Detach();
    } else {
      index->Insert(&row, UidClash::kNextFree);
    }
  }
}

}  // namespace qaaisp
