#include "store/flag_update.h"

#include <gtest/gtest.h>

namespace qaaisp {
namespace {

struct Merge {
  bool changed;
  std::string flags;
};

Merge Apply(std::string_view current, std::string_view update, FolderDetails* counters) {
  Merge m;
  m.changed = MergeFlagUpdate(current, update, &m.flags, counters);
  return m;
}

TEST(FlagUpdateTest, SignedWordsAddAndRemoveOnce) {
  FolderDetails c{};
  Merge m = Apply("\\Recent", "+\\Seen", &c);
  EXPECT_TRUE(m.changed);
  EXPECT_EQ(m.flags, "\\Recent \\Seen");
  EXPECT_EQ(c.Seen, 1);

  // Flags compare without regard to case: nothing changes, nothing counts.
  m = Apply("\\Recent \\Seen", "+\\SEEN", &c);
  EXPECT_FALSE(m.changed);
  EXPECT_EQ(c.Seen, 1);

  m = Apply("\\Recent \\Seen", "-\\seen -\\Deleted", &c);
  EXPECT_TRUE(m.changed);
  EXPECT_EQ(m.flags, "\\Recent");
  EXPECT_EQ(c.Seen, 0);

  // A removal never takes a counter below 0.
  m = Apply("\\Seen \\Flagged", "-\\Seen -\\Flagged", &c);
  EXPECT_EQ(m.flags, "");
  EXPECT_EQ(c.Seen, 0);
  EXPECT_EQ(c.Flagged, 0);
}

TEST(FlagUpdateTest, BareFirstWordReplacesEveryFlag) {
  FolderDetails c{};
  c.Seen = 4;
  c.Flagged = 2;
  Merge m = Apply("\\Seen \\Flagged \\Recent", "\\Answered +\\Draft", &c);
  EXPECT_TRUE(m.changed);
  EXPECT_EQ(m.flags, "\\Answered \\Draft");
  EXPECT_EQ(c.Seen, 3);
  EXPECT_EQ(c.Flagged, 1);
  EXPECT_EQ(c.Answered, 1);

  // Replacing a set by itself is no change, in any order.
  m = Apply("\\Seen \\Answered", "\\Answered \\Seen", &c);
  EXPECT_FALSE(m.changed);
  EXPECT_EQ(c.Seen, 3);

  // Only the first word replaces; a later bare word adds.
  m = Apply("\\Deleted", "-\\Draft \\Seen", &c);
  EXPECT_EQ(m.flags, "\\Deleted \\Seen");
}

TEST(FlagUpdateTest, BlanksAndBackslashesAreTolerated) {
  FolderDetails c{};
  Merge m = Apply("  \\Seen\t", "  +Flagged   ", &c);
  EXPECT_TRUE(m.changed);
  EXPECT_EQ(m.flags, "\\Seen Flagged");
  EXPECT_EQ(c.Flagged, 1);
  m = Apply("\\Seen", "", nullptr);
  EXPECT_FALSE(m.changed);
  EXPECT_EQ(m.flags, "\\Seen");
}

TEST(FlagUpdateTest, SizeUpdatesAreRecognisedInAnyCase) {
  std::string_view value;
  EXPECT_TRUE(ParseSizeUpdate("size=1234", &value));
  EXPECT_EQ(value, "1234");
  EXPECT_TRUE(ParseSizeUpdate("SIZE=", &value));
  EXPECT_EQ(value, "");
  EXPECT_FALSE(ParseSizeUpdate("SIZE", &value));
  EXPECT_FALSE(ParseSizeUpdate("+SIZE=1", &value));
}

}  // namespace
}  // namespace qaaisp
