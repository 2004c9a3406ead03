#include "base/encoded_words.h"

#include <gtest/gtest.h>

#include <string>

namespace qaaisp {
namespace {

std::u16string Decode(std::string_view text, WordDecodeOptions options = {}) {
  std::u16string out;
  DecodeWords(text, &out, options);
  return out;
}

TEST(EncodeWordTest, WrapQuotedWordOnlyForEightBitText) {
  std::string out;
  EXPECT_EQ(WrapQuotedWord("plain; text", &out), 2);
  EXPECT_EQ(out, "plain; text");
  EXPECT_EQ(WrapQuotedWord("caf\xC3\xA9 = 1", &out), 1);
  EXPECT_EQ(out, "=?UTF-8?Q?caf=C3=A9 =3D 1?=");
}

TEST(EncodeWordTest, KeepsUnwrapsOrEncodes) {
  std::string out;
  EXPECT_EQ(EncodeWord("=?UTF-8?Q?caf=C3=A9?=", &out, true), 1);
  EXPECT_EQ(out, "=?UTF-8?Q?caf=C3=A9?=");
  EXPECT_EQ(EncodeWord("=?utf-8?q?caf=C3=A9?=", &out, false), 2);
  EXPECT_EQ(out, "caf=C3=A9");
  EXPECT_EQ(EncodeWord("Smith", &out, true), 1);
  EXPECT_EQ(out, "Smith");
  EXPECT_EQ(EncodeWord("M\xC3\xBCller", &out, false), 2);
  EXPECT_EQ(out, "M=C3=BCller");
  EXPECT_EQ(EncodeWord("M\xC3\xBCller", &out, true), 2);
  EXPECT_EQ(out, "=?UTF-8?Q?M=C3=BCller?=");

  EXPECT_EQ(EncodeWordList("Smith;J\xC3\xBCrgen;;Dr.", &out, true), 2);
  EXPECT_EQ(out, "Smith;=?UTF-8?Q?J=C3=BCrgen?=;;Dr.");
  EXPECT_EQ(EncodeWordList("a;b", &out, true), 1);
  EXPECT_EQ(out, "a;b");
}

TEST(DecodeWordsTest, QuotedPrintableAndBase64Words) {
  EXPECT_EQ(Decode("Re: =?UTF-8?Q?caf=C3=A9_au_lait?= now"), u"Re: caf\u00e9 au lait now");
  EXPECT_EQ(Decode("=?utf-8?B?w6lsw6l2ZQ==?="), u"\u00e9l\u00e9ve");
  EXPECT_EQ(Decode("=?ISO-8859-1?Q?Gr=FC=DFe?="), u"Gr\u00fc\u00dfe");
  // Text with no word passes through whole, a broken word as text.
  EXPECT_EQ(Decode("no words =? here"), u"no words =? here");
  EXPECT_EQ(Decode("=?utf-8?Q?unterminated"), u"=?utf-8?Q?unterminated");
  // A word's "_" is a blank; "=5F" only with the underscore flag.
  EXPECT_EQ(Decode("=?utf-8?Q?a_b=5Fc_?="), u"a b_c ");
  WordDecodeOptions underscore;
  underscore.underscore = true;
  EXPECT_EQ(Decode("=?utf-8?Q?a_b=5Fc?=", underscore), u"a b c");
}

TEST(DecodeWordsTest, UnknownCharsetGivesRawBytesAndModes) {
  EXPECT_EQ(Decode("=?x-unheard-of?Q?a=E9?="), std::u16string(u"a") + char16_t{0xE9});
  WordDecodeOptions raw;
  raw.byte_mode = 0;
  EXPECT_EQ(Decode("x =?utf-8?Q?a=C3=A9?=", raw), u"x a=C3=A9");

  // Literal text is converted from the given charset, or taken byte by byte.
  WordDecodeOptions latin;
  latin.charset = "iso-8859-1";
  EXPECT_EQ(Decode("\xE9t\xE9", latin), u"\u00e9t\u00e9");
  EXPECT_EQ(Decode("caf\xC3\xA9"), u"caf\u00e9");
  WordDecodeOptions bytes;
  bytes.literal = false;
  EXPECT_EQ(Decode("\xC3\xA9", bytes), (std::u16string{0xC3, 0xA9}));
}

// Words are decoded through buffers kept from one word to the next: a
// short word after a long one, in another charset and encoding, must not
// keep anything of it.
TEST(DecodeWordsTest, WordsAfterLongerWordsKeepNothingOfThem) {
  const std::string long_text(200, 'a');
  EXPECT_EQ(Decode("=?utf-8?Q?" + long_text + "=C3=A9?= =?iso-8859-1?Q?b?= =?utf-8?B?Yw==?="),
            std::u16string(200, u'a') + u"\u00e9 b c");
  EXPECT_EQ(Decode("=?koi8-r?B?8cHC?="), u"\u042f\u0430\u0431");
  // Empty words, their literals split where a trigraph would stand.
  EXPECT_EQ(Decode("=?utf-8?Q?"
                   "?= x =?utf-8?B?"
                   "?="),
            u" x ");
  EXPECT_EQ(Decode("=?iso-8859-1?Q?=E9_?="), u"\u00e9 ");
}

TEST(DecodeWordsTest, AdjacentWordsJoinOnlyWhenAsked) {
  const char* text = "=?utf-8?Q?ab?= =?utf-8?Q?cd?=  x =?utf-8?Q?ef?=";
  EXPECT_EQ(Decode(text), u"ab cd  x ef");
  WordDecodeOptions join;
  join.join_adjacent = true;
  EXPECT_EQ(Decode(text, join), u"abcd  x ef");
}

TEST(ConvertCharsetTest, ConvertsOrFallsBackToACopy) {
  std::string out;
  EXPECT_TRUE(ConvertCharset("iso-8859-1", "caf\xE9", &out, "utf-8"));
  EXPECT_EQ(out, "caf\xC3\xA9");
  EXPECT_TRUE(ConvertCharset("utf-8", "\xC3\xA9", &out, "windows-1252"));
  EXPECT_EQ(out, "\xE9");
  EXPECT_TRUE(ConvertCharset("utf-8", "a\xC3\xA9", &out, "UTF-16LE"));
  EXPECT_EQ(out, std::string("a\0\xE9\0", 4));
  // Equal names, an unknown name and the defaults copy.
  EXPECT_FALSE(ConvertCharset("UTF-8", "\xFF", &out, "utf-8"));
  EXPECT_EQ(out, "\xFF");
  EXPECT_FALSE(ConvertCharset("x-none", "\xE9", &out, "utf-8"));
  EXPECT_EQ(out, "\xE9");
  EXPECT_FALSE(ConvertCharset("", "abc", &out, ""));
  EXPECT_EQ(out, "abc");
}

}  // namespace
}  // namespace qaaisp
