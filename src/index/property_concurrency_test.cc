// Threads that each work on their own index, through its local map, while
// all of them add names to the one global map. Run under ThreadSanitizer by
// scripts/tsan.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "index/sorted_store_index.h"
#include "index/store_index.h"
#include "index/store_index_lock.h"

namespace qaaisp {
namespace {

constexpr int kThreads = 6;
constexpr int kNames = 40;
constexpr int kRows = 30;

std::string Shared(int i) { return "CONCURRENCY_SHARED_" + std::to_string(i); }
std::string Own(int t, int i) {
  return "CONCURRENCY_T" + std::to_string(t) + "_" + std::to_string(i);
}

TEST(PropertyConcurrencyTest, ThreadsAgreeOnSlotNumbers) {
  std::vector<std::map<std::string, PropertyKey>> keys(kThreads);
  std::vector<int> mismatches(kThreads, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &keys, &mismatches] {
      SORTEDSTOREINDEXTYPE table;
      table.LoadState = LoadFull;
      for (int r = 0; r < kRows; ++r) {
        IndexItem item;
        item.Create();
        item.container()->set_local_map(table.local_map());
        item.SetProperty("ID", std::to_string(r));
        // Each row brings names new to the process, shared and private,
        // in an order that differs per thread.
        for (int i = r; i < kNames; i += kRows / 3) {
          int shared = (i + t * 7) % kNames;
          item.SetProperty(Shared(shared), std::to_string(t) + ":" + std::to_string(r));
          item.SetProperty(Own(t, i), std::to_string(r));
        }
        ASSERT_TRUE(table.Insert(&item, UidClash::kRefuse));
      }
      for (IndexItemPropertyContainer* row : table.rows()) {
        int r = std::stoi(row->GetText("ID"));
        for (int i = r; i < kNames; i += kRows / 3) {
          int shared = (i + t * 7) % kNames;
          if (row->GetText(Shared(shared)) != std::to_string(t) + ":" + std::to_string(r)) {
            ++mismatches[t];
          }
          if (row->GetText(Own(t, i)) != std::to_string(r)) ++mismatches[t];
        }
      }
      for (int i = 0; i < kNames; ++i) {
        keys[t][Shared(i)] = LookupProperty(Shared(i), table.local_map());
        keys[t][Own(t, i)] = LookupProperty(Own(t, i), table.local_map());
      }
    });
  }
  for (auto& thread : threads) thread.join();

  std::set<int32_t> slots;
  size_t names = 0;
  for (int t = 0; t < kThreads; ++t) {
    EXPECT_EQ(mismatches[t], 0) << "thread " << t;
    for (const auto& [name, key] : keys[t]) {
      EXPECT_EQ(key, GlobalPropertyMap().Find(name)) << name;
      if (name.starts_with("CONCURRENCY_T")) {
        slots.insert(key.slot);
        ++names;
      }
    }
  }
  for (int i = 0; i < kNames; ++i) slots.insert(GlobalPropertyMap().Find(Shared(i)).slot);
  EXPECT_EQ(slots.size(), names + kNames) << "every name has a slot of its own";
}

TEST(PropertyConcurrencyTest, IndexLockSerialisesThreads) {
  std::unique_ptr<StoreIndex> index(NewStoreIndex());
  int counter = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 500; ++i) {
        StoreIndexMutexLock lock(index.get());
        ++counter;
        index->changed = counter;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(counter, 2000);
  EXPECT_EQ(index->lock_owner, 0u);
}

}  // namespace
}  // namespace qaaisp
