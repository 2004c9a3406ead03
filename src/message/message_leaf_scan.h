// The structure walk the header indexer needs: the leaves of a message, in
// the order and with the limits of MessageReader's plain list, but with
// their bodies left in place as views instead of copied, since the indexer
// looks at almost none of them.
#pragma once

#include <string_view>
#include <vector>

#include "mime/message_part.h"

namespace qaaisp {

struct MessageLeaf {
  MessagePart part;  // header fields only: part.Body stays empty
  std::string_view body;
};

// Fills leaves (cleared first) from message, whose line ends must already be
// CRLF. Gives 1, or 0 where MessageReader::ParseParts gives 0; the leaves
// found by then stay. The views point into message.
int ScanMessageLeaves(std::string_view message, std::vector<MessageLeaf>* leaves);

}  // namespace qaaisp
