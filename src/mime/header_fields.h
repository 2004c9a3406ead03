// Splits a message header into its fields, with values unfolded and their
// RFC 2047 words decoded into wide text, for the header indexer.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qaaisp {

struct HeaderField {
  std::string name;
  std::u16string value;
};

// Options of ParseHeaderFields; 0 decodes every value.
enum HeaderFieldOptions : int {
  kHeaderFieldsDecoded = 0,
  // Values are only unfolded and widened from UTF-8, their words left as
  // they stand.
  kHeaderFieldsRaw = 1,
};

// Appends one field per "name: value" line of header to fields, up to the
// first empty line. A line starting with white space continues the field
// before it (the line end is removed, the white space kept); a line without
// a colon, or with a blank inside its name, is skipped. Names lose trailing
// blanks, values their leading and trailing white space; white space between
// two adjacent encoded words is dropped. Text outside words is read as UTF-8.
// Returns the number of fields added.
int ParseHeaderFields(std::string_view header, std::vector<HeaderField>* fields, int options);

}  // namespace qaaisp
