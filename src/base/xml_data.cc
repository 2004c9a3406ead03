#include "base/xml_data.h"

#include <cstring>

namespace qaaisp {

namespace {

// Copies n bytes into out, cut to out_size - 1, and terminates.
void CopyCut(const char* from, size_t n, char* out, size_t out_size) {
  if (out == nullptr || out_size == 0) return;
  if (n > out_size - 1) n = out_size - 1;
  std::memcpy(out, from, n);
  out[n] = '\0';
}

}  // namespace

const char* GetXMLDataEx(const char* text, const char* start, const char* end, char* out,
                         size_t out_size) {
  if (text == nullptr) return nullptr;
  const char* found = text;
  size_t start_length = 0;
  if (start != nullptr && *start != '\0') {
    found = std::strstr(text, start);
    if (found == nullptr) return nullptr;
    start_length = std::strlen(start);
  }
  if (end == nullptr) {
    CopyCut(found, std::strlen(found), out, out_size);
    return nullptr;
  }
  // The end is sought from one character past the found place, not past the
  // whole start delimiter; a field at the very start of the text must
  // therefore be at least one character long.
  if (*found == '\0') return nullptr;
  const char* stop = std::strstr(found + 1, end);
  if (stop == nullptr) return nullptr;
  const char* field = found + start_length;
  // A long start delimiter can overlap the end one ("ab" then "b"): the
  // field is then empty.
  CopyCut(field, stop > field ? static_cast<size_t>(stop - field) : 0, out, out_size);
  return stop + std::strlen(end);
}

}  // namespace qaaisp
