// The stream member's save. It decides between a full and an in-place
// rewrite, marks removed rows where they stand, rewrites from the first
// changed row to the end, cuts off what the rows no longer fill, and keeps
// the offset table beside the index file.
#include "persist/stream_index_writer.h"

#include <cinttypes>
#include <cstdio>
#include <optional>

#include "base/report.h"
#include "base/setting_names.h"
#include "base/settings.h"
#include "index/store_index.h"
#include "persist/elements_ahead.h"
#include "persist/index_report.h"
#include "persist/index_text.h"
#include "persist/persist_settings.h"
#include "persist/stream_index_serialiser.h"
#include "platform/win32_error.h"

namespace qaaisp {
namespace persist {
namespace {

LazySetting write_cache_size(settings::kProductKey, settings::kIndexWriteCacheSize, 32768);
LazySetting debug_index_saves(settings::kProductKey, settings::kDebugIndexSaves, 0);
LazySetting requires_valid_utf8(settings::kProductKey, settings::kIndexRequiresValidUtf8, 1);

}  // namespace

uint32_t IndexWriteCacheSizeSetting() { return write_cache_size.Get(); }
uint32_t DebugIndexSavesSetting() { return debug_index_saves.Get(); }
uint32_t IndexRequiresValidUtf8Setting() { return requires_valid_utf8.Get(); }
void ResetIndexWriteSettingsForTesting() {
  write_cache_size.Reset();
  debug_index_saves.Reset();
  requires_valid_utf8.Reset();
}

}  // namespace persist

namespace {

using persist::IndexWriteStream;

constexpr int kOpenAttempts = 20;
constexpr uint32_t kOpenRetryMs = 2000;

void CheckStream(const IndexWriteStream& stream, int line) {
  ReportStreamState(stream.state(), line, "");
}

void TraceAndReport(const std::string& text) {
  Trace(8, text);
  ReportIndexEvent(text);
}

std::string LastUidDigits(uint32_t last_uid) {
  char digits[9];
  std::snprintf(digits, sizeof digits, "%08x", last_uid);
  return digits;
}

// A removed row's attributes overwritten by dashes of the same widths; the
// rest of its element stays, and readers skip the row as garbage.
std::string Tombstone(const IndexItemPropertyContainer* row) {
  std::string text = "<ELEMENT ID=\"";
  text.append(row->IdView().size(), '-');
  if (row->HasValueAt(IndexItemPropertyContainer::UidKey())) {
    std::string uid;
    row->GetTextAt(IndexItemPropertyContainer::UidKey(), &uid);
    text.append("\" UID=\"");
    text.append(uid.size(), '-');
  }
  return text;
}

std::unique_ptr<platform::File> OpenExclusive(platform::Env* env, const std::string& path,
                                              bool truncate) {
  platform::OpenOptions options;
  options.read = true;
  options.write = true;
  options.disposition = truncate ? platform::OpenDisposition::kCreateAlways
                                 : platform::OpenDisposition::kOpenExisting;
  // Readers in other processes get a sharing violation and retry.
  options.share = platform::ShareMode::kShareNone;
  for (int attempt = 1;; ++attempt) {
    std::unique_ptr<platform::File> file = env->OpenFile(path, options);
    if (file != nullptr || attempt >= kOpenAttempts) return file;
    env->SleepMs(kOpenRetryMs);
  }
}

// The cached size of the index file, kept by the owning StoreIndex. A table
// that stands alone has none, and only its date is compared.
uint32_t CachedIndexFileSize(const SORTEDSTOREINDEXTYPE* index) {
  return index->owner != nullptr ? index->owner->IndexFileSize : 0;
}

// Cuts the file to length through a handle of its own.
bool TruncateIndexFile(platform::Env* env, const std::string& path, uint64_t length) {
  platform::OpenOptions options;
  options.read = false;
  options.write = true;
  options.disposition = platform::OpenDisposition::kOpenExisting;
  options.share = platform::ShareMode::kShareReadWrite;
  std::unique_ptr<platform::File> file = env->OpenFile(path, options);
  return file != nullptr && file->Truncate(length);
}

// What the check of the file found.
struct FileCheck {
  bool exists = false;
  // The size on disk, taken when the offsets in memory were still valid.
  bool size_taken = false;
  uint64_t size = 0;
};

// Decides whether the file still is the one the offsets in memory describe,
// and sets FullRewriteRequired when it is not. False: the save must not go
// on (the failure, if any, has been reported).
bool CheckIndexFile(platform::Env* env, SORTEDSTOREINDEXTYPE* index, const std::string& path,
                    const std::string& folder, bool complete, FileCheck* check) {
  platform::FileInfo info;
  check->exists = env->Stat(path, &info) && info.exists && !info.is_directory;
  if (!check->exists) {
    if (!complete) return false;
    index->FullRewriteRequired = true;
    return true;
  }
  if (!index->OffsetsValid) {
    // The offsets were spent by an earlier save of this load.
    index->FullRewriteRequired = true;
    return true;
  }
  check->size_taken = true;
  check->size = info.size;
  const uint32_t cached_size = CachedIndexFileSize(index);
  const bool size_changed = index->owner != nullptr && check->size != cached_size;
  const bool date_changed = info.write_time.ticks() != index->IndexFileDate;
  if (!size_changed && !date_changed) return true;
  if (!complete) {
    ReportIndexEvent("Index file modified since load (" + path +
                     "). Index was not fully loaded: aborting save.");
    return false;
  }
  if (size_changed) {
    Trace(8, "Index file size has changed from " + std::to_string(cached_size) + " (cached) to " +
                 std::to_string(check->size) + " (on disk); LastUID (cached) = " +
                 std::to_string(index->LastUID) + " : " + folder +
                 ". Cached offset information is now inaccurate. Index will be rewritten in "
                 "full.\n");
  }
  if (date_changed) {
    char dates[64];
    std::snprintf(dates, sizeof dates, "%" PRId64 " to %" PRId64,
                  static_cast<int64_t>(index->IndexFileDate),
                  static_cast<int64_t>(info.write_time.ticks()));
    Trace(8, std::string("Index file date has changed from ") + dates + ": " + folder +
                 ". Cached offset information is now inaccurate. Index will be rewritten in "
                 "full.\n");
  }
  index->FullRewriteRequired = true;
  return true;
}

// The header, whole or its LASTUID digits alone, and the removed rows'
// marks where their elements stand.
void WriteHeaderAndTombstones(IndexWriteStream* stream, const SORTEDSTOREINDEXTYPE* index,
                              bool full) {
  if (full) {
    stream->Write(std::string(persist::kIndexHeaderStart) + LastUidDigits(index->LastUID) + "\">");
    CheckStream(*stream, __LINE__);
    return;
  }
  stream->Seek(persist::kLastUidDigitsOffset);
  CheckStream(*stream, __LINE__);
  stream->Write(LastUidDigits(index->LastUID));
  CheckStream(*stream, __LINE__);
  for (const IndexItemPropertyContainer* row : index->removed_rows()) {
    if (row->FileOffset <= 0) continue;  // never written: nothing to mark
    stream->Seek(static_cast<uint64_t>(row->FileOffset));
    CheckStream(*stream, __LINE__);
    stream->Write(Tombstone(row));
    CheckStream(*stream, __LINE__);
  }
}

// The rows before the first rewritten one keep their places in the table.
void RecordRowsBefore(persist::IndexOffsetTable* table, platform::Env* env,
                      const std::vector<IndexItemPropertyContainer*>& rows, size_t start,
                      const PropertyMap& map) {
  const PropertyKey received = map.Find("RECEIVED");
  const PropertyKey idx = map.Find("IDX");
  const PropertyKey seq = map.Find("SEQ");
  for (size_t i = 0; i < start; ++i) {
    const IndexItemPropertyContainer* row = rows[i];
    int64_t number = 0;
    if (idx.valid() && row->HasValueAt(idx)) number = row->GetIntegerAt(idx);
    if (seq.valid() && row->HasValueAt(seq)) number = row->GetIntegerAt(seq);
    const uint64_t time = received.valid() && received.type == kPropertyText
                              ? persist::ReceivedFileTime(row->TextViewAt(received))
                              : 0;
    table->Set(env, number, static_cast<uint32_t>(row->FileOffset), row->Uid(), time);
  }
}

}  // namespace

int StreamXMLStoreIndexSerialiser::SerialiseHook(SORTEDSTOREINDEXTYPE* index,
                                                 const std::string& folder, int32_t item_class) {
  return GuardedOr(0, "StreamXMLStoreIndexSerialiser::SerialiseHook", __LINE__, [&]() -> int {
    platform::Env* env = platform::Env::Default();
    const uint64_t started = env->TickCountMs();
    const uint32_t cache_size = persist::IndexWriteCacheSizeSetting();
    escape_table_ = persist::MakeEscapeTable();
    PropertyMap property_map;
    CloneGlobalPropertyMap(&property_map);

    const std::string path = persist::IndexFilePath(folder, item_class);
    const bool filtered = !index->ItemFilter.empty();
    const bool complete = index->LoadState == LoadFull && !filtered;
    std::unique_ptr<persist::IndexOffsetTable> offset_table;
    if (persist::OffsetIndexSetting() == 1) {
      offset_table = std::make_unique<persist::IndexOffsetTable>(index->size(),
                                                                 index->LoadState == LoadHeader);
    }

    FileCheck check;
    if (!CheckIndexFile(env, index, path, folder, complete, &check)) return 0;

    if (persist::DebugIndexSavesSetting() != 0) {
      TraceAndReport("SerialiseHook:: Folder: " + path + ". Params: FullRewriteRequired =" +
                     std::to_string(index->FullRewriteRequired ? 1 : 0) +
                     ", Index->FirstModifiedUID=" + std::to_string(index->FirstModifiedUID) +
                     ", LoadState = " + std::to_string(index->LoadState) + ", IsFiltered = " +
                     std::to_string(filtered ? 1 : 0) + ", IsFieldFiltered = 0.\n");
    }

    const std::vector<IndexItemPropertyContainer*>& removed = index->removed_rows();
    if (!index->FullRewriteRequired && index->FirstModifiedUID < 1 && removed.empty()) return 1;

    if (!platform::DirectoryExists(env, folder)) {
      TraceAndReport("Failed to serialise index: " + folder +
                     ". The folder does not exist, so the index file could not be written.\n");
      return 0;
    }

    const bool full = index->FullRewriteRequired;
    std::unique_ptr<platform::File> file = OpenExclusive(env, path, full || !check.exists);
    if (file == nullptr) {
      TraceAndReport("Failed to serialise index: " + folder +
                     ". A File Access error occurred when opening the file (was retried for 40 "
                     "seconds). No data can be written.\n");
      return 0;
    }
    IndexWriteStream stream(std::move(file), cache_size);

    persist::IndexWriteContext context;
    context.env = env;
    context.index = index;
    context.stream = &stream;
    context.offset_table = offset_table.get();
    context.item_class = item_class;
    context.folder = folder;
    context.check_gaps = !full;
    context.gaps_possible = !(index->LoadState == LoadFull && (full || index->ItemFilter.empty()));
    context.escaper = std::make_unique<persist::TextEscaper>(
        escape_table_, persist::IndexRequiresValidUtf8Setting() == 1);
    persist::PrepareElementTags(property_map, item_class, &context.tags);

    WriteHeaderAndTombstones(&stream, index, full);

    uint64_t new_length = 0;
    const std::vector<IndexItemPropertyContainer*>& rows = index->rows();
    if (full || index->FirstModifiedUID >= 1) {
      index->OffsetsValid = false;
      size_t start = 0;
      int64_t position = static_cast<int64_t>(persist::kIndexHeaderBytes);
      if (!full) {
        while (start < rows.size() && rows[start]->Uid() < index->FirstModifiedUID) ++start;
        if (start == rows.size()) {
          start = 0;  // the changed rows at the end are gone
        } else if (rows[start]->FileOffset > 0) {
          position = rows[start]->FileOffset;
          if (offset_table) RecordRowsBefore(offset_table.get(), env, rows, start, property_map);
        } else {
          // A new row: it goes where the root end tag is.
          position = FindRowsEnd(&stream);
          if (offset_table) offset_table->GiveUp();
        }
      }
      stream.Seek(static_cast<uint64_t>(position));
      CheckStream(stream, __LINE__);
      stream.Flush();
      CheckStream(stream, __LINE__);
      if (context.gaps_possible) stream.KeepOriginal();

      // A long save has every other block of elements formatted by a
      // helper meanwhile; the offset table wants facts of each row on the
      // way, so a save that keeps one formats them all here.
      std::optional<persist::ElementsAhead> ahead;
      if (offset_table == nullptr && persist::ElementsAhead::Worthwhile(rows.size(), start))
        ahead.emplace(context, rows, start);
      IndexItemPropertyContainer* previous = nullptr;
      bool previous_is_new = false;
      for (size_t i = start; i < rows.size(); ++i) {
        IndexItemPropertyContainer* row = rows[i];
        const bool row_is_new = row->FileOffset == 0;
        if (previous != nullptr) {
          if (row->Uid() <= previous->Uid()) {
            TraceAndReport("Serialisation Issue: UID incorrectly ordered at " +
                           std::to_string(row->Uid()) + ".\n");
          }
          if (ahead) context.ready_element = ahead->Take(i - 1);
          position = WriteRow(&context, position, previous, row, previous_is_new);
        }
        previous_is_new = previous != nullptr && row_is_new;
        previous = row;
      }
      if (previous != nullptr) {
        if (ahead) context.ready_element = ahead->Take(rows.size() - 1);
        position = WriteRow(&context, position, previous, nullptr, previous_is_new);
      }
      stream.Write(persist::kIndexTrailer);
      CheckStream(stream, __LINE__);
      if (!full) new_length = stream.tell();
    }

    stream.Flush();
    CheckStream(stream, __LINE__);
    stream.Close();
    CheckStream(stream, __LINE__);
    // The stream has warned already. Cutting the file or trusting the new
    // places now could lose rows; the marks stay for the next save, which
    // rewrites the file in full because the offsets are spent.
    if (stream.write_failed()) return 0;

    if (new_length > 0 && check.size_taken && new_length < check.size) {
      if (!TruncateIndexFile(env, path, new_length)) {
        TraceAndReport("Failed to truncate index: " + folder +
                       ". A file error occurred when opening file (" +
                       std::to_string(platform::LastError()) + ").\n");
        return 0;
      }
    }

    if (offset_table) offset_table->Store(env, persist::OffsetTablePath(path), filtered);

    if (index->FullRewriteRequired || index->FirstModifiedUID >= 1 || !removed.empty()) {
      Trace(8, "[Thread:" + std::to_string(env->ThreadId()) + "]" +
                   "StreamXMLStoreIndexSerialiser::SerialiseHook" +
                   " Date: " + std::to_string(static_cast<int64_t>(index->IndexFileDate)) +
                   " Size: " + std::to_string(CachedIndexFileSize(index)) +
                   " Rewrite: " + std::to_string(index->FullRewriteRequired ? 1 : 0) +
                   " From: " + std::to_string(index->FirstModifiedUID) +
                   " Elapse: " + std::to_string(env->TickCountMs() - started) +
                   ", Item: " + folder + ", Count: " + std::to_string(index->size()) + "\n");
    }
    return 1;
  });
}

}  // namespace qaaisp
