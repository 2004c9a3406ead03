// Shared by the stream writer's tests: a folder on real files under a fake
// clock that can also fail chosen file calls, with the stream member chosen for loads and saves,
// and helpers to build, load, save and read back an index.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "index/index_item.h"
#include "index/store_index.h"
#include "persist/index_serialiser.h"
#include "persist/index_text.h"
#include "persist/persist_settings.h"
#include "persist/stream_index_serialiser.h"
#include "persist/stream_index_writer.h"
#include "test_env.h"

namespace qaaisp::persist::testing {

using qaaisp::testing::FaultInjectionEnv;
using qaaisp::testing::ProductRegText;
using qaaisp::testing::ReadFile;
using qaaisp::testing::RegText;
using qaaisp::testing::ScopedDefaultEnv;
using qaaisp::testing::ScopedRegistry;
using qaaisp::testing::TempDir;
using qaaisp::testing::WriteFile;

using Properties = std::map<std::string, std::string>;
// Rows by UID, as the file holds them: every property but the computed ones.
using RowSet = std::map<uint32_t, Properties>;

inline std::string ProductSettings(const std::vector<std::string>& extra) {
  std::vector<std::string> lines = {"\"Use XML Stream Index Deserialisation\"=dword:00000001",
                                    "\"Use XML Stream Index Serialisation\"=dword:00000001"};
  lines.insert(lines.end(), extra.begin(), extra.end());
  return ProductRegText(lines);
}

// Test base: owns the folder, the fake clock Env and the settings.
class StreamIndexTest : public ::testing::Test {
 protected:
  explicit StreamIndexTest(std::vector<std::string> settings = {})
      : registry_(ProductSettings(settings)), scoped_env_(&env_) {
    ResetPersistSettingsForTesting();
    ResetIndexWriteSettingsForTesting();
    folder_ = dir_.Sub("Inbox");
    qaaisp::testing::MakeDirs(folder_);
  }
  ~StreamIndexTest() override {
    ResetPersistSettingsForTesting();
    ResetIndexWriteSettingsForTesting();
  }

  std::string IndexPath() const { return folder_ + "/_index.xml"; }
  std::string FileBytes() const { return ReadFile(IndexPath()); }

  static std::unique_ptr<StoreIndex> NewIndex() { return std::make_unique<StoreIndex>(); }

  // Adds a row through an item, as callers do; gives its UID.
  static uint32_t AddRow(StoreIndex* index, const std::string& id, const Properties& properties) {
    IndexItem item;
    item.Create();
    item.SetProperty("ID", id);
    for (const auto& [name, value] : properties) item.SetProperty(name, value);
    EXPECT_TRUE(index->table.Insert(&item, UidClash::kNextFree)) << id;
    return item.container()->Uid();
  }

  static IndexItemPropertyContainer* Row(StoreIndex* index, const std::string& id) {
    auto it = index->table.by_id().find(id);
    return it == index->table.by_id().end() ? nullptr : it->second;
  }

  // Changes one property of a loaded row the way an item does.
  static void SetOnRow(StoreIndex* index, const std::string& id, const std::string& name,
                       const std::string& value) {
    IndexItem item;
    IndexItemPropertyContainer* row = Row(index, id);
    ASSERT_NE(row, nullptr) << id;
    item.Attach(row, false);
    item.SetProperty(name, value);
    item.Detach();
  }

  int32_t Load(StoreIndex* index, int32_t mode, const std::string& item_filter = "",
               int32_t item_class = 0) {
    index->table.ItemFilter = item_filter;
    StreamXMLStoreIndexSerialiser reader;
    LoadRequest request;
    request.folder = folder_;
    request.item_class = item_class;
    request.mode = mode;
    return reader.Deserialise(&index->table, request, false);
  }

  // A save as SaveIndexFile makes it, but giving the writer's own result.
  int Save(StoreIndex* index, int32_t item_class = 0) {
    StreamXMLStoreIndexSerialiser writer;
    int result = writer.Serialise(&index->table, folder_, item_class);
    if (result == 1) {
      index->table.FirstModifiedUID = 0;
      index->table.FullRewriteRequired = false;
      platform::FileInfo info;
      if (env_.Stat(persist::IndexFilePath(folder_, item_class), &info) && info.exists) {
        index->table.IndexFileDate = info.write_time.ticks();
      }
    }
    return result;
  }

  static RowSet Rows(const SORTEDSTOREINDEXTYPE& table) {
    RowSet rows;
    for (const auto& [uid, row] : table.by_uid()) {
      Properties values;
      row->Flatten(nullptr, &values);
      values.erase("SEQ");
      values.erase("IDX");
      rows[row->Uid()] = std::move(values);
    }
    return rows;
  }

  // What a fresh full load of the file holds (empty, with a failure, when
  // the file does not load cleanly).
  RowSet LoadedRows(uint32_t* last_uid = nullptr) {
    auto index = NewIndex();
    EXPECT_EQ(Load(index.get(), LoadFull), LoadFull) << FileBytes();
    if (last_uid) *last_uid = index->table.LastUID;
    return Rows(index->table);
  }

  // The bytes a full rewrite of these rows gives, written in a folder of
  // its own.
  std::string FullRewriteOf(const RowSet& rows, uint32_t last_uid) {
    TempDir other;
    auto index = NewIndex();
    index->table.LoadState = LoadFull;
    index->table.LastUID = last_uid;
    for (const auto& [uid, properties] : rows) {
      Properties with_uid = properties;
      with_uid["UID"] = std::to_string(uid);
      std::string id = with_uid["ID"];
      with_uid.erase("ID");
      AddRow(index.get(), id, with_uid);
    }
    index->table.LastUID = last_uid;
    StreamXMLStoreIndexSerialiser writer;
    EXPECT_EQ(writer.Serialise(&index->table, other.path(), 0), 1);
    return ReadFile(other.path() + "/_index.xml");
  }

  std::vector<std::string> Reports() {
    std::vector<std::string> texts;
    for (const auto& event : env_.events()) texts.push_back(event.first);
    return texts;
  }

  TempDir dir_;
  ScopedRegistry registry_;
  FaultInjectionEnv env_;
  ScopedDefaultEnv scoped_env_;
  std::string folder_;
};

}  // namespace qaaisp::persist::testing
