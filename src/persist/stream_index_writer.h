// The stream member's writer: saves a folder's rows into the index file in
// place. It rewrites the file from the first changed row onward, marks
// removed rows where they stand, carries along byte for byte the rows a
// partial load left on disk, and rewrites the whole file only when the file
// or the index gives it no choice.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "index/property_map.h"
#include "index/sorted_store_index.h"
#include "persist/index_escape.h"
#include "persist/index_offsets.h"
#include "persist/index_write_stream.h"
#include "platform/env.h"

namespace qaaisp::persist {

// The header up to the LASTUID digits, and its full length: a later save
// changes LastUID by overwriting the eight digits alone.
inline constexpr std::string_view kIndexHeaderStart = "<BASEELEMENT LASTUID=\"x";
inline constexpr uint64_t kLastUidDigitsOffset = 23;
inline constexpr uint64_t kIndexHeaderBytes = 33;
inline constexpr std::string_view kIndexTrailer = "</BASEELEMENT>\r\n";
inline constexpr std::string_view kRootEndTag = "</BASEELEMENT>";

// How one property of the map is written.
struct ElementTag {
  enum Kind { kSkip, kRowNumber, kNumber, kText, kEscapedText };
  Kind kind = kSkip;
  PropertyKey key;
  std::string open;       // "<TAG>"
  std::string close;      // "</TAG>"
  bool received = false;  // read for the offset table on its way out
};

// What one save works with, shared by its steps.
struct IndexWriteContext {
  platform::Env* env = nullptr;
  SORTEDSTOREINDEXTYPE* index = nullptr;
  IndexWriteStream* stream = nullptr;
  IndexOffsetTable* offset_table = nullptr;  // null without "Offset Index"
  int32_t item_class = 0;
  std::string folder;
  // The save is incremental: gaps are checked for what they should hold.
  bool check_gaps = false;
  // Rows may be separated by rows that memory does not hold.
  bool gaps_possible = false;
  std::unique_ptr<TextEscaper> escaper;
  // One entry per property of the save's map, in key order.
  std::vector<ElementTag> tags;
  // The element being built; kept to spare an allocation per row.
  std::string element;
  // The next row's element when a helper formatted it already; used once.
  std::string_view ready_element;
};

// What formatting a row's element learns on the way, for the offset table.
struct RowElementFacts {
  uint32_t uid = 0;
  int64_t table_index = 0;  // "IDX" or "SEQ"
  uint64_t received = 0;    // read only when the save keeps an offset table
};

// The row's "<ELEMENT ...>...</ELEMENT>" text into *out. Reads the row and
// the context's tags and escaper only, so helpers may format rows at once.
void FormatRowElement(const IndexWriteContext& context, const IndexItemPropertyContainer& row,
                      std::string* out, RowElementFacts* facts);

// Fills context->tags from the map: which properties are written, how, and
// their tags. Messages escape only the fields that can hold markup
// characters; every other class escapes all text.
void PrepareElementTags(const PropertyMap& map, int32_t item_class, std::vector<ElementTag>* tags);

// "Index Write Cache Size" (default 32768), "Debug Index Saves" (0),
// "Index Requires Valid UTF8" (1): read once per process.
uint32_t IndexWriteCacheSizeSetting();
uint32_t DebugIndexSavesSetting();
uint32_t IndexRequiresValidUtf8Setting();
void ResetIndexWriteSettingsForTesting();

}  // namespace qaaisp::persist
