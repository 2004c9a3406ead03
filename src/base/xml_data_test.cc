#include "base/xml_data.h"

#include <gtest/gtest.h>

#include <cstring>

namespace qaaisp {
namespace {

TEST(GetXMLDataExTest, CutsBetweenDelimitersAndReturnsPositionBehind) {
  const char* text = "<A>1</A><B>22</B>";
  char out[16] = "unchanged";
  const char* next = GetXMLDataEx(text, "<A>", "</A>", out, sizeof out);
  EXPECT_STREQ(out, "1");
  EXPECT_EQ(next, text + 8);
  next = GetXMLDataEx(next, "<B>", "</B>", out, sizeof out);
  EXPECT_STREQ(out, "22");
  EXPECT_EQ(next, text + std::strlen(text));
}

TEST(GetXMLDataExTest, SizeOfOneGivesEmptyTextButSamePosition) {
  const char* text = "<A>1</A>";
  char out[4] = "xyz";
  EXPECT_EQ(GetXMLDataEx(text, "<A>", "</A>", out, 1), text + 8);
  EXPECT_STREQ(out, "");
  // A longer field is cut to the size less one.
  char small[3];
  GetXMLDataEx("<A>12345</A>", "<A>", "</A>", small, sizeof small);
  EXPECT_STREQ(small, "12");
}

TEST(GetXMLDataExTest, MissingDelimitersGiveNullAndLeaveOutAlone) {
  char out[8] = "keep";
  EXPECT_EQ(GetXMLDataEx("<A>1", "<A>", "</A>", out, sizeof out), nullptr);
  EXPECT_EQ(GetXMLDataEx("1</A>", "<A>", "</A>", out, sizeof out), nullptr);
  EXPECT_EQ(GetXMLDataEx(nullptr, "<A>", "</A>", out, sizeof out), nullptr);
  EXPECT_EQ(GetXMLDataEx("", "", " ", out, sizeof out), nullptr);
  EXPECT_STREQ(out, "keep");
}

TEST(GetXMLDataExTest, EndIsSoughtOneCharacterPastTheFoundPlace) {
  char out[8];
  // Adjacent one-character delimiters enclose an empty field.
  const char* text = "a  b";
  EXPECT_EQ(GetXMLDataEx(text + 1, " ", " ", out, sizeof out), text + 3);
  EXPECT_STREQ(out, "");
  // With no start delimiter a field at the very start needs one character:
  // a leading end delimiter is skipped over.
  text = " x y";
  EXPECT_EQ(GetXMLDataEx(text, "", " ", out, sizeof out), text + 3);
  EXPECT_STREQ(out, " x");
  // A start delimiter that overlaps the end gives an empty field.
  text = "ab-c";
  EXPECT_EQ(GetXMLDataEx(text, "ab", "b", out, sizeof out), text + 2);
  EXPECT_STREQ(out, "");
}

TEST(GetXMLDataExTest, NullEndCopiesTheRestWithTheStartDelimiter) {
  char out[16] = "keep";
  EXPECT_EQ(GetXMLDataEx("xx<A>tail", "<A>", nullptr, out, sizeof out), nullptr);
  EXPECT_STREQ(out, "<A>tail");
  EXPECT_EQ(GetXMLDataEx("whole", "", nullptr, out, 4), nullptr);
  EXPECT_STREQ(out, "who");
}

}  // namespace
}  // namespace qaaisp
