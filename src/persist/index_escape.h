// How the stream writer makes a property's text safe for the index file.
//
// Plain text (tab, line feed, carriage return and printable ASCII) only has
// its markup characters replaced through the escape table. Anything else is
// first cleaned of ill-formed UTF-8 (when the store asks for valid UTF-8),
// then escaped, and every character that XML forbids is written as numeric
// references of its UTF-16 units, so a character beyond the 16-bit plane
// becomes two references, one per surrogate. The reader keeps only the low
// eight bits of a reference; that loss is how the file has always been.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace qaaisp::persist {

// The escape table: one-character text to its entity.
using EscapeTable = std::map<std::string, std::string>;

// "&", "<" and ">" to their entities; built afresh by every save.
EscapeTable MakeEscapeTable();

// The table flattened for a byte-at-a-time pass: an empty entry means the
// byte stands as it is.
class TextEscaper {
 public:
  TextEscaper(const EscapeTable& table, bool require_valid_utf8);

  // Appends the escaped form of text to out.
  void Append(std::string_view text, std::string* out) const;
  std::string Escape(std::string_view text) const {
    std::string out;
    Append(text, &out);
    return out;
  }

 private:
  // The escape table applied in one pass from the left.
  void AppendPlain(std::string_view text, std::string* out) const;
  // Code point by code point, with references for what XML forbids. With
  // clean, text is first taken as CleanToValidUtf8 would give it back,
  // without making that copy.
  void AppendUnicode(std::string_view text, std::string* out, bool clean) const;

  // What each byte asks for: nothing, an entity, or the code point path.
  enum ByteClass : uint8_t { kPass, kEntity, kNotPlain };

  std::array<std::string, 256> entities_;
  std::array<ByteClass, 256> classes_;
  bool require_valid_utf8_;
};

// True if every byte is tab, line feed, carriage return or 0x20..0x7E.
bool IsPlainIndexText(std::string_view text);

// Replaces by one space every byte that is not part of a well-formed UTF-8
// sequence, and every control byte but tab, line feed and carriage return
// (0x7F included). Well-formed sequences stay as they are.
std::string CleanToValidUtf8(std::string_view text);

}  // namespace qaaisp::persist
