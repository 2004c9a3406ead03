#include "base/base64.h"

#include <array>
#include <cstdlib>

namespace qaaisp {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr int8_t kInvalid = -1;
constexpr int8_t kSpace = -2;
constexpr int8_t kPad = -3;

// Value of each byte: 0-63 for the alphabet, or one of the markers above.
// White space is what isspace() says in the C locale.
constexpr std::array<int8_t, 256> MakeDecodeTable() {
  std::array<int8_t, 256> table{};
  for (auto& v : table) v = kInvalid;
  for (int i = 0; i < 64; ++i) table[static_cast<uint8_t>(kAlphabet[i])] = static_cast<int8_t>(i);
  for (char c : {' ', '\t', '\n', '\v', '\f', '\r'}) table[static_cast<uint8_t>(c)] = kSpace;
  table['='] = kPad;
  return table;
}
constexpr std::array<int8_t, 256> kDecode = MakeDecodeTable();

size_t EncodedLength(size_t length) { return (length + 2) / 3 * 4; }

}  // namespace

int64_t Base64Encode(const void* data, size_t length, char* out, size_t out_size) {
  const size_t needed = EncodedLength(length);
  if (needed > out_size || (needed > 0 && out == nullptr)) return -1;
  const auto* in = static_cast<const uint8_t*>(data);
  char* o = out;
  size_t i = 0;
  for (; i + 3 <= length; i += 3) {
    const uint32_t v = (uint32_t{in[i]} << 16) | (uint32_t{in[i + 1]} << 8) | in[i + 2];
    *o++ = kAlphabet[v >> 18];
    *o++ = kAlphabet[(v >> 12) & 63];
    *o++ = kAlphabet[(v >> 6) & 63];
    *o++ = kAlphabet[v & 63];
  }
  if (i < length) {
    const bool two = i + 1 < length;
    const uint32_t v = (uint32_t{in[i]} << 16) | (two ? uint32_t{in[i + 1]} << 8 : 0);
    *o++ = kAlphabet[v >> 18];
    *o++ = kAlphabet[(v >> 12) & 63];
    *o++ = two ? kAlphabet[(v >> 6) & 63] : '=';
    *o++ = '=';
  }
  return static_cast<int64_t>(needed);
}

int64_t Base64Decode(std::string_view text, void* out, size_t out_size) {
  auto* target = static_cast<uint8_t*>(out);
  size_t written = 0;
  int state = 0;      // characters seen of the current group of four
  uint32_t bits = 0;  // bits of the group not yet written as a byte
  size_t pos = 0;
  const size_t n = text.size();
  for (; pos < n; ++pos) {
    const int8_t v = kDecode[static_cast<uint8_t>(text[pos])];
    if (v == kSpace) continue;
    if (v == kPad) break;
    if (v == kInvalid) return -1;
    bits = (bits << 6) | static_cast<uint32_t>(v);
    // A byte is complete after the second, third and fourth character.
    if (state > 0) {
      if (target != nullptr) {
        if (written >= out_size) return -1;
        target[written] = static_cast<uint8_t>(bits >> (6 - 2 * state));
      }
      ++written;
      bits &= (1u << (6 - 2 * state)) - 1;
    }
    state = (state + 1) & 3;
  }
  if (pos == n) return state == 0 ? static_cast<int64_t>(written) : -1;

  // Padding: one "=" closes a group of three, two close a group of two.
  if (state < 2) return -1;
  ++pos;
  if (state == 2) {
    while (pos < n && kDecode[static_cast<uint8_t>(text[pos])] == kSpace) ++pos;
    if (pos == n || text[pos] != '=') return -1;
    ++pos;
  }
  for (; pos < n; ++pos) {
    if (kDecode[static_cast<uint8_t>(text[pos])] != kSpace) return -1;
  }
  // The bits that did not fill a byte must be zero; a mere count skips this.
  if (target != nullptr && bits != 0) return -1;
  return static_cast<int64_t>(written);
}

int64_t Base64EncodeAlloc(const void* data, size_t length, char** out) {
  *out = nullptr;
  const size_t size = EncodedLength(length) + 1;
  auto* block = static_cast<char*>(std::malloc(size));
  if (block == nullptr) return -1;
  const int64_t result = Base64Encode(data, length, block, size);
  block[result] = '\0';
  *out = block;
  return result;
}

int64_t Base64DecodeAlloc(std::string_view text, uint8_t** out) {
  *out = nullptr;
  const size_t size = (text.size() + 3) / 4 * 3;
  auto* block = static_cast<uint8_t*>(std::malloc(size > 0 ? size : 1));
  if (block == nullptr) return -1;
  const int64_t result = Base64Decode(text, block, size);
  if (result < 0) {
    std::free(block);
    return -1;
  }
  *out = block;
  return result;
}

std::string Base64EncodeToString(std::string_view data) {
  std::string text(EncodedLength(data.size()), '\0');
  Base64Encode(data.data(), data.size(), text.data(), text.size());
  return text;
}

bool Base64DecodeToString(std::string_view text, std::string* out) {
  out->clear();
  out->resize((text.size() + 3) / 4 * 3);
  const int64_t n = Base64Decode(text, out->data(), out->size());
  if (n < 0) {
    out->clear();
    return false;
  }
  out->resize(static_cast<size_t>(n));
  return true;
}

}  // namespace qaaisp
