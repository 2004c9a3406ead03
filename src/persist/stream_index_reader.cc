#include "persist/stream_index_reader.h"

#include <algorithm>
#include <cstring>
#include <memory>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "persist/index_text.h"

namespace qaaisp::persist {
namespace {

constexpr std::string_view kRootName = "BASEELEMENT";
constexpr std::string_view kRowName = "ELEMENT";
constexpr std::string_view kLastUidAttribute = "LASTUID=\"";
// A tag holds at most this many bytes; a longer one falls apart into a tag
// and the text that follows it.
constexpr size_t kMaxTagBytes = 1023;
constexpr size_t kMaxAttributeName = 1023;
constexpr size_t kPreviewBytes = 100;
constexpr uint64_t kNoLimit = ~0ull;

bool StartsWith(std::string_view s, std::string_view prefix) {
  // Most tags are properties: the first byte settles them without a call.
  return s.size() >= prefix.size() && s[0] == prefix[0] &&
         std::memcmp(s.data(), prefix.data(), prefix.size()) == 0;
}

// Tags and values are short: scanning 16 bytes at a time in place finds
// most delimiters before a library call would have paid for itself. Never
// reads at or past e.
inline const char* ScanFor(const char* p, const char* e, char c) {
#if defined(__SSE2__)
  const __m128i needle = _mm_set1_epi8(c);
  while (e - p >= 16) {
    __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    int mask = _mm_movemask_epi8(_mm_cmpeq_epi8(block, needle));
    if (mask != 0) return p + __builtin_ctz(static_cast<unsigned>(mask));
    p += 16;
  }
  for (; p < e; ++p) {
    if (*p == c) return p;
  }
  return nullptr;
#else
  if (p >= e) return nullptr;
  return static_cast<const char*>(std::memchr(p, c, static_cast<size_t>(e - p)));
#endif
}

size_t FindByte(std::string_view s, char c, size_t from) {
  if (from >= s.size()) return std::string_view::npos;
  const char* hit = ScanFor(s.data() + from, s.data() + s.size(), c);
  return hit ? static_cast<size_t>(hit - s.data()) : std::string_view::npos;
}

bool EqualsNoCaseAscii(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'a' && x <= 'z') x = static_cast<char>(x - 32);
    if (y >= 'a' && y <= 'z') y = static_cast<char>(y - 32);
    if (x != y) return false;
  }
  return true;
}

// The bytes at hand, addressed by their offset in the file. A pass over a
// buffer sees all of it at once; a chunked pass keeps from a pinned offset
// onward and reads more on demand.
class ByteWindow {
 public:
  explicit ByteWindow(std::string_view all) : data_(all.data()), size_(all.size()) {}
  ByteWindow(IndexByteSource* source, size_t chunk)
      : source_(source), capacity_(std::max<size_t>(chunk, 64)) {
    storage_.reset(new char[capacity_]);
    data_ = storage_.get();
  }

  uint64_t end() const { return base_ + size_; }
  const char* At(uint64_t offset) const { return data_ + (offset - base_); }
  bool read_failed() const { return read_failed_; }

  enum Found { kFound, kLimit, kEnd };

  // Finds c in [from, limit), reading more as needed while keeping every
  // byte from keep on (keep <= from).
  Found Find(char c, uint64_t from, uint64_t keep, uint64_t limit, uint64_t* at) {
    for (;;) {
      uint64_t stop = std::min(end(), limit);
      if (from < stop) {
        const char* p = At(from);
        const char* e = At(stop);
        const char* hit = ScanFor(p, e, c);
        if (hit) {
          *at = from + static_cast<uint64_t>(hit - p);
          return kFound;
        }
      }
      if (limit <= end()) return kLimit;
      from = std::max(from, end());
      if (!More(keep)) return kEnd;
    }
  }

  // Makes at least n bytes from offset 0 available if the input has them.
  void Prime(size_t n) {
    while (end() < n && More(0)) {
    }
  }

