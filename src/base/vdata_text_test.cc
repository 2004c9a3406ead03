#include "base/vdata_text.h"

#include <gtest/gtest.h>

#include <string>

namespace qaaisp {
namespace {

TEST(VDataTextTest, UnfoldEscapeAndUnescape) {
  EXPECT_EQ(Unfold("NOTE:a\r\n b\r\n\tc\r\nX:d"), "NOTE:abc\r\nX:d");
  EXPECT_EQ(EscapeLineEnds("a\r\nb\rc\nd"), "a\\nb\\nc\\nd");
  EXPECT_EQ(Unescape("a\\;b\\,c\\\\d"), "a;b,c\\d");
  // The passes run in order: "\\;" first loses the "\;", leaving one "\".
  EXPECT_EQ(Unescape("x\\\\;y"), "x\\;y");
}

TEST(FoldTextTest, ShortTextAndSoftBreaks) {
  EXPECT_EQ(FoldText("short", 10), "short");
  EXPECT_EQ(FoldText("aaaa bbbb cccc", 8, "\r\n", '\\', ' ', true), "aaaa \r\n bbbb \r\n cccc");
  EXPECT_EQ(FoldText("aaaa bbbb cccc", 8, "|", '\\', ' ', false), "aaaa |bbbb |cccc");
}

TEST(FoldTextTest, NoBlanksTurnsTheBlankOnAndBackslashRunsMove) {
  // No soft break anywhere: continuation lines get a blank, flag or not.
  EXPECT_EQ(FoldText("abcdefghij", 4, "\r\n", '\\', ' ', false), "abcd\r\n efgh\r\n ij");
  // A chunk never ends in a backslash run: "\n" stays in one piece.
  EXPECT_EQ(FoldText("abc\\nxyz", 4, "\r\n", '\\', ' ', false), "abc\r\n \\nxy\r\n z");
  std::string folded = FoldText("ab\\\\\\cd", 5, "\r\n", '\\', ' ', false);
  EXPECT_EQ(folded, "ab\r\n \\\\\\cd");
}

TEST(CalendarTextTest, EncodesEightBitValuesOnly) {
  std::string text =
      "BEGIN:VEVENT\r\nSUMMARY:Caf\xC3\xA9 = meeting\r\nLOCATION:Room 1\r\nEND:VEVENT\r\n";
  std::string encoded = EncodeCalendarText(text);
  EXPECT_EQ(encoded,
            "BEGIN:VEVENT\r\nSUMMARY;ENCODING=QUOTED-PRINTABLE;CHARSET=UTF-8:Caf=C3=A9 =3D "
            "meeting\r\nLOCATION:Room 1\r\nEND:VEVENT\r\n");
  // Text that already carries the encoding is kept as it stands.
  EXPECT_EQ(EncodeCalendarText(encoded + "X:\xC3\xA9\r\n"), encoded + "X:\xC3\xA9\r\n");
  // A folded value is unfolded before encoding; a quoted ":" is no separator.
  EXPECT_EQ(EncodeCalendarText("DESCRIPTION;ALTREP=\"cid:x\":ab\r\n c\xC3\xA9\r\n"),
            "DESCRIPTION;ALTREP=\"cid:x\";ENCODING=QUOTED-PRINTABLE;CHARSET=UTF-8:abc=C3=A9\r\n");
}

TEST(CalendarTextTest, DecodeRemovesParametersAndFoldsLineBreaks) {
  std::string text =
      "BEGIN:VEVENT\r\nDESCRIPTION;ENCODING=QUOTED-PRINTABLE;CHARSET=UTF-8:line one=0D=0Aline=\r\n"
      " two =C3=A9\r\nEND:VEVENT\r\n";
  EXPECT_EQ(DecodeCalendarText(text),
            "BEGIN:VEVENT\r\nDESCRIPTION:line one\\n\r\n\tline two \xC3\xA9\r\nEND:VEVENT\r\n");
  EXPECT_EQ(DecodeCalendarText("S;CHARSET=UTF-8;ENCODING=QUOTED-PRINTABLE:a=0D=0Ab\n"),
            "S:a\\n\n\tb\n");
  std::string plain = "SUMMARY:x\r\n";
  EXPECT_EQ(DecodeCalendarText(EncodeCalendarText("SUMMARY:\xC3\xA9\r\n")), "SUMMARY:\xC3\xA9\r\n");
  EXPECT_EQ(DecodeCalendarText(plain), plain);
}

TEST(IsValidUTF8Test, PublishedRangesAndAllowedControls) {
  EXPECT_TRUE(IsValidUTF8("tab\there\r\n\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"));
  const char* bad[] = {"\x01",         "\x7F",         "\xC0\xAF",         "\xC3",
                       "\xE0\x80\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80",
                       "\x80",         "\xE2\x82"};
  for (const char* text : bad) EXPECT_FALSE(IsValidUTF8(text)) << text;
  std::string copy;
  EXPECT_FALSE(IsValidUTF8("ok\x80", &copy));
  EXPECT_EQ(copy, "ok\x80");
}

}  // namespace
}  // namespace qaaisp
