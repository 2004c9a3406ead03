#include "message/folder_rescan.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "base/setting_names.h"
#include "base/settings.h"
#include "base/store_files.h"
#include "index/index_item.h"
#include "index/property_map.h"
#include "index/store_index.h"
#include "locks/block_file.h"
#include "locks/file_iterator.h"
#include "message/message_index.h"
#include "message/message_properties.h"
#include "message/message_settings.h"
#include "message/parse_ahead.h"
#include "message/rescan_heartbeat.h"
#include "message/uid_branding.h"
#include "notify/dirty_flags.h"
#include "persist/index_serialiser.h"
#include "persist/index_text.h"
#include "persist/last_uid_floor.h"
#include "persist/unindexed_index_serialiser.h"

namespace qaaisp {
namespace {

using Row = IndexItemPropertyContainer;

// Names this long or longer are never indexed: the row's "ID" field has no
// room for them.
constexpr size_t kMaxScannedNameLength = kFileNameFieldSize;

LazySetting g_maximum_rows(settings::kProductKey, settings::kMaximumIndexRows, 1000000);
std::atomic<FolderStatusWriter> g_status_writer{nullptr};

bool Skipped(const platform::DirEntry& entry) {
  return entry.is_directory || entry.name.empty() || entry.name[0] == '_' || entry.name[0] == '.';
}

// Whether the scan looks at the entry at all.
bool Scanned(const platform::DirEntry& entry) {
  return !Skipped(entry) && entry.name.size() < kMaxScannedNameLength;
}

// A table that already holds exactly what the index file says (a full,
// unfiltered load of the file as it stands, unchanged since) need not be
// read again.
bool HoldsCurrentFile(const SORTEDSTOREINDEXTYPE& index, const platform::FileInfo& file) {
  return index.LoadState == LoadFull && index.ItemFilter.empty() && index.FieldFilter.empty() &&
         index.FirstModifiedUID == 0 && index.removed_rows().empty() && index.IndexFileDate != 0 &&
         index.IndexFileDate == file.write_time.ticks();
}

// Whether the folder has an index file; its facts go to *file.
bool StatIndexFile(const std::string& folder, platform::FileInfo* file) {
  return platform::Env::Default()->Stat(persist::JoinPath(folder, files::kIndexXml), file) &&
         file->exists && !file->is_directory;
}

// Clears the table and loads the folder's index file, if exists says there
// is one. Gives exists. A file that cannot be loaded leaves an empty table
// that is written out in full at the end.
bool LoadExistingRows(SORTEDSTOREINDEXTYPE* index, const std::string& folder,
                      const platform::FileInfo& file, bool exists, bool report_failures) {
  if (exists && HoldsCurrentFile(*index, file)) return true;
  // Clearing the table forgets its rows, not the UIDs handed out: a table
  // from a failed load or a quarantined index file carries the highest
  // LastUID the folder is known to have reached, and a folder without an
  // index file still has its status record's. UIDs count on from there, so
  // that none is handed out twice.
  uint32_t floor = index->LastUID;
  if (!exists) floor = std::max(floor, persist::LastUidInFolderStatus(folder));
  index->UnInit();
  if (exists) {
    // Rows of vanished files are dropped against the listing afterwards,
    // which spares a look-up of every file here.
    LoadIndexForClass(index, nullptr, folder, /*item_class=*/0, "", "", /*only_if_unloaded=*/false,
                      /*lock_held=*/true, LoadFull, /*verify_files=*/0, /*rebuild=*/false,
                      /*force_rebuild=*/false, report_failures, /*keep=*/false);
    // A failed load keeps the floor it found in the damaged file.
    floor = std::max(floor, index->LastUID);
    if (index->LoadState == LoadFull) {
      index->LastUID = floor;
      return true;
    }
    index->UnInit();
    index->FullRewriteRequired = true;
  }
  index->LastUID = floor;
  // What the scan builds is the whole index.
  index->LoadState = LoadFull;
  return exists;
}

// Sizes and times of a listing taken without them, shared out in runs of
// entries between the thread that listed and the scan's own, once that has
// loaded the index.
class InfoFill {
 public:
  static constexpr size_t kRun = 512;

