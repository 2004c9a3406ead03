// The field reader passes over the values nobody asks for and says where the
// fields ended; it must split every header as a plain reading line by line
// does, whether the values are taken or passed over.
#include "mime/header_fields.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "mime/mime_text.h"

namespace qaaisp {
namespace {

struct Split {
  std::vector<std::string> names;
  std::vector<std::string> values;
  bool stopped = false;
};

// Line by line: a line is what lies before its "\n", less a "\r" before
// that or at the end of the text.
Split ReferenceSplit(std::string_view header) {
  Split split;
  std::vector<std::string_view> lines;
  size_t pos = 0;
  while (pos < header.size()) {
    size_t next = mime::NextLine(header, pos);
    size_t end = next;
    if (end > pos && header[end - 1] == '\n') --end;
    if (end > pos && header[end - 1] == '\r') --end;
    lines.push_back(header.substr(pos, end - pos));
    pos = next;
  }
  for (size_t i = 0; i < lines.size(); ++i) {
    std::string_view line = lines[i];
    if (line.empty()) {
      split.stopped = true;
      break;
    }
    if (mime::IsBlank(line[0])) continue;
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos) continue;
    std::string_view name = line.substr(0, colon);
    while (!name.empty() && mime::IsBlank(name.back())) name.remove_suffix(1);
    if (name.empty() || name.find_first_of(" \t") != std::string_view::npos) continue;
    std::string value(line.substr(colon + 1));
    while (i + 1 < lines.size() && !lines[i + 1].empty() && mime::IsBlank(lines[i + 1][0])) {
      value += lines[++i];
    }
    split.names.emplace_back(name);
    split.values.emplace_back(mime::TrimBlanks(value));
  }
  return split;
}

void ExpectSameSplit(const std::string& header) {
  const Split want = ReferenceSplit(header);
  Split taken;
  HeaderFieldReader with_values(header);
  std::string_view name;
  std::string_view value;
  while (with_values.Next(&name, &value)) {
    taken.names.emplace_back(name);
    taken.values.emplace_back(value);
  }
  EXPECT_EQ(taken.names, want.names) << testing::PrintToString(header);
  EXPECT_EQ(taken.values, want.values) << testing::PrintToString(header);
  EXPECT_EQ(with_values.stopped_at_empty_line(), want.stopped) << testing::PrintToString(header);
  // Every other value passed over.
  Split skipped;
  HeaderFieldReader some_values(header);
  for (size_t n = 0; some_values.NextName(&name); ++n) {
    skipped.names.emplace_back(name);
    if (n % 2 == 1 && n < want.values.size()) {
      EXPECT_EQ(some_values.Value(), want.values[n]);
    }
  }
  EXPECT_EQ(skipped.names, want.names) << testing::PrintToString(header);
  EXPECT_EQ(some_values.stopped_at_empty_line(), want.stopped) << testing::PrintToString(header);
}

TEST(HeaderFieldReaderTest, SplitsAsAPlainLineByLineReading) {
  const char* const cases[] = {
      "",
      "A: 1",
      "A:",
      "A:\r",
      "A:\r\n",
      "A: 1\r",
      "A: 1\rB: 2\r\n",
      "A: 1\r\r\nB: 2",
      "A: 1\r\n\tfolded\r\n more\r\nB : 2\n\nC: 3",
      "From x Thu\r\n B: in a skipped fold\r\nC:3\r\n\r\nD: 4",
      " lead: x\r\nNo colon here\r\n:empty name\r\nA b: blank inside\r\nX: y\r\n\r",
      "A: 1\n\r\nB: 2",
      "A: 1\r\n\nB: 2",
      "Na\rme: odd\r\n",
  };
  for (const char* header : cases) ExpectSameSplit(header);

  // Headers made of the pieces that matter to the split.
  const char* const pieces[] = {"A", "Subject", ":", " ", "\t", "\r", "\n", "\r\n", "x", "From "};
  std::mt19937 random(5);
  for (int i = 0; i < 20000; ++i) {
    std::string header;
    const int count = 1 + static_cast<int>(random() % 14);
    for (int k = 0; k < count; ++k) header += pieces[random() % std::size(pieces)];
    ExpectSameSplit(header);
  }
}

// Names are searched for blanks eight bytes at a time and then byte by
// byte: a blank anywhere inside skips the line, trailing ones do not.
TEST(HeaderFieldReaderTest, BlanksInsideNamesAtEveryPlace) {
  const std::string name = "X-A-Rather-Long-Field-Name";
  for (size_t at = 1; at + 1 < name.size(); ++at) {
    for (char blank : {' ', '\t'}) {
      std::string inside = name;
      inside[at] = blank;
      // The reader keeps views: its text must outlive it.
      const std::string skipped_text = inside + ": v\r\nTo: t\r\n";
      HeaderFieldReader skipped(skipped_text);
      std::string_view got;
      std::string_view value;
      ASSERT_TRUE(skipped.Next(&got, &value));
      EXPECT_EQ(got, "To") << at;
      const std::string trailing_text = name.substr(0, at) + std::string(3, blank) + ": v";
      HeaderFieldReader trailing(trailing_text);
      ASSERT_TRUE(trailing.Next(&got, &value));
      EXPECT_EQ(got, name.substr(0, at)) << at;
      EXPECT_EQ(value, "v");
    }
  }
}

}  // namespace
}  // namespace qaaisp
