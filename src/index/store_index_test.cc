#include "index/store_index.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>

#include "index/select_by_field.h"
#include "index/store_index_lock.h"
#include "platform/env.h"

namespace qaaisp {
namespace {

struct IndexDeleter {
  void operator()(StoreIndex* index) const { delete index; }
};
using IndexPtr = std::unique_ptr<StoreIndex, IndexDeleter>;

bool FreeForOtherThreads(MutexHandle handle) {
  bool acquired = false;
  std::thread([&] {
    acquired = handle->Acquire(0) == platform::WaitResult::kSignaled;
    if (acquired) handle->Release();
  }).join();
  return acquired;
}

TEST(StoreIndexTest, MadeWithAMutexAndEmptyNames) {
  IndexPtr index(NewStoreIndex());
  EXPECT_NE(index->hMutex, nullptr);
  EXPECT_EQ(index->lock_owner, 0u);
  EXPECT_TRUE(index->postoffice.empty());
  EXPECT_FALSE(index->current_item.HasItem());
  EXPECT_EQ(index->table.owner, index.get());
  EXPECT_EQ(index->table.LoadState, LoadFailed);

  SetStoreIndexNames(index.get(), "po", nullptr, std::string(2000, 'f').c_str(), 1);
  EXPECT_EQ(index->postoffice.view(), "po");
  EXPECT_EQ(index->mailbox.view(), "");
  EXPECT_EQ(index->folder.size(), 1023u) << "names are cut to their 1024-byte field";
  EXPECT_EQ(index->item_class, 1);

  CloseStoreIndexMutex(index.get());
  EXPECT_EQ(index->hMutex, nullptr);
}

TEST(StoreIndexTest, LockRecordsItsThreadButIsNoCount) {
  IndexPtr index(NewStoreIndex());
  uint32_t me = platform::Env::Default()->ThreadId();
  {
    StoreIndexMutexLock outer(index.get());
    EXPECT_EQ(index->lock_owner, me);
    {
      StoreIndexMutexLock inner(index.get());
      EXPECT_EQ(index->lock_owner, me);
    }
    EXPECT_EQ(index->lock_owner, 0u) << "the inner lock cleared it";
    EXPECT_FALSE(FreeForOtherThreads(index->hMutex)) << "while the outer still holds it";
  }
  EXPECT_TRUE(FreeForOtherThreads(index->hMutex));
}

class SelectByFieldTest : public ::testing::Test {
 protected:
  void SetUp() override {
    index_.reset(NewStoreIndex());
    index_->table.LoadState = LoadFull;
    Add("c", 30, "Carol", "+61 412 345 678");
    Add("a", 10, "alice", "");
    Add("b", 20, "Alice", "0299998888");
  }

  void Add(const char* id, int32_t uid, const char* name, const char* phone) {
    IndexItem item;
    item.Create();
    item.SetProperty("ID", id);
    item.SetIntegerForced("UID", uid);
    item.SetProperty("FN", name);
    if (*phone) item.SetProperty("TEL_CELL_VOICE", phone);
    ASSERT_TRUE(index_->table.Insert(&item, UidClash::kRefuse));
  }

  std::string Select(const char* field, const char* value, int case_sensitive) {
    IndexItem item;
    if (!SelectItemByField(index_.get(), field, value, case_sensitive, &item)) return "none";
    EXPECT_FALSE(item.owned());
    EXPECT_EQ(index_->lock_owner, 0u);
    return item.container()->GetText("ID");
  }

  IndexPtr index_;
};

TEST_F(SelectByFieldTest, FirstMatchInUidOrder) {
  EXPECT_EQ(Select("FN", "ALICE", 0), "a");
  EXPECT_EQ(Select("FN", "Alice", 1), "b");
  EXPECT_EQ(Select("FN", "ALICE", 1), "none");
  EXPECT_EQ(Select("FN", "Dave", 0), "none");
}

TEST_F(SelectByFieldTest, CellPhonesCompareAsPhoneNumbers) {
  EXPECT_EQ(Select("TEL_CELL_VOICE", "(04) 1234 5678", 1), "c");
  EXPECT_EQ(Select("TEL_CELL_VOICE", "+61 2 9999 8888", 1), "b");
  EXPECT_EQ(Select("TEL_CELL_VOICE", nullptr, 1), "none") << "rows without a value are skipped";
  EXPECT_EQ(Select("tel_cell_voice", "0412345678", 1), "none") << "exact field name only";
}

}  // namespace
}  // namespace qaaisp