  // Called by the lister with its listing, prepared for the fill, or null.
  void Listed(FileIterator* listing) {
    std::lock_guard<std::mutex> lock(mutex_);
    listing_ = listing;
    listed_ = true;
    ready_.notify_all();
  }
  void WaitListed() {
    std::unique_lock<std::mutex> lock(mutex_);
    ready_.wait(lock, [&] { return listed_; });
  }
  // Takes runs until none is left.
  void Fill() {
    if (listing_ == nullptr) return;
    try {
      for (;;) {
        const size_t begin = next_.fetch_add(kRun);
        if (begin >= listing_->size()) return;
        listing_->FillInfo(begin, begin + kRun);
      }
    } catch (...) {
      failed_ = true;
    }
  }
  // Whether a stat threw, in which case the listing is not to be trusted.
  bool failed() const { return failed_; }

 private:
  std::mutex mutex_;
  std::condition_variable ready_;
  bool listed_ = false;
  FileIterator* listing_ = nullptr;
  std::atomic<size_t> next_{0};
  std::atomic<bool> failed_{false};
};

// Loads the index file and lists the folder's ".MAI" entries. Sizes and
// times are needed only to compare files with rows, so a folder with no
// rows is listed without them. Where helper threads may be used and there
// is an index file, the listing is taken on one while the index loads; it
// then has sizes and times, since the rows are not known yet, and the
// scan's thread helps to stat the entries once its load is done. With no
// file there is nothing to wait for, and the scan's thread lists alone.
std::optional<FileIterator> LoadAndList(SORTEDSTOREINDEXTYPE* index, const std::string& folder,
                                        bool report_failures, bool* index_existed) {
  const std::string pattern = folder + "/*.MAI";
  platform::FileInfo file;
  const bool exists = StatIndexFile(folder, &file);
  std::optional<FileIterator> listing;
  std::thread lister;
  InfoFill fill;
  if (exists && ParseAhead::HelperCount() > 0) {
    try {
      lister = std::thread([&] {
        try {
          listing.emplace(pattern, FileIterator::kFilesAndDirectories, /*with_info=*/false);
          listing->PrepareInfo();
        } catch (...) {
          // Listed again below, where a failure reaches the scan's caller.
          listing.reset();
        }
        fill.Listed(listing ? &*listing : nullptr);
        fill.Fill();
      });
    } catch (const std::system_error&) {
      // No thread to be had: listed after the load instead.
    }
  }
  try {
    *index_existed = LoadExistingRows(index, folder, file, exists, report_failures);
    if (lister.joinable()) {
      fill.WaitListed();
      fill.Fill();
    }
  } catch (...) {
    if (lister.joinable()) lister.join();
    throw;
  }
  if (lister.joinable()) lister.join();
  if (fill.failed()) listing.reset();
  if (listing) listing->DropVanished();
  if (!listing) {
    listing.emplace(pattern, FileIterator::kFilesAndDirectories,
                    /*with_info=*/!index->by_id().empty());
  }
  return listing;
}

// The walk's order: by name without regard to ASCII case, ties by bytes, as
// FileIterator::SortByName orders them. Each name is folded once, and its
// first 16 folded bytes packed into two integers, so that a large folder's
// sort mostly compares integers.
std::vector<const platform::DirEntry*> InNameOrder(FileIterator* listing) {
  struct Keyed {
    uint64_t high = 0;
    uint64_t low = 0;
    std::string_view folded;
    const platform::DirEntry* entry = nullptr;
  };
  std::vector<Keyed> keyed;
  keyed.reserve(listing->size());
  size_t folded_size = 0;
  for (; !listing->Done(); listing->Next()) {
    keyed.push_back(Keyed{0, 0, {}, &listing->entry()});
    folded_size += listing->entry().name.size();
  }
  std::string folded;
  folded.reserve(folded_size);  // never grows past this, so the views hold
  for (Keyed& k : keyed) {
    const size_t at = folded.size();
    const std::string& name = k.entry->name;
    for (size_t i = 0; i < name.size(); ++i) {
      const char c = name[i];
      const char lower = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
      folded.push_back(lower);
      const uint64_t byte = static_cast<unsigned char>(lower);
      if (i < 8) {
        k.high |= byte << (56 - 8 * i);
      } else if (i < 16) {
        k.low |= byte << (56 - 8 * (i - 8));
      }
    }
    k.folded = std::string_view(folded).substr(at, name.size());
  }
  std::sort(keyed.begin(), keyed.end(), [](const Keyed& a, const Keyed& b) {
    if (a.high != b.high) return a.high < b.high;
    if (a.low != b.low) return a.low < b.low;
    const int c = a.folded.compare(b.folded);
    return c != 0 ? c < 0 : a.entry->name < b.entry->name;
  });
  std::vector<const platform::DirEntry*> entries;
  entries.reserve(keyed.size());
  for (const Keyed& k : keyed) entries.push_back(k.entry);
  return entries;
}

// Drops the rows whose files have gone. names are the files the walk saw;
// a row whose name is not among them is looked for once more by name, since
// the walk leaves out what the pattern, the row limit or an abort kept it
// from reaching.
void DropVanishedRows(SORTEDSTOREINDEXTYPE* index, const std::string& folder,
                      std::vector<std::string_view>* names) {
  std::sort(names->begin(), names->end());
  std::set<std::string, std::less<>> gone;
  auto name = names->begin();
  platform::Env* env = platform::Env::Default();
  for (const auto& [id, row] : index->by_id()) {
    name = std::lower_bound(name, names->end(), std::string_view(id));
    if (name != names->end() && *name == id) continue;
    if (!platform::FileExists(env, persist::JoinPath(folder, id))) gone.insert(id);
  }
  if (!gone.empty()) index->Remove(gone);
}

// Branding rewrote the file: the row takes its new size and time, so the
// next scan finds the two in agreement.
void RefreshFileFacts(const std::string& path, Row* row) {
  platform::FileInfo facts;
  if (!platform::Env::Default()->Stat(path, &facts) || !facts.exists) return;
  row->SetInteger("SIZE", static_cast<int32_t>(facts.size));
  row->SetInteger("MODIFIEDDATE", static_cast<int32_t>(PackedModifiedDate(facts.write_time)));
}

void WriteFolderSizeFile(const std::string& folder, uint64_t total_bytes) {
  const uint64_t kilobytes = total_bytes / 1024;
  platform::WriteWholeFileAtomic(platform::Env::Default(),
                                 persist::JoinPath(folder, files::kDirSize),
                                 std::to_string(kilobytes));
}

// A new index file is dated now in all three times. A table that is the
// file as it stands keeps up with the new time, so that it is not taken
// for another process's change (and saved or reloaded again).
void StampNow(SORTEDSTOREINDEXTYPE* index, const std::string& folder) {
  const std::string path = persist::JoinPath(folder, files::kIndexXml);
  const bool as_it_stands = IndexSavedAsItStands(*index, folder, /*item_class=*/0);
  platform::Env* env = platform::Env::Default();
  platform::OpenOptions options;
  options.read = false;
  options.write = true;
  options.share = platform::ShareMode::kShareAny;
  std::unique_ptr<platform::File> file = env->OpenFile(path, options);
  if (!file) return;
  const platform::FileTime now = env->NowFileTime();
  if (!file->SetTimes(&now, &now, &now) || !as_it_stands) return;
  file.reset();
  platform::FileInfo stamped;
  if (env->Stat(path, &stamped) && stamped.exists)
    index->IndexFileDate = stamped.write_time.ticks();
}

// The status record of a folder of more than a few rows is counted on a
// helper thread while the save writes the rows out: both only read the
// rows and the tables of them, and a count takes a walk over every row.
constexpr size_t kLeastCountedAhead = 128;

class StatusCount {
 public:
  // With no table, one not wholly loaded (a count could load it, under
  // the save), or no thread to be had, Result counts by itself.
  explicit StatusCount(SORTEDSTOREINDEXTYPE* index) {
    if (index == nullptr || index->LoadState < LoadFull) return;
    try {
      counter_ = std::thread([this, index] {
        try {
          index->GetFolderDetails(&details_);
          counted_ = true;
        } catch (...) {
          // Counted again on the scan's thread, where a failure is reported.
        }
      });
    } catch (const std::system_error&) {
    }
  }
  StatusCount(const StatusCount&) = delete;
  StatusCount& operator=(const StatusCount&) = delete;
  ~StatusCount() {
    if (counter_.joinable()) counter_.join();
  }

