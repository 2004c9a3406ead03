#include "index/property_map.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "index/index_item_property_container.h"

namespace qaaisp {
namespace {

// A name no other test uses, so that it is new to the global map.
std::string FreshName(const char* stem) {
  static int counter = 0;
  return std::string("PMT_") + stem + "_" + std::to_string(++counter);
}

TEST(PropertyMapDeathTest, FreshProcessNumbersNamesInOrderOfFirstUse) {
  // Re-executes the test binary, so the global map starts empty.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        int failures = 0;
        auto check = [&](bool ok, const char* what) {
          if (!ok) {
            std::fprintf(stderr, "failed: %s\n", what);
            ++failures;
          }
        };
        PropertyMap local;
        IndexItemPropertyContainer with_local;
        with_local.set_local_map(&local);
        IndexItemPropertyContainer with_global;
        check(!with_local.HasValue("SUBJECT"), "no value");
        check(LookupProperty("SUBJECT", nullptr) == PropertyKey{3, kPropertyText}, "SUBJECT 3");
        with_global.SetText("TO", "x", false);
        check(LookupProperty("TO", &local) == PropertyKey{4, kPropertyText}, "TO 4");
        check(LookupProperty("ID", nullptr) == PropertyKey{0, kPropertyText}, "ID 0");
        check(LookupProperty("UID", &local) == PropertyKey{1, kPropertyInteger}, "UID 1");
        check(LookupProperty("READ", nullptr) == PropertyKey{2, kPropertyInteger}, "READ 2");
        check(GlobalPropertyMap().size() == 5, "five names");
        std::_Exit(failures == 0 ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST(PropertyMapTest, NewNamesGetTheirTypeByExactName) {
  for (const char* name :
       {"SIZE", "STATE", "IMPORTANCE", "ATTACHMENTS", "MODIFIEDDATE", "IDX", "SEQ"}) {
    EXPECT_EQ(LookupProperty(name, nullptr).type, kPropertyInteger) << name;
  }
  for (const char* name : {"size", "SIZE ", "FROM", "RECEIVED", "FLAGSTATUS"}) {
    EXPECT_EQ(LookupProperty(name, nullptr).type, kPropertyText) << name;
  }
}

TEST(PropertyMapTest, SlotsAreNeverReusedAndEntriesStaySorted) {
  std::string a = FreshName("A"), b = FreshName("B");
  PropertyKey ka = LookupProperty(a, nullptr);
  PropertyKey kb = LookupProperty(b, nullptr);
  EXPECT_EQ(kb.slot, ka.slot + 1);
  EXPECT_EQ(LookupProperty(a, nullptr), ka) << "a second lookup gives the same key";
  auto entries = GlobalPropertyMap().entries();
  for (size_t i = 1; i < entries.size(); ++i) EXPECT_LT(entries[i - 1].name, entries[i].name);
  EXPECT_EQ(GlobalPropertyMap().Find("no such name, never looked up"), PropertyKey{});
}

TEST(PropertyMapTest, LocalMapFollowsTheGlobalNumbering) {
  PropertyMap local;
  EXPECT_EQ(LookupProperty("UID", &local), (PropertyKey{kUidSlot, kPropertyInteger}));
  size_t seeded = local.size();

  // Names added elsewhere after the local map was filled.
  std::string elsewhere = FreshName("ELSEWHERE");
  PropertyKey global_key = LookupProperty(elsewhere, nullptr);
  EXPECT_FALSE(local.Find(elsewhere).valid());
  EXPECT_EQ(local.SlotType(global_key.slot), kPropertyText) << "unknown slots ask the global map";

  std::string mine = FreshName("MINE");
  PropertyKey key = LookupProperty(mine, &local);
  EXPECT_EQ(key.slot, global_key.slot + 1);
  EXPECT_EQ(GlobalPropertyMap().Find(mine), key);
  EXPECT_EQ(local.Find(elsewhere), global_key) << "a miss refreshes the whole local map";
  EXPECT_GT(local.size(), seeded);
}

TEST(PropertyMapTest, LookupsThroughAFilledLocalMapTakeNoGuard) {
  PropertyMap local;
  CloneGlobalPropertyMap(&local);
  LookupProperty("FROM", &local);
  uint64_t before = PropertyMapGuardCount();
  for (int i = 0; i < 100; ++i) LookupProperty("FROM", &local);
  EXPECT_EQ(PropertyMapGuardCount(), before);
  LookupProperty("FROM", nullptr);
  EXPECT_EQ(PropertyMapGuardCount(), before + 1);
}

}  // namespace
}  // namespace qaaisp
