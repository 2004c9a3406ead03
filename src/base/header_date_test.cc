#include <gtest/gtest.h>

#include <strings.h>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <sstream>

#include "base/dates.h"

namespace qaaisp {
namespace {

// Header dates are read in the process time zone; these tests fix it.
class HeaderDateTest : public ::testing::Test {
 protected:
  void SetUp() override { UseZone("UTC0"); }
  void TearDown() override {
    unsetenv("TZ");
    tzset();
  }
  static void UseZone(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
  }
  static std::string Normal(const std::string& date, const char* before = "") {
    char out[64];
    std::snprintf(out, sizeof out, "%s", before);
    NormaliseHeaderDate(date.c_str(), out, sizeof out);
    return out;
  }
};

TEST_F(HeaderDateTest, ShiftsByTheDatesOwnOffset) {
  EXPECT_EQ(Normal("Fri, 4 May 2001 14:05:44 -0400"), "2001-05-04T18:05:44");
  EXPECT_EQ(Normal("Sun, 16 Jun 2013 17:50:12 +0200 (CEST)"), "2013-06-16T15:50:12");
  EXPECT_EQ(Normal("Mon, 2 Jan 2006 00:10:00 +0130"), "2006-01-01T22:40:00");
  EXPECT_EQ(Normal("Mon, 2 Jan 2006 10:00:00 gmt"), "2006-01-02T10:00:00");
  // A zone name reads as the number 0.
  EXPECT_EQ(Normal("Wed, 9 Jan 2002 19:47:50 MST"), "2002-01-09T19:47:50");
  // No comma: the day is the first token.
  EXPECT_EQ(Normal("2 Jan 2006 10:00:00 +0000"), "2006-01-02T10:00:00");
  // A doubled blank after the comma is skipped.
  EXPECT_EQ(Normal("Mon,  2 Jan 2006 10:00:00 +0000"), "2006-01-02T10:00:00");
  // A shift that would end at or before 1970 is not made.
  EXPECT_EQ(Normal("Thu, 1 Jan 1970 00:00:00 +0100"), "1970-01-01T00:00:00");
}

TEST_F(HeaderDateTest, RepairsYearsMonthsAndFields) {
  EXPECT_EQ(Normal("Mon, 2 Jan 06 10:00:00 GMT"), "2006-01-02T10:00:00");
  EXPECT_EQ(Normal("Fri, 7 Jun 99 09:09:05 GMT"), "2099-06-07T09:09:05");
  EXPECT_EQ(Normal("Sat, 2 Dcm 2006 10:00:00 GMT"), "2006-12-02T10:00:00");
  EXPECT_EQ(Normal("Sat, 2 JAN 2006 10:00:00 GMT"), "2006-01-02T10:00:00");
  EXPECT_EQ(Normal("Sat, 2 January 2006 10:00:00 GMT"), "2006-12-02T10:00:00");
  EXPECT_EQ(Normal("Mon, 32 Jan 2006 25:61:60 GMT"), "2006-01-01T00:00:00");
  EXPECT_EQ(Normal("Mon, 2 Jan 2006 24:00:00 GMT"), "2006-01-03T00:00:00");
  EXPECT_EQ(Normal("Mon, 31 Feb 2006 10:00:00 GMT"), "2006-03-03T10:00:00");
  // Month names in any case; anything not three letters long is December.
  const char* const months[] = {"jan", "FEB", "Mar", "aPr", "may", "JUN",
                                "jul", "Aug", "sep", "OCT", "nov", "dec"};
  for (int i = 0; i < 12; ++i) {
    char want[32];
    std::snprintf(want, sizeof want, "2006-%02d-02T10:00:00", i + 1);
    EXPECT_EQ(Normal(std::string("2 ") + months[i] + " 2006 10:00:00 GMT"), want) << months[i];
  }
  EXPECT_EQ(Normal("Sat, 2 Ja 2006 10:00:00 GMT"), "2006-12-02T10:00:00");
}

TEST_F(HeaderDateTest, FallbackFormForDatesTheClockCannotHold) {
  // The month prints as its index: January and February are both 01.
  EXPECT_EQ(Normal("Tue, 2 Feb 1960 10:00:00 +0000"), "1960-01-02T10:00:00");
  EXPECT_EQ(Normal("Tue, 2 Jan 1960 10:00:00 +0000"), "1960-01-02T10:00:00");
  EXPECT_EQ(Normal("Tue, 2 Mar 1960 10:00:00 +0000"), "1960-02-02T10:00:00");
  EXPECT_EQ(Normal("Tue, 2 Dec 1960 24:00:60 +0000"), "1960-11-02T24:00:00");
  // 1900 is below 1901, so it becomes 3900, past the clock's end.
  EXPECT_EQ(Normal("Mon, 1 Jan 1900 00:00:00 +0000"), "3900-01-01T00:00:00");
  EXPECT_EQ(Normal("Mon, 1 Jan 9999 00:00:00 +0000"), "9999-01-01T00:00:00");
  EXPECT_EQ(Normal("Mon, 1 Jan 10000 00:00:00 +0000"), "1601-01-01T00:00:00");
  EXPECT_EQ(Normal("Mon, 1 Jan -2000 00:00:00 +0000"), "1601-01-01T00:00:00");
  // A machine east of UTC puts local midnight 1970 before the epoch.
  UseZone("XST-3");
  EXPECT_EQ(Normal("Thu, 1 Jan 1970 01:00:00 +0000"), "1970-01-01T01:00:00");
}

TEST_F(HeaderDateTest, MissingDelimiterLeavesOutAsItWas) {
  for (const char* partial : {"", "garbage", "Mon, 2 Jan 2006", "Mon, 2 Jan 2006 10:00",
                              "Mon, 2 Jan 2006 10:00:00", "Mon,2", "2 Jan 2006 10.00.00 GMT"}) {
    EXPECT_EQ(Normal(partial, "before"), "before") << partial;
  }
}

TEST_F(HeaderDateTest, TheMachineZoneIsNotCompensated) {
  UseZone("CET-1CEST,M3.5.0,M10.5.0/3");
  // Winter and summer alike, only the date's own offset moves it.
  EXPECT_EQ(Normal("Mon, 2 Jan 2006 10:00:00 +0000"), "2006-01-02T10:00:00");
  EXPECT_EQ(Normal("Mon, 3 Jul 2006 10:00:00 +0200"), "2006-07-03T08:00:00");
  EXPECT_EQ(Normal("Mon, 3 Jul 2006 10:00:00 -0500"), "2006-07-03T15:00:00");
}

TEST_F(HeaderDateTest, OutIsCutToItsSize) {
  char out[5];
  NormaliseHeaderDate("Mon, 2 Jan 2006 10:00:00 GMT", out, sizeof out);
  EXPECT_STREQ(out, "2006");
  NormaliseHeaderDate("Mon, 2 Jan 2006 10:00:00 GMT", out, 0);
  NormaliseHeaderDate(nullptr, out, sizeof out);
  EXPECT_STREQ(out, "2006");
}

// Empty, or " *-?D{1,4}-DD-DDTDD:-?D{1,2}:-?D{1,2}" (D a digit).
bool IsResultForm(const std::string& s) {
  size_t i = 0;
  auto digits = [&](size_t min, size_t max) {
    size_t n = 0;
    while (i < s.size() && n < max && s[i] >= '0' && s[i] <= '9') ++i, ++n;
    return n >= min;
  };
  auto take = [&](char c) { return i < s.size() && s[i] == c ? (++i, true) : false; };
  if (s.empty()) return true;
  while (take(' ')) {
  }
  take('-');
  if (!digits(1, 4) || !take('-') || !digits(2, 2) || !take('-') || !digits(2, 2) || !take('T') ||
      !digits(2, 2) || !take(':')) {
    return false;
  }
  take('-');
  if (!digits(1, 2) || !take(':')) return false;
  take('-');
  return digits(1, 2) && i == s.size();
}

// Arbitrary mutations of a date never crash nor overrun, and give the
// normal form, the fallback form or nothing.
TEST_F(HeaderDateTest, MutatedDatesGiveAFormOrNothing) {
  const std::string seed = "Mon,  2 Jan 2006 10:00:00 +0130 (XYZ)";
  const std::string alphabet = " ,:+-0123456789aZ()\t";
  std::mt19937 random(7);
  for (int i = 0; i < 20000; ++i) {
    std::string date = seed.substr(0, random() % (seed.size() + 1));
    for (int k = random() % 6; k > 0 && !date.empty(); --k) {
      date[random() % date.size()] = alphabet[random() % alphabet.size()];
    }
    const std::string result = Normal(date);
    ASSERT_TRUE(IsResultForm(result)) << date << " -> " << result;
  }
}

// A three-letter weekday takes a short cut that a longer one does not; the
// two must read every date alike, as must the date with no weekday at all.
TEST_F(HeaderDateTest, TheUsualFormReadsAsTheGeneralOne) {
  UseZone("Europe/London");
  std::mt19937 random(11);
  const auto digits = [&random](int n) {
    std::string s;
    for (int i = 0; i < n; ++i) s += static_cast<char>('0' + random() % 10);
    return s;
  };
  const std::string months[] = {"Nov", "mar", "Sept", "Ju", "1an"};
  const std::string zones[] = {"+0130", "-0800", "GMT", "", " +0000", "+0000 (UTC)", "EST5EDT"};
  for (int i = 0; i < 5000; ++i) {
    const std::string rest = digits(1 + random() % 3) + " " + months[random() % 5] + " " +
                             digits(1 + random() % 5) + " " + digits(1 + random() % 2) + ":" +
                             digits(1 + random() % 2) + ":" + digits(1 + random() % 2) +
                             (random() % 8 ? " " : "") + zones[random() % 7];
    const std::string general = Normal("Tuesday, " + rest, "none");
    ASSERT_EQ(Normal("Tue, " + rest, "none"), general) << rest;
    ASSERT_EQ(Normal(rest, "none"), general) << rest;
  }
}

// The first Date header of a message, unfolded, leading blanks removed.
std::string FirstDateHeader(const std::string& message) {
  std::istringstream in(message);
  std::string line;
  std::string value;
  bool inside = false;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty()) break;
    if (inside) {
      if (line[0] != ' ' && line[0] != '\t') break;
      value += line;
    } else if (line.size() >= 5 && strncasecmp(line.c_str(), "date:", 5) == 0) {
      inside = true;
      value = line.substr(5);
    }
  }
  if (!inside) return "\n";
  return value.substr(std::min(value.find_first_not_of(" \t"), value.size()));
}

