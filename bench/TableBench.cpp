// Searches, edits and scans: one measurement for every store.
#include <algorithm>
#include <benchmark/benchmark.h>
#include <functional>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <typeindex>
#include <utility>

#include "bench/Benches.h"
#include "bench/Peers.h"
#include "bench/Stores.h"

namespace bench {
namespace {

using benchmark::State;

using HalvingTable = PackedTable<search_by_halving>;
using DistanceTable = PackedTable<search_by_distance>;
using BareDistanceTable = PackedTable<search_by_bare_distance>;
using NamedDistanceTable = PackedTable<search_by_distance, NamedSharedMutex>;
using NamedSlopeTable = PackedTable<search_by_slope, NamedSharedMutex>;
using BranchlessTable = PackedTable<search_without_branches>;
using SlopeTable = PackedTable<search_by_slope>;

// A power of two, so that walking round costs nothing.
constexpr std::size_t kAccesses = std::size_t{1} << 18;

// Every store, made when a measurement first asks for it and kept for the later ones.
class Stores {
 public:
  explicit Stores(Image &image) : image_(image) {}

  template <class Store>
  Store &get(TableId id) {
    std::shared_ptr<void> &kept = stores_[{typeid(Store), id}];
    if (kept == nullptr) kept = std::make_shared<Store>(image_, id, image_.keys(id));
    return *static_cast<Store *>(kept.get());
  }

  // Keys in random order, all of them in the table.
  const KeyList &hits(TableId id) {
    KeyList &keys = accesses_[id];
    if (!keys.empty()) return keys;
    const KeyList &all = image_.keys(id);
    std::mt19937 random(815);
    std::uniform_int_distribution<std::size_t> any(0, all.size() - 1);
    while (keys.size() < kAccesses) keys.push_back(all[any(random)]);
    return keys;
  }

  // Keys in random order, none of them in the table.
  const KeyList &misses(TableId id) {
    KeyList &keys = misses_[id];
    const KeyList &all = image_.keys(id);
    std::mt19937 random(816);
    std::uniform_int_distribution<std::uint32_t> any(all.front(), all.back());
    while (keys.size() < kAccesses) {
      const std::uint32_t key = any(random);
      if (!std::binary_search(all.begin(), all.end(), key)) keys.push_back(key);
    }
    return keys;
  }

