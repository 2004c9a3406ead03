// The structure walk the header indexer needs: the leaves of a message, in
// the order and with the limits of MessageReader's plain list, but read
// lean: only the fields the indexer looks at are taken from each part's
// header, and bodies stay in place as views, since the indexer looks at
// almost none of them.
#pragma once

#include <cstdint>
#include <memory>
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

// What a caller that reads the top header itself already knows of it, so
// that the walk need not search it again.
struct KnownTopHeader {
  // The offset of the first "\r\n\r\n" in the message; npos: not looked
  // for, or none there.
  size_t blank = std::string_view::npos;
  // Whether fields holds what FindHeaderFields would find in the top
  // header: the value offsets of Content-Type, Content-Disposition and
  // Content-ID, npos where absent.
  bool fields_known = false;
  size_t fields[3] = {std::string_view::npos, std::string_view::npos, std::string_view::npos};
};

// Notes one field name that a HeaderFieldReader over header (the top
// header, up to blank) gave, in the order it gave them. Once the reader is
// through, fields_known may be set unless it stopped at an empty line:
// a field it never reached could be one the walk would find.
void NoteTopField(std::string_view header, std::string_view name, KnownTopHeader* top);

class LeafWalkBuffers;

// Walks message, whose line ends must already be CRLF, and hands each leaf
// to visitor in order. Gives 1, or 0 where MessageReader::ParseParts gives
// 0; the leaves met by then have been visited. Without buffers the walk
// uses its own.
int WalkMessageLeaves(std::string_view message, LeafVisitor* visitor,
                      const KnownTopHeader& top = {}, LeafWalkBuffers* buffers = nullptr);

struct LeafWalkLevel;

// The buffers of a walk, for a caller that walks message after message: kept
// from one walk to the next, they cost no allocation once grown. One walk
// at a time may use them.
class LeafWalkBuffers {
 public:
  LeafWalkBuffers();
  ~LeafWalkBuffers();
  LeafWalkBuffers(const LeafWalkBuffers&) = delete;
  LeafWalkBuffers& operator=(const LeafWalkBuffers&) = delete;

 private:
  friend int WalkMessageLeaves(std::string_view, LeafVisitor*, const KnownTopHeader&,
                               LeafWalkBuffers*);
  std::vector<std::unique_ptr<LeafWalkLevel>> levels_;  // by depth
};

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
