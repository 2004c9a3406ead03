// The library frame through the shared library, as a C caller sees it.
#include <gtest/gtest.h>

#include "qaaisp/qaaisp.h"

namespace {

TEST(LifecycleTest, FrameExportsAnswerAsDocumented) {
  EXPECT_EQ(StoreLibrary_Init(), 1);
  EXPECT_EQ(StoreLibrary_ThreadInit(), 1);
  EXPECT_EQ(StoreLibrary_SetAffinity(2), 1);
  EXPECT_EQ(StoreLibrary_SetAffinity(1), 1);
  EXPECT_EQ(SetLoggingFunction(reinterpret_cast<void*>(1), nullptr, nullptr, nullptr), 0);
  void* p = Memory_Allocate(64);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(Memory_Free(p), 1);
  EXPECT_EQ(Memory_Free(nullptr), 1);
  EXPECT_EQ(StoreLibrary_ThreadRelease(), 1);
  EXPECT_EQ(StoreLibrary_UnInit(), 1);
  EXPECT_EQ(StoreLibrary_Init(), 1);
}

}  // namespace
