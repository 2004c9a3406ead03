// The indexer's walk over a message's leaves must list exactly what the
// MIME reader lists: the same parts, fields and limits, on the project's own
// messages, on crafted edge cases and on the real-world corpus when present.
#include "message/message_leaf_scan.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "mime/header_fields.h"
#include "mime/message_reader.h"
#include "mime/mime_header.h"
#include "mime/mime_test_paths.h"
#include "mime/mime_text.h"

namespace qaaisp {
namespace {

void ExpectSameLeaves(std::string_view text, const std::string& label) {
  MessageReader reader(text, false, true, false);
  const int expected = reader.ParseParts();
  std::vector<MessageLeaf> leaves;
  EXPECT_EQ(ScanMessageLeaves(reader.message(), &leaves), expected) << label;
  const std::vector<MessagePart>& parts = reader.parts();
  ASSERT_EQ(leaves.size(), parts.size()) << label;
  for (size_t i = 0; i < parts.size(); ++i) {
    const MessagePart& want = parts[i];
    const MessageLeaf& got = leaves[i];
    EXPECT_EQ(got.body, want.Body) << label << " part " << i;
    EXPECT_EQ(static_cast<int32_t>(got.body.size()), want.BodyLength) << label;
    EXPECT_EQ(got.number, want.Number) << label;
    EXPECT_EQ(got.kind, want.Kind) << label;
    EXPECT_EQ(got.content_type, want.ContentType) << label;
    EXPECT_EQ(got.disposition, want.Disposition) << label;
    EXPECT_EQ(got.header, want.HeaderText) << label;
  }
}

class Recorder : public LeafVisitor {
 public:
  void Visit(const LeafView& leaf) override {
    seen.push_back(MessageLeaf{std::string(leaf.header), std::string(leaf.content_type),
                               std::string(leaf.disposition), leaf.body, leaf.number, leaf.kind});
  }
  std::vector<MessageLeaf> seen;
};

// The walk told what the indexer's own reading of the top header found must
// list what the walk that searches the header itself lists, and where the
// reading claims to know the fields they must be the ones the search finds.
void ExpectSameWithKnownTop(std::string_view message, LeafWalkBuffers* buffers,
                            const std::string& label) {
  KnownTopHeader top;
  top.blank = mime::Find(message, "\r\n\r\n");
  if (top.blank != std::string_view::npos) {
    const std::string_view header = message.substr(0, top.blank);
    HeaderFieldReader fields(header);
    std::string_view name;
    while (fields.NextName(&name)) NoteTopField(header, name, &top);
    top.fields_known = !fields.stopped_at_empty_line();
    if (top.fields_known) {
      size_t searched[3];
      FindHeaderFields(header, {"Content-Type", "Content-Disposition", "Content-ID"}, searched);
      for (size_t i = 0; i < 3; ++i) EXPECT_EQ(top.fields[i], searched[i]) << label << " " << i;
    }
  }
  std::vector<MessageLeaf> want;
  const int expected = ScanMessageLeaves(message, &want);
  Recorder got;
  EXPECT_EQ(WalkMessageLeaves(message, &got, top, buffers), expected) << label;
  ASSERT_EQ(got.seen.size(), want.size()) << label;
  for (size_t i = 0; i < want.size(); ++i) {
    EXPECT_EQ(got.seen[i].header, want[i].header) << label << " part " << i;
    EXPECT_EQ(got.seen[i].content_type, want[i].content_type) << label << " part " << i;
    EXPECT_EQ(got.seen[i].disposition, want[i].disposition) << label << " part " << i;
    EXPECT_EQ(got.seen[i].body, want[i].body) << label << " part " << i;
    EXPECT_EQ(got.seen[i].number, want[i].number) << label << " part " << i;
    EXPECT_EQ(got.seen[i].kind, want[i].kind) << label << " part " << i;
  }
}

TEST(MessageLeafScanTest, KnownTopFieldsListWhatTheSearchLists) {
  const std::string body =
      "\r\n\r\n--b\r\nContent-Type: text/plain\r\n\r\nx\r\n--b\r\n"
      "Content-Disposition: attachment\r\n\r\ny\r\n--b--\r\n";
  const std::pair<const char*, std::string> cases[] = {
      {"plain", "Content-Type: multipart/mixed; boundary=b" + body},
      {"lower case, folded", "content-type: multipart/mixed;\r\n\tboundary=\"b\"" + body},
      {"blank before the colon",
       "Content-Type : text/plain\r\nContent-Type: multipart/mixed; boundary=b" + body},
      {"behind a bare line feed",
       "X: 1\nContent-Type: text/plain\r\nContent-Type: multipart/mixed; boundary=b" + body},
      {"only behind a bare line feed", "X: 1\nContent-Type: multipart/mixed; boundary=b" + body},
      {"empty line inside the header", "X: 1\n\nContent-Type: multipart/mixed; boundary=b" + body},
      {"first of two",
       "Content-Type: multipart/mixed; boundary=b\r\nContent-Type: text/html" + body},
      {"disposition and identifier",
       "Content-ID: <>\r\nContent-Disposition: attachment; x=1\r\nSubject: s" + body},
      {"identifier of a container",
       "Content-ID: <c@x>\r\nContent-Type: multipart/mixed; boundary=b" + body},
      {"no fields", "Subject: s\r\n\r\nbody"},
      {"no blank line", "Content-Type: text/plain\r\n"},
  };
  // One set of buffers for every message, as the indexer keeps them.
  LeafWalkBuffers buffers;
  for (const auto& [label, text] : cases) ExpectSameWithKnownTop(text, &buffers, label);
}

TEST(MessageLeafScanTest, ListsWhatTheReaderLists) {
  const std::string mixed = "Content-Type: multipart/mixed; boundary=m\r\n\r\npreamble\r\n--m\r\n";
  std::string many = "Content-Type: multipart/mixed; boundary=z\r\n\r\n";
  for (int i = 0; i < 205; ++i) many += "--z\r\nContent-Type: text/plain\r\n\r\npart\r\n";
  many += "--z--\r\n";
  std::string deep;
  for (int i = 0; i < 80; ++i) {
    deep += "Content-Type: multipart/mixed; boundary=d" + std::to_string(i) + "\r\n\r\n--d" +
            std::to_string(i) + "\r\n";
  }
  const std::pair<const char*, std::string> cases[] = {
      {"plain", "Subject: x\r\n\r\nbody\r\n"},
      {"no blank line", "Subject: x\r\n"},
      {"empty", ""},
      {"mixed", mixed + "Content-Type: text/plain\r\n\r\na\r\n--m\r\n\r\nheaderless\r\n--m\r\n"
                        "Content-Disposition: attachment; filename=f\r\n\r\nb\r\n--m--\r\nepi"},
      {"empty body", mixed + "Content-Type: text/plain\r\n\r\n--m--\r\n"},
      {"unclosed", mixed + "Content-Type: text/plain\r\n\r\nnever closed\r\n"},
      {"nested",
       "Content-Type: multipart/mixed; boundary=o\r\n\r\n--o\r\n"
       "Content-Type: multipart/alternative; boundary=i\r\n\r\n--i\r\n\r\nt\r\n--i\r\n"
       "Content-Type: text/html\r\n\r\n<p>\r\n--i--\r\n--o\r\n"
       "Content-Type: text/calendar; method=REQUEST\r\n\r\nBEGIN\r\n--o--\r\n"},
      {"bare line feeds", "Content-Type: multipart/mixed; boundary=m\n\n--m\n\nx\n--m--\n"},
      // Part headers read in one pass: fields only at the start of a line
      // behind a CRLF, with the colon right behind the name, and the first
      // of each; the header ends at the first CRLF CRLF.
      {"odd part headers",
       mixed + "X: 1\nContent-Type: text/html\r\nCONTENT-TYPE: text/x-a\r\n"
               "content-type: text/x-b\r\nContent-Disposition : inline\r\n"
               "Content-Disposition:attachment\r\n\r\nContent-Type: text/x-c\r\n\r\na\r\n"
               "--m\r\nContent-\r\nContent-ID\r\n:x\r\n\r\nb\r\n"
               "--m\r\nX: 1\r\r\n\r\nContent-Type: text/x-d\r\n\r\nc\r\n"
               "--m\r\nContent-Type: text/x-e\r\n\nContent-ID: <i>\r\n\r\nd\r\n"
               "--m\r\nContent-Type: text/x-f\r\nContent-ID: <>\r\n"},
      {"too many parts", many},
      {"too deep", deep},
  };
  for (const auto& [label, text] : cases) ExpectSameLeaves(text, label);
}

TEST(MessageLeafScanTest, AgreesWithTheReaderOnEveryTestMessage) {
  namespace fs = std::filesystem;
  int files = 0;
  LeafWalkBuffers buffers;
  for (const std::string& dir : {testing::MimeTestData(""), testing::MimeCorpusDirectory()}) {
    std::error_code ec;
    if (!fs::is_directory(dir, ec)) continue;
    for (const auto& entry : fs::directory_iterator(dir, ec)) {
      if (!entry.is_regular_file()) continue;
      MessageReader file(entry.path().string(), true, false, false);
      ASSERT_TRUE(file.loaded());
      ExpectSameLeaves(file.message(), entry.path().filename().string());
      ExpectSameWithKnownTop(file.message(), &buffers, entry.path().filename().string());
      ++files;
    }
  }
  EXPECT_GE(files, 3);
}

}  // namespace
}  // namespace qaaisp
