// One entity of a MIME message as the readers list it.
#pragma once

#include <cstdint>
#include <string>

namespace qaaisp {

// What a listed part stands for. Only leaves are listed in the plain list;
// the full structure adds the others so that a message can be put back
// together from its list.
enum MessagePartKind : int32_t {
  kPartLeaf = 0,
  kPartPreamble = 50,
  kPartClosingBoundary = 100,
  kPartContainer = 200,
};

// An abusive message must not cost unbounded time or memory: a list that
// grows past this many parts ends the parse.
inline constexpr size_t kMaxMessageParts = 200;
// Containers nest no deeper than this, so a crafted message cannot exhaust
// the stack.
inline constexpr int kMaxMultipartDepth = 64;

struct MessagePart {
  std::string TransferEncoding;  // cleared once the body is decoded
  std::string Charset;
  std::string Body;         // raw, then decoded, content
  std::string ContentType;  // media type without parameters
  std::string HeaderText;   // the part's header block
  std::string Disposition;
  std::string ParentBoundary;
  std::string Boundary;
  std::string ContentId;  // without "<" and ">"
  int32_t Kind = kPartLeaf;
  std::string DisplayName;  // best available file name
  std::string Name;
  std::string FileName;
  int32_t Number = 0;  // running number in the message, from 1
  int32_t BodyLength = 0;

  void Clear() { *this = MessagePart(); }
};

}  // namespace qaaisp
