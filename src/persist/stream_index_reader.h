// The stream reader's pass over an index file: one forward walk that splits
// the bytes at "<" and ">", checks them with a small state machine, and
// builds rows as it goes, noting where each row's element lies so that the
// in-place writer can rewrite it later. No document is built.
//
// The pass is a function of its bytes: a buffer in memory, or a source read
// in chunks. It never reads outside what the source gave it, whatever the
// input, which is what the fuzz target drives.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <string_view>

namespace qaaisp::persist {

using NameSet = std::set<std::string, std::less<>>;

// What a pass changes in the index it loads. The serialiser implements it
// over a StoreIndex; tests and the fuzz target record what they are told.
class StreamIndexTarget {
 public:
  virtual ~StreamIndexTarget() = default;

  virtual uint32_t LastUid() const = 0;
  virtual void SetLastUid(uint32_t uid) = 0;
  virtual bool FullRewriteRequired() const = 0;
  virtual void SetFullRewriteRequired() = 0;
  virtual void ClearItemFilter() = 0;
  virtual void ClearFieldFilter() = 0;
  // True if the item file named id is present in the folder.
  virtual bool ItemFileExists(std::string_view id) = 0;

  // A row under construction: begun at its element's offset, given its
  // attributes and properties, then either dropped or inserted.
  virtual void BeginRow(uint32_t file_offset) = 0;
  virtual void SetRowProperty(std::string_view name, std::string_view value) = 0;
  virtual void DropRow() = 0;
  // Stores idx as "IDX" and inserts the row (strictly when
  // refuse_duplicates). If it went in and sequence is set, the row is put
  // at the end of the sequence with "SEQ" = seq. A refused row is deleted.
  // Gives whether the row went in.
  virtual bool InsertRow(uint32_t file_length, uint32_t idx, bool refuse_duplicates, bool sequence,
                         uint32_t seq) = 0;

  // Empties the index.
  virtual void Clear() = 0;
  // Puts all rows in the sequence in UID order, numbering "SEQ" from first.
  virtual void SequenceByUid(uint32_t first) = 0;
};

struct StreamPassOptions {
  int mode = 4;  // 1 header, 2 keys, 3 filtered fields, 4 full
  bool keep = false;
  bool verify_files = false;
  uint32_t garbage_threshold = 500;
  // Identifiers to load; found ones are taken out. Null or empty: all rows.
  NameSet* item_filter = nullptr;
  // Property names to keep; null or empty: all.
  const NameSet* field_filter = nullptr;
  // The file's length, for the message about a missing root. A pass over a
  // buffer uses the buffer's size when this is not set.
  int64_t file_length = -1;
};

enum class StreamPassResult { kMalformed = 0, kGood = 1, kReloadInFull = 2 };

struct StreamPassOutcome {
  StreamPassResult result = StreamPassResult::kMalformed;
  // The first fault found; empty when the file is well formed.
  std::string fault;
  uint32_t garbage = 0;
  uint32_t rows_inserted = 0;
  // False when the source failed in mid-file (the pass then ends as at the
  // end of the file).
  bool read_ok = true;
};

// Where a chunked pass gets its bytes.
class IndexByteSource {
 public:
  virtual ~IndexByteSource() = default;
  // Reads up to n bytes at offset: the count, 0 at the end, -1 on failure.
  virtual int64_t ReadAt(uint64_t offset, char* buffer, size_t n) = 0;
};

// DeserialiseKeysOrBetter over bytes in memory.
StreamPassOutcome RunStreamIndexPass(std::string_view bytes, const StreamPassOptions& options,
                                     StreamIndexTarget* target);
// The same over a source read in chunks of buffer_size bytes (the window
// grows for a tag or text longer than that).
StreamPassOutcome RunStreamIndexPass(IndexByteSource* source, size_t buffer_size,
                                     const StreamPassOptions& options, StreamIndexTarget* target);

// The quick header read of a mode 1 load, over the first bytes of a file.
struct HeaderProbe {
  enum Kind {
    kTooShort,    // 33 bytes or fewer: read the file in full with the mode unchanged
    kNoHeader,    // old format or nothing readable: read the file in full
    kHeaderOnly,  // LastUID known, rows left on disk
    kEmpty,       // self-closed root of the current form: empty and complete
  };
  Kind kind = kTooShort;
  bool has_last_uid = false;
  uint32_t last_uid = 0;
};
HeaderProbe ProbeIndexHeader(std::string_view first_bytes);

// Bytes the quick header read looks at.
inline constexpr size_t kHeaderProbeBytes = 1024;

}  // namespace qaaisp::persist
