#include <gtest/gtest.h>

#include "qaaisp/qaaisp.h"

namespace {

TEST(CommonExportsTest, UnixTimeRoundTripsThroughTheRecord) {
  QA_FILETIME ft = {};
  EXPECT_EQ(UnixTimeToFileTime(1680689709, &ft), 1);
  const uint64_t ticks = (uint64_t{ft.dwHighDateTime} << 32) | ft.dwLowDateTime;
  EXPECT_EQ(ticks, 116444736000000000ULL + 1680689709ULL * 10000000ULL);
  EXPECT_EQ(UnixTimeFromFileTime(ft), 1680689709);
  EXPECT_EQ(UnixTimeToFileTime(0, nullptr), 1);
}

TEST(CommonExportsTest, GetXMLDataExTakesAnIntSize) {
  const char* text = "<A>1</A>";
  char out[4] = "xyz";
  EXPECT_EQ(GetXMLDataEx(text, "<A>", "</A>", out, 4), text + 8);
  EXPECT_STREQ(out, "1");
  // A size of zero or less writes nothing but still finds the field.
  EXPECT_EQ(GetXMLDataEx(text, "<A>", "</A>", out, -5), text + 8);
  EXPECT_STREQ(out, "1");
}

}  // namespace
