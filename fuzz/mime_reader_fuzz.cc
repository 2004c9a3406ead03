// Any bytes as a message through the whole-message MIME reader.
#include <cstddef>
#include <cstdint>

#include "mime/mime_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qaaisp::FuzzMessageReader(data, size);
  return 0;
}