 private:
  bool More(uint64_t keep) {
    if (!source_ || at_end_) return false;
    size_t drop = static_cast<size_t>(keep - base_);
    if (drop > 0) {
      std::memmove(storage_.get(), storage_.get() + drop, size_ - drop);
      size_ -= drop;
      base_ = keep;
    }
    if (size_ == capacity_) {
      // A text or tag longer than the buffer: grow rather than lose it.
      size_t grown = capacity_ * 2;
      std::unique_ptr<char[]> bigger(new char[grown]);
      std::memcpy(bigger.get(), storage_.get(), size_);
      storage_ = std::move(bigger);
      capacity_ = grown;
    }
    data_ = storage_.get();
    int64_t n = source_->ReadAt(end(), storage_.get() + size_, capacity_ - size_);
    if (n <= 0) {
      at_end_ = true;
      read_failed_ = n < 0;
      return false;
    }
    size_ += static_cast<size_t>(n);
    return true;
  }

  const char* data_ = nullptr;
  size_t size_ = 0;
  uint64_t base_ = 0;
  IndexByteSource* source_ = nullptr;
  std::unique_ptr<char[]> storage_;
  size_t capacity_ = 0;
  bool at_end_ = false;
  bool read_failed_ = false;
};

class Pass {
 public:
  Pass(const StreamPassOptions& options, StreamIndexTarget* target)
      : options_(options), target_(target), mode_(options.mode) {
    filtered_ = options.item_filter && !options.item_filter->empty();
    field_filtered_ = options.field_filter && !options.field_filter->empty();
  }

  StreamPassOutcome Run(ByteWindow* window, int64_t file_length);

 private:
  void Fault(std::string message) {
    if (outcome_.fault.empty() && valid_) outcome_.fault = std::move(message);
    valid_ = false;
  }
  void DropFilters() {
    target_->ClearItemFilter();
    target_->ClearFieldFilter();
    filtered_ = false;
    field_filtered_ = false;
  }
  void DropRowUnderConstruction() {
    if (building_) target_->DropRow();
    building_ = false;
  }

  void HandleTag(std::string_view tag, std::string_view text, uint64_t tag_offset);
  void HandleRoot(std::string_view tag, bool is_end);
  void HandleRowStart(std::string_view tag, uint64_t tag_offset);
  void HandleRowEnd();
  void HandleProperty(std::string_view tag, std::string_view name, bool is_end,
                      std::string_view text);
  // Nearly every tag of a file is half of "<NAME>value</NAME>" inside a
  // row. Where the state is such that neither half could fault, such a
  // property is taken in one step: the same outcome as tag by tag, at about
  // half the work.
  bool TakesWholeProperty(std::string_view start_tag) const {
    return mode_ != 2 && root_start_seen_ && !root_end_seen_ && in_element_ &&
           open_property_size_ == 0 && !start_tag.empty() && start_tag[0] != '/' &&
           !StartsWith(start_tag, kRootName) && !StartsWith(start_tag, kRowName);
  }
  // Looks past the start tag in [lt, gt] for the value and a matching end
  // tag; false, having changed nothing, when they are not there.
  bool TakeWholeProperty(ByteWindow* window, uint64_t keep, uint64_t lt, uint64_t gt,
                         uint64_t* after);
  // Stores a property's text, unescaped, if the row is being built and
  // the field is wanted.
  void StoreProperty(std::string_view name, std::string_view text);
  // Takes one attribute of a row start tag; false leaves the row.
  bool TakeAttribute(std::string_view name, std::string_view value, uint64_t tag_offset);

  const StreamPassOptions& options_;
  StreamIndexTarget* target_;
  int mode_;
  bool filtered_;
  bool field_filtered_;

  bool valid_ = true;
  bool root_start_seen_ = false;
  bool root_end_seen_ = false;
  bool in_element_ = false;
  bool new_format_ = false;
  bool building_ = false;
  // The open property's start tag, kept in place: it is set for nearly
  // every tag of a file.
  char open_property_[kMaxTagBytes];
  size_t open_property_size_ = 0;
  std::string_view OpenProperty() const { return {open_property_, open_property_size_}; }
  int32_t previous_uid_ = -1;
  uint32_t idx_ = 1;
  uint32_t seq_ = 1;
  uint64_t position_ = 0;
  uint64_t row_offset_ = 0;
  std::string value_scratch_;
  StreamPassOutcome outcome_;
};