 private:
  Image &image_;
  std::map<std::pair<std::type_index, TableId>, std::shared_ptr<void>> stores_;
  std::map<TableId, KeyList> accesses_;
  std::map<TableId, KeyList> misses_;
};

template <class Store>
void search(State &state, Store &store, const KeyList &keys, bool hit) {
  for (std::size_t i = 0; i < 1'000; ++i) expect(store.find(keys[i]) == hit, "a search is wrong");
  std::size_t next = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(store.find(keys[next]));
    next = (next + 1) % kAccesses;
  }
}

template <class Store>
void update(State &state, Store &store, const KeyList &keys) {
  Record record = record_of(1);
  std::size_t next = 0;
  for (auto _ : state) {
    set_key(record, keys[next]);
    store.update(record);
    next = (next + 1) % kAccesses;
  }
  expect(store.done(), "an update is wrong");
}

std::vector<Record> records_of(const KeyList &keys) {
  std::vector<Record> records;
  for (const std::uint32_t key : keys) records.push_back(record_of(key));
  return records;
}

// Inserts records and takes them out again, with only the inserts measured.
template <class Store>
void insert(State &state, Store &store, const KeyList &keys) {
  std::vector<Record> records = records_of(keys);
  while (state.KeepRunningBatch(static_cast<benchmark::IterationCount>(keys.size()))) {
    for (Record &record : records) store.insert(record);
    state.PauseTiming();
    for (auto key = keys.rbegin(); key != keys.rend(); ++key) store.erase(*key);
    state.ResumeTiming();
  }
  expect(store.done(), "an insert is wrong");
}

// The same with only the deletes measured.
template <class Store>
void erase(State &state, Store &store, const KeyList &keys) {
  std::vector<Record> records = records_of(keys);
  while (state.KeepRunningBatch(static_cast<benchmark::IterationCount>(keys.size()))) {
    state.PauseTiming();
    for (Record &record : records) store.insert(record);
    state.ResumeTiming();
    for (auto key = keys.rbegin(); key != keys.rend(); ++key) store.erase(*key);
  }
  expect(store.done(), "a delete is wrong");
}

template <class Store>
void scan(State &state, Store &store, int size) {
  const double records = size;
  expect(store.sum() == records * (records + 1) / 2 * kValueStep, "a scan is wrong");
  for (auto _ : state) benchmark::DoNotOptimize(store.sum());
}

// Keys that follow those of a dense table.
KeyList keys_behind(int size) {
  KeyList keys(500);
  std::iota(keys.begin(), keys.end(), static_cast<std::uint32_t>(size) + 1);
  return keys;
}

// Keys that belong into the middle of an even table. Where records are moved, a few edits of a large table take long
// enough to be measured; elsewhere a stop of the clock must be shared by many.
KeyList keys_in_the_middle(int size, bool moves_records) {
  const std::size_t count = !moves_records || size <= 1'000 ? 400 : size <= 100'000 ? 40 : 4;
  KeyList keys;
  for (std::size_t i = 0; i < count; ++i) keys.push_back(static_cast<std::uint32_t>(size + 1) + 2 * std::uint32_t(i));
  return keys;
}

// Registers `measure(state, store, id)` for the stores of a list.
template <class... List, class Measure>
void add(const std::string &operation, TableId id, const std::shared_ptr<Stores> &stores, Measure measure,
         const std::array<const char *, sizeof...(List)> &who) {
  std::size_t next = 0;
  const auto add_one = [&]<class Store>(std::type_identity<Store>) {
    benchmark::RegisterBenchmark(name_of(operation, who[next++]).c_str(),
                                 [stores, id, measure](State &state) { measure(state, stores->get<Store>(id), id); });
  };
  (add_one(std::type_identity<List>{}), ...);
}

template <class Measure>
void add_peers(const std::string &operation, TableId id, const std::shared_ptr<Stores> &stores, Measure measure) {
  add<SqliteTable, LmdbTable, HashedTable, OrderedTable>(operation, id, stores, measure,
                                                         {"SQLite", "LMDB", "std::unordered_map", "std::map"});
}

void add_searches(Keys keys, const std::string &kind, int size, const std::shared_ptr<Stores> &stores) {
  const TableId id{keys, Use::kSearched, size};
  const std::string operation = "search " + kind + " " + std::to_string(size);
  const auto measure = [stores](State &state, auto &store, TableId table) {
    search(state, store, stores->hits(table), true);
  };
  add<KernelTable, KernelPositions, HalvingTable, BranchlessTable>(
      operation, id, stores, measure, {"kernel", "kernel, position", "limit, halving", "limit, without branches"});
  if (keys == Keys::kDense) {
    add<DistanceTable, BareDistanceTable>(operation, id, stores, measure, {"limit, distance", "limit, bare distance"});
  }
  if (keys == Keys::kSparse) add<SlopeTable>(operation, id, stores, measure, {"limit, slope"});
  add_peers(operation, id, stores, measure);
}

void add_misses(const std::shared_ptr<Stores> &stores) {
  const TableId id{Keys::kSparse, Use::kSearched, 100'000};
  const std::string operation = "search sparse 100000, no hit";
  const auto measure = [stores](State &state, auto &store, TableId table) {
    search(state, store, stores->misses(table), false);
  };
  add<KernelTable, HalvingTable, BranchlessTable, SlopeTable>(
      operation, id, stores, measure, {"kernel", "limit, halving", "limit, without branches", "limit, slope"});
  add_peers(operation, id, stores, measure);
}

template <class Measure>
void add_edit(const std::string &operation, TableId id, const std::shared_ptr<Stores> &stores, Measure measure) {
  const std::string sized = operation + " " + std::to_string(id.size);
  if (id.keys == Keys::kDense) {
    add<KernelTable, NamedDistanceTable, DistanceTable>(sized, id, stores, measure,
                                                        {"kernel", "limit, mutex by name", "limit, held mutex"});
  } else {
    add<KernelTable, NamedSlopeTable, SlopeTable>(sized, id, stores, measure,
                                                  {"kernel", "limit, mutex by name", "limit, held mutex"});
  }
  add_peers(sized, id, stores, measure);
}

void add_edits(int size, const std::shared_ptr<Stores> &stores) {
  const TableId dense{Keys::kDense, Use::kEdited, size};
  const TableId even{Keys::kEven, Use::kEdited, size};
  add_edit("update", dense, stores,
           [stores](State &state, auto &store, TableId id) { update(state, store, stores->hits(id)); });
  add_edit("append", dense, stores,
           [](State &state, auto &store, TableId id) { insert(state, store, keys_behind(id.size)); });
  add_edit("delete last", dense, stores,
           [](State &state, auto &store, TableId id) { erase(state, store, keys_behind(id.size)); });
  add_edit("insert in the middle", even, stores, []<class Store>(State &state, Store &store, TableId id) {
    insert(state, store, keys_in_the_middle(id.size, Store::kMovesRecords));
  });
  add_edit("delete in the middle", even, stores, []<class Store>(State &state, Store &store, TableId id) {
    erase(state, store, keys_in_the_middle(id.size, Store::kMovesRecords));
  });
}

void add_scans(int size, const std::shared_ptr<Stores> &stores) {
  const TableId id{Keys::kDense, Use::kSearched, size};
  const std::string operation = "scan " + std::to_string(size);
  const auto measure = [](State &state, auto &store, TableId table) { scan(state, store, table.size); };
  add<KernelTable, HalvingTable>(operation, id, stores, measure, {"kernel", "limit, loop"});
  add_peers(operation, id, stores, measure);
}

}  // namespace

void register_tables(Image &image) {
  const auto stores = std::make_shared<Stores>(image);
  for (const int size : {1'000, 100'000, 1'000'000}) add_searches(Keys::kDense, "dense", size, stores);
  for (const int size : {1'000, 100'000, 1'000'000}) add_searches(Keys::kSparse, "sparse", size, stores);
  add_misses(stores);
  for (const int size : {1'000, 100'000, 1'000'000}) add_edits(size, stores);
  for (const int size : {1'000, 100'000, 1'000'000}) add_scans(size, stores);
}

}  // namespace bench
