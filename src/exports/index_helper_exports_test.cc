#include <gtest/gtest.h>

#include <string>

#include "index/store_index.h"
#include "qaaisp/qaaisp.h"

namespace {

TEST(IndexHelperExportsTest, MakeNameAndDestroyAnIndex) {
  StoreIndex* ix = StoreIndex_New();
  ASSERT_NE(ix, nullptr);
  EXPECT_NE(ix->hMutex, nullptr) << "made as an owner makes it, with its mutex";
  EXPECT_EQ(StoreIndex_SetNames(ix, "po", "mbox", "Inbox", 0), 1);
  EXPECT_EQ(ix->postoffice.view(), "po");
  EXPECT_EQ(ix->mailbox.view(), "mbox");
  EXPECT_EQ(ix->folder.view(), "Inbox");
  EXPECT_EQ(StoreIndex_GetRowCount(ix), 0);
  ix->row_count = 12;
  EXPECT_EQ(StoreIndex_GetRowCount(ix), 12);
  StoreIndex_Delete(ix);

  EXPECT_EQ(StoreIndex_SetNames(nullptr, "po", "mbox", "Inbox", 0), 0);
  EXPECT_EQ(StoreIndex_GetRowCount(nullptr), 0);
  StoreIndex_Delete(nullptr);
}

TEST(IndexHelperExportsTest, MakeAndDestroyAnItem) {
  IndexItem* item = IndexItem_New();
  ASSERT_NE(item, nullptr);
  item->Create();
  item->SetProperty("SUBJECT", "owned rows go with the item");
  IndexItem_Delete(item);
  IndexItem_Delete(nullptr);
}

}  // namespace
