// The block file of a direct writer, seen from a waiter that gave up.
#include <gtest/gtest.h>

#include "store/direct_store_index.h"
#include "store/store_test_support.h"

namespace qaaisp {
namespace {

using namespace store_testing;

class DirectBlockHoldTest : public StoreTest {
 protected:
  DirectBlockHoldTest() : inbox_(Folder("Inbox")) {}
  std::string inbox_;
};

// A waiter that gives up on the block file deletes it, whoever holds it.
// Every direct writer holds it open, so such a delete fails while the
// writer works instead of letting a second writer in beside it.
TEST_F(DirectBlockHoldTest, WritersHoldTheBlockFileSoNoWaiterCanDeleteIt) {
  class DeleteBlockOnSave : public platform::EnvWrapper {
   public:
    DeleteBlockOnSave(platform::Env* target, std::string folder)
        : EnvWrapper(target), folder_(std::move(folder)) {}
    std::unique_ptr<platform::File> OpenFile(const std::string& path,
                                             const platform::OpenOptions& options) override {
      if (options.write && path == folder_ + "/_index.xml") {
        ++saves;
        if (target()->RemoveFile(folder_ + "/_index.blk")) ++deleted;
      }
      return EnvWrapper::OpenFile(path, options);
    }
    int saves = 0, deleted = 0;

   private:
    std::string folder_;
  } env(&env_, inbox_);
  ScopedDefaultEnv use(&env);
  WriteFile(inbox_ + "/_index.xml", IndexText(2, {{"1.MAI", 1, "", 10}, {"2.MAI", 2, "", 20}}));
  for (const char* name : {"1.MAI", "2.MAI", "3.MAI"}) WriteFile(inbox_ + "/" + name, "x");
  SetInsertFromFileRoutine(InsertRowWithFileSize);

  EXPECT_EQ(Direct_StoreIndex_UpdateItem("po", "box", "Inbox", "1.MAI", "+\\Seen"), 1);
  EXPECT_EQ(Direct_StoreIndex_InsertItemEx("po", "box", "Inbox", "3.MAI", nullptr), 1);
  EXPECT_EQ(Direct_StoreIndex_RemoveItem("po", "box", "Inbox", "2.MAI"), 1);
  EXPECT_EQ(env.saves, 3);
  EXPECT_EQ(env.deleted, 0);
  EXPECT_FALSE(Exists(inbox_ + "/_index.blk"));
}

}  // namespace
}  // namespace qaaisp