// The repository root, from this file's place in src/base; the real-world
// corpus lies beside the repository unless QAAISP_CORPUS names another.
std::string RepositoryRoot() {
  const std::string here = __FILE__;
  return here.substr(0, here.rfind("/src/base/"));
}

// The reference holds, per message with a well-formed date, the UTC time
// that Python's email.utils reads from it (tests/data/dates/make_header_dates.py).
TEST_F(HeaderDateTest, CorpusDatesAgreeWithTheReference) {
  const char* root = std::getenv("QAAISP_CORPUS");
  const std::filesystem::path corpus =
      std::string(root != nullptr && *root ? root : RepositoryRoot() + "/../shared/corpus") +
      "/mime";
  if (!std::filesystem::is_directory(corpus)) GTEST_SKIP() << "no corpus at " << corpus;
  std::map<std::string, std::string> reference;
  std::ifstream table(RepositoryRoot() + "/tests/data/dates/header_dates.tsv");
  for (std::string line; std::getline(table, line);) {
    const size_t tab = line.find('\t');
    if (tab != std::string::npos) reference[line.substr(0, tab)] = line.substr(tab + 1);
  }
  ASSERT_GT(reference.size(), 100u);
  size_t dates = 0;
  size_t compared = 0;
  for (const auto& entry : std::filesystem::directory_iterator(corpus)) {
    std::ifstream file(entry.path(), std::ios::binary);
    std::stringstream content;
    content << file.rdbuf();
    const std::string date = FirstDateHeader(content.str());
    if (date == "\n") continue;
    ++dates;
    const std::string result = Normal(date);
    EXPECT_TRUE(IsResultForm(result)) << entry.path() << ": " << result;
    auto it = reference.find(entry.path().filename().string());
    if (it == reference.end()) continue;
    ++compared;
    EXPECT_EQ(result, it->second) << entry.path() << ": " << date;
  }
  EXPECT_GT(dates, compared);
  EXPECT_EQ(compared, reference.size());
}

}  // namespace
}  // namespace qaaisp
