// Rows in memory: building a 100,000-row index of typical message rows,
// looking rows up by ID and by UID, the heap a row costs beside the size of
// its text in the index file, and a teardown that must not take the global
// property guard per row.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "index/property_map.h"
#include "index/sorted_store_index.h"

namespace qaaisp {
namespace {

constexpr int kRows = 100000;

struct Field {
  const char* name;
  std::string value;
};

// One message row as header indexing makes it: texts and numbers.
std::vector<Field> MessageRow(int n, std::mt19937* rng) {
  auto pick = [&](std::initializer_list<const char*> options) {
    return std::string(options.begin()[(*rng)() % options.size()]);
  };
  char id[40], date[24], msgid[64];
  std::snprintf(id, sizeof id, "2024%04d%06d-%05d.MAI", n % 1231 + 101, n % 235959, n % 99991);
  std::snprintf(date, sizeof date, "2024%02d%02dT%02d%02d%02d", n % 12 + 1, n % 28 + 1, n % 24,
                n % 60, (n * 7) % 60);
  std::snprintf(msgid, sizeof msgid, "<%08x.%d@mail%d.example.com>",
                static_cast<unsigned>((*rng)()), n, n % 17);
  std::string from = pick({"Alice Example", "Bob Sample", "Carol Writer", "Dave Sender"}) +
                     " <user" + std::to_string(n % 977) + "@example.com>";
  return {{"ID", id},
          {"FROM", from},
          {"TO", "Team List <team" + std::to_string(n % 13) + "@example.org>"},
          {"SUBJECT", pick({"Re: quarterly figures", "Meeting moved to Thursday",
                            "Invoice 2024-118 attached", "Fwd: build failed on main", "Lunch?"}) +
                          " #" + std::to_string(n)},
          {"RECEIVED", date},
          {"MESSAGEDATE", date},
          {"MSGID", msgid},
          {"THREAD", msgid},
          {"FLAGSTATUS", pick({"\\Seen", "\\Seen \\Answered", "\\Recent", "", "\\Flagged"})},
          {"SIZE", std::to_string(1200 + (*rng)() % 90000)},
          {"ATTACHMENTS", std::to_string((*rng)() % 3)},
          {"IMPORTANCE", "1"},
          {"MODIFIEDDATE", std::to_string(1700000000 + n)},
          {"STATE", "0"}};
}

// The row's element as the stream index stores it.
size_t ElementBytes(const std::vector<Field>& row, uint32_t uid) {
  size_t bytes = std::string("<ELEMENT ID=\"\" UID=\"\">").size() + row[0].value.size() +
                 std::to_string(uid).size() + std::string("</ELEMENT>\r\n").size();
  for (size_t i = 1; i < row.size(); ++i) {
    if (row[i].value.empty()) continue;
    bytes += 2 * std::string(row[i].name).size() + 5 + row[i].value.size();
  }
  return bytes;
}

struct Rows {
  std::vector<std::vector<Field>> fields;
  size_t text_bytes = 0;
};

const Rows& TypicalRows() {
  static const Rows* rows = [] {
    auto* r = new Rows;
    std::mt19937 rng(20240101);
    for (int n = 0; n < kRows; ++n) {
      r->fields.push_back(MessageRow(n, &rng));
      r->text_bytes += ElementBytes(r->fields.back(), n + 1);
    }
    return r;
  }();
  return *rows;
}

// Builds the table the way a load does: keys looked up once through the
// index's local map, rows sized once, texts made in the table's pool, rows
// inserted strictly with the by-ID map filled at the end.
void Fill(SORTEDSTOREINDEXTYPE* table, const Rows& rows) {
  const auto& first = rows.fields.front();
  std::vector<PropertyKey> keys;
  for (const Field& f : first) keys.push_back(LookupProperty(f.name, table->local_map()));
  int32_t highest = 0;
  for (PropertyKey k : keys) highest = std::max(highest, k.slot);
  table->BeginBulkInsert(rows.fields.size());
  for (const auto& fields : rows.fields) {
    auto* row = new IndexItemPropertyContainer(static_cast<uint32_t>(highest) + 1);
    row->set_local_map(table->local_map());
    for (size_t i = 0; i < fields.size(); ++i) {
      row->LoadValueAt(keys[i], fields[i].value, table->text_pool());
    }
    if (!table->InsertRow(row, UidClash::kRefuse)) delete row;
  }
  table->EndBulkInsert();
  table->LoadState = LoadFull;
}

size_t HeapInUse() { return mallinfo2().uordblks; }

void BM_InsertRows(benchmark::State& state) {
  const Rows& rows = TypicalRows();
  size_t heap_per_row = 0;
  for (auto _ : state) {
    auto table = std::make_unique<SORTEDSTOREINDEXTYPE>();
    size_t before = HeapInUse();
    Fill(table.get(), rows);
    heap_per_row = (HeapInUse() - before) / kRows;
    state.PauseTiming();
    table.reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kRows);
  state.counters["heap_bytes_per_row"] = static_cast<double>(heap_per_row);
  state.counters["text_bytes_per_row"] = static_cast<double>(rows.text_bytes / kRows);
}
BENCHMARK(BM_InsertRows)->Unit(benchmark::kMillisecond);

// The same rows through the by-name setters, as item code sets properties.
void BM_InsertRowsByName(benchmark::State& state) {
  const Rows& rows = TypicalRows();
  for (auto _ : state) {
    auto table = std::make_unique<SORTEDSTOREINDEXTYPE>();
    for (const auto& fields : rows.fields) {
      IndexItem item;
      item.Create();
      item.container()->set_local_map(table->local_map());
      for (const Field& f : fields) item.container()->SetText(f.name, f.value, false);
      table->Insert(&item, UidClash::kNextFree);
    }
    state.PauseTiming();
    table.reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kRows);
}
BENCHMARK(BM_InsertRowsByName)->Unit(benchmark::kMillisecond);

SORTEDSTOREINDEXTYPE& FullTable() {
  static SORTEDSTOREINDEXTYPE* table = [] {
    auto* t = new SORTEDSTOREINDEXTYPE;
    Fill(t, TypicalRows());
    return t;
  }();
  return *table;
}

void BM_LookupById(benchmark::State& state) {
  SORTEDSTOREINDEXTYPE& table = FullTable();
  const Rows& rows = TypicalRows();
  std::mt19937 rng(7);
  for (auto _ : state) {
    const std::string& id = rows.fields[rng() % kRows][0].value;
    auto it = table.by_id().find(id);
    benchmark::DoNotOptimize(it);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_LookupById);

void BM_LookupByUid(benchmark::State& state) {
  SORTEDSTOREINDEXTYPE& table = FullTable();
  std::mt19937 rng(7);
  for (auto _ : state) benchmark::DoNotOptimize(table.FindByUid(rng() % kRows + 1));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_LookupByUid);

// Teardown of rows that have no local map: the private copy of the property
// map spares a guard per row, which the counter shows.
void BM_Teardown(benchmark::State& state) {
  uint64_t guard_takes = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto table = std::make_unique<SORTEDSTOREINDEXTYPE>();
    Fill(table.get(), TypicalRows());
    for (IndexItemPropertyContainer* row : table->rows()) row->set_local_map(nullptr);
    uint64_t before = PropertyMapGuardCount();
    state.ResumeTiming();
    table->UnInit();
    guard_takes = PropertyMapGuardCount() - before;
  }
  state.SetItemsProcessed(state.iterations() * kRows);
  state.counters["guard_takes"] = static_cast<double>(guard_takes);
}
BENCHMARK(BM_Teardown)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace qaaisp

BENCHMARK_MAIN();
