// Bodies out of a read message, re-encoding, and the decoded header fields.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "base/quoted_printable.h"
#include "mime/header_fields.h"
#include "mime/message_reader.h"
#include "mime/mime_test_paths.h"

namespace qaaisp {
namespace {

size_t LongestLine(std::string_view text) {
  size_t longest = 0;
  size_t length = 0;
  for (char c : text) {
    length = (c == '\r' || c == '\n') ? 0 : length + 1;
    longest = std::max(longest, length);
  }
  return longest;
}

TEST(GetBodyOfTypeTest, DecodesTheFirstLeafOfTheType) {
  MessageReader reader(testing::MimeTestData("nested_with_message.eml"), true);
  std::string body;
  ASSERT_EQ(GetBodyOfType(&reader, &body, "TEXT/PLAIN", true), 1);
  EXPECT_EQ(body, "Caf\xC3\xA9 figures attached.");
  // Decoding happened in place: the part is now plain and is not decoded
  // twice.
  EXPECT_TRUE(reader.parts()[0].TransferEncoding.empty());
  ASSERT_EQ(GetBodyOfType(&reader, &body, "text/plain", true), 1);
  EXPECT_EQ(body, "Caf\xC3\xA9 figures attached.");

  ASSERT_EQ(GetBodyOfType(&reader, &body, "application/pdf", true), 1);
  EXPECT_EQ(body, "%PDF-1.4\n");
  ASSERT_EQ(GetBodyOfType(&reader, &body, "text/html", false), 1);
  EXPECT_EQ(body, "<p>Caf&eacute; figures attached.</p>");
  EXPECT_EQ(GetBodyOfType(&reader, &body, "image/png", true), 0);
}

TEST(GetBodyOfTypeTest, CharsetTargetsAndMessagesWithoutParts) {
  MessageReader latin(testing::MimeTestData("lf_line_ends.eml"), true);
  std::string body;
  ASSERT_EQ(GetBodyOfType(&latin, &body, "text/plain", true, "utf-8"), 1);
  EXPECT_EQ(body,
            "Gr\xC3\xBC\xC3\x9F"
            "e aus M\xC3\xBCnchen\r\nsecond line\r\n");
  EXPECT_EQ(latin.parts()[0].Charset, "utf-8");

  // With no multipart structure the reader lists the top part itself.
  MessageReader plain("Subject: hi\r\n\r\nJust text.\r\n", false);
  ASSERT_EQ(GetBodyOfType(&plain, &body, "text/plain", true), 1);
  EXPECT_EQ(body, "Just text.\r\n");

  // A broken multipart lists nothing: without MIME-Version the whole body is
  // the text, with it there is no text.
  const std::string broken =
      "Content-Type: multipart/mixed; boundary=B\r\n\r\n--B\r\nContent-Type: text/plain\r\n";
  MessageReader old_style(broken, false);
  ASSERT_EQ(GetBodyOfType(&old_style, &body, "text/plain", true), 1);
  EXPECT_EQ(body, "--B\r\nContent-Type: text/plain\r\n");
  MessageReader mime("MIME-Version: 1.0\r\n" + broken, false);
  EXPECT_EQ(GetBodyOfType(&mime, &body, "text/plain", true), 0);
}

TEST(DecodePartTest, RefusedBase64LeavesTheBody) {
  MessagePart part;
  part.TransferEncoding = "Base64";
  part.Body = "not base64!";
  std::string out;
  EXPECT_FALSE(DecodePart(&part, &out, true));
  EXPECT_EQ(out, "not base64!");
  EXPECT_TRUE(part.TransferEncoding.empty());

  part.TransferEncoding = "x-uuencode";
  part.Body = "begin 644 x";
  EXPECT_TRUE(DecodePart(&part, &out, true));
  EXPECT_EQ(part.TransferEncoding, "x-uuencode");
}

TEST(ChangeTransferEncodingTest, RoundTripsWithShortLines) {
  std::string original;
  for (int i = 0; i < 300; ++i) original.push_back(static_cast<char>(i * 7));
  std::string body = original;
  ASSERT_TRUE(ChangeTransferEncoding(&body, "binary", "BASE64"));
  EXPECT_EQ(LongestLine(body), 72u);
  ASSERT_TRUE(ChangeTransferEncoding(&body, "base64", "quoted-printable"));
  EXPECT_LE(LongestLine(body), 72u);
  EXPECT_EQ(QPDecode(body), original);
  ASSERT_TRUE(ChangeTransferEncoding(&body, "Quoted-Printable", "8bit"));
  EXPECT_EQ(body, original);

  EXPECT_FALSE(ChangeTransferEncoding(&body, "x-uuencode", "base64"));
  EXPECT_FALSE(ChangeTransferEncoding(&body, "base64", "7bit"));  // not base64 text
  EXPECT_EQ(body, original);
}

TEST(ParseHeaderFieldsTest, UnfoldsDecodesAndStopsAtTheBody) {
  const std::string header =
      "From x@y Thu Jan  1 00:00:00 2024\r\n"
      "Subject: =?utf-8?Q?Caf=C3=A9?=\r\n =?ISO-8859-1?B?6Q==?= ok \r\n"
      "To : Ann <a@example.org>\r\n"
      "X-Raw: caf\xC3\xA9\r\n"
      "\r\n"
      "Body: not a field\r\n";
  std::vector<HeaderField> fields;
  ASSERT_EQ(ParseHeaderFields(header, &fields, kHeaderFieldsDecoded), 3);
  EXPECT_EQ(fields[0].name, "Subject");
  EXPECT_EQ(fields[0].value, u"Caf\u00e9\u00e9 ok");
  EXPECT_EQ(fields[1].name, "To");
  EXPECT_EQ(fields[1].value, u"Ann <a@example.org>");
  EXPECT_EQ(fields[2].value, u"caf\u00e9");

  fields.clear();
  ASSERT_EQ(ParseHeaderFields(header, &fields, kHeaderFieldsRaw), 3);
  EXPECT_EQ(fields[0].value, u"=?utf-8?Q?Caf=C3=A9?= =?ISO-8859-1?B?6Q==?= ok");
}

}  // namespace
}  // namespace qaaisp
