#include "mime/mime_fuzz.h"

#include <string>
#include <string_view>
#include <vector>

#include "mime/header_fields.h"
#include "mime/message_reader.h"
#include "mime/message_section_reader.h"
#include "mime/mime_header.h"

namespace qaaisp {

void FuzzMessageReader(const uint8_t* data, size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  for (bool normalise : {true, false}) {
    MessageReader reader(text, false, normalise, true);
    reader.ParseFullStructure();
    std::vector<HeaderField> fields;
    ParseHeaderFields(reader.header(), &fields, kHeaderFieldsDecoded);
    std::string out;
    GetBodyOfType(&reader, &out, "text/plain", true, "utf-8");
    for (MessagePart& part : reader.structure()) {
      DecodePart(&part, &out, true, "utf-8");
      ChangeTransferEncoding(&out, "8bit", "quoted-printable");
    }
    GetHeaderValue(reader.message(), reader.blank_line(), "Subject", &out, reader.line_end());
  }
}

void FuzzSectionReader(const uint8_t* data, size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  auto reader = MessageSectionReader::ForText(text);
  for (const char* section :
       {"1", "2", "1.1", "1.2", "2.1", "2.2.1", "1.MIME", "2.HEADER", "2.TEXT", "TEXT"}) {
    reader->ReadSection(section);
  }
}

}  // namespace qaaisp