StreamPassOutcome Pass::Run(ByteWindow* window, int64_t file_length) {
  window->Prime(kPreviewBytes);
  std::string preview(window->At(0),
                      static_cast<size_t>(std::min<uint64_t>(window->end(), kPreviewBytes)));
  uint64_t cursor = 0;
  for (;;) {
    const uint64_t text_start = cursor;
    uint64_t lt;
    if (window->Find('<', text_start, text_start, kNoLimit, &lt) != ByteWindow::kFound) break;
    const uint64_t tag_start = lt + 1;
    uint64_t gt;
    ByteWindow::Found found =
        window->Find('>', tag_start, text_start, tag_start + kMaxTagBytes + 1, &gt);
    if (found == ByteWindow::kEnd) break;  // a tag cut off by the end of the file
    uint64_t tag_end = found == ByteWindow::kFound ? gt : tag_start + kMaxTagBytes;
    cursor = found == ByteWindow::kFound ? gt + 1 : tag_end;
    if (found == ByteWindow::kFound &&
        TakesWholeProperty(
            std::string_view(window->At(tag_start), static_cast<size_t>(gt - tag_start)))) {
      uint64_t after;
      if (TakeWholeProperty(window, text_start, lt, gt, &after)) {
        cursor = after;
        position_ = cursor;
        continue;
      }
    }
    position_ = cursor;
    HandleTag(std::string_view(window->At(tag_start), static_cast<size_t>(tag_end - tag_start)),
              std::string_view(window->At(text_start), static_cast<size_t>(lt - text_start)), lt);
    if (outcome_.garbage >= options_.garbage_threshold && (mode_ != 4 || filtered_)) break;
  }
  outcome_.read_ok = !window->read_failed();

  if (!options_.keep) {
    if (!new_format_) target_->SequenceByUid(seq_);
    if (outcome_.garbage >= options_.garbage_threshold) {
      target_->ClearItemFilter();
      target_->SetFullRewriteRequired();
      if (mode_ != 4 || filtered_) {
        target_->Clear();
        outcome_.result = StreamPassResult::kReloadInFull;
        return std::move(outcome_);
      }
    }
  }
  if (!root_start_seen_) {
    Fault("Did not find root element start tag [" + std::to_string(file_length) + ":" + preview +
          "]");
  }
  if (!root_end_seen_) Fault("Did not find root element end tag");
  if (valid_) {
    if (options_.verify_files && mode_ == 4) target_->SetFullRewriteRequired();
    outcome_.result = StreamPassResult::kGood;
  } else {
    outcome_.result = StreamPassResult::kMalformed;
  }
  return std::move(outcome_);
}

void Pass::HandleTag(std::string_view tag, std::string_view text, uint64_t tag_offset) {
  const bool is_end = !tag.empty() && tag[0] == '/';
  std::string_view name = is_end ? tag.substr(1) : tag;
  if (StartsWith(name, kRootName)) {
    HandleRoot(tag, is_end);
    return;
  }
  if (!StartsWith(name, kRowName)) {
    HandleProperty(tag, name, is_end, text);
    return;
  }
  if (!root_start_seen_)
    Fault("Encountered element tag before encountering a root element start tag");
  if (root_end_seen_)
    Fault("Encountered element tag after already encountering a root element end tag");
  if (open_property_size_ != 0) {
    Fault("Encountered element start tag nested within a property (" + std::string(tag) + ")");
  }
  if (is_end) {
    HandleRowEnd();
  } else {
    HandleRowStart(tag, tag_offset);
  }
}

void Pass::HandleRoot(std::string_view tag, bool is_end) {
  if (is_end) {
    if (!root_start_seen_) {
      Fault("Encountered root element end tag before root element start tag");
    }
    if (root_end_seen_) {
      Fault("Encountered root element end tag after already encountering a root element end tag");
    }
    root_end_seen_ = true;
    return;
  }
  if (root_start_seen_) {
    Fault("Encountered root element start tag after already encountering a root element start tag");
  }
  root_start_seen_ = true;
  bool current_form = false;
  size_t at = tag.find(kLastUidAttribute);
  if (at != std::string_view::npos) {
    size_t value_start = at + kLastUidAttribute.size();
    size_t quote = tag.find('"', value_start);
    if (quote != std::string_view::npos) {
      uint32_t last_uid = 0;
      current_form = ParseLastUID(&last_uid, tag.substr(value_start, quote - value_start)) == 1;
      target_->SetLastUid(last_uid);
    }
  }
  if (current_form) {
    new_format_ = true;
  } else {
    // The old form is upgraded by the next save, which must see every row
    // whole.
    DropFilters();
    target_->SetFullRewriteRequired();
  }
  if (tag.find('/') != std::string_view::npos) {
    root_end_seen_ = true;
    DropFilters();
    target_->SetFullRewriteRequired();
  }
}

