#include "message/message_leaf_scan.h"

#include <memory>

#include "mime/mime_header.h"
#include "mime/mime_text.h"

namespace qaaisp {
namespace {

constexpr std::string_view kDefaultType = "text/plain";

// The fields the walk reads from a part's header, in the order of
// KnownTopHeader::fields.
constexpr std::string_view kPartFieldNames[3] = {"Content-Type", "Content-Disposition",
                                                 "Content-ID"};

// The header of a part at the start of text, read in one pass over its
// lines: gives the offset of the first "\r\n\r\n" (npos where there is
// none) and fills at with what FindHeaderFields would find of the part
// fields in the header before it. A line start is 0 or behind a CRLF; two
// CRLFs in a row are the blank line.
size_t ScanPartHeader(std::string_view text, size_t* at) {
  for (size_t i = 0; i < 3; ++i) at[i] = std::string_view::npos;
  size_t missing = 3;
  size_t previous = std::string_view::npos;  // the last CRLF passed
  size_t pos = 0;
  while (true) {
    // A match needs the name and its colon inside the line, so one in the
    // blank line or past it is impossible.
    if (missing > 0 && text.size() - pos > 8 &&
        mime::StartsWithNoCase(text.substr(pos), "content-")) {
      for (size_t i = 0; i < 3; ++i) {
        const std::string_view name = kPartFieldNames[i];
        if (at[i] == std::string_view::npos && text.size() - pos > name.size() &&
            text[pos + name.size()] == ':' && mime::StartsWithNoCase(text.substr(pos), name)) {
          at[i] = pos + name.size() + 1;
          --missing;
        }
      }
    }
    const size_t crlf = mime::Find(text, "\r\n", pos);
    if (crlf == std::string_view::npos) return std::string_view::npos;
    if (previous != std::string_view::npos && crlf == previous + 2) return previous;
    previous = crlf;
    pos = crlf + 2;
  }
}

std::string_view BeforeSemicolon(std::string_view value) {
  const size_t semi = value.find(';');
  return mime::TrimBlanks(semi == std::string_view::npos ? value : value.substr(0, semi));
}

// What the walk takes from a part's header: the fields ReadHeaderFields
// would give for type, disposition, boundary and identifier, without the
// file names and encodings the indexer has no use for.
struct PartFields {
  std::string_view header;
  std::string type_value;
  std::string disposition_value;
  std::string id_value;
  std::string_view content_type = kDefaultType;
  std::string_view disposition;
  std::string boundary;
  bool has_content_id = false;

  // Reads the header at the start of text; *body is the offset behind its
  // blank line. known, for the top header, says what the caller has found
  // of it already. False, as ReadPartHeader gives, where there is no blank
  // line.
  bool Read(std::string_view text, size_t* body, const KnownTopHeader* known) {
    size_t found[3];
    const size_t* at = found;
    size_t blank;
    if (known && known->blank != std::string_view::npos) {
      blank = known->blank;
      header = text.substr(0, blank);
      if (known->fields_known) {
        at = known->fields;
      } else {
        FindHeaderFields(header, {kPartFieldNames[0], kPartFieldNames[1], kPartFieldNames[2]},
                         found);
      }
    } else {
      blank = ScanPartHeader(text, found);
      if (blank == std::string_view::npos) return false;
      header = text.substr(0, blank);
    }
    *body = blank + 4;
    type_value.clear();
    if (at[0] != std::string_view::npos) HeaderValueAt(header, at[0], &type_value);
    content_type = BeforeSemicolon(type_value);
    if (content_type.empty()) content_type = kDefaultType;
    // Read by the walk, and only where it is used.
    boundary.clear();
    disposition = {};
    if (at[1] != std::string_view::npos) {
      HeaderValueAt(header, at[1], &disposition_value);
      disposition = BeforeSemicolon(disposition_value);
    }
    has_content_id = false;
    if (at[2] != std::string_view::npos) {
      HeaderValueAt(header, at[2], &id_value, "\r\n", true);
      std::string_view id = id_value;
      if (!id.empty() && id.front() == '<') id.remove_prefix(1);
      has_content_id = id.find_first_not_of('>') != std::string_view::npos;
    }
    return true;
  }

  // A part that starts with its blank line: plain text, nothing else.
  void Headerless() {
    header = {};
    content_type = kDefaultType;
    type_value.clear();
    disposition = {};
    boundary.clear();
    has_content_id = false;
  }

  // The boundary parameter, which only a container and the top part use.
  void ReadBoundary() { GetParameter(type_value, "boundary", &boundary); }
};

}  // namespace

// What one level of the walk fills: its parts' fields and its delimiters.
struct LeafWalkLevel {
  PartFields part;
  std::string delimiter;
  std::string line_delimiter;
};

LeafWalkBuffers::LeafWalkBuffers() = default;
LeafWalkBuffers::~LeafWalkBuffers() = default;

namespace {

class LeafWalk {
 public:
  LeafWalk(std::string_view text, LeafVisitor* visitor, const KnownTopHeader& top,
           std::vector<std::unique_ptr<LeafWalkLevel>>* levels)
      : text_(text), visitor_(visitor), top_(top), levels_(levels) {}

