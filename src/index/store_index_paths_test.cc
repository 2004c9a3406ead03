#include <gtest/gtest.h>

#include "base/library_settings.h"
#include "index/index_block.h"
#include "index/index_item.h"
#include "index/store_index.h"
#include "index/store_paths.h"
#include "platform/registry.h"
#include "test_env.h"

namespace qaaisp {
namespace {

using testing::Exists;
using testing::FakeClockEnv;
using testing::MakeDirs;
using testing::ScopedDefaultEnv;
using testing::TempDir;

class StoreIndexPathsTest : public ::testing::Test {
 protected:
  StoreIndexPathsTest() : saved_(ModuleSettings()) { ModuleSettings().mail_root = root_.path(); }
  ~StoreIndexPathsTest() override { ModuleSettings() = saved_; }

  TempDir root_;
  LibrarySettings saved_;
};

TEST_F(StoreIndexPathsTest, PathIsSetOnceFromTheNames) {
  StoreIndex index;
  SetStoreIndexNames(&index, "PO", "mbox", "", kClassMessage);
  EXPECT_EQ(SetStoreIndexPaths(&index), 1);
  EXPECT_EQ(index.folder_path.str(), root_.Sub("PO/MAILROOT/mbox/INBOX"));

  index.folder = "Sent";
  EXPECT_EQ(SetStoreIndexPaths(&index), 1);
  EXPECT_EQ(index.folder_path.str(), root_.Sub("PO/MAILROOT/mbox/INBOX"));
  index.folder_path.clear();
  EXPECT_EQ(SetStoreIndexPaths(&index), 1);
  EXPECT_EQ(index.folder_path.str(), root_.Sub("PO/MAILROOT/mbox/Sent"));

  ::testing::internal::CaptureStdout();
  EXPECT_EQ(SetStoreIndexPaths(nullptr), 0);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "WARNING!: StoreIndex is NULL when passed to StoreIndex_SetPaths\n");
}

TEST_F(StoreIndexPathsTest, ItemClassFollowsTheFileName) {
  IndexItem item;
  SetItemClassFromFileName(&item, "x.GRP");
  EXPECT_EQ(item.item_class, kClassContactsAndGroups);
  SetItemClassFromFileName(&item, "x.cal");
  EXPECT_EQ(item.item_class, kClassMessage);
  SetItemClassFromFileName(nullptr, "x.VCF");
}

TEST_F(StoreIndexPathsTest, BlockHelpersHoldTheFolderLockWithAHandle) {
  platform::Registry::Process();  // made with the real Env, which outlives the fake
  FakeClockEnv env;
  ScopedDefaultEnv scoped(&env);
  MakeDirs(root_.Sub("PO/MAILROOT/mbox/Inbox"));
  StoreIndex first;
  StoreIndex second;
  for (StoreIndex* index : {&first, &second}) {
    SetStoreIndexNames(index, "PO", "mbox", "inbox", kClassMessage);
    SetStoreIndexPaths(index);
  }
  std::string blk = root_.Sub("PO/MAILROOT/mbox/Inbox/_index.blk");

  ASSERT_TRUE(BlockIndexFile(&first));
  EXPECT_NE(first.block_handle, nullptr);
  EXPECT_TRUE(Exists(blk));
  // The holder keeps its file open, so the other cannot break in.
  EXPECT_FALSE(BlockIndexFile(&second));
  EXPECT_EQ(second.block_handle, nullptr);
  EXPECT_EQ(env.sleep_count(), 61 + 81);

  UnBlockIndexFile(&first);
  EXPECT_EQ(first.block_handle, nullptr);
  EXPECT_FALSE(Exists(blk));
  ASSERT_TRUE(BlockIndexFile(&second));
  UnBlockIndexFile(&second);

  StoreIndex nowhere;
  SetStoreIndexNames(&nowhere, "PO", "mbox", "Missing", kClassMessage);
  SetStoreIndexPaths(&nowhere);
  EXPECT_FALSE(BlockIndexFile(&nowhere));
  EXPECT_EQ(env.sleep_count(), 61 + 81);
}

}  // namespace
}  // namespace qaaisp
