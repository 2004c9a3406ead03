#include "mime/message_reader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "mime/mime_header.h"
#include "mime/mime_test_paths.h"

namespace qaaisp {
namespace {

std::vector<std::string> Types(const std::vector<MessagePart>& parts) {
  std::vector<std::string> out;
  for (const MessagePart& p : parts) out.push_back(std::to_string(p.Kind) + ":" + p.ContentType);
  return out;
}

std::string Multipart(int leaves, bool closed) {
  std::string text = "Content-Type: multipart/mixed; boundary=B\r\n\r\n";
  for (int i = 0; i < leaves; ++i) text += "--B\r\nContent-Type: text/plain\r\n\r\nx\r\n";
  if (closed) text += "--B--\r\n";
  return text;
}

TEST(MessageReaderTest, LineEndsAreDetectedAndNormalised) {
  MessageReader lf(std::string_view("A: 1\nB: 2\n\nbody\nmore\n"), false);
  EXPECT_EQ(lf.line_end(), "\r\n");
  EXPECT_EQ(lf.separator(), "\r\n\r\n");
  EXPECT_EQ(lf.message(), "A: 1\r\nB: 2\r\n\r\nbody\r\nmore\r\n");
  EXPECT_EQ(lf.header(), "A: 1\r\nB: 2");
  EXPECT_EQ(lf.body(), "body\r\nmore\r\n");

  MessageReader kept(std::string_view("A: 1\nContent-Type: text/html\n\nbody\n"), false, false);
  EXPECT_EQ(kept.line_end(), "\n");
  EXPECT_EQ(kept.header(), "A: 1\nContent-Type: text/html");
  EXPECT_EQ(kept.body(), "body\n");
  EXPECT_EQ(kept.header_part().ContentType, "text/html");

  // Lines already ending in CRLF are not doubled; a header-only text has no
  // blank line.
  MessageReader mixed(std::string_view("A: 1\nB: 2\r\n"), false);
  EXPECT_EQ(mixed.message(), "A: 1\r\nB: 2\r\n");
  EXPECT_EQ(mixed.blank_line(), std::string_view::npos);
  EXPECT_TRUE(mixed.body().empty());

  MessageReader file(testing::MimeTestData("lf_line_ends.eml"), true);
  ASSERT_TRUE(file.loaded());
  EXPECT_EQ(file.line_end(), "\r\n");
  EXPECT_EQ(file.header_part().Charset, "iso-8859-1");
  EXPECT_FALSE(MessageReader("/no/such/file.eml", true).loaded());
}

TEST(GetHeaderValueTest, FindsFoldsAndStops) {
  std::string value;
  const std::string header =
      "subject: first\r\nX-Long: one\r\n  two\r\n\tthree\r\nContent-Type: text/plain; "
      "charset=utf-8\r\nTo: a";
  EXPECT_TRUE(GetHeaderValue(header, kNoHeaderEnd, "Subject", &value));
  EXPECT_EQ(value, "first");
  // Continuation lines are joined with no separator.
  EXPECT_TRUE(GetHeaderValue(header, kNoHeaderEnd, "x-long", &value));
  EXPECT_EQ(value, "onetwothree");
  EXPECT_TRUE(GetHeaderValue(header, kNoHeaderEnd, "Content-Type", &value, "\r\n", true));
  EXPECT_EQ(value, "text/plain");
  EXPECT_TRUE(GetHeaderValue(header, kNoHeaderEnd, "To", &value));
  EXPECT_EQ(value, "a");
  // A name inside a value or behind the end does not count.
  EXPECT_FALSE(GetHeaderValue(header, kNoHeaderEnd, "first", &value));
  EXPECT_FALSE(GetHeaderValue(header, header.find("\r\nContent-Type"), "content-type", &value));
  EXPECT_TRUE(value.empty());
  EXPECT_FALSE(GetHeaderValue("Subjectless: x", kNoHeaderEnd, "Subject", &value));
}

TEST(GetParameterTest, QuotedTokensAndExactNames) {
  std::string value;
  const char* text =
      "attachment; filename=\"a;b \\\"c\\\".txt\"; name = plain.txt ;size=10; Boundary=\"=_x\"";
  EXPECT_TRUE(GetParameter(text, "filename", &value));
  EXPECT_EQ(value, "a;b \"c\".txt");
  EXPECT_TRUE(GetParameter(text, "NAME", &value));
  EXPECT_EQ(value, "plain.txt");
  EXPECT_TRUE(GetParameter(text, "boundary", &value));
  EXPECT_EQ(value, "=_x");
  EXPECT_FALSE(GetParameter(text, "file", &value));
  EXPECT_FALSE(GetParameter("name=x", "name", &value));  // no ";": no parameters
  // Quoted values without an escape are taken whole, the others byte by
  // byte; both end at the closing quote or the end of the text.
  const std::pair<const char*, const char*> quoted[] = {
      {"x; b=\"----=_Part_12_345.678\"; c=1", "----=_Part_12_345.678"},
      {"x; b=\"\"", ""},
      {"x; b=\"unclosed", "unclosed"},
      {"x; b=\"long-prefix\\\"q\\\\\"", "long-prefix\"q\\"},
      {"x; b=\"ends in\\", "ends in\\"},
  };
  for (const auto& [parameters, want] : quoted) {
    EXPECT_TRUE(GetParameter(parameters, "b", &value)) << parameters;
    EXPECT_EQ(value, want) << parameters;
  }
}

TEST(ReadPartHeaderTest, FieldsAndFileNames) {
  MessagePart part;
  size_t body = 0;
  const std::string text =
      "Content-Type: Application/PDF; name=\"a.pdf\"; charset=\"x\"\r\n"
      "Content-Disposition: attachment;\r\n filename=\"b.pdf\"\r\n"
      "Content-Transfer-Encoding: BASE64 \r\nContent-ID: <<id@x>>\r\n\r\nJVBE";
  ASSERT_TRUE(ReadPartHeader(text, &body, &part));
  EXPECT_EQ(text.substr(body), "JVBE");
  EXPECT_EQ(part.ContentType, "Application/PDF");
  EXPECT_EQ(part.Disposition, "attachment");
  EXPECT_EQ(part.TransferEncoding, "BASE64");
  EXPECT_EQ(part.ContentId, "<id@x");
  // "filename" wins over "name".
  EXPECT_EQ(part.FileName, "b.pdf");
  EXPECT_EQ(part.Name, "a.pdf");
  EXPECT_EQ(part.DisplayName, "b.pdf");

  ASSERT_TRUE(ReadPartHeader(
      "Content-Type: text/plain; name*1=\".txt\"; name*0*=iso-8859-1'fr'caf%E9\r\n\r\n", &body,
      &part));
  EXPECT_EQ(part.DisplayName, "caf\xC3\xA9.txt");

  EXPECT_FALSE(ReadPartHeader("Content-Type: text/html", &body, &part));
  EXPECT_EQ(part.ContentType, "text/html");
  ASSERT_TRUE(ReadPartHeader("X: y\r\n\r\n", &body, &part));
  EXPECT_EQ(part.ContentType, "text/plain");
}

TEST(ReadPartHeaderTest, EncodedAndNumberedNames) {
  MessageReader reader(testing::MimeTestData("file_names.eml"), true);
  const std::vector<MessagePart>& parts = reader.parts();
  ASSERT_EQ(parts.size(), 4u);
  EXPECT_EQ(parts[0].DisplayName, "\xE2\x82\xAC rates for 2024.xlsx");
  EXPECT_EQ(parts[0].Name, parts[0].DisplayName);
  EXPECT_EQ(parts[1].DisplayName, "\xC3\xA9l\xC3\xA9ve.png");
  EXPECT_EQ(parts[1].Name, "=?UTF-8?B?w6lsw6l2ZS5wbmc=?=");
  EXPECT_EQ(parts[2].DisplayName, "wins.txt");
  // The headerless part is plain text and starts behind its blank line.
  EXPECT_EQ(parts[3].ContentType, "text/plain");
  EXPECT_TRUE(parts[3].HeaderText.empty());
  EXPECT_EQ(parts[3].Body, "Headerless part.");
}

TEST(ParseStructureTest, NestedMultipartPlainAndFull) {
  MessageReader reader(testing::MimeTestData("nested_with_message.eml"), true);
  EXPECT_EQ(Types(reader.parts()),
            (std::vector<std::string>{"0:text/plain", "0:text/html", "0:message/rfc822",
                                      "0:application/pdf"}));
  EXPECT_EQ(reader.parts()[0].Body, "Caf=C3=A9 figures attached.");
  EXPECT_EQ(reader.parts()[0].ParentBoundary, "alt-b");
  EXPECT_EQ(reader.parts()[3].ContentId, "part4@example.org");
  EXPECT_EQ(reader.parts()[3].Number, 6);
  EXPECT_EQ(reader.parts()[3].BodyLength, 12);

  ASSERT_EQ(reader.ParseFullStructure(), 1);
  EXPECT_EQ(Types(reader.structure()),
            (std::vector<std::string>{"200:multipart/mixed", "50:", "200:multipart/alternative",
                                      "0:text/plain", "0:text/html", "100:", "0:message/rfc822",
                                      "0:application/pdf", "100:", "200:multipart/mixed"}));
  EXPECT_EQ(reader.structure()[1].Body, "This is the preamble.\r\n");
  EXPECT_EQ(reader.structure()[5].Body, "--alt-b--");
  EXPECT_EQ(reader.structure().back().Body, "\r\nEpilogue.\r\n");
}

TEST(ParseStructureTest, FailuresKeepWhatWasListed) {
  // No closing delimiter: the last part has no end.
  MessageReader open(Multipart(3, false), false);
  EXPECT_EQ(open.parts().size(), 2u);
  std::vector<MessagePart> list;
  size_t cursor = 0;
  int counter = 0;
  bool nested = false;
  EXPECT_EQ(open.ParseStructure(&list, &cursor, nullptr, &counter, false, &nested), 0);
  EXPECT_TRUE(nested);

  MessageReader two_hundred(Multipart(200, true), false);
  list.clear();
  cursor = 0;
  counter = 0;
  EXPECT_EQ(two_hundred.ParseStructure(&list, &cursor, nullptr, &counter, false, &nested), 1);
  EXPECT_EQ(list.size(), 200u);
  MessageReader too_many(Multipart(201, true), false);
  list.clear();
  cursor = 0;
  EXPECT_EQ(too_many.ParseStructure(&list, &cursor, nullptr, &counter, false, &nested), 0);
  EXPECT_EQ(list.size(), 201u);

  // A part without a blank line has no body.
  MessageReader no_body("Content-Type: multipart/mixed; boundary=B\r\n\r\n--B\r\nX: y", false);
  EXPECT_TRUE(no_body.parts().empty());
}

TEST(ParseStructureTest, EmptyBodiesAndDeepNesting) {
  MessageReader empty(
      "Content-Type: multipart/mixed; boundary=B\r\n\r\n--B\r\nContent-Type: text/x\r\n\r\n--B\r\n"
      "\r\nz\r\n--B--",
      false);
  ASSERT_EQ(empty.parts().size(), 2u);
  EXPECT_EQ(empty.parts()[0].ContentType, "text/x");
  EXPECT_EQ(empty.parts()[0].Body, "");
  EXPECT_EQ(empty.parts()[1].Body, "z");

  std::string deep;
  for (int i = 0; i < 100; ++i) {
    deep += "Content-Type: multipart/mixed; boundary=b" + std::to_string(i) + "\r\n\r\n--b" +
            std::to_string(i) + "\r\n";
  }
  MessageReader too_deep(deep, false);
  EXPECT_TRUE(too_deep.parts().empty());
  EXPECT_EQ(too_deep.ParseFullStructure(), 0);
  EXPECT_EQ(too_deep.structure().size(), static_cast<size_t>(kMaxMultipartDepth) + 1);
}

}  // namespace
}  // namespace qaaisp
