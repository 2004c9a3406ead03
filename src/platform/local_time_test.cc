// The cached conversions must give exactly what mktime and localtime_r
// give, in zones with and without daylight time, with half-hour and
// negative daylight offsets, leap seconds, and across a change of TZ.
#include "platform/local_time.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <random>
#include <string>

namespace qaaisp::platform {
namespace {

class ScopedZone {
 public:
  explicit ScopedZone(const char* zone) {
    const char* old = ::getenv("TZ");
    had_ = old != nullptr;
    if (had_) old_ = old;
    if (zone) {
      ::setenv("TZ", zone, 1);
    } else {
      ::unsetenv("TZ");
    }
    ::tzset();
  }
  ~ScopedZone() {
    if (had_) {
      ::setenv("TZ", old_.c_str(), 1);
    } else {
      ::unsetenv("TZ");
    }
    ::tzset();
  }

 private:
  bool had_ = false;
  std::string old_;
};

void ExpectSame(const LocalFields& want, const LocalFields& got, const std::string& label) {
  EXPECT_EQ(got.year, want.year) << label;
  EXPECT_EQ(got.month, want.month) << label;
  EXPECT_EQ(got.day, want.day) << label;
  EXPECT_EQ(got.hour, want.hour) << label;
  EXPECT_EQ(got.minute, want.minute) << label;
  EXPECT_EQ(got.second, want.second) << label;
  EXPECT_EQ(got.day_of_week, want.day_of_week) << label;
  EXPECT_EQ(got.is_dst, want.is_dst) << label;
  EXPECT_EQ(got.utc_offset, want.utc_offset) << label;
}

LocalFields FromLibrary(const struct tm& tm) {
  LocalFields f;
  f.year = tm.tm_year + 1900;
  f.month = tm.tm_mon + 1;
  f.day = tm.tm_mday;
  f.hour = tm.tm_hour;
  f.minute = tm.tm_min;
  f.second = tm.tm_sec;
  f.day_of_week = tm.tm_wday;
  f.is_dst = tm.tm_isdst > 0 ? 1 : 0;
  f.utc_offset = static_cast<int32_t>(tm.tm_gmtoff);
  return f;
}

// Moments spread over 1965-2040, dense around every transition of the
// zones below (each hour's quarters of the days they fall on), compared
// both ways.
void CompareWithLibrary(const char* zone) {
  ScopedZone scoped(zone);
  std::mt19937_64 random(42);
  std::uniform_int_distribution<int64_t> any(-157766400, 2208988800);
  for (int i = 0; i < 20000; ++i) {
    int64_t t = any(random);
    // Every fourth sample hugs a quarter hour, where transitions fall.
    if (i % 4 == 0) t = t / 900 * 900 + (i % 8 == 0 ? 0 : -1);
    const time_t as_time = static_cast<time_t>(t);
    struct tm tm = {};
    ASSERT_NE(::localtime_r(&as_time, &tm), nullptr);
    LocalFields got;
    ASSERT_TRUE(LocalTimeOf(t, &got));
    const std::string label = std::string(zone ? zone : "(none)") + " t=" + std::to_string(t);
    ExpectSame(FromLibrary(tm), got, label);

    // The same clock reading back through mktime, read as standard time.
    struct tm in = tm;
    in.tm_isdst = 0;
    in.tm_wday = -1;
    const time_t want_t = ::mktime(&in);
    LocalFields fields = FromLibrary(tm);
    fields.is_dst = 0;
    int64_t got_t = 0;
    ASSERT_EQ(MakeLocalTime(&fields, &got_t), in.tm_wday >= 0) << label;
    EXPECT_EQ(got_t, static_cast<int64_t>(want_t)) << label;
    ExpectSame(FromLibrary(in), fields, label + " mktime");
    if (testing::Test::HasFailure()) return;
  }
}

TEST(LocalTimeTest, AgreesWithTheCLibraryInEveryKindOfZone) {
  for (const char* zone : {"UTC", "America/New_York", "Europe/London", "Europe/Dublin",
                           "Australia/Lord_Howe", "Asia/Kolkata", "America/Sao_Paulo",
                           "right/Europe/Berlin", static_cast<const char*>(nullptr)}) {
    CompareWithLibrary(zone);
  }
}

TEST(LocalTimeTest, FollowsAChangeOfZoneAndNormalisesLikeMktime) {
  LocalFields fields{2023, 7, 1, 12, 0, 0, 0, 0, 0};
  int64_t t = 0;
  {
    ScopedZone zone("UTC");
    ASSERT_TRUE(MakeLocalTime(&fields, &t));
    EXPECT_EQ(t, 1688212800);
  }
  {
    ScopedZone zone("Asia/Tokyo");
    fields = LocalFields{2023, 7, 1, 12, 0, 0, 0, 0, 0};
    ASSERT_TRUE(MakeLocalTime(&fields, &t));
    EXPECT_EQ(t, 1688212800 - 9 * 3600);
    LocalFields out;
    ASSERT_TRUE(LocalTimeOf(1688212800, &out));
    EXPECT_EQ(out.hour, 21);

    // A 24th hour and a 31st of February are the next day's, as mktime has it.
    fields = LocalFields{2023, 2, 31, 24, 0, 0, 0, 0, 0};
    ASSERT_TRUE(MakeLocalTime(&fields, &t));
    EXPECT_EQ(fields.month, 3);
    EXPECT_EQ(fields.day, 4);
    EXPECT_EQ(fields.hour, 0);

    // Years that normalise past what the fields hold fail rather than wrap.
    for (const LocalFields& far : {LocalFields{INT32_MAX, 1200, 1, 0, 0, 0, 0, 0, 0},
                                   LocalFields{INT32_MIN, 1, 1, 0, 0, 0, 0, 0, 0}}) {
      fields = far;
      EXPECT_FALSE(MakeLocalTime(&fields, &t)) << far.year;
    }
  }
}

}  // namespace
}  // namespace qaaisp::platform
