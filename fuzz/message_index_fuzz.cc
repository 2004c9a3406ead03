// Any bytes as a message file through both header readers (with branding
// off and on) and the indexer's walk over its parts.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "index/index_item.h"
#include "message/message_index.h"
#include "message/message_leaf_scan.h"
#include "message/message_properties.h"
#include "platform/env.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string path = "/tmp/qaaisp-message-index-fuzz-" + std::to_string(::getpid());
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  std::vector<qaaisp::MessageLeaf> leaves;
  qaaisp::ScanMessageLeaves(bytes, &leaves);
  if (!qaaisp::platform::WriteWholeFileAtomic(qaaisp::platform::Env::Default(), path, bytes)) {
    return 0;
  }
  for (uint32_t branding : {0u, 1u}) {
    qaaisp::MessageHeaderInfo info;
    info.FolderStamp = 7;
    qaaisp::IndexMessageByLines(path, &info, false, branding, qaaisp::kAttachmentsVerified, false);
    info.Reset();
    qaaisp::IndexMessageByMime(path, &info, false, branding);
    IndexItem row;
    row.Create();
    qaaisp::SetMessageProperties(&row, &info, false);
  }
  return 0;
}
