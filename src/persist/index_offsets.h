// The offset table, `_index.bin` (`_groups.bin` for groups): where each row's
// element starts in the index file, with its UID and received time, for the
// other programs of the suite. This library only writes it.
//
// Little-endian: a 24-byte header (format version 1, then 20 zero bytes) and
// one 16-byte record per row in row position order (offset, UID, received
// time as a file time).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/env.h"

namespace qaaisp::persist {

inline constexpr uint32_t kOffsetTableVersion = 1;
inline constexpr size_t kOffsetTableHeaderBytes = 24;
inline constexpr size_t kOffsetRecordBytes = 16;

struct OffsetRecord {
  uint32_t offset = 0;
  uint32_t uid = 0;
  uint64_t received = 0;
};

// What goes to the debugger when a row's number does not fit the table.
inline constexpr const char* kOffsetSlotError = "SetPositionIndex:: Programatic Error";

class IndexOffsetTable {
 public:
  // One zeroed record per row. In append mode a save adds its records to an
  // existing table instead of writing a new one.
  IndexOffsetTable(size_t rows, bool append_mode) : records_(rows), append_mode_(append_mode) {}

  // Stores the record of the row numbered index (1-based). An index outside
  // 1..rows stores nothing and tells the debugger; gives whether it stored.
  bool Set(platform::Env* env, int64_t index, uint32_t offset, uint32_t uid, uint64_t received);

  // The save could not know every row's place; the table must not be kept.
  void GiveUp() { given_up_ = true; }
  bool given_up() const { return given_up_; }
  bool append_mode() const { return append_mode_; }
  const std::vector<OffsetRecord>& records() const { return records_; }

  // Brings the file at path in line with this save: deleted when the index
  // is filtered or the table was given up; in append mode the records are
  // added to an existing file (none is made); otherwise the file is written
  // anew. A file that cannot be written is deleted, so no stale table is
  // left behind.
  void Store(platform::Env* env, const std::string& path, bool index_filtered) const;

  // The header and records as they stand in the file.
  static std::string EncodeHeader();
  std::string EncodeRecords() const;

 private:
  std::vector<OffsetRecord> records_;
  bool append_mode_;
  bool given_up_ = false;
};

// A row's "RECEIVED" ("%Y-%m-%dT%H:%M:%S", read by fixed columns) as file
// time ticks; 0 when the text is too short or no valid date.
uint64_t ReceivedFileTime(std::string_view received);

// The offset table's path beside the index file: ".bin" for ".xml".
std::string OffsetTablePath(const std::string& index_path);

}  // namespace qaaisp::persist
