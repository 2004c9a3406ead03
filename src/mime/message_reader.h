// The whole-message MIME reader: holds one message in memory, finds its line
// ends, reads its top header and lists its parts. Used to fill index rows,
// to present bodies and attachments, and to compose reports.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "mime/message_part.h"
#include "platform/env.h"

namespace qaaisp {

class MessageReader {
 public:
  // Reads text_or_path as the message itself, or with is_file as the path of
  // a file read whole (through env, the default one when null). With
  // normalise_line_ends a message with bare LF line ends is turned into CRLF.
  // With parse_now the top header is read and the plain parts are listed.
  MessageReader(std::string_view text_or_path, bool is_file, bool normalise_line_ends = true,
                bool parse_now = true, platform::Env* env = nullptr);

  MessageReader(const MessageReader&) = delete;
  MessageReader& operator=(const MessageReader&) = delete;

  // False if the file could not be read.
  bool loaded() const { return loaded_; }

  std::string_view message() const { return message_; }
  std::string_view header() const { return header_; }
  std::string_view body() const { return body_; }
  // Offset of the blank line that ends the top header, or npos.
  size_t blank_line() const { return blank_line_; }
  std::string_view line_end() const { return line_end_; }
  std::string_view separator() const { return separator_; }

  // The top header's fields, and the message taken as one part (the top
  // header's fields with the whole body).
  const MessagePart& header_part() const { return header_part_; }
  const MessagePart& main_part() const { return main_part_; }

  // Lists the parts of the message from *cursor: below parent when there is
  // one (cursor inside its body), else the part that starts at the cursor.
  // Leaves go to the list; with keep_structure so do containers (kind 200),
  // preambles (50) and closing delimiters (100). Gives 1, or 0 when a part
  // has no body or no closing delimiter, or the list outgrows
  // kMaxMessageParts; what was listed by then stays. *cursor ends behind what
  // was read. *nested is set when a container is met.
  int ParseStructure(std::vector<MessagePart>* list, size_t* cursor, const MessagePart* parent,
                     int* part_counter, bool keep_structure, bool* nested) const;

  // Lists the plain parts (leaves) once, or the full structure once; both
  // give ParseStructure's result, or 1 if the list was already made.
  int ParseParts();
  int ParseFullStructure();
  std::vector<MessagePart>& parts() { return parts_; }
  std::vector<MessagePart>& structure() { return structure_; }

  // True if the top header has a "MIME-Version" field.
  bool HasMimeVersion() const;

 private:
  void Load(bool normalise_line_ends, bool parse_now);
  void DetectLineEnds();
  int ParseLevel(std::vector<MessagePart>* list, size_t* cursor, const MessagePart* parent,
                 int* part_counter, bool keep_structure, bool* nested, int depth) const;

  uint32_t separator_length_ = 4;
  uint32_t line_end_length_ = 2;
  std::string_view separator_ = "\r\n\r\n";
  std::string_view line_end_ = "\r\n";
  MessagePart header_part_;
  MessagePart main_part_;
  std::string message_;
  std::string_view header_;
  std::string_view body_;
  size_t blank_line_ = std::string_view::npos;
  std::vector<MessagePart> parts_;
  std::vector<MessagePart> structure_;
  bool parts_made_ = false;
  bool structure_made_ = false;
  bool loaded_ = true;
};

// Decodes a part's body in place when decode is set ("quoted-printable" or
// "base64"; the transfer encoding is then cleared) and, with a target
// charset, converts it from the part's charset, which becomes the target.
// *out receives the body. False if a base64 body was refused, in which case
// the body stays as it was.
bool DecodePart(MessagePart* part, std::string* out, bool decode,
                std::string_view target_charset = {});

// The body of the first leaf of that content type, through DecodePart. A
// message with no MIME structure gives its whole body for "text/plain".
// Returns 1, or 0 if there is no such body.
int GetBodyOfType(MessageReader* reader, std::string* out, std::string_view content_type,
                  bool decode, std::string_view target_charset = {});

// Re-encodes body from one transfer encoding to another: decodes "base64"
// or "quoted-printable" (an empty name, "7bit", "8bit" and "binary" are
// taken as they are), then encodes to "base64" or "quoted-printable" in
// lines of at most 72 characters; any other target leaves it decoded.
// False, with body untouched, for an unknown source encoding or a refused
// base64 text.
bool ChangeTransferEncoding(std::string* body, std::string_view from_encoding,
                            std::string_view to_encoding);

}  // namespace qaaisp
