#include "message/message_leaf_scan.h"

#include <string>

#include "mime/mime_header.h"
#include "mime/mime_text.h"

namespace qaaisp {
namespace {

class LeafScan {
 public:
  LeafScan(std::string_view text, std::vector<MessageLeaf>* leaves)
      : text_(text), leaves_(leaves) {}

  // One level below parent (or the top when parent is null), from *cursor.
  int Level(size_t* cursor, const MessagePart* parent, int depth) {
    std::string delimiter;
    std::string line_delimiter;
    if (parent) {
      if (depth > kMaxMultipartDepth) return 0;
      delimiter = "--" + parent->Boundary;
      line_delimiter = "\r\n" + delimiter;
      const size_t at = mime::Find(text_, delimiter, *cursor);
      if (at == std::string_view::npos) return 0;
      *cursor = mime::NextLine(text_, at + delimiter.size());
    }
    while (true) {
      MessagePart part;
      if (*cursor < text_.size() && text_[*cursor] == '\r') {
        part.ContentType = "text/plain";
        *cursor = mime::NextLine(text_, *cursor);
      } else {
        size_t body = 0;
        if (!ReadPartHeader(text_.substr(*cursor), &body, &part)) return 0;
        *cursor += body;
      }
      if (parent) part.ParentBoundary = parent->Boundary;

      const bool container =
          mime::FindNoCase(part.ContentType, "multipart/") != std::string_view::npos;
      if (container) {
        nested_ = true;
        part.Number = ++counter_;
        part.Kind = kPartContainer;
        if (!Level(cursor, &part, depth + 1)) return 0;
      }

      if (!parent) {
        part.Number = ++counter_;
        const std::string_view rest = text_.substr(*cursor);
        *cursor = text_.size();
        // A top part that holds the parts found below is not itself a leaf.
        if (nested_ && !(part.Boundary.empty() && part.ContentId.empty())) return 1;
        if (!container) part.Kind = kPartLeaf;
        return Add(std::move(part), rest);
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
        part.Number = ++counter_;
        if (!Add(std::move(part), text_.substr(*cursor, body_end - *cursor))) return 0;
      }
      if (text_.substr(behind).starts_with("--")) {
        *cursor = behind + 2;
        return 1;
      }
      *cursor = mime::NextLine(text_, behind);
    }
  }

 private:
  // The part that overflows the limit is kept, as the reader keeps it.
  int Add(MessagePart part, std::string_view body) {
    part.BodyLength = static_cast<int32_t>(body.size());
    leaves_->push_back(MessageLeaf{std::move(part), body});
    return leaves_->size() <= kMaxMessageParts ? 1 : 0;
  }

  std::string_view text_;
  std::vector<MessageLeaf>* leaves_;
  int counter_ = 0;
  bool nested_ = false;
};

}  // namespace

int ScanMessageLeaves(std::string_view message, std::vector<MessageLeaf>* leaves) {
  leaves->clear();
  size_t cursor = 0;
  return LeafScan(message, leaves).Level(&cursor, nullptr, 0);
}

}  // namespace qaaisp
