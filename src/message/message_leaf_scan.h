// The structure walk the header indexer needs: the leaves of a message, in
// the order and with the limits of MessageReader's plain list, but read
// lean: only the fields the indexer looks at are taken from each part's
// header, and bodies stay in place as views, since the indexer looks at
// almost none of them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "mime/message_part.h"

namespace qaaisp {

// One leaf as the walk meets it. The views point into the message, or, for
// content_type and disposition, into the walk's own buffers: they are valid
// only while the visitor runs.
struct LeafView {
  std::string_view header;        // the part's header block
  std::string_view content_type;  // media type without parameters
  std::string_view disposition;   // without parameters
  std::string_view body;
  int32_t number = 0;  // running number in the message, from 1
  int32_t kind = kPartLeaf;
};

class LeafVisitor {
 public:
  virtual ~LeafVisitor() = default;
  virtual void Visit(const LeafView& leaf) = 0;
};

// Walks message, whose line ends must already be CRLF, and hands each leaf
// to visitor in order. Gives 1, or 0 where MessageReader::ParseParts gives
// 0; the leaves met by then have been visited. top_blank, where the caller
// has looked already, is the offset of the first "\r\n\r\n" in message
// (npos: not looked for, or none there).
int WalkMessageLeaves(std::string_view message, LeafVisitor* visitor,
                      size_t top_blank = std::string_view::npos);

// The same walk, collected.
struct MessageLeaf {
  std::string header;
  std::string content_type;
  std::string disposition;
  std::string_view body;  // into message
  int32_t number = 0;
  int32_t kind = kPartLeaf;
};
int ScanMessageLeaves(std::string_view message, std::vector<MessageLeaf>* leaves);

}  // namespace qaaisp
