// Base64 with the strict decoder the store has always used: white space is
// skipped anywhere, but a bad character, misplaced padding or non-zero
// left-over bits refuse the whole text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qaaisp {

// Encodes length bytes into out with "=" padding and no terminator. Returns
// the length of the text, or -1 if out_size is too small.
int64_t Base64Encode(const void* data, size_t length, char* out, size_t out_size);

// Decodes text into out. Returns the number of bytes, or -1 for a refused
// text or one that does not fit out_size. With a null out it only counts,
// and left-over bits are not checked.
int64_t Base64Decode(std::string_view text, void* out, size_t out_size);

// As above on a malloc block the caller frees: 4 * ceil(length / 3) + 1 bytes
// for the encoder (terminated), 3 * ceil(text length / 4) for the decoder.
// On -1 *out is null.
int64_t Base64EncodeAlloc(const void* data, size_t length, char** out);
int64_t Base64DecodeAlloc(std::string_view text, uint8_t** out);

// Conveniences over the two above; the decoder returns false and leaves out
// empty on a refused text.
std::string Base64EncodeToString(std::string_view data);
bool Base64DecodeToString(std::string_view text, std::string* out);

}  // namespace qaaisp
