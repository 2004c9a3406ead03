// The one place that converts text between charsets. Windows code page
// numbers map onto iconv names in one table; pages the platform lacks are
// listed there as unsupported.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qaaisp::platform {

// The iconv name standing for a code page, or null if there is none.
const char* IconvNameOfCodePage(uint32_t code_page);

// True if the code page is a known Windows page this platform cannot convert.
bool IsUnsupportedCodePage(uint32_t code_page);

// Decodes text in code_page to UTF-16; bytes that do not decode become
// U+FFFD. False, with out untouched, if the code page is not supported.
bool DecodeToUtf16(uint32_t code_page, std::string_view text, std::u16string* out);

// Encodes UTF-16 into code_page; characters the page lacks, and unpaired
// surrogates, become "?". False, with out untouched, if not supported.
bool EncodeFromUtf16(uint32_t code_page, std::u16string_view text, std::string* out);

}  // namespace qaaisp::platform