  // The record; LastUID is the table's after the save, which may have
  // raised it to what the file on disk had reached.
  FolderDetails Result(SORTEDSTOREINDEXTYPE* index) {
    if (counter_.joinable()) counter_.join();
    if (counted_) {
      details_.LastUID = static_cast<int32_t>(index->LastUID);
    } else {
      details_ = FolderDetails{};
      index->GetFolderDetails(&details_);
    }
    return details_;
  }

 private:
  std::thread counter_;
  FolderDetails details_{};
  bool counted_ = false;
};

// Makes and inserts the row of a file indexed; gives it (owned by the
// table), or null.
Row* InsertIndexedRow(SORTEDSTOREINDEXTYPE* index, const std::string& folder,
                      platform::DirEntry* entry, uint32_t stamp, uint32_t* uid_counter,
                      IndexedMessage* indexed) {
  if (!indexed->indexed) return nullptr;
  MessageHeaderInfo& info = indexed->info;
  if (entry->write_time.IsZero()) entry->size = indexed->read_size;
  IndexItem item;
  item.Create();
  ++*uid_counter;
  // A file branded in this folder keeps its brand, under the UID it gets
  // now; the old UID itself is not restored.
  const bool branded = info.Uid != 0;
  info.Uid = *uid_counter;
  if (branded) BrandMessageUID(folder, entry->name, stamp, *uid_counter);
  info.Size = static_cast<uint32_t>(entry->size);
  SetBounded(&info.FileName, entry->name, kFileNameFieldSize);
  SetMessageProperties(&item, &info, /*keys_only=*/false);
  Row* row = item.container();
  if (!index->Insert(&item, UidClash::kNextFree)) return nullptr;
  *uid_counter = std::max(*uid_counter, index->LastUID);
  return row;
}

Row* MakeMessageRow(SORTEDSTOREINDEXTYPE* index, const std::string& folder,
                    platform::DirEntry* entry, uint32_t stamp, uint32_t* uid_counter) {
  thread_local IndexedMessage indexed;
  IndexNewMessageFile(folder, entry->name, stamp, &indexed);
  return InsertIndexedRow(index, folder, entry, stamp, uid_counter, &indexed);
}

}  // namespace

ScopedIndexAccess::ScopedIndexAccess(std::string block_path, int block_mode)
    : block_path_(std::move(block_path)), block_mode_(block_mode) {
  if (block_mode_ == kBlockModeHeld) {
    held_ = true;
    return;
  }
  taken_ = held_ = WaitForAccessToIndexFileEx(block_path_, block_mode_, &handle_) != 0;
}

ScopedIndexAccess::~ScopedIndexAccess() {
  if (taken_) UnBlockIndexFileAccessEx(block_path_, block_mode_, &handle_);
}

uint32_t MaximumIndexRowsSetting() { return g_maximum_rows.Get(); }
void ResetRescanSettingsForTesting() { g_maximum_rows.Reset(); }

void SetFolderStatusWriter(FolderStatusWriter writer) { g_status_writer.store(writer); }

int AddMessageRow(SORTEDSTOREINDEXTYPE* index, const std::string& folder, platform::DirEntry* entry,
                  uint32_t stamp, uint32_t* uid_counter) {
  return MakeMessageRow(index, folder, entry, stamp, uid_counter) != nullptr ? 1 : 0;
}

int ScanFoldersOrdered(SORTEDSTOREINDEXTYPE* index, const std::string& folder,
                       platform::SocketHandle socket, int block_mode, bool report_failures) {
  if (folder.empty()) return 0;
  const uint32_t maximum_rows = MaximumIndexRowsSetting();
  ScopedIndexAccess access(persist::JoinPath(folder, files::kIndexBlk), block_mode);
  if (!access.held()) return 1;
  const platform::HeldDirectory held(folder);
  const uint32_t branding = UidBrandingSetting();
  // The stamp only matters to branded files.
  const uint32_t stamp = branding ? GetFolderStamp(folder) : 0;

  bool index_existed = false;
  std::optional<FileIterator> listing = LoadAndList(index, folder, report_failures, &index_existed);
  uint32_t uid_counter = index->LastUID;

  RescanHeartbeat heartbeat(socket);
  const std::vector<const platform::DirEntry*> ordered = InNameOrder(&*listing);
  const size_t listed = std::min<size_t>(ordered.size(), maximum_rows);
  std::vector<std::string_view> seen_names;
  seen_names.reserve(listed);

  const PropertyKey modified_key = LookupProperty("MODIFIEDDATE", nullptr);
  const PropertyKey size_key = LookupProperty("SIZE", nullptr);
  uint32_t file_count = 0;
  uint64_t total_bytes = 0;
  // Rows met by name in the walk, found or made: each stands for a distinct
  // listed file, so when they are all the rows there are, none has vanished.
  size_t rows_met = 0;
  // Names of one case, as the store makes them, come in byte order too: the
  // rows are then met by a walk beside the listing rather than each by a
  // search. Rows made meanwhile leave the walk's place valid.
  const bool byte_ordered = std::is_sorted(
      ordered.begin(), ordered.begin() + static_cast<std::ptrdiff_t>(listed),
      [](const platform::DirEntry* a, const platform::DirEntry* b) { return a->name < b->name; });
  const auto row_finder = [&] {
    return [&, walked = index->by_id().begin()](const std::string& name) mutable {
      if (!byte_ordered) return index->by_id().find(name);
      while (walked != index->by_id().end() && walked->first < name) ++walked;
      return walked != index->by_id().end() && walked->first == name ? walked
                                                                     : index->by_id().end();
    };
  };
  auto row_named = row_finder();
  // Many new files, as in a rebuild, are read ahead on helper threads.
  std::optional<ParseAhead> ahead;
  const unsigned helpers = ParseAhead::HelperCount();
  if (helpers > 0 && listed >= index->by_id().size() + ParseAhead::kLeastFiles) {
    std::vector<size_t> new_files;
    auto has_row = row_finder();
    for (size_t i = 0; i < listed; ++i) {
      if (Scanned(*ordered[i]) && has_row(ordered[i]->name) == index->by_id().end())
        new_files.push_back(i);
    }
    ahead.emplace(folder, ordered, std::move(new_files), stamp, helpers);
  }
  bool aborted = false;
  for (size_t i = 0; i < listed; ++i) {
    const platform::DirEntry& entry = *ordered[i];
    if (!entry.is_directory) seen_names.emplace_back(entry.name);
    if (!Scanned(entry)) continue;
    ++file_count;
    if (heartbeat.ClientGone(file_count) || file_count >= maximum_rows) {
      aborted = true;
      break;
    }
    auto found = row_named(entry.name);
    if (found != index->by_id().end()) {
      ++rows_met;
      total_bytes += entry.size;
      Row* row = found->second;
      const uint32_t row_date = static_cast<uint32_t>(row->GetIntegerAt(modified_key));
      const uint32_t row_size = static_cast<uint32_t>(row->GetIntegerAt(size_key));
      if (row_date != PackedModifiedDate(entry.write_time) ||
          row_size != static_cast<uint32_t>(entry.size)) {
        IndexItem item;
        item.Attach(row, false);
        ReindexMessage(&item, folder, entry, stamp, /*refresh_all=*/row_date == 0);
        item.Detach();
      }
      continue;
    }
    platform::DirEntry fresh = entry;
    IndexedMessage* read_ahead = ahead ? ahead->Take(i) : nullptr;
    Row* row = read_ahead ? InsertIndexedRow(index, folder, &fresh, stamp, &uid_counter, read_ahead)
                          : MakeMessageRow(index, folder, &fresh, stamp, &uid_counter);
    if (row) ++rows_met;
    total_bytes += fresh.size;
    RebrandMessage(folder, fresh.name, stamp, uid_counter);
    if (branding && row) RefreshFileFacts(persist::JoinPath(folder, fresh.name), row);
  }

  ahead.reset();  // a scan stopped part way reads no further
  if (rows_met != index->by_id().size()) DropVanishedRows(index, folder, &seen_names);
  WriteFolderSizeFile(folder, total_bytes);
  int result = 1;
  if (!aborted) {
    const FolderStatusWriter writer = g_status_writer.load();
    StatusCount counted(
        writer != nullptr && helpers > 0 && index->size() >= kLeastCountedAhead ? index : nullptr);
    result = SaveIndexFile(index, folder, /*item_class=*/0);
    // A save that did not go through leaves its marks on the table; the
    // folder then stays marked as changed, so the next open scans again.
    if (index->FirstModifiedUID != 0 || index->FullRewriteRequired) {
      SetDirtyPathNotification(folder);
    } else {
      platform::Env::Default()->RemoveFile(persist::JoinPath(folder, files::kChangeFlag));
      if (writer) writer(folder, counted.Result(index));
    }
  }
  heartbeat.Restore();
  if (!index_existed) StampNow(index, folder);
  return result;
}

int ScanStoreIndex(StoreIndex* index, int block_mode) {
  if (!index || index->folder_path.empty()) return 0;
  index->table.owner = index;
  return ScanFoldersOrdered(&index->table, index->folder_path.str(), platform::kNoSocket,
                            block_mode, /*report_failures=*/true);
}

}  // namespace qaaisp
