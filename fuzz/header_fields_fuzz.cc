// Any bytes as a message header through the field splitter, decoded and raw.
// Both must give the same field names, since decoding touches values only.
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "mime/header_fields.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view header(reinterpret_cast<const char*>(data), size);
  std::vector<qaaisp::HeaderField> decoded;
  std::vector<qaaisp::HeaderField> raw;
  int n_decoded = qaaisp::ParseHeaderFields(header, &decoded, qaaisp::kHeaderFieldsDecoded);
  int n_raw = qaaisp::ParseHeaderFields(header, &raw, qaaisp::kHeaderFieldsRaw);
  if (n_decoded != n_raw || decoded.size() != static_cast<size_t>(n_decoded)) __builtin_trap();
  for (size_t i = 0; i < raw.size(); ++i) {
    if (raw[i].name != decoded[i].name || raw[i].name.empty()) __builtin_trap();
  }
  return 0;
}
