#include "base/dates.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "platform/local_time.h"
#include "test_env.h"

namespace qaaisp {
namespace {

using platform::FileTime;

// Runs a test in a chosen process time zone.
class ScopedTimeZone {
 public:
  explicit ScopedTimeZone(const char* zone) {
    const char* old = std::getenv("TZ");
    had_ = old != nullptr;
    if (had_) old_ = old;
    setenv("TZ", zone, 1);
    tzset();
  }
  ~ScopedTimeZone() {
    if (had_) {
      setenv("TZ", old_.c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }

 private:
  bool had_ = false;
  std::string old_;
};

FileTime At(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
  SystemTime t;
  t.year = year;
  t.month = month;
  t.day = day;
  t.hour = hour;
  t.minute = minute;
  t.second = second;
  FileTime ft;
  EXPECT_TRUE(FileTimeFromSystemTime(t, &ft));
  return ft;
}

std::string Extended(FileTime ft) {
  char text[32] = "";
  return FormatExtendedDate(ft, text, sizeof text) ? text : "<none>";
}

TEST(UnixTimeTest, ConvertsWithTheEpochDifference) {
  EXPECT_EQ(UnixTimeToFileTime(0).ticks(), 116444736000000000ULL);
  EXPECT_EQ(UnixTimeToFileTime(-1).ticks(), 116444736000000000ULL - 10000000);
  EXPECT_EQ(Extended(UnixTimeToFileTime(2147483647)), "2038-01-19T03:14:07");
  EXPECT_EQ(UnixTimeFromFileTime(UnixTimeToFileTime(1672574400)), 1672574400);
  // Whole seconds, truncated towards zero on both sides of 1970.
  EXPECT_EQ(UnixTimeFromFileTime(FileTime::FromTicks(116444736000000000ULL + 19999999)), 1);
  EXPECT_EQ(UnixTimeFromFileTime(FileTime::FromTicks(116444736000000000ULL - 5000000)), 0);
  EXPECT_EQ(UnixTimeFromFileTime(FileTime{}), -11644473600);
}

TEST(SystemTimeTest, KeepsTheRangesOfTheClock) {
  SystemTime t;
  ASSERT_TRUE(SystemTimeFromFileTime(At(2024, 2, 29, 23, 59, 58), &t));
  EXPECT_EQ(t.year, 2024);
  EXPECT_EQ(t.day_of_week, 4);  // a Thursday
  ASSERT_TRUE(SystemTimeFromFileTime(FileTime{}, &t));
  EXPECT_EQ(t.year, 1601);
  EXPECT_EQ(t.day_of_week, 1);
  EXPECT_TRUE(SystemTimeFromFileTime(FileTime::FromTicks((1ULL << 63) - 1), &t));
  EXPECT_EQ(t.year, 30828);
  EXPECT_FALSE(SystemTimeFromFileTime(FileTime::FromTicks(1ULL << 63), &t));

  FileTime ft;
  SystemTime bad{2023, 2, 0, 29, 0, 0, 0, 0};
  EXPECT_FALSE(FileTimeFromSystemTime(bad, &ft));
  bad = {2023, 1, 0, 1, 24, 0, 0, 0};
  EXPECT_FALSE(FileTimeFromSystemTime(bad, &ft));
  bad = {1600, 12, 0, 31, 0, 0, 0, 0};
  EXPECT_FALSE(FileTimeFromSystemTime(bad, &ft));
  bad = {2023, 13, 0, 1, 0, 0, 0, 0};
  EXPECT_FALSE(FileTimeFromSystemTime(bad, &ft));
}

TEST(ParseCalendarDateTest, BasicExtendedAndYearlessForms) {
  FileTime ft;
  ASSERT_EQ(ParseCalendarDate("--0412", &ft, nullptr, 0), 1);
  EXPECT_EQ(Extended(ft), "1604-04-12T00:00:00");
  ASSERT_EQ(ParseCalendarDate("-0412", &ft, nullptr, 0), 1);
  EXPECT_EQ(Extended(ft), "1604-04-12T00:00:00");
  ASSERT_EQ(ParseCalendarDate("19990101", &ft, nullptr, 0), 1);
  EXPECT_EQ(Extended(ft), "1999-01-01T00:00:00");
  ASSERT_EQ(ParseCalendarDate("20230405T060708Z", &ft, nullptr, 0), 1);
  EXPECT_EQ(Extended(ft), "2023-04-05T06:07:08");
  ASSERT_EQ(ParseCalendarDate("2023-04-05T06:07:08", &ft, nullptr, 0), 1);
  EXPECT_EQ(Extended(ft), "2023-04-05T06:07:08");
  // Ten characters of extended date: its own dashes are no offset.
  ASSERT_EQ(ParseCalendarDate("2023-04-05", &ft, nullptr, 1), 1);
  EXPECT_EQ(Extended(ft), "2023-04-05T00:00:00");
}

TEST(ParseCalendarDateTest, RefusesWhatIsNoDate) {
  FileTime ft = FileTime::FromTicks(42);
  for (const char* bad : {"0001-01-01", "5000-01-01", "", "1999013", "20230230", "20231301",
                          "20230101T250000", "abcdefgh", "-", "--"}) {
    EXPECT_EQ(ParseCalendarDate(bad, &ft, nullptr, 0), 0) << bad;
  }
  EXPECT_EQ(ParseCalendarDate(nullptr, &ft, nullptr, 0), 0);
  EXPECT_EQ(ft.ticks(), 42u);
  // A text longer than the work buffer is cut, not overrun.
  EXPECT_EQ(ParseCalendarDate(std::string(300, '2').c_str(), &ft, nullptr, 0), 0);
  EXPECT_EQ(ParseCalendarDate(("-" + std::string(200, '1')).c_str(), &ft, nullptr, 0), 0);
}

TEST(ParseCalendarDateTest, AppliesTheOffsetInTheGivenDirection) {
  FileTime ft;
  // The text's own tail serves when no offset is passed.
  ASSERT_EQ(ParseCalendarDate("20230101T120000-0500", &ft, nullptr, 1), 1);
  EXPECT_EQ(Extended(ft), "2023-01-01T17:00:00");
  ASSERT_EQ(ParseCalendarDate("20230101T120000-0500", &ft, nullptr, 0), 1);
  EXPECT_EQ(Extended(ft), "2023-01-01T07:00:00");
  ASSERT_EQ(ParseCalendarDate("20230101T120000+0130", &ft, nullptr, 1), 1);
  EXPECT_EQ(Extended(ft), "2023-01-01T10:30:00");
  // A passed offset wins over the text's own.
  ASSERT_EQ(ParseCalendarDate("20230101T120000-0500", &ft, "+02:00", 1), 1);
  EXPECT_EQ(Extended(ft), "2023-01-01T10:00:00");
  ASSERT_EQ(ParseCalendarDate("20230101T000000", &ft, "-01", 1), 1);
  EXPECT_EQ(Extended(ft), "2023-01-01T01:00:00");
  // An extended offset is six characters, too long to be taken.
  ASSERT_EQ(ParseCalendarDate("2023-01-01T12:00:00+05:00", &ft, nullptr, 1), 1);
  EXPECT_EQ(Extended(ft), "2023-01-01T12:00:00");
}

TEST(ParseExtendedDateTest, ReadsFixedPositionsOrLeavesTheTimeAlone) {
  FileTime ft;
  ParseExtendedDate("2023-04-05T06:07:08", &ft);
  EXPECT_EQ(Extended(ft), "2023-04-05T06:07:08");
  ParseExtendedDate("2023-04-05T06:07", &ft);
  EXPECT_EQ(Extended(ft), "2023-04-05T00:00:00");
  const FileTime before = ft;
  ParseExtendedDate("2023-04-", &ft);
  ParseExtendedDate("2023-13-05", &ft);
  ParseExtendedDate("2023-02-30T00:00:00", &ft);
  ParseExtendedDate(nullptr, &ft);
  EXPECT_EQ(ft, before);
}

TEST(FormatDateTest, ExtendedBasicAndClockForms) {
  char text[64];
  EXPECT_EQ(FormatExtendedDate(FileTime::FromTicks(1ULL << 63), text, sizeof text), 0);
  EXPECT_EQ(Extended(FileTime{}), "1601-01-01T00:00:00");

  SystemTime t{2023, 4, 0, 5, 6, 7, 8, 0};
  ASSERT_EQ(FormatBasicDate(t, text, sizeof text), 1);
  EXPECT_STREQ(text, "20230405T060708");
  SystemTime wild{0, 13, 0, 0, 25, 60, 60, 0};
  FormatBasicDate(wild, text, sizeof text);
  EXPECT_STREQ(text, "16010101T000000");
  wild = {10000, 0, 0, 32, 24, 59, 59, 0};
  FormatBasicDate(wild, text, sizeof text);
  EXPECT_STREQ(text, "16010101T245959");

  // 2023-04-05 10:15:00 UTC is on the minute: no seconds.
  FormatClockDate(1680689700, text, sizeof text);
  EXPECT_STREQ(text, "10:15 05 Apr, 2023");
  FormatClockDate(1680689709, text, sizeof text);
  EXPECT_STREQ(text, "10:15:09 05 Apr, 2023");
  FormatClockDate(-1, text, sizeof text);
  EXPECT_STREQ(text, "23:59:59 31 Dec, 1969");
  FormatClockDate(1680689709, text, 6);
  EXPECT_STREQ(text, "10:15");
}

// The fake clock starts at 2026-01-01 00:00:00 UTC, a Thursday.
TEST(CurrentHeaderDateTest, WritesLocalTimeWithTheZoneAsSignedHhmm) {
  testing::FakeClockEnv env;
  testing::ScopedDefaultEnv scoped(&env);
  env.Advance((9 * 3600 + 5 * 60 + 7) * 1000ULL);
  {
    ScopedTimeZone zone("UTC0");
    EXPECT_EQ(CurrentHeaderDate(), "Thu, 1 Jan 2026 09:05:07 +0000");
  }
  {
    ScopedTimeZone zone("EST5EDT,M3.2.0,M11.1.0");
    EXPECT_EQ(CurrentHeaderDate(), "Thu, 1 Jan 2026 04:05:07 -0500");
  }
  {
    ScopedTimeZone zone("XST-5:45");
    EXPECT_EQ(CurrentHeaderDate(), "Thu, 1 Jan 2026 14:50:07 +0545");
  }
  {
    ScopedTimeZone zone("XST9:30");
    EXPECT_EQ(CurrentHeaderDate(), "Wed, 31 Dec 2025 23:35:07 -0930");
  }
  // In daylight time the bias in effect is the one written.
  env.Advance(181 * 86400 * 1000ULL);
  ScopedTimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
  EXPECT_EQ(CurrentHeaderDate(), "Wed, 1 Jul 2026 11:05:07 +0200");
}

TEST(MeasureFileAgeTest, ReadsTheDifferenceAsElapsedFields) {
  testing::FakeClockEnv env;
  testing::ScopedDefaultEnv scoped(&env);
  const uint64_t now = env.NowFileTime().ticks();
  const FileTime recent = FileTime::FromTicks(now - 100 * 10000000ULL - 2500000);
  EXPECT_EQ(MeasureFileAge(recent, kAgeSeconds), 100u);
  EXPECT_EQ(MeasureFileAge(recent, kAgeMilliseconds), 100250u);
  EXPECT_EQ(MeasureFileAge(recent, kAgeMinutes), 1u);
  EXPECT_EQ(MeasureFileAge(recent, kAgeHours), 0u);
  EXPECT_EQ(MeasureFileAge(recent, kAgeDays), 0u);
  EXPECT_EQ(MeasureFileAge(recent, kAgeYears), 0u);
  // The month unit adds the raw month field, so it never reads zero.
  EXPECT_EQ(MeasureFileAge(recent, kAgeMonths), 1u);

  // 400 days is 1 year, 1 month and 4 days from 1601: 365 + 30 + 4.
  const FileTime old = FileTime::FromTicks(now - 400ULL * 864000000000ULL);
  EXPECT_EQ(MeasureFileAge(old, kAgeDays), 399u);
  EXPECT_EQ(MeasureFileAge(old, kAgeYears), 1u);
  EXPECT_EQ(MeasureFileAge(old, kAgeMonths), 14u);
  EXPECT_EQ(MeasureFileAge(old, kAgeSeconds), 399u * 86400);

  EXPECT_EQ(MeasureFileAge(recent, 0), 0u);
  EXPECT_EQ(MeasureFileAge(recent, 8), 0u);
  EXPECT_EQ(MeasureFileAge(FileTime::FromTicks(now + 10000000), kAgeSeconds), 0u);
  env.Advance(5000);
  EXPECT_EQ(MeasureFileAge(recent, kAgeSeconds), 105u);
}

TEST(LeadingDecimalTest, ReadsLikeAtoiAndSaturates) {
  EXPECT_EQ(LeadingDecimal(" \t+0130x"), 130);
  EXPECT_EQ(LeadingDecimal("-0500"), -500);
  EXPECT_EQ(LeadingDecimal("EST"), 0);
  EXPECT_EQ(LeadingDecimal("- 5"), 0);
  EXPECT_EQ(LeadingDecimal("99999999999999"), 2147483647);
  EXPECT_EQ(LeadingDecimal("-99999999999999"), -2147483647 - 1);
}

}  // namespace
}  // namespace qaaisp
