// Any bytes through the base64 decoder (counting, sized and allocating), and
// through the encoder and back: whatever decodes must encode to a text that
// decodes to the same bytes, and any bytes must survive encoding.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "base/base64.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);

  int64_t counted = qaaisp::Base64Decode(text, nullptr, 0);
  std::string decoded;
  bool ok = qaaisp::Base64DecodeToString(text, &decoded);
  if (ok && counted != static_cast<int64_t>(decoded.size())) __builtin_trap();
  // A buffer one byte short must be refused, never overrun.
  if (ok && !decoded.empty()) {
    std::unique_ptr<char[]> small(new char[decoded.size() - 1 + 1]);
    if (qaaisp::Base64Decode(text, small.get(), decoded.size() - 1) != -1) __builtin_trap();
  }
  uint8_t* block = nullptr;
  int64_t allocated = qaaisp::Base64DecodeAlloc(text, &block);
  if (allocated != (ok ? static_cast<int64_t>(decoded.size()) : -1)) __builtin_trap();
  if (ok && decoded.size() && std::memcmp(block, decoded.data(), decoded.size()) != 0) {
    __builtin_trap();
  }
  std::free(block);

  std::string encoded = qaaisp::Base64EncodeToString(text);
  std::string back;
  if (!qaaisp::Base64DecodeToString(encoded, &back) || back != text) __builtin_trap();
  char* encoded_block = nullptr;
  int64_t encoded_length = qaaisp::Base64EncodeAlloc(data, size, &encoded_block);
  if (encoded_length != static_cast<int64_t>(encoded.size()) ||
      std::memcmp(encoded_block, encoded.data(), encoded.size()) != 0) {
    __builtin_trap();
  }
  std::free(encoded_block);
  return 0;
}
