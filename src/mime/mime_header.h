// Reading one MIME header block: header values, their parameters, and the
// fields of a part. All of it works on views of the message, so the readers
// copy only what they keep.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>

#include "mime/message_part.h"

namespace qaaisp {

inline constexpr size_t kNoHeaderEnd = std::string_view::npos;

// Finds the header field name in text: either at its very start or behind a
// line_end, without regard to case. A match at or behind end gives nothing.
// Blanks behind the colon are skipped. With first_token_only the value ends
// at the first ";" or line end (trailing blanks dropped); otherwise each
// following line that starts with white space is joined on, its white space
// removed and no separator put in. Returns false, with value empty, if there
// is no such field.
bool GetHeaderValue(std::string_view text, size_t end, std::string_view name, std::string* value,
                    std::string_view line_end = "\r\n", bool first_token_only = false);

// Finds several header fields in one pass over the lines of text: for each
// name, the offset of its first value as GetHeaderValue would find it (npos
// where absent) goes to the same index of offsets.
void FindHeaderFields(std::string_view text, std::initializer_list<std::string_view> names,
                      size_t* offsets, std::string_view line_end = "\r\n");

// The value GetHeaderValue gives for a field whose value starts at pos.
void HeaderValueAt(std::string_view text, size_t pos, std::string* value,
                   std::string_view line_end = "\r\n", bool first_token_only = false);

// Finds the parameter name (without regard to case) among the ";"-separated
// parameters of a header value, and gives its value, unquoted. Returns false
// if it is absent.
bool GetParameter(std::string_view text, std::string_view name, std::string* value);

// Splits text at its first blank line ("\r\n\r\n"), stores the header block in
// part->HeaderText and fills the part's fields from it; *body is the offset
// of what follows the blank line. Without a blank line the whole text is read
// as the header and the result is false: the part has no body.
bool ReadPartHeader(std::string_view text, size_t* body, MessagePart* part);

// Fills the fields of a cleared part from its header block, whose lines end
// in line_end (HeaderText is left to the caller).
void ReadHeaderFields(std::string_view header, MessagePart* part,
                      std::string_view line_end = "\r\n");

}  // namespace qaaisp
