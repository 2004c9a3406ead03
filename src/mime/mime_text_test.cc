// Find picks its candidates by one byte of the needle and falls back to a
// full search on texts that keep nearly matching: it must agree with a
// plain search everywhere, and stay linear on the worst texts.
#include "mime/mime_text.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace qaaisp::mime {
namespace {

TEST(MimeTextFindTest, AgreesWithAPlainSearch) {
  std::mt19937 random(3);
  const std::string alphabet = "\r\n-ab";
  const std::string needles[] = {"\r\n\r\n", "\r\n",       "\n",     "-", "\r\n--ab",
                                 "--ab--",   "\r\n\r\n\r", "ab\r\n", "b", "\r\n--"};
  for (int round = 0; round < 3000; ++round) {
    std::string text(random() % 40, ' ');
    for (char& c : text) c = alphabet[random() % alphabet.size()];
    for (const std::string& needle : needles) {
      for (size_t from : {size_t{0}, size_t{1}, text.size() / 2, text.size(), text.size() + 1}) {
        const size_t want =
            from > text.size() ? std::string_view::npos : std::string_view(text).find(needle, from);
        ASSERT_EQ(Find(text, needle, from), want)
            << "needle of " << needle.size() << " from " << from << " in " << text.size();
      }
    }
  }
  EXPECT_EQ(Find("abc", "", 2), 2u);
  EXPECT_EQ(Find("abc", "abcd"), std::string_view::npos);
}

TEST(MimeTextFindTest, CaseFreeSearchAgreesWithAPlainOne) {
  const auto plain = [](std::string_view text, std::string_view needle, size_t from) {
    for (size_t i = from; i + needle.size() <= text.size(); ++i) {
      if (StartsWithNoCase(text.substr(i), needle)) return i;
    }
    return std::string_view::npos;
  };
  std::mt19937 random(4);
  const std::string alphabet = "aAbB-\xC1";
  const std::string needles[] = {"a",
                                 "AB",
                                 "ba-",
                                 "-",
                                 "\xC1"
                                 "a",
                                 "aaa",
                                 "Bb"};
  for (int round = 0; round < 3000; ++round) {
    std::string text(random() % 30, ' ');
    for (char& c : text) c = alphabet[random() % alphabet.size()];
    for (const std::string& needle : needles) {
      for (size_t from : {size_t{0}, size_t{2}, text.size() / 2, text.size()}) {
        ASSERT_EQ(FindNoCase(text, needle, from), plain(text, needle, from))
            << needle << " from " << from << " in " << text;
      }
    }
  }
  EXPECT_EQ(FindNoCase("abc", "", 1), 1u);
  EXPECT_EQ(FindNoCase("abc", "", 4), std::string_view::npos);
}

TEST(MimeTextFindTest, NearMissesFallBackAndStillFindTheEnd) {
  // Every position matches all but the needle's last byte.
  const std::string needle = std::string(200, '-') + "x";
  std::string text(200000, '-');
  EXPECT_EQ(Find(text, needle), std::string_view::npos);
  text += "x";
  EXPECT_EQ(Find(text, needle), text.size() - needle.size());
  EXPECT_EQ(Find(text, needle, 5), text.size() - needle.size());
}

}  // namespace
}  // namespace qaaisp::mime
