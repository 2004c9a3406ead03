#include "store/rescan_wiring.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "store/folder_status_file.h"
#include "store/store_index_open.h"
#include "store/store_test_support.h"

namespace qaaisp {
namespace {

using namespace store_testing;
using ::testing::ElementsAre;

class RescanWiringTest : public StoreTest {};

std::string Message(const std::string& subject) {
  return "From: ann@example.org\r\nSubject: " + subject + "\r\n\r\nbody\r\n";
}

TEST_F(RescanWiringTest, OpenAndScanOfAStoreIndexRunTheFolderRescan) {
  const std::string sent = Folder("Sent");
  WriteFile(sent + "/1.MAI", Message("one"));
  WriteFile(sent + "/2.MAI", Message("two"));
  auto index = OpenableIndex("Sent");

  // No index file yet: the dirty scan of the open builds one from the files.
  ASSERT_EQ(qaaisp::StoreIndex_Open(index.get(), kOpenFullCheck), 1);
  EXPECT_EQ(index->row_count, 2);
  FolderDetails details{};
  ReadFolderStatusFile(&env_, sent + "/_FOLDER.DAT", &details);
  EXPECT_EQ(details.Total, 2);
  EXPECT_EQ(details.Recent, 2);
  EXPECT_EQ(details.LastUID, 2);

  // A file that arrives behind the index's back is found by a scan, which
  // takes the block file itself and leaves none behind.
  WriteFile(sent + "/3.MAI", Message("six"));
  EXPECT_EQ(qaaisp::StoreIndex_Scan(index.get()), 1);
  EXPECT_FALSE(Exists(sent + "/_index.blk"));
  const std::string size = std::to_string(Message("six").size());
  EXPECT_THAT(RowsOnDisk(sent), ElementsAre("1.MAI:\\RECENT:" + size, "2.MAI:\\RECENT:" + size,
                                            "3.MAI:\\RECENT:" + size));
  ReadFolderStatusFile(&env_, sent + "/_FOLDER.DAT", &details);
  EXPECT_EQ(details.Total, 3);
}

}  // namespace
}  // namespace qaaisp
