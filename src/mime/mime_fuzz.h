// Entry points for fuzzing the MIME readers: each takes any bytes as a
// message and runs everything the store does with one. They return nothing
// and must never fault.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qaaisp {

// The whole-message reader: line ends, both part lists, every part decoded,
// the header fields and the text body.
void FuzzMessageReader(const uint8_t* data, size_t size);

// The section reader over the bytes held in memory, for a fixed set of
// section names.
void FuzzSectionReader(const uint8_t* data, size_t size);

}  // namespace qaaisp