void Pass::HandleRowStart(std::string_view tag, uint64_t tag_offset) {
  if (in_element_) Fault("Encountered element start tag nested within another element");
  in_element_ = true;
  DropRowUnderConstruction();

  bool saw_id = false;
  bool left = false;
  size_t cursor = 0;
  for (;;) {
    size_t space = FindByte(tag, ' ', cursor);
    if (space == std::string_view::npos) break;
    size_t equals = FindByte(tag, '=', space + 1);
    if (equals == std::string_view::npos) break;
    std::string_view name = tag.substr(space + 1, std::min(equals - space - 1, kMaxAttributeName));
    size_t open = FindByte(tag, '"', equals + 1);
    // The closing quote is looked for from one byte behind the opening one,
    // so an empty value takes everything up to the next quote.
    size_t close = open == std::string_view::npos ? open : FindByte(tag, '"', open + 2);
    if (close == std::string_view::npos) {
      Fault("Unable to parse ID attribute, Tag=[" + std::string(tag) + "]");
      break;
    }
    if (name == "ID") saw_id = true;
    if (!TakeAttribute(name, tag.substr(open + 1, close - open - 1), tag_offset)) {
      left = true;
      break;
    }
    cursor = close + 1;
  }
  if (!saw_id && !left) Fault("Encountered element start tag without an ID");
}

bool Pass::TakeAttribute(std::string_view name, std::string_view value, uint64_t tag_offset) {
  if (name == "UID" && new_format_) {
    int32_t uid = ParseSignedDecimal(value);
    if (uid < previous_uid_) {
      Fault("Encountered element with UID out of order. This UID=" + std::to_string(uid) +
            ", Previous UID=" + std::to_string(previous_uid_) +
            ", Largest/Last UID=" + std::to_string(target_->LastUid()));
    }
    previous_uid_ = uid;
  }
  if (IsTombstoneValue(value)) {
    ++outcome_.garbage;
    DropRowUnderConstruction();
    return false;
  }
  if (filtered_ && !target_->FullRewriteRequired()) {
    if (EqualsNoCaseAscii(name, "ID")) {
      auto it = options_.item_filter->find(value);
      if (it == options_.item_filter->end()) {
        // Not asked for: the row stays on disk as a gap for the writer.
        DropRowUnderConstruction();
        return false;
      }
      options_.item_filter->erase(it);
    }
  } else if (options_.verify_files && name == "ID" && !target_->ItemFileExists(value)) {
    DropRowUnderConstruction();
    return false;
  }
  if (!building_) {
    target_->BeginRow(static_cast<uint32_t>(tag_offset));
    row_offset_ = tag_offset;
    building_ = true;
  }
  target_->SetRowProperty(name, value);
  return true;
}

void Pass::HandleRowEnd() {
  if (!in_element_) {
    Fault("Encountered element end tag before encountering a matching element start tag");
  }
  in_element_ = false;
  if (!building_) return;
  building_ = false;
  bool inserted = target_->InsertRow(static_cast<uint32_t>(position_ - row_offset_), idx_,
                                     !options_.keep, new_format_, seq_);
  if (inserted) {
    ++outcome_.rows_inserted;
    if (new_format_) ++seq_;
  }
  ++idx_;
}

