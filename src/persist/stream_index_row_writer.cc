// The per-row steps of the stream writer: one element built in memory and
// written once, the bytes behind a row that memory does not hold carried
// along with it, and the search for the root end tag.
#include <algorithm>
#include <cstring>

#include "index/store_index.h"
#include "persist/index_report.h"
#include "persist/stream_index_serialiser.h"
#include "persist/stream_index_writer.h"

namespace qaaisp {
namespace {

using persist::ElementTag;
using persist::IndexWriteStream;

// Gaps are carried through a buffer of this size, so a partial load of a
// huge folder never holds a gap in memory whole.
constexpr size_t kGapChunk = 64 * 1024;
constexpr std::string_view kElementStart = "<ELEMENT";
constexpr std::string_view kElementEnd = "</ELEMENT>";
// A gap shorter than an empty element cannot be checked for its bounds.
constexpr uint64_t kCheckableGap = 11;
// The trailer may be followed by a little junk; only this much of the tail
// is searched for the root end tag.
constexpr size_t kTailSearch = 31;

void CheckStream(const IndexWriteStream& stream, int line) {
  ReportStreamState(stream.state(), line, "");
}

void AppendUnsigned(uint32_t value, std::string* out) {
  char digits[10];
  int n = 0;
  do {
    digits[n++] = static_cast<char>('0' + value % 10);
    value /= 10;
  } while (value != 0);
  while (n > 0) out->push_back(digits[--n]);
}

bool IsEscapedMessageField(std::string_view name) {
  return name == "SUBJECT" || name == "FROM" || name == "TO" || name == "CC" || name == "MSGID" ||
         name == "THREAD";
}

std::string RowId(const IndexItemPropertyContainer* row) { return std::string(row->IdView()); }

}  // namespace

namespace persist {

void PrepareElementTags(const PropertyMap& map, int32_t item_class, std::vector<ElementTag>* tags) {
  tags->clear();
  tags->reserve(map.size());
  for (const PropertyEntry& entry : map.entries()) {
    ElementTag tag;
    tag.key = entry.key;
    const std::string& name = entry.name;
    if (name == "IDX" || name == "SEQ") {
      tag.kind = ElementTag::kRowNumber;
    } else if (name == "ID" || name == "UID") {
      tag.kind = ElementTag::kSkip;
    } else if (entry.key.type == kPropertyInteger) {
      tag.kind = ElementTag::kNumber;
    } else if (entry.key.type == kPropertyText) {
      // Other message fields are known never to hold markup characters.
      bool escaped = item_class != 0 || IsEscapedMessageField(name);
      tag.kind = escaped ? ElementTag::kEscapedText : ElementTag::kText;
      tag.received = item_class == 0 && name == "RECEIVED";
    }
    if (tag.kind != ElementTag::kSkip && tag.kind != ElementTag::kRowNumber) {
      tag.open = "<" + name + ">";
      tag.close = "</" + name + ">";
    }
    tags->push_back(std::move(tag));
  }
}

}  // namespace persist

namespace persist {

void FormatRowElement(const IndexWriteContext& context, const IndexItemPropertyContainer& row,
                      std::string* out, RowElementFacts* facts) {
  std::string& text = *out;
  text.clear();
  text.append(kElementStart);
  if (row.HasValueAt(IndexItemPropertyContainer::IdKey())) {
    text.append(" ID=\"");
    text.append(row.IdView());
    text.push_back('"');
  }
  if (row.HasValueAt(IndexItemPropertyContainer::UidKey())) {
    facts->uid = static_cast<uint32_t>(row.GetIntegerAt(IndexItemPropertyContainer::UidKey()));
    text.append(" UID=\"");
    AppendUnsigned(facts->uid, &text);
    text.push_back('"');
  }
  text.push_back('>');
  for (const ElementTag& tag : context.tags) {
    if (tag.kind == ElementTag::kSkip || !row.HasValueAt(tag.key)) continue;
    switch (tag.kind) {
      case ElementTag::kRowNumber:
        // "IDX" and then "SEQ" in key order: the later one wins.
        facts->table_index = row.GetIntegerAt(tag.key);
        continue;
      case ElementTag::kNumber:
        text.append(tag.open);
        AppendUnsigned(static_cast<uint32_t>(row.GetIntegerAt(tag.key)), &text);
        break;
      case ElementTag::kText:
      case ElementTag::kEscapedText: {
        std::string_view value = row.TextViewAt(tag.key);
        if (tag.received && context.offset_table != nullptr) {
          facts->received = ReceivedFileTime(value);
        }
        text.append(tag.open);
        if (tag.kind == ElementTag::kEscapedText) {
          context.escaper->Append(value, &text);
        } else {
          text.append(value);
        }
        break;
      }
      case ElementTag::kSkip:
        continue;
    }
    text.append(tag.close);
  }
  text.append(kElementEnd);
}

}  // namespace persist

uint32_t StreamXMLStoreIndexSerialiser::WriteRowElement(persist::IndexWriteContext* context,
                                                        IndexItemPropertyContainer* row) {
  // The element goes out in one write, so its place is where the stream is.
  const uint64_t place = context->stream->tell();
  std::string_view text = context->ready_element;
  context->ready_element = {};
  if (text.empty()) {
    persist::RowElementFacts facts;
    persist::FormatRowElement(*context, *row, &context->element, &facts);
    if (context->offset_table != nullptr) {
      context->offset_table->Set(context->env, facts.table_index, static_cast<uint32_t>(place),
                                 facts.uid, facts.received);
    }
    text = context->element;
  }
  context->stream->Write(text);
  CheckStream(*context->stream, __LINE__);
  return static_cast<uint32_t>(text.size());
}

int64_t StreamXMLStoreIndexSerialiser::FindRowsEnd(persist::IndexWriteStream* stream) {
  // While a save keeps the old content, the end is the old file's end: rows
  // moved further on may already cover the old root end tag.
  uint64_t size = 0;
  if (stream->keeping()) {
    size = stream->original_length();
  } else {
    stream->SeekEnd();
    CheckStream(*stream, __LINE__);
    size = stream->tell();
  }
  if (size <= persist::kIndexTrailer.size()) return 0;
  char tail[kTailSearch];
  size_t got = stream->ReadOriginal(size - persist::kIndexTrailer.size(), tail,
                                    persist::kIndexTrailer.size());
  CheckStream(*stream, __LINE__);
  stream->ClearState();
  if (got == persist::kIndexTrailer.size() &&
      std::string_view(tail, got) == persist::kIndexTrailer) {
    return static_cast<int64_t>(size - persist::kIndexTrailer.size());
  }
  const size_t want = static_cast<size_t>(std::min<uint64_t>(kTailSearch, size));
  const uint64_t from = size - want;
  got = stream->ReadOriginal(from, tail, want);
  CheckStream(*stream, __LINE__);
  stream->ClearState();
  size_t at = std::string_view(tail, got).find(persist::kRootEndTag);
  if (at == std::string_view::npos) return static_cast<int64_t>(size);
  return static_cast<int64_t>(from + at);
}

int64_t StreamXMLStoreIndexSerialiser::WriteRow(persist::IndexWriteContext* context,
                                                int64_t position, IndexItemPropertyContainer* row,
                                                IndexItemPropertyContainer* next_row,
                                                bool row_is_new) {
  SORTEDSTOREINDEXTYPE* index = context->index;
  IndexWriteStream* stream = context->stream;

  // Where the bytes to carry end: at the next row memory knows, or at the
  // end of the rows. A complete index has nothing between its rows.
  uint64_t span_end = 0;
  const bool no_gap =
      (index->LoadState == LoadFull && (index->FullRewriteRequired || index->ItemFilter.empty())) ||
      row_is_new;
  if (!no_gap) {
    if (next_row != nullptr && next_row->FileOffset > 0) {
      span_end = static_cast<uint64_t>(next_row->FileOffset);
    } else {
      span_end = static_cast<uint64_t>(FindRowsEnd(stream));
    }
  }
  const uint64_t old_end = static_cast<uint64_t>(std::max(row->FileOffset, 0)) + row->FileLength;
  const uint64_t gap = span_end > old_end && span_end != 0 && old_end != 0 ? span_end - old_end : 0;
  // Old bytes before this row's end are not read again, apart from the old
  // file's last bytes, which the search for the rows' end reads.
  const uint64_t old_length = stream->original_length();
  const uint64_t tail = old_length > kTailSearch ? old_length - kTailSearch : 0;
  auto forget_before = [&](uint64_t offset) {
    if (stream->keeping()) stream->SetOriginalFloor(std::min(offset, tail));
  };
  if (old_end != 0) forget_before(old_end);

  if (gap > 0 && context->check_gaps && gap >= kCheckableGap) {
    char head[8];
    char tail[10];
    size_t head_got = stream->ReadOriginal(old_end, head, sizeof head);
    size_t tail_got = stream->ReadOriginal(span_end - sizeof tail, tail, sizeof tail);
    CheckStream(*stream, __LINE__);
    stream->ClearState();
    if (std::string_view(head, head_got) != kElementStart) {
      ReportIndexEvent("Corrupting index " + context->folder + ". Gap after " + RowId(row) +
                       " does not start at the start of an element.");
    }
    if (std::string_view(tail, tail_got) != kElementEnd) {
      std::string where = next_row != nullptr && next_row->FileOffset >= 1
                              ? "before " + RowId(next_row)
                              : "after " + RowId(row);
      ReportIndexEvent("Corrupting index " + context->folder + ". Gap " + where +
                       " does not end at the end of an element.");
    }
  }

  if (stream->tell() != static_cast<uint64_t>(position)) {
    stream->Seek(static_cast<uint64_t>(position));
    CheckStream(*stream, __LINE__);
  }
  if (stream->failed()) {
    ReportIndexEvent("Info: Insertion attempt at position: " + std::to_string(position) +
                     " with stream length: " + std::to_string(stream->Length()) + ". File " +
                     context->folder +
                     ". Pointer will be positioned at end of file to allow diagnosis. Check .bad "
                     "file.\n");
    stream->ClearState();
    stream->SeekEnd();
    CheckStream(*stream, __LINE__);
  }

  row->FileOffset = static_cast<int32_t>(position);
  const uint32_t length = WriteRowElement(context, row);
  const int64_t growth = static_cast<int64_t>(length) - static_cast<int64_t>(row->FileLength);
  if (gap > 0 && next_row != nullptr && next_row->FileLength > 0 &&
      growth > static_cast<int64_t>(next_row->FileLength)) {
    ReportIndexEvent("Corrupting index " + context->folder + ". Item size for " + RowId(row) +
                     " has grown so much that the gap will overflow the next item.");
  }
  row->FileLength = length;

  // The gap goes behind the element as it was; the stream has kept what the
  // element and earlier moves wrote over.
  std::string chunk;
  for (uint64_t done = 0; done < gap;) {
    const size_t want = static_cast<size_t>(std::min<uint64_t>(kGapChunk, gap - done));
    chunk.resize(want);
    forget_before(old_end + done);
    size_t got = stream->ReadOriginal(old_end + done, chunk.data(), want);
    CheckStream(*stream, __LINE__);
    stream->ClearState();
    // Bytes that are gone (a file cut short under the save) become blanks,
    // which a reader skips as text between rows.
    if (got < want) std::fill(chunk.begin() + static_cast<std::ptrdiff_t>(got), chunk.end(), ' ');
    stream->Write(chunk);
    CheckStream(*stream, __LINE__);
    done += want;
  }
  return position + static_cast<int64_t>(length) + static_cast<int64_t>(gap);
}

}  // namespace qaaisp
