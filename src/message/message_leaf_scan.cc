#include "message/message_leaf_scan.h"

#include "mime/mime_header.h"
#include "mime/mime_text.h"

namespace qaaisp {
namespace {

constexpr std::string_view kDefaultType = "text/plain";

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
  // blank line, which known_blank gives where the caller has found it
  // already. False, as ReadPartHeader gives, where there is none.
  bool Read(std::string_view text, size_t* body, size_t known_blank = std::string_view::npos) {
    const size_t blank =
        known_blank != std::string_view::npos ? known_blank : mime::Find(text, "\r\n\r\n");
    if (blank == std::string_view::npos) return false;
    *body = blank + 4;
    header = text.substr(0, blank);
    size_t at[3];
    FindHeaderFields(header, {"Content-Type", "Content-Disposition", "Content-ID"}, at);
    type_value.clear();
    if (at[0] != std::string_view::npos) HeaderValueAt(header, at[0], &type_value);
    content_type = BeforeSemicolon(type_value);
    if (content_type.empty()) content_type = kDefaultType;
    boundary.clear();
    GetParameter(type_value, "boundary", &boundary);
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
    disposition = {};
    boundary.clear();
    has_content_id = false;
  }
};

class LeafWalk {
 public:
  LeafWalk(std::string_view text, LeafVisitor* visitor, size_t top_blank)
      : text_(text), visitor_(visitor), top_blank_(top_blank) {}

  // One level below the container with parent_boundary (or the top when it
  // is null), from *cursor.
  int Level(size_t* cursor, const std::string* parent_boundary, int depth) {
    std::string delimiter;
    std::string line_delimiter;
    if (parent_boundary) {
      if (depth > kMaxMultipartDepth) return 0;
      delimiter = "--" + *parent_boundary;
      line_delimiter = "\r\n" + delimiter;
      const size_t at = mime::Find(text_, delimiter, *cursor);
      if (at == std::string_view::npos) return 0;
      *cursor = mime::NextLine(text_, at + delimiter.size());
    }
    PartFields part;
    while (true) {
      if (*cursor < text_.size() && text_[*cursor] == '\r') {
        part.Headerless();
        *cursor = mime::NextLine(text_, *cursor);
      } else {
        size_t body = 0;
        const size_t known = parent_boundary ? std::string_view::npos : top_blank_;
        if (!part.Read(text_.substr(*cursor), &body, known)) return 0;
        *cursor += body;
      }
      LeafView leaf;
      leaf.header = part.header;
      leaf.content_type = part.content_type;
      leaf.disposition = part.disposition;
      const bool container =
          mime::FindNoCase(part.content_type, "multipart/") != std::string_view::npos;
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
  size_t top_blank_;
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

int WalkMessageLeaves(std::string_view message, LeafVisitor* visitor, size_t top_blank) {
  size_t cursor = 0;
  return LeafWalk(message, visitor, top_blank).Level(&cursor, nullptr, 0);
}

int ScanMessageLeaves(std::string_view message, std::vector<MessageLeaf>* leaves) {
  leaves->clear();
  Collector collector(leaves);
  return WalkMessageLeaves(message, &collector);
}

}  // namespace qaaisp
