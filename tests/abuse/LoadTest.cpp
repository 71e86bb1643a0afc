// Many threads edit one table under the database's mutex, and others read it without one.
#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <thread>
#include <vector>

#include "tests/abuse/Length.h"
#include "tests/kernel/LockedAccounts.h"

namespace {

constexpr int kCapacity = 2'000;
constexpr unsigned kKeys = 2 * kCapacity;
constexpr unsigned kEditors = 8;
constexpr unsigned kReaders = 2;
constexpr int kLevelField = 2;

// A read without a lock is a data race on the bytes of records; ThreadSanitizer shall see none, so there readers lock.
#if defined(__SANITIZE_THREAD__)
constexpr bool kReadersLock = true;
#else
constexpr bool kReadersLock = false;
#endif

// A record of the account table: number 0 is the key, number 3 the level, number 10 the mark of modification.
using Record = std::array<std::int32_t, 13>;
constexpr std::ptrdiff_t kRecordSize = sizeof(Record);

char *bytes(Record &record) { return reinterpret_cast<char *>(record.data()); }

// What the table must hold, by key. Guarded by the database's mutex, like the table.
using Model = std::map<std::int32_t, Record>;

bool holds(const char *place, const Record &record) {
  return place != nullptr && std::memcmp(place, record.data(), sizeof record) == 0;
}

bool equals(const CRtTable &table, const Model &model) {
  int position = 0;
  const auto next_holds = [&](const auto &entry) { return holds(table.GetAt(position++), entry.second); };
  return std::all_of(model.begin(), model.end(), next_holds) && table.GetRecordCount() == position;
}

// Inserts the record, whose key 0 means one that the table issues.
bool insert(CRtTable &table, Model &model, Record &record) {
  const bool full = model.size() == kCapacity;
  const bool present = model.count(record[0]) > 0;
  const bool issued = record[0] == 0;
  const int position = table.Insert(bytes(record), 0);
  if (full || present) return position == (full ? -1 : -2);
  if (issued && !model.empty() && record[0] <= model.rbegin()->first) return false;
  record[10] = 1;
  model[record[0]] = record;
  return holds(table.GetAt(position), record);
}

// One edit in the table and in the model; whether the table did as it should.
bool edit(CRtTable &table, Model &model, std::mt19937 &random) {
  if (random() % 50'000 == 0) {
    model.clear();
    return table.DeleteAllRecord() == 1;
  }
  const unsigned action = random() % 8;
  const int hint = static_cast<int>(random() % kCapacity) - 1;
  Record record;
  std::generate(record.begin(), record.end(), [&] { return static_cast<std::int32_t>(random()); });
  record[0] = action == 0 ? 0 : static_cast<std::int32_t>(1 + random() % kKeys);
  const auto chosen = model.lower_bound(record[0]);
  if (action < 3 || chosen == model.end()) return insert(table, model, record);

  record[0] = chosen->first;
  const auto key = static_cast<unsigned>(chosen->first);
  const int position = table.FindRecordIndex(key);
  if (position < 0) return false;
  if (action < 5) {
    const bool done = table.Update(bytes(record), hint, 0) == position;
    record[10] = 1;
    chosen->second = record;
    return done && holds(table.GetAt(position), record);
  }
  if (action < 6) {
    chosen->second[3] = record[3];
    const char *level = reinterpret_cast<const char *>(&record[3]);
    const int done = hint % 2 == 0 ? table.SetFieldData(key, kLevelField, level)
                                   : table.SetFieldByText(position, kLevelField, std::to_string(record[3]).data());
    return done == 1 && holds(table.GetAt(position), chosen->second);
  }
  model.erase(chosen);
  return table.Delete(key, hint, 0) == 1 && table.FindRecordIndex(key) == -1;
}

// Whether the address is that of a place for a record.
bool is_inside(const CRtTable &table, const char *record) {
  const auto distance = record - table.GetDataAddress();
  return distance >= 0 && distance < kCapacity * kRecordSize && distance % kRecordSize == 0;
}

// Looks one key up and scans the table; whether all that came back lay inside, and the scan had an end.
bool read_all(const CRtTable &table, std::uint_fast32_t number) {
  const auto key = static_cast<unsigned>(number);
  Record record;
  const int index = table.FindRecordIndex(key);
  const char *found = table.FindIDExclusive(key);
  if (index < -1 || index >= kCapacity || (found != nullptr && !is_inside(table, found))) return false;
  (void)table.FindIDExclusive(key, bytes(record));
  (void)table.GetFieldDataAt(index, kLevelField, bytes(record));
  int steps = 0;
  for (int position = table.GetFirstPosition(); position >= 0; ++steps) {
    found = table.GetNextPosition(position);
    // A table that has shrunk meanwhile ends without a record.
    if (steps == kCapacity || (found == nullptr ? position >= 0 : !is_inside(table, found))) return false;
  }
  return true;
}

TEST(Load, EightEditorsBesideReadersKeepTheTable) {
  const unsigned first = seed();
  SCOPED_TRACE("seed " + std::to_string(first));
  const int seconds = length(2, 60);
  LockedAccounts accounts(kCapacity);
  Model model;
  std::atomic<bool> stop = false;
  std::atomic<std::int64_t> edits = 0, scans = 0, wrong = 0;

  const auto work = [&](CRtTable &table, bool edits_it, unsigned own_seed) {
    std::mt19937 random(own_seed);
    for (int round = 1; !stop; ++round) {
      CMutexEx mutex(accounts.name.c_str());
      const bool locks = edits_it || kReadersLock;
      if (locks && mutex.Wait(-1) != 0) ++wrong;
      const bool well = edits_it ? edit(table, model, random) : read_all(table, random() % kKeys + 1);
      if (!well) ++wrong;
      if (edits_it && round % 16'384 == 0 && !equals(table, model)) ++wrong;
      if (locks && !mutex.Release()) ++wrong;
      ++(edits_it ? edits : scans);
    }
  };
  std::array<CRtDataBase, kEditors + kReaders> databases;
  std::array<CRtTable, kEditors + kReaders> tables;
  std::vector<std::thread> threads;
  for (unsigned i = 0; i < tables.size(); ++i) ASSERT_EQ(accounts.manager.FindTable(10U, databases[i], tables[i]), 1);
  for (unsigned i = 0; i < tables.size(); ++i) threads.emplace_back(work, std::ref(tables[i]), i < kEditors, first + i);
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  stop = true;
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_GT(edits, 1'000);
  EXPECT_GT(scans, 0);
  EXPECT_TRUE(equals(tables[0], model)) << "the table is not what was edited into it";
  std::printf(
      "abuse: load: %u editors and %u readers %s, %d s (seed %u): %ld edits, %ld a second; %ld lookups with a scan; "
      "%ld wrong results; %zu records as in the model\n",
      kEditors, kReaders, kReadersLock ? "who lock too" : "without a lock", seconds, first, edits.load(),
      edits / seconds, scans.load(), wrong.load(), model.size());
}

}  // namespace
