#include "library/library.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "base/module_state.h"
#include "base/setting_names.h"
#include "library/folder_handle.h"
#include "test_env.h"

namespace qaaisp {
namespace {

std::atomic<int> g_tables_freed{0};
std::atomic<int> g_indexes_released{0};

void CountTableFree(void* table) {
  delete static_cast<int*>(table);
  ++g_tables_freed;
}

void CountIndexRelease(FolderHandle* h) {
  if (!h->index) return;
  h->index = nullptr;
  ++g_indexes_released;
}

class ThreadEndTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ProcessAttach();
    SetSearchTableReleaser(CountTableFree);
    SetHandleIndexReleaser(CountIndexRelease);
    g_tables_freed = 0;
    g_indexes_released = 0;
  }
  void TearDown() override { Module().affinity = 1; }

  // Runs body on a new thread that uses the library (a handle with an index
  // and a search table) and then ends.
  template <typename Body>
  void RunThread(Body body) {
    std::thread([&] {
      FolderHandle* h = ThreadHandle();
      h->index = reinterpret_cast<StoreIndex*>(0x1);  // never dereferenced here
      CurrentThreadSlots().search_table = new int(1);
      body();
    }).join();
  }
};

TEST_F(ThreadEndTest, AffinityOneReleasesTheHandleAndItsIndex) {
  int before = LiveHandleCount();
  RunThread([] {});
  EXPECT_EQ(LiveHandleCount(), before);
  EXPECT_EQ(g_indexes_released, 1);
  EXPECT_EQ(g_tables_freed, 1);
}

TEST_F(ThreadEndTest, AffinityZeroReleaseKeepsTheHandleButFreesTheSearchTable) {
  Module().affinity = 0;
  int before = LiveHandleCount();
  RunThread([&] {
    EXPECT_EQ(ThreadRelease(), 1);
    EXPECT_NE(CurrentThreadSlots().handle, nullptr);
    EXPECT_EQ(CurrentThreadSlots().search_table, nullptr);
    EXPECT_EQ(LiveHandleCount(), before + 1);
    EXPECT_EQ(g_tables_freed, 1);
  });
  // Thread end with affinity 0 drops the record without touching its index.
  EXPECT_EQ(LiveHandleCount(), before);
  EXPECT_EQ(g_indexes_released, 0);
}

TEST_F(ThreadEndTest, ExplicitReleaseWithAffinityOneEmptiesTheSlots) {
  int before = LiveHandleCount();
  RunThread([&] {
    EXPECT_EQ(ThreadRelease(), 1);
    EXPECT_EQ(CurrentThreadSlots().handle, nullptr);
    EXPECT_EQ(LiveHandleCount(), before);
    // A later use makes a fresh idle handle.
    FolderHandle* h = ThreadHandle();
    EXPECT_EQ(h->item_class, -1);
    EXPECT_EQ(h->index, nullptr);
    EXPECT_TRUE(h->key.empty());
  });
  EXPECT_EQ(LiveHandleCount(), before);
  EXPECT_EQ(g_indexes_released, 1);
}

TEST(HostProcessTest, ServiceNamesMatchAnywhereWithoutCase) {
  EXPECT_TRUE(HostIsServiceProcess("C:\\Program Files\\QA\\qaimaps.exe"));
  EXPECT_TRUE(HostIsServiceProcess("/opt/qa/bin/OUTLOOK.EXE"));
  EXPECT_FALSE(HostIsServiceProcess("/usr/bin/qastore"));
  EXPECT_FALSE(HostIsServiceProcess("QAIMAP.EXE"));
}

}  // namespace
}  // namespace qaaisp

namespace qaaisp {
namespace {

TEST(ProviderTest, OptionsProviderLoadsFromTheApplicationDirectoryWithSixtyFour) {
  // Settings name "<dir>" and the provider lies in "<dir>64" as libqaaiso.so.
  testing::ScopedRegistry reg(testing::RegText(
      {{settings::kProductKey, {"\"Application Directory\"=\"" QAAISP_TEST_APP_DIR "\""}}}));
  ASSERT_TRUE(ProcessAttach());
  using GetOptionFn = int (*)(int, const char*, const char*, char*);
  auto get = reinterpret_cast<GetOptionFn>(OptionsProviderSymbol("GetOption"));
  ASSERT_NE(get, nullptr);
  char value[1024] = {};
  EXPECT_EQ(get(1, "po", "PostofficeRoot", value), 1);
  EXPECT_STREQ(value, "/custom/root");
  // The postoffice provider is missing there, and a missing one is no failure.
  EXPECT_EQ(PostofficeProviderSymbol("MailboxFindFirst"), nullptr);
}

}  // namespace
}  // namespace qaaisp
