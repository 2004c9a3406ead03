// Small text routines shared by the index readers: the LASTUID forms, the
// unescaping of stored values, and the C library's number parsing as the
// index files have always been read.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qaaisp::persist {

// Parses a LASTUID value into *out. "x" and hexadecimal digits is the
// current form and gives 1; the old form gives 0: hexadecimal when it
// starts with "0", decimal otherwise. Digits stop at the first other byte;
// values past 32 bits saturate.
int ParseLastUID(uint32_t* out, std::string_view text);

// atol on a 32-bit long: optional blanks and sign, then decimal digits,
// saturating at the limits.
int32_t ParseSignedDecimal(std::string_view text);

// Undoes the escaping of a stored value in place: numeric references become
// one byte (the low 8 bits, so a reference above 255 loses its high bits),
// then "&lt;", "&gt;" and "&amp;" in that order. "&quot;" and "&apos;" stay.
void UnescapeIndexText(std::string* text);
// The same from text into out, for a reader whose bytes are not its own.
void UnescapeIndexText(std::string_view text, std::string* out);

// True if every byte is '-' (and there is at least one): the mark of a
// removed row's attribute.
bool IsTombstoneValue(std::string_view value);

// The index file's name for a class: "_groups.xml" for groups, "_index.xml"
// for everything else.
const char* IndexFileNameForClass(int item_class);
std::string IndexFilePath(const std::string& folder, int item_class);

// Joins a folder and a name with the native separator.
std::string JoinPath(const std::string& folder, std::string_view name);

}  // namespace qaaisp::persist