void Pass::HandleProperty(std::string_view tag, std::string_view name, bool is_end,
                          std::string_view text) {
  if (!root_start_seen_) {
    Fault("Encountered property tag (" + std::string(tag) +
          ") before encountering a root element start tag");
  }
  if (root_end_seen_) {
    Fault("Encountered property tag (" + std::string(tag) +
          ") after already encountering a root element end tag");
  }
  if (!in_element_) Fault("Encountered property tag (" + std::string(tag) + ") outside an element");
  if (mode_ == 2) return;
  if (is_end) {
    if (name != OpenProperty()) {
      Fault("Encountered property end tag (" + std::string(tag) +
            ") that does not match previous property start tag (" + std::string(OpenProperty()) +
            ")");
    }
    open_property_size_ = 0;
    StoreProperty(name, text);
    return;
  }
  if (open_property_size_ != 0) {
    Fault("Encountered property start tag (" + std::string(tag) +
          ") nested within another property (" + std::string(OpenProperty()) + ")");
  }
  // A tag never holds more than kMaxTagBytes.
  open_property_size_ = std::min(tag.size(), sizeof open_property_);
  std::memcpy(open_property_, tag.data(), open_property_size_);
}

void Pass::StoreProperty(std::string_view name, std::string_view text) {
  if (!building_ || (field_filtered_ && options_.field_filter->count(name) == 0)) return;
  if (ScanFor(text.data(), text.data() + text.size(), '&') == nullptr) {
    target_->SetRowProperty(name, text);  // nothing to unescape
  } else {
    UnescapeIndexText(text, &value_scratch_);
    target_->SetRowProperty(name, value_scratch_);
  }
}

bool Pass::TakeWholeProperty(ByteWindow* window, uint64_t keep, uint64_t lt, uint64_t gt,
                             uint64_t* after) {
  const uint64_t name_start = lt + 1;
  const uint64_t name_size = gt - name_start;
  const uint64_t value_start = gt + 1;
  // The window keeps everything from keep on while it reads ahead: the text
  // before the start tag is still wanted when this falls back to the tag.
  uint64_t end_lt;
  if (window->Find('<', value_start, keep, kNoLimit, &end_lt) != ByteWindow::kFound) return false;
  uint64_t end_gt;
  if (window->Find('>', end_lt + 1, keep, end_lt + 1 + kMaxTagBytes + 1, &end_gt) !=
      ByteWindow::kFound) {
    return false;
  }
  if (end_gt - end_lt != name_size + 2) return false;
  const char* end_tag = window->At(end_lt + 1);
  const char* name = window->At(name_start);
  if (end_tag[0] != '/' || std::memcmp(end_tag + 1, name, name_size) != 0) return false;
  StoreProperty(std::string_view(name, name_size),
                std::string_view(window->At(value_start), end_lt - value_start));
  *after = end_gt + 1;
  return true;
}

}  // namespace

StreamPassOutcome RunStreamIndexPass(std::string_view bytes, const StreamPassOptions& options,
                                     StreamIndexTarget* target) {
  ByteWindow window(bytes);
  Pass pass(options, target);
  return pass.Run(
      &window, options.file_length >= 0 ? options.file_length : static_cast<int64_t>(bytes.size()));
}

StreamPassOutcome RunStreamIndexPass(IndexByteSource* source, size_t buffer_size,
                                     const StreamPassOptions& options, StreamIndexTarget* target) {
  ByteWindow window(source, buffer_size);
  Pass pass(options, target);
  return pass.Run(&window, options.file_length);
}

HeaderProbe ProbeIndexHeader(std::string_view first_bytes) {
  HeaderProbe probe;
  if (first_bytes.size() > kHeaderProbeBytes)
    first_bytes = first_bytes.substr(0, kHeaderProbeBytes);
  if (first_bytes.size() <= 33) return probe;
  probe.kind = HeaderProbe::kNoHeader;
  size_t at = first_bytes.find(kLastUidAttribute);
  if (at == std::string_view::npos) return probe;
  size_t value_start = at + kLastUidAttribute.size();
  size_t quote = first_bytes.find('"', value_start);
  if (quote == std::string_view::npos) return probe;
  probe.has_last_uid = true;
  if (ParseLastUID(&probe.last_uid, first_bytes.substr(value_start, quote - value_start)) == 1) {
    probe.kind = first_bytes[32] == '/' ? HeaderProbe::kEmpty : HeaderProbe::kHeaderOnly;
  }
  return probe;
}

}  // namespace qaaisp::persist
