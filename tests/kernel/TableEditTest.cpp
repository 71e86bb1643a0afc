// Inserting, updating and deleting records: what a model of the table does not say, above all the mutex.
#include <atomic>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <thread>

#include "tests/kernel/LockedAccounts.h"

namespace {

using Keys = std::vector<std::uint32_t>;

// Waits until the thread sleeps, which it does in the edit that it announces with `started`.
void wait_until_blocked(const std::atomic<int> &started) {
  while (started == 0) std::this_thread::yield();
  const std::string path = "/proc/self/task/" + std::to_string(started) + "/stat";
  for (int asleep = 0; asleep < 50;) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    const std::size_t name_end = line.rfind(") ");
    asleep = name_end != std::string::npos && line[name_end + 2] == 'S' ? asleep + 1 : 0;
    std::this_thread::yield();
  }
}

// The result of an edit on another thread that meets the held mutex; `meanwhile` runs once the edit waits for it.
int edit_that_waits(LockedAccounts &accounts, const std::function<int(CRtTable &)> &edit,
                    const std::function<void()> &meanwhile) {
  EXPECT_EQ(accounts.mutex.Wait(-1), 0);
  std::atomic<int> started = 0;
  std::atomic<int> result = -99;
  std::thread editor([&] {
    CRtTable view = accounts.table;
    started = gettid();
    result = edit(view);
  });
  wait_until_blocked(started);
  EXPECT_EQ(result, -99) << "the edit does not wait";
  meanwhile();
  EXPECT_TRUE(accounts.mutex.Release());
  editor.join();
  EXPECT_TRUE(accounts.is_mutex_free());
  return result;
}

// Catches: a table with a negative count that takes a record.
TEST(TableEdit, NegativeCountTakesNoRecord) {
  Accounts accounts({1}, 2);
  accounts.table.SetRecordCount(-3);
  EXPECT_EQ(accounts.table.Insert(account(7).data(), 0), -1);
  EXPECT_EQ(accounts.table.GetRecordCount(), -3);
}

}  // namespace

// Catches: a counter that only ever rises.
TEST(ByDesign, ExplicitKeyMovesCounter) {
  Accounts accounts({1, 2}, 50);
  std::string record = account(10);
  EXPECT_EQ(accounts.table.Insert(record.data(), 0), 2);
  EXPECT_EQ(accounts.next_key(), 11U);
}

// Catches: a key 0 that is searched, or a position that is off by one.
TEST(ByDesign, KeyZeroDeletesByPosition) {
  const struct {
    int hint, result;
    Keys keys_after;
  } rows[] = {{0, 1, {5, 9}}, {1, 1, {1, 9}}, {2, 1, {1, 5}}, {3, 0, {1, 5, 9}}, {-1, 0, {1, 5, 9}}};
  Accounts accounts;
  for (const auto &row : rows) {
    SCOPED_TRACE(row.hint);
    accounts.fill({1, 5, 9}, 10);
    EXPECT_EQ(accounts.table.Delete(0, row.hint, 0), row.result);
    EXPECT_EQ(accounts.keys(), row.keys_after);
    EXPECT_EQ(row.result == 1, account(0) == bytes_at(accounts.slot(2), Account::kSize)) << "the freed slot";
  }
}

// Catches: an update that judges by the record it replaces, or raises any status but 1.
TEST(ByDesign, UpdateKeepsStatus) {
  Accounts accounts;
  for (const int stored : {1, 2}) {
    for (const int status : {0, 1, 2, 3, 4, 5}) {
      SCOPED_TRACE(std::to_string(status) + " over " + std::to_string(stored));
      accounts.fill({5}, 6);
      put(accounts.slot(0), Account::kStatus, stored);
      const std::string record = account(5, 0, 0, status);
      EXPECT_EQ(accounts.table.Update(record.data(), 0, 7), 0);
      EXPECT_EQ(status == 1 ? 3 : status, accounts.number(0, Account::kStatus));
    }
  }
}

// Catches: version fields that are found by exact case or written in their declared width. Tables without them, and
// with some, are those of the fuzz target's model.
TEST(TableEdit, VersionFieldsAreFoundByNameInAnyCase) {
  Image image({{11, "Odd", 2, {"ID UINT 4", "BMODIFIED CHAR 4", "iprojectid SHORT 4", "IEditStatus UINT 4"}}});
  CRtTable odd = image.table(11);
  EXPECT_EQ(odd.Insert(5, 0x12345678, 0), 0);
  const std::int32_t expected[] = {5, 1, 0x12345678, 2};
  EXPECT_EQ(bytes_at(expected, 16), bytes_at(odd.GetAt(0), 16));
}