  // One level below the container with parent_boundary (or the top when it
  // is null), from *cursor.
  int Level(size_t* cursor, const std::string* parent_boundary, int depth) {
    if (parent_boundary && depth > kMaxMultipartDepth) return 0;
    // Every field is set before it is read, so a level's buffers serve the
    // same depth of the next message as they are.
    const size_t index = static_cast<size_t>(depth);
    while (levels_->size() <= index) levels_->push_back(std::make_unique<LeafWalkLevel>());
    LeafWalkLevel& level = *(*levels_)[index];
    std::string& delimiter = level.delimiter;
    std::string& line_delimiter = level.line_delimiter;
    if (parent_boundary) {
      delimiter.assign("--").append(*parent_boundary);
      line_delimiter.assign("\r\n").append(delimiter);
      const size_t at = mime::Find(text_, delimiter, *cursor);
      if (at == std::string_view::npos) return 0;
      *cursor = mime::NextLine(text_, at + delimiter.size());
    }
    PartFields& part = level.part;
    while (true) {
      if (*cursor < text_.size() && text_[*cursor] == '\r') {
        part.Headerless();
        *cursor = mime::NextLine(text_, *cursor);
      } else {
        size_t body = 0;
        if (!part.Read(text_.substr(*cursor), &body, parent_boundary ? nullptr : &top_)) {
          return 0;
        }
        *cursor += body;
      }
      LeafView leaf;
      leaf.header = part.header;
      leaf.content_type = part.content_type;
      leaf.disposition = part.disposition;
      const bool container =
          mime::FindNoCase(part.content_type, "multipart/") != std::string_view::npos;
      if (container || !parent_boundary) part.ReadBoundary();
      if (container) {
        nested_ = true;
        ++counter_;
        leaf.kind = kPartContainer;
        if (!Level(cursor, &part.boundary, depth + 1)) return 0;
      }
      if (!parent_boundary) {
        leaf.number = ++counter_;
        leaf.body = text_.substr(*cursor);
        *cursor = text_.size();
        // A top part that holds the parts found below is not itself a leaf.
        if (nested_ && !(part.boundary.empty() && !part.has_content_id)) return 1;
        return Add(leaf);
      }
      size_t body_end;
      size_t behind;
      if (text_.substr(*cursor).starts_with(delimiter)) {
        body_end = *cursor;
        behind = *cursor + delimiter.size();
      } else {
        const size_t at = mime::Find(text_, line_delimiter, *cursor);
        if (at == std::string_view::npos) return 0;
        body_end = at;
        behind = at + line_delimiter.size();
      }
      if (!container) {
        leaf.number = ++counter_;
        leaf.body = text_.substr(*cursor, body_end - *cursor);
        if (!Add(leaf)) return 0;
      }
      if (text_.substr(behind).starts_with("--")) {
        *cursor = behind + 2;
        return 1;
      }
      *cursor = mime::NextLine(text_, behind);
    }
  }

 private:
  // The part that overflows the limit is visited, as the reader keeps it.
  int Add(const LeafView& leaf) {
    visitor_->Visit(leaf);
    return ++leaves_ <= kMaxMessageParts ? 1 : 0;
  }

  std::string_view text_;
  LeafVisitor* visitor_;
  const KnownTopHeader& top_;
  std::vector<std::unique_ptr<LeafWalkLevel>>* levels_;
  size_t leaves_ = 0;
  int counter_ = 0;
  bool nested_ = false;
};

class Collector : public LeafVisitor {
 public:
  explicit Collector(std::vector<MessageLeaf>* leaves) : leaves_(leaves) {}
  void Visit(const LeafView& leaf) override {
    leaves_->push_back(MessageLeaf{std::string(leaf.header), std::string(leaf.content_type),
                                   std::string(leaf.disposition), leaf.body, leaf.number,
                                   leaf.kind});
  }

 private:
  std::vector<MessageLeaf>* leaves_;
};

}  // namespace

void NoteTopField(std::string_view header, std::string_view name, KnownTopHeader* top) {
  // FindHeaderFields only matches a name at the start of the header or
  // behind a CRLF, with its colon right behind it; the reader also starts
  // lines behind a bare LF and allows blanks before the colon.
  const size_t at = static_cast<size_t>(name.data() - header.data());
  const size_t colon = at + name.size();
  if (colon >= header.size() || header[colon] != ':') return;
  if (at != 0 && (at < 2 || header[at - 2] != '\r' || header[at - 1] != '\n')) return;
  for (size_t i = 0; i < 3; ++i) {
    if (top->fields[i] == std::string_view::npos && mime::EqualsNoCase(name, kPartFieldNames[i])) {
      top->fields[i] = colon + 1;
    }
  }
}

int WalkMessageLeaves(std::string_view message, LeafVisitor* visitor, const KnownTopHeader& top,
                      LeafWalkBuffers* buffers) {
  LeafWalkBuffers own;
  if (!buffers) buffers = &own;
  size_t cursor = 0;
  return LeafWalk(message, visitor, top, &buffers->levels_).Level(&cursor, nullptr, 0);
}

int ScanMessageLeaves(std::string_view message, std::vector<MessageLeaf>* leaves) {
  leaves->clear();
  Collector collector(leaves);
  return WalkMessageLeaves(message, &collector);
}

}  // namespace qaaisp
