// The delimiter cutter used across the library and exported as is.
#pragma once

#include <cstddef>

namespace qaaisp {

// Finds start (the beginning of text when empty), then end searched from one
// character past where start was found, and copies what lies between into
// out, cut to out_size - 1 and terminated. Returns the position just behind
// end, or null if either delimiter is missing (out is then untouched). With a
// null end everything from start on, start included, is copied and the
// result is null.
const char* GetXMLDataEx(const char* text, const char* start, const char* end, char* out,
                         size_t out_size);

}  // namespace qaaisp
