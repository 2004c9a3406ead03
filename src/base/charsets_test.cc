#include "base/charsets.h"

#include <gtest/gtest.h>

#include <set>

#include "platform/iconv_charset.h"

namespace qaaisp {
namespace {

TEST(CharsetTableTest, HasEveryRowWithAName) {
  size_t rows = 0;
  for (const CharsetRow& row : kCharsetTable) {
    ASSERT_NE(row.name, nullptr);
    ASSERT_NE(row.name[0], '\0');
    ASSERT_NE(row.code_page, 0u);
    ++rows;
  }
  EXPECT_EQ(rows, 327u);
  EXPECT_EQ(kCharsetTable[0].code_page, 65001u);
  EXPECT_STREQ(kCharsetTable[326].name, "x-iscii-pa");
}

TEST(CharsetTableTest, LookupIgnoresCaseAndTakesTheFirstRow) {
  EXPECT_EQ(CodePageOfCharset("utf-8"), 65001u);
  EXPECT_EQ(CodePageOfCharset("Windows-1252"), 1252u);
  EXPECT_EQ(CodePageOfCharset("ISO-8859-1"), 28591u);
  EXPECT_EQ(CodePageOfCharset("latin-9"), 28605u);
  // The misspelled rows stand as they are; the right spelling has its own.
  EXPECT_EQ(CodePageOfCharset("SHIFFT_JIS"), 932u);
  EXPECT_EQ(CodePageOfCharset("shift_jis"), 932u);
  // "iso-2022-jp" is listed under three pages; the first row wins.
  EXPECT_EQ(CodePageOfCharset("iso-2022-jp"), 50221u);
  EXPECT_EQ(CodePageOfCharset("EUC-KR"), 949u);
  EXPECT_EQ(CodePageOfCharset("x-mac-ce"), 10029u);
}

TEST(CharsetTableTest, UnknownNamesGiveZero) {
  EXPECT_EQ(CodePageOfCharset(""), 0u);
  EXPECT_EQ(CodePageOfCharset("utf8x"), 0u);
  EXPECT_EQ(CodePageOfCharset("unicode-1-1-utf-7"), 0u);
  EXPECT_EQ(CodePageOfCharset(" utf-8"), 0u);
  // A name is a terminated text.
  EXPECT_EQ(CodePageOfCharset(std::string_view("utf-8\0junk", 10)), 65001u);
}

// Each page the table can answer either converts (upper-case letters and
// digits, which even the katakana pages have) on this platform or is
// listed as one it lacks.
TEST(CharsetTableTest, EveryCodePageConvertsOrIsListedUnsupported) {
  std::set<uint32_t> pages;
  for (const CharsetRow& row : kCharsetTable) pages.insert(row.code_page);
  EXPECT_EQ(pages.size(), 142u);
  for (uint32_t page : pages) {
    if (platform::IsUnsupportedCodePage(page)) {
      std::u16string wide = u"keep";
      EXPECT_EQ(NarrowToWide("abc", &wide, page), 0) << page;
      EXPECT_EQ(wide, u"keep");
      continue;
    }
    ASSERT_NE(platform::IconvNameOfCodePage(page), nullptr) << page;
    std::string narrow;
    ASSERT_GT(WideToNarrow(u"AB1", &narrow, page), 0) << page;
    std::u16string back;
    ASSERT_GT(NarrowToWide(narrow, &back, page), 0) << page;
    EXPECT_EQ(back, u"AB1") << page << " via " << platform::IconvNameOfCodePage(page);
  }
}

TEST(CharsetConversionTest, ConvertsBetweenPagesAndUtf16) {
  std::u16string wide;
  ASSERT_EQ(NarrowToWide("gr\xc3\xbc\xc3\x9f \xf0\x9f\x98\x80", &wide, 65001), 7);
  EXPECT_EQ(wide, u"gr\u00fc\u00df \U0001F600");
  std::string narrow;
  ASSERT_EQ(WideToNarrow(u"\u00fc\u20ac", &narrow, 1252), 2);
  EXPECT_EQ(narrow, "\xfc\x80");
  ASSERT_GT(WideToNarrow(u"\u65e5\u672c", &narrow, 50220), 0);
  EXPECT_EQ(narrow, "\x1b$BF|K\\\x1b(B");  // ends back in ASCII
  ASSERT_EQ(NarrowToWide(narrow, &wide, 50220), 2);
  EXPECT_EQ(wide, u"\u65e5\u672c");
  ASSERT_EQ(NarrowToWide("\x82\xa0", &wide, CodePageOfCharset("shift_jis")), 1);
  EXPECT_EQ(wide, u"\u3042");
}

TEST(CharsetConversionTest, BadInputIsReplacedNotRefused) {
  std::u16string wide;
  ASSERT_EQ(NarrowToWide("a\xff"
                         "b\xe2\x82",
                         &wide, 65001),
            4);
  EXPECT_EQ(wide, u"a\ufffdb\ufffd");
  std::string narrow;
  // A character the page lacks, a pair it lacks and a lone surrogate.
  std::u16string odd = u"a\u4e00b\U0001F600c";
  odd.push_back(0xD800);
  ASSERT_EQ(WideToNarrow(odd, &narrow, 28591), 6);
  EXPECT_EQ(narrow, "a?b?c?");
  // The replacement is the page's own question mark.
  ASSERT_EQ(WideToNarrow(u"\u4e00", &narrow, 37), 1);
  EXPECT_EQ(narrow, "\x6f");
}

TEST(CharsetConversionTest, EmptyOrUnsupportedLeavesOutUnchanged) {
  std::u16string wide = u"keep";
  EXPECT_EQ(NarrowToWide("", &wide, 65001), 0);
  EXPECT_EQ(NarrowToWide("abc", &wide, 4242), 0);
  EXPECT_EQ(NarrowToWide("abc", &wide, 57002), 0);
  EXPECT_EQ(wide, u"keep");
  std::string narrow = "keep";
  EXPECT_EQ(WideToNarrow(u"", &narrow, 1252), 0);
  EXPECT_EQ(WideToNarrow(u"abc", &narrow, 4242), 0);
  EXPECT_EQ(narrow, "keep");
}

}  // namespace
}  // namespace qaaisp
