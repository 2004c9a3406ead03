#include "base/array.h"

#include <gtest/gtest.h>

namespace qaaisp {
namespace {

template <typename F>
Exception CaptureException(F&& f) {
  try {
    f();
  } catch (const Exception& e) {
    return e;
  }
  ADD_FAILURE() << "no Exception raised";
  return Exception("", "", 0);
}

TEST(ArrayTest, GrowsByAddingOrMultiplyingTheFactor) {
  Array<int32_t> added(5, 5, Array<int32_t>::kAdditive);
  for (int32_t i = 0; i < 11; ++i) added.Append(i);
  EXPECT_EQ(added.size(), 11u);
  EXPECT_EQ(added.capacity(), 15u);
  for (int32_t i = 0; i < 11; ++i) EXPECT_EQ(added[i], i);

  Array<int64_t> multiplied(2, 3, Array<int64_t>::kMultiplicative);
  for (int i = 0; i < 7; ++i) multiplied.Append(i);
  EXPECT_EQ(multiplied.capacity(), 18u);  // 2, 6, 18
}

TEST(ArrayTest, ResizeZeroFillsAndReachesTheSteppedCapacity) {
  Array<uint64_t> a(5, 5);
  a.Resize(2);
  a[1] = 77;
  a.Resize(23);
  EXPECT_EQ(a.capacity(), 25u);  // as growing 5 at a time would give
  EXPECT_EQ(a[1], 77u);
  for (uint32_t i = 2; i < 23; ++i) EXPECT_EQ(a[i], 0u) << i;
  a.Resize(0);
  EXPECT_TRUE(a.empty());
  a.Resize(3);
  EXPECT_EQ(a[1], 0u) << "shrinking then growing must not bring old values back";
}

TEST(ArrayTest, BadIndexAndNonGrowingSettingsRaiseExceptions) {
  Array<int32_t> a(5, 5);
  a.Append(1);
  Exception out_of_bounds = CaptureException([&] { return a[1]; });
  EXPECT_EQ(out_of_bounds.message(), "Array index out of bounds");
  EXPECT_EQ(out_of_bounds.line(), 102);
  EXPECT_EQ(out_of_bounds.source_file(), kArraySourceFile);

  Array<int32_t> stuck(4, 1, Array<int32_t>::kMultiplicative);
  for (int i = 0; i < 4; ++i) stuck.Append(i);
  Exception smaller = CaptureException([&] { stuck.Append(5); });
  EXPECT_EQ(smaller.message(),
            "Reallocation attempt resulted in smaller capacity; reallocation mode and factor "
            "invalid");
  EXPECT_EQ(smaller.line(), 520);
  EXPECT_EQ(stuck.size(), 4u);
  EXPECT_EQ(stuck[3], 3) << "a refused growth keeps the contents";

  Array<int32_t> empty_multiplied(0, 2, Array<int32_t>::kMultiplicative);
  EXPECT_EQ(CaptureException([&] { empty_multiplied.Append(1); }).line(), 520);
}

}  // namespace
}  // namespace qaaisp