// Catches: defaults that come without being asked for or not at all; a default text that loses against the key.
TEST(ByDesign, DefaultReplacesKey) {
  Image image({{10, "Keyed", 9, {"ID UINT 4 40", "Level INT 4 12"}}, {11, "Free", 9, {"ID UINT 4", "Level INT 4 12"}}});
  const struct {
    unsigned int table, key;
    int fill;
    std::uint32_t stored;
    int level, position;
  } rows[] = {{10, 7, 0, 7, 0, 0},  {10, 7, 1, 40, 12, 1}, {10, 6, -1, 0, 0, -2},
              {11, 7, 1, 7, 12, 0}, {11, 0, 1, 8, 12, 1},  {11, 0, 0, 9, 0, 2}};
  for (const auto &row : rows) {
    SCOPED_TRACE(std::to_string(row.table) + " key " + std::to_string(row.key));
    CRtTable table = image.table(row.table);
    ASSERT_EQ(table.Insert(row.key, 0, row.fill), row.position);
    if (row.position < 0) continue;
    EXPECT_EQ(value_at<std::uint32_t>(table.GetAt(row.position), 0), row.stored);
    EXPECT_EQ(value_at<std::int32_t>(table.GetAt(row.position), 4), row.level);
  }
}

// Catches: an edit that can be refused without the mutex and waits for it: the test would not end.
TEST(TableEdit, RefusalsNeedNoMutex) {
  LockedAccounts accounts;
  const struct {
    Keys keys;
    std::function<int(CRtTable &)> edit;
    int result;
  } rows[] = {
      {{1, 2, 3, 4, 5}, [](CRtTable &table) { return table.Insert(9, 0, 0); }, -1},
      {{1}, [](CRtTable &table) { return table.Insert(nullptr, 0); }, -1},
      {{1}, [](CRtTable &table) { return table.Update(account(4).data(), 0, 0); }, -1},
      {{1}, [](CRtTable &table) { return table.Delete(4, 0, 0); }, 0},
      {{1}, [](CRtTable &table) { return table.Delete(0, -1, 7); }, 0},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(&row - rows);
    accounts.fill(row.keys, 6);
    ASSERT_EQ(accounts.mutex.Wait(-1), 0);
    EXPECT_EQ(on_other_thread([&] { return row.edit(accounts.table); }), row.result);
    EXPECT_TRUE(accounts.mutex.Release());
    EXPECT_EQ(accounts.keys(), row.keys);
    EXPECT_TRUE(accounts.is_mutex_free());
  }
}

// Catches: a mutex that blocks its owner, or is released by the first edit inside.
TEST(TableEdit, OwnerOfTheMutexEditsOn) {
  LockedAccounts accounts;
  accounts.fill({1}, 2);
  ASSERT_EQ(accounts.mutex.Wait(-1), 0);
  EXPECT_EQ(accounts.table.Insert(5, 0, 0), 1);
  EXPECT_EQ(accounts.table.Insert(5, 0, 0), -2);
  EXPECT_EQ(accounts.table.Update(account(5).data(), -1, 0), 1);
  EXPECT_EQ(accounts.table.Delete(1, -1, 0), 1);
  EXPECT_FALSE(accounts.is_mutex_free());
  EXPECT_TRUE(accounts.mutex.Release());
  EXPECT_TRUE(accounts.is_mutex_free());
}

// Catches: a duplicate that is searched before the mutex is taken, so that two threads insert one key.
TEST(TableEdit, DuplicateIsFoundUnderTheMutex) {
  LockedAccounts accounts;
  const auto insert = [](CRtTable &table) { return table.Insert(5, 0, 0); };
  EXPECT_EQ(edit_that_waits(accounts, insert, [&] { EXPECT_EQ(0, accounts.table.Insert(5, 0, 0)); }), -2);
  EXPECT_EQ(accounts.keys(), Keys{5});
}

// Catches: a count that is read again under the mutex.
TEST(ByDesign, CountBeforeLock) {
  LockedAccounts accounts;
  const auto insert = [](CRtTable &table) { return table.Insert(9, 0, 0); };
  EXPECT_EQ(edit_that_waits(accounts, insert, [&] { accounts.fill({3, 5}, 6); }), -1);
  EXPECT_EQ(accounts.keys(), (Keys{3, 5}));

  accounts.fill({3, 5}, 6);
  const auto insert_before = [](CRtTable &table) { return table.Insert(4, 0, 0); };
  const auto delete_first = [&] { EXPECT_EQ(accounts.table.Delete(3, -1, 0), 1); };
  EXPECT_EQ(edit_that_waits(accounts, insert_before, delete_first), 0);
  EXPECT_EQ(accounts.keys(), (Keys{4, 5, 0}));
}

// Catches: a position that is looked for again under the mutex.
TEST(ByDesign, PositionNotRechecked) {
  LockedAccounts accounts;
  const auto delete_first = [&] { EXPECT_EQ(accounts.table.Delete(1, -1, 0), 1); };
  accounts.fill({1, 5, 9}, 10);
  const auto update = [](CRtTable &table) { return table.Update(account(5).data(), -1, 0); };
  EXPECT_EQ(edit_that_waits(accounts, update, delete_first), 1);
  EXPECT_EQ(accounts.keys(), (Keys{5, 5}));

  accounts.fill({1, 5, 9}, 10);
  const auto remove = [](CRtTable &table) { return table.Delete(5, -1, 0); };
  EXPECT_EQ(edit_that_waits(accounts, remove, delete_first), 1);
  EXPECT_EQ(accounts.keys(), Keys{5});
}
