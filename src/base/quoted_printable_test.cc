#include "base/quoted_printable.h"

#include <gtest/gtest.h>

#include <string>

namespace qaaisp {
namespace {

TEST(QPDecodeTest, SoftBreaksHexAndStrayEquals) {
  EXPECT_EQ(QPDecode("a=\r\nb=\nc"), "abc");
  EXPECT_EQ(QPDecode("=41=62=e9x"), "Ab\xE9x");
  // A "=" without two hex digits is dropped and what follows is read as text.
  EXPECT_EQ(QPDecode("=ZZ!"), "ZZ!");
  EXPECT_EQ(QPDecode("1=4"), "14");
  EXPECT_EQ(QPDecode("=\rX"), "\rX");
}

TEST(QPDecodeTest, LastByteIsCopiedAsItStands) {
  EXPECT_EQ(QPDecode("abc="), "abc=");
  EXPECT_EQ(QPDecode("="), "=");
  EXPECT_EQ(QPDecode("abc=41"), "abcA");
  EXPECT_EQ(QPDecode("a_b_", true), "a b_");
  EXPECT_EQ(QPDecode("a_b", false), "a_b");
}

TEST(QPDecodeTest, EmptySourceShortTargetAndInPlace) {
  char target[8];
  size_t length = 99;
  EXPECT_EQ(QPDecode("", target, sizeof target, &length, false), 0);
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(QPDecode("abcdef", target, 3, &length, false), 0);
  // A target exactly the decoded size is enough, even when the source ends
  // in a soft break or a stray "=" that writes nothing.
  EXPECT_EQ(QPDecode("\x01"
                     "aZb=\n",
                     target, 4, &length, false),
            1);
  EXPECT_EQ(std::string(target, length),
            "\x01"
            "aZb");
  EXPECT_EQ(QPDecode("ab=\r\n", target, 2, &length, false), 1);
  EXPECT_EQ(length, 2u);
  EXPECT_EQ(QPDecode("ab=\r\n", target, 1, &length, false), 0);

  std::string text = "x=3Dy=\r\nz";
  ASSERT_EQ(QPDecode(text, text.data(), text.size(), &length, false), 1);
  text.resize(length);
  EXPECT_EQ(text, "x=yz");
}

TEST(QPEncodeWordTest, EncodesControlsEightBitAndSpecials) {
  std::string out;
  QPEncodeWord("a b=c?d_e\t\xC3\xA9", &out);
  EXPECT_EQ(out, "a b=3Dc=3Fd=5Fe=09=C3=A9");
  out.clear();
  QPEncodeWord("a b;rest", &out, ';', true);
  EXPECT_EQ(out, "a_b");

  char small[4];
  EXPECT_EQ(QPEncodeWord("ab\xFF", small, sizeof small, kNoStop, false), 0u);
  EXPECT_EQ(QPEncodeWord("ab=", small, 3, kNoStop, false), 0u);
  char fits[5];
  EXPECT_EQ(QPEncodeWord("a=", fits, sizeof fits, kNoStop, false), 4u);
  EXPECT_EQ(std::string(fits, 4), "a=3D");
}

TEST(QPEncodeLinesTest, SoftBreaksKeepLinesWithinWidth) {
  std::string out;
  QPEncodeLines(std::string(30, 'x'), &out, kNoStop, false, 10, false, false);
  size_t start = 0;
  while (start < out.size()) {
    size_t end = out.find("\r\n", start);
    if (end == std::string::npos) end = out.size();
    EXPECT_LE(end - start, 10u);
    start = end + 2;
  }
  EXPECT_EQ(QPDecode(out), std::string(30, 'x'));

  // An encoded byte is never split by a soft break.
  out.clear();
  QPEncodeLines("abcdefgh\xE9\xE9", &out, kNoStop, false, 10, false, false);
  EXPECT_EQ(out, "abcdefgh=\r\n=E9=E9");

  out.clear();
  QPEncodeLines("abcdefghij", &out, kNoStop, false, 6, true, false);
  EXPECT_EQ(out, "abcde=\r\n fghi=\r\n j");
}

TEST(QPEncodeLinesTest, LineEndsCopiedOrEncoded) {
  std::string out;
  QPEncodeLines("abcd\r\nefgh", &out, kNoStop, false, 6, false, false);
  EXPECT_EQ(out, "abcd\r\nefgh");
  out.clear();
  QPEncodeLines("ab\r\n", &out, kNoStop, false, 0, false, true);
  EXPECT_EQ(out, "ab=0D=0A");
}

}  // namespace
}  // namespace qaaisp
