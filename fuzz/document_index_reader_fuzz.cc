// Any bytes as an index file through the document reader: parsed and loaded
// in memory, and with the first byte's low bit through the whole load from a
// file (parse errors, recovery), then written back in both forms and read
// again by the stream reader.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <pugixml.hpp>
#include <string>

#include "index/store_index.h"
#include "persist/index_text.h"
#include "persist/msxml_index_serialiser.h"
#include "persist/stream_index_serialiser.h"
#include "platform/env.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const uint8_t flags = data[0];
  std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  static const std::string folder = "/tmp/qaaisp-document-fuzz-" + std::to_string(::getpid());
  qaaisp::platform::Env* env = qaaisp::platform::Env::Default();
  static const bool made = env->MakeDirectory(folder) || true;
  (void)made;

  qaaisp::MSXMLStoreIndexSerialiser reader;
  StoreIndex index;
  if (flags & 1) {
    if (!qaaisp::platform::WriteWholeFileAtomic(env, qaaisp::persist::IndexFilePath(folder, 0),
                                                bytes)) {
      return 0;
    }
    qaaisp::LoadRequest request;
    request.folder = folder;
    request.verify_files = (flags & 2) ? 1 : 0;
    request.keep = flags & 4;
    request.quiet = true;
    if (reader.DeserialiseHook(&index.table, request) != qaaisp::LoadFull) return 0;
  } else {
    pugi::xml_document document;
    if (!document.load_buffer(bytes.data(), bytes.size(), pugi::parse_default,
                              pugi::encoding_utf8)) {
      return 0;
    }
    if (reader.LoadFromDocument(&index.table, document, folder, (flags & 2) ? 1 : 0) != 1) {
      return 0;
    }
  }
  // What was loaded must write and read back without fault.
  if (flags & 8) {
    reader.SerialiseHook(&index.table, folder, 0);
    StoreIndex again;
    qaaisp::StreamXMLStoreIndexSerialiser stream;
    qaaisp::LoadRequest request;
    request.folder = folder;
    request.quiet = true;
    stream.DeserialiseHook(&again.table, request);
  }
  return 0;
}
