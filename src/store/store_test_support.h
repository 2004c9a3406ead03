// Shared by the store's tests: a mail root on real files under a fake
// clock, with the stream reader and writer chosen, and helpers that write
// index files and read rows back.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/library_settings.h"
#include "index/store_index.h"
#include "index/store_paths.h"
#include "persist/index_serialiser.h"
#include "persist/persist_settings.h"
#include "persist/stream_index_writer.h"
#include "store/store_hooks.h"
#include "store/store_index_files.h"
#include "test_env.h"

namespace qaaisp::store_testing {

using qaaisp::testing::Exists;
using qaaisp::testing::FakeClockEnv;
using qaaisp::testing::MakeDirs;
using qaaisp::testing::ProductRegText;
using qaaisp::testing::ReadFile;
using qaaisp::testing::RegText;
using qaaisp::testing::ScopedDefaultEnv;
using qaaisp::testing::ScopedRegistry;
using qaaisp::testing::TempDir;
using qaaisp::testing::WriteFile;

struct TestRow {
  std::string id;
  uint32_t uid;
  std::string flags;  // FLAGSTATUS, empty for none
  uint32_t size;
};

// The exact bytes the stream writer makes for these rows.
inline std::string IndexText(uint32_t last_uid, const std::vector<TestRow>& rows) {
  char header[40];
  std::snprintf(header, sizeof header, "<BASEELEMENT LASTUID=\"x%08x\">", last_uid);
  std::string text = header;
  for (const TestRow& r : rows) {
    text += "<ELEMENT ID=\"" + r.id + "\" UID=\"" + std::to_string(r.uid) + "\">";
    if (!r.flags.empty()) text += "<FLAGSTATUS>" + r.flags + "</FLAGSTATUS>";
    text += "<SIZE>" + std::to_string(r.size) + "</SIZE></ELEMENT>";
  }
  return text + "</BASEELEMENT>\r\n";
}

class StoreTest : public ::testing::Test {
 protected:
  explicit StoreTest(std::vector<std::string> settings = {})
      : registry_(Settings(std::move(settings))), scoped_env_(&env_) {
    persist::ResetPersistSettingsForTesting();
    persist::ResetIndexWriteSettingsForTesting();
    saved_ = ModuleSettings();
    ModuleSettings().mail_root = root_.path();
    ModuleSettings().notification_mode = 0;
    ModuleSettings().prevent_duplicates = 0;
  }
  ~StoreTest() override {
    ModuleSettings() = saved_;
    SetFolderScanRoutine(nullptr);
    SetContactScanRoutine(nullptr);
    SetNotifyRoutine(nullptr);
    SetInsertFromFileRoutine(nullptr);
    SetMessageIdRoutine(nullptr);
    SetRowFileStepRoutine(nullptr);
    persist::ResetPersistSettingsForTesting();
    persist::ResetIndexWriteSettingsForTesting();
  }

  static std::string Settings(std::vector<std::string> extra) {
    extra.push_back("\"Use XML Stream Index Deserialisation\"=dword:00000001");
    extra.push_back("\"Use XML Stream Index Serialisation\"=dword:00000001");
    return ProductRegText(extra);
  }

  // The directory of a mailbox folder, made.
  std::string Folder(const std::string& name, const std::string& mailbox = "box") {
    std::string path = root_.Sub("po/MAILROOT/" + mailbox + "/" + name);
    MakeDirs(path);
    return path;
  }
  std::string MailboxDir(const std::string& mailbox = "box") {
    return root_.Sub("po/MAILROOT/" + mailbox);
  }

  // An index object as an owner makes one, named and with its path set.
  std::unique_ptr<StoreIndex> OpenableIndex(const std::string& folder, int32_t item_class = 0) {
    std::unique_ptr<StoreIndex> index(NewStoreIndex());
    SetStoreIndexNames(index.get(), "po", "box", folder.c_str(), item_class);
    SetStoreIndexPaths(index.get());
    return index;
  }

  // Rows of a fresh full load of a folder's index file, as "id:flags:size".
  std::vector<std::string> RowsOnDisk(const std::string& folder_path) {
    StoreIndex index;
    EXPECT_TRUE(LoadIndexForClass(&index.table, &index, folder_path, 0, "po", "box", false, true,
                                  LoadFull, 0, false, false, true, false));
    std::vector<std::string> rows;
    for (const auto& [uid, row] : index.table.by_uid()) {
      rows.push_back(row->GetText("ID") + ":" + row->GetText("FLAGSTATUS") + ":" +
                     row->GetText("SIZE"));
    }
    return rows;
  }

  TempDir root_;
  ScopedRegistry registry_;
  FakeClockEnv env_;
  ScopedDefaultEnv scoped_env_;
  LibrarySettings saved_;
};

}  // namespace qaaisp::store_testing
