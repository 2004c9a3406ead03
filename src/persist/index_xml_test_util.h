// Test helpers: index files laid out byte for byte as the stream writer
// lays them out, and one file for each malformed-index message.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace qaaisp::persist::testing {

inline std::string RowXml(const std::string& id, uint32_t uid,
                          const std::vector<std::pair<std::string, std::string>>& props = {}) {
  std::string s = "<ELEMENT ID=\"" + id + "\" UID=\"" + std::to_string(uid) + "\">";
  for (const auto& [tag, value] : props) s += "<" + tag + ">" + value + "</" + tag + ">";
  return s + "</ELEMENT>";
}

inline std::string Header(uint32_t last_uid) {
  char buf[40];
  std::snprintf(buf, sizeof buf, "<BASEELEMENT LASTUID=\"x%08x\">", last_uid);
  return buf;
}

inline std::string IndexXml(uint32_t last_uid, const std::string& rows) {
  return Header(last_uid) + rows + "</BASEELEMENT>\r\n";
}

// A removed row: attribute values overwritten by dashes of the same widths.
inline std::string TombstoneXml(size_t id_len, size_t uid_len, const std::string& rest) {
  return "<ELEMENT ID=\"" + std::string(id_len, '-') + "\" UID=\"" + std::string(uid_len, '-') +
         "\">" + rest + "</ELEMENT>";
}

struct MalformedCase {
  std::string xml;
  std::string fault;
};

// One file per message of the reader's checks, LastUID 9.
inline std::vector<MalformedCase> MalformedCases() {
  const std::string h = Header(9);
  const std::string end = "</BASEELEMENT>\r\n";
  const std::string row = RowXml("a", 1);
  return {
      {"</BASEELEMENT>" + h + row + end,
       "Encountered root element end tag before root element start tag"},
      {h + row + end + end,
       "Encountered root element end tag after already encountering a root element end tag"},
      {h + h + row + end,
       "Encountered root element start tag after already encountering a root element start tag"},
      {row + h + end, "Encountered element tag before encountering a root element start tag"},
      {h + end + row, "Encountered element tag after already encountering a root element end tag"},
      {h + "<ELEMENT ID=\"a\" UID=\"1\"><SUBJECT></ELEMENT>" + end,
       "Encountered element start tag nested within a property (/ELEMENT)"},
      {h + "<ELEMENT ID=\"a\" UID=\"1\">" + row + end,
       "Encountered element start tag nested within another element"},
      {h + "<ELEMENT ID=\"a\" UID=\"1></ELEMENT>" + end,
       "Unable to parse ID attribute, Tag=[ELEMENT ID=\"a\" UID=\"1]"},
      {h + RowXml("a", 5) + RowXml("b", 4) + end,
       "Encountered element with UID out of order. This UID=4, Previous UID=5, Largest/Last "
       "UID=9"},
      {h + "<ELEMENT UID=\"1\"></ELEMENT>" + end, "Encountered element start tag without an ID"},
      {h + row + "</ELEMENT>" + end,
       "Encountered element end tag before encountering a matching element start tag"},
      {"<?xml version=\"1.0\"?>" + h + row + end,
       "Encountered property tag (?xml version=\"1.0\"?) before encountering a root element "
       "start tag"},
      {h + row + end + "<X>",
       "Encountered property tag (X) after already encountering a root element end tag"},
      {h + "<X>1</X>" + row + end, "Encountered property tag (X) outside an element"},
      {h + "<ELEMENT ID=\"a\" UID=\"1\"><A>1</B></ELEMENT>" + end,
       "Encountered property end tag (/B) that does not match previous property start tag (A)"},
      {h + "<ELEMENT ID=\"a\" UID=\"1\"><A><B>1</B></A></ELEMENT>" + end,
       "Encountered property start tag (B) nested within another property (A)"},
      {"", "Did not find root element start tag [0:]"},
      {"junk", "Did not find root element start tag [4:junk]"},
      {h + row, "Did not find root element end tag"},
  };
}

}  // namespace qaaisp::persist::testing
