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

// Walks the fields of a header block as ParseHeaderFields splits them, but
// leaves each value undecoded: a reader that wants a few fields decodes
// only those.
class HeaderFieldReader {
 public:
  explicit HeaderFieldReader(std::string_view header) : header_(header) {}
  // The next field's name and its value, unfolded and trimmed; false at the
  // end of the header. The views hold until the next call.
  bool Next(std::string_view* name, std::string_view* value) {
    if (!NextName(name)) return false;
    *value = Value();
    return true;
  }
  // The same in two steps, for a reader that wants few of the fields: the
  // next field's name, and then, if asked for, its value. A value not asked
  // for is never put together.
  bool NextName(std::string_view* name);
  std::string_view Value();
  // Whether the fields ended at an empty line rather than at the end of
  // the text.
  bool stopped_at_empty_line() const { return stopped_at_empty_line_; }

 private:
  std::string_view header_;
  size_t pos_ = 0;
  bool stopped_at_empty_line_ = false;
  std::string_view first_line_;  // the field's value on its name's line
  bool value_pending_ = false;   // continuation lines not yet passed
  std::string joined_;           // a folded value, put together
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
