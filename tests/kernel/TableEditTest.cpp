// Inserting, updating and deleting records: places, keys, version stamps and the mutex.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <string>
#include <thread>

#include "tests/kernel/TableFixture.h"
#include "tests/support/Mutexes.h"

namespace {

using Keys = std::vector<std::uint32_t>;

// Accounts in a database whose mutex no other test uses.
struct LockedAccounts : Accounts {
  LockedAccounts() {
    manager.GetSystemDB()->SetDBName(name.c_str());
    mutex.Create(name.c_str());
  }
  // Whether another thread can have the mutex.
  [[nodiscard]] bool is_mutex_free() const {
    return on_other_thread([&] {
      CMutexEx other(name.c_str());
      return other.Wait(0) == 0 && other.Release();
    });
  }

  MutexName name;
  CMutexEx mutex;
};

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
  EXPECT_EQ(0, accounts.mutex.Wait(-1));
  std::atomic<int> started = 0;
  std::atomic<int> result = -99;
  std::thread editor([&] {
    CRtTable view = accounts.table;
    started = gettid();
    result = edit(view);
  });
  wait_until_blocked(started);
  EXPECT_EQ(-99, result) << "the edit does not wait";
  meanwhile();
  EXPECT_TRUE(accounts.mutex.Release());
  editor.join();
  EXPECT_TRUE(accounts.is_mutex_free());
  return result;
}

// A negative count is no table that could take a record.
TEST(TableEdit, NegativeCountTakesNoRecord) {
  Accounts accounts({1}, 2);
  accounts.table.SetRecordCount(-3);
  EXPECT_EQ(accounts.table.Insert(account(7).data(), 0), -1);
  EXPECT_EQ(accounts.table.GetRecordCount(), -3);
}

}  // namespace

// A record in the wrong place, a counter that moves when it should stay, a refused insert that changes something.
TEST(TableEdit, InsertPlacesRecordAndCounter) {
  const struct {
    Keys keys;
    std::uint32_t next, key;
    int result;
    Keys keys_after;
    std::uint32_t next_after;
  } rows[] = {{{1, 2}, 9, 0, 2, {1, 2, 9}, 10},
              {{1, 2}, 3, 1, -2, {1, 2}, 3},
              {{2, 5}, 6, 3, 1, {2, 3, 5}, 6},
              {{2, 5}, 6, 1, 0, {1, 2, 5}, 6},
              {{}, 1, 0, 0, {1}, 2},
              {{5}, 6, 0x80000000, 1, {5, 0x80000000}, 0x80000001},
              {{5, 0x80000000}, 0x80000001, 6, 1, {5, 6, 0x80000000}, 0x80000001},
              {{1, 2, 3, 4}, 5, 9, 4, {1, 2, 3, 4, 9}, 10},
              {{1, 2, 3, 4, 5}, 6, 9, -1, {1, 2, 3, 4, 5}, 6},
              {{1, 2, 3, 4, 5}, 6, 3, -1, {1, 2, 3, 4, 5}, 6}};
  LockedAccounts accounts;
  for (const auto &row : rows) {
    SCOPED_TRACE(std::to_string(row.keys.size()) + " records, key " + std::to_string(row.key));
    accounts.fill(row.keys, row.next);
    const std::string descriptor = bytes_at(accounts.table.GetTableInfo(), 104), area = accounts.area();
    std::string record = account(row.key, 77);
    EXPECT_EQ(row.result, accounts.table.Insert(record.data(), 0));
    EXPECT_EQ(row.keys_after, accounts.keys());
    EXPECT_EQ(row.next_after, accounts.next_key());
    EXPECT_TRUE(accounts.is_mutex_free());
    if (row.result < 0) {
      EXPECT_EQ(descriptor, bytes_at(accounts.table.GetTableInfo(), 104));
      EXPECT_EQ(area, accounts.area());
      continue;
    }
    for (std::size_t i = 0; i < row.keys_after.size(); ++i) {
      const bool is_new = static_cast<int>(i) == row.result;
      EXPECT_EQ(is_new ? 77 : static_cast<std::int32_t>(row.keys_after[i]), accounts.number(i, kLevel));
      EXPECT_EQ(is_new ? 1 : 0, accounts.number(i, kModified));
    }
    EXPECT_EQ(row.keys_after[static_cast<std::size_t>(row.result)], value_at<std::uint32_t>(record.data(), kKey));
  }
}

// A counter that only ever rises.
TEST(ByDesign, ExplicitKeyMovesCounter) {
  Accounts accounts({1, 2}, 50);
  std::string record = account(10);
  EXPECT_EQ(2, accounts.table.Insert(record.data(), 0));
  EXPECT_EQ(11U, accounts.next_key());
}

// A gap or a slot with old bytes, a wrong record, a counter that does not come back.
TEST(TableEdit, DeleteClosesTheGap) {
  const struct {
    std::uint32_t next, key;
    int hint, result;
    Keys keys_after;
    std::uint32_t next_after;
  } rows[] = {{10, 5, -1, 1, {1, 9}, 10},   {10, 9, -1, 1, {1, 5}, 6}, {10, 9, 0, 1, {1, 5}, 6},
              {10, 9, 2, 1, {1, 5}, 6},     {50, 9, 2, 1, {1, 5}, 50}, {10, 1, 99, 1, {5, 9}, 10},
              {10, 4, 1, 0, {1, 5, 9}, 10}, {6, 5, 1, 1, {1, 9}, 10}};
  LockedAccounts accounts;
  for (const auto &row : rows) {
    SCOPED_TRACE(std::to_string(row.key) + " at " + std::to_string(row.hint));
    accounts.fill({1, 5, 9}, row.next);
    EXPECT_EQ(row.result, accounts.table.Delete(row.key, row.hint, 0));
    EXPECT_EQ(row.keys_after, accounts.keys());
    EXPECT_EQ(row.next_after, accounts.next_key());
    EXPECT_EQ(row.result == 1, account(0) == bytes_at(accounts.slot(2), kAccountSize));
    EXPECT_TRUE(accounts.is_mutex_free());
  }
  accounts.fill({7}, 8);
  EXPECT_EQ(1, accounts.table.Delete(7, 0, 0));
  EXPECT_TRUE(accounts.table.IsEmpty());
}

// A key 0 that is searched, or a position that is off by one.
TEST(ByDesign, KeyZeroDeletesByPosition) {
  const struct {
    int hint, result;
    Keys keys_after;
  } rows[] = {{0, 1, {5, 9}}, {1, 1, {1, 9}}, {2, 1, {1, 5}}, {3, 0, {1, 5, 9}}, {-1, 0, {1, 5, 9}}};
  Accounts accounts;
  for (const auto &row : rows) {
    SCOPED_TRACE(row.hint);
    accounts.fill({1, 5, 9}, 10);
    EXPECT_EQ(row.result, accounts.table.Delete(0, row.hint, 0));
    EXPECT_EQ(row.keys_after, accounts.keys());
  }
}

// A stamp that base edits leave or project edits miss, on each of the events.
TEST(TableEdit, VersionStamps) {
  enum Event { kInsert = -3, kUpdate, kDelete };  // a number from 1 on: a stamp of this action
  const struct {
    int event, project, status_before, status, project_after;
  } rows[] = {{kInsert, 7, 3, 2, 7}, {kInsert, 0, 3, 3, 6}, {kInsert, -7, 0, 2, -7}, {kUpdate, 7, 1, 3, 7},
              {kUpdate, 0, 1, 1, 6}, {kDelete, 7, 2, 4, 7}, {kDelete, -1, 1, 4, -1}, {2, 7, 1, 2, 7},
              {3, 7, 1, 3, 7},       {3, 7, 2, 2, 7},       {4, 7, 3, 4, 7},         {1, 7, 3, 3, 7},
              {5, 7, 1, 1, 7},       {4, 0, 3, 3, 6}};
  Accounts accounts;
  for (const auto &row : rows) {
    SCOPED_TRACE("event " + std::to_string(row.event) + " project " + std::to_string(row.project) + " status " +
                 std::to_string(row.status_before));
    std::string record = account(5, 0, 6, row.status_before);
    accounts.fill(row.event == kInsert ? Keys{} : Keys{5}, 6);
    if (row.event != kInsert) std::memcpy(accounts.slot(0), record.data(), record.size());
    if (row.event == kInsert) {
      EXPECT_EQ(0, accounts.table.Insert(record.data(), row.project));
    } else if (row.event == kUpdate) {
      EXPECT_EQ(0, accounts.table.Update(record.data(), -1, row.project));
    } else if (row.event == kDelete) {
      EXPECT_EQ(1, accounts.table.Delete(5, -1, row.project));
    } else {
      EXPECT_EQ(1, accounts.table.SetRecordVersionInfo(0, row.project, row.event));
    }
    EXPECT_EQ(Keys{5}, accounts.keys());
    EXPECT_EQ(6U, accounts.next_key());
    EXPECT_EQ(1, accounts.number(0, kModified));
    EXPECT_EQ(row.project_after, accounts.number(0, kProject));
    EXPECT_EQ(row.status, accounts.number(0, kStatus));
  }
  EXPECT_EQ(0, accounts.table.SetRecordVersionInfo(-1, 7, 2));
  EXPECT_EQ(0, accounts.table.SetRecordVersionInfo(1, 7, 2));
}

// An update that judges by the record it replaces, or raises any status but 1.
TEST(ByDesign, UpdateKeepsStatus) {
  Accounts accounts;
  for (const int stored : {1, 2}) {
    for (const int status : {0, 1, 2, 3, 4, 5}) {
      SCOPED_TRACE(std::to_string(status) + " over " + std::to_string(stored));
      accounts.fill({5}, 6);
      put(accounts.slot(0), kStatus, stored);
      const std::string record = account(5, 0, 0, status);
      EXPECT_EQ(0, accounts.table.Update(record.data(), 0, 7));
      EXPECT_EQ(status == 1 ? 3 : status, accounts.number(0, kStatus));
    }
  }
}

// Version fields that are found by exact case or written in their declared width; tables that must have them.
TEST(TableEdit, VersionFieldsAreOptionalAndFoundByNameInAnyCase) {
  Image image({{10, "Plain", 2, {"ID UINT 4", "Level INT 4"}},
               {11, "Odd", 2, {"ID UINT 4", "BMODIFIED CHAR 4", "iprojectid SHORT 4", "IEditStatus UINT 4"}}});
  CRtTable plain = image.table(10);
  char record[16] = {5, 0, 0, 0, 9};
  EXPECT_EQ(0, plain.Insert(record, 7));
  EXPECT_EQ(0, plain.Update(record, 0, 7));
  EXPECT_EQ(1, plain.SetRecordVersionInfo(0, 7, 4));
  EXPECT_EQ(1, plain.Delete(5, 0, 7));
  EXPECT_EQ(bytes_at(record, 8), bytes_at(plain.GetAt(0), 8));
  EXPECT_EQ(1, plain.Delete(5, 0, 0));
  EXPECT_TRUE(plain.IsEmpty());

  CRtTable odd = image.table(11);
  EXPECT_EQ(0, odd.Insert(5, 0x12345678, 0));
  const std::int32_t expected[] = {5, 1, 0x12345678, 2};
  EXPECT_EQ(bytes_at(expected, 16), bytes_at(odd.GetAt(0), 16));
}

// Defaults that come without being asked for or not at all; a default text that loses against the key.
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
    ASSERT_EQ(row.position, table.Insert(row.key, 0, row.fill));
    if (row.position < 0) continue;
    EXPECT_EQ(row.stored, value_at<std::uint32_t>(table.GetAt(row.position), 0));
    EXPECT_EQ(row.level, value_at<std::int32_t>(table.GetAt(row.position), 4));
  }
}

// An edit that can be refused without the mutex and waits for it.
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
    ASSERT_EQ(0, accounts.mutex.Wait(-1));
    std::future<int> result = std::async(std::launch::async, [&] { return row.edit(accounts.table); });
    EXPECT_EQ(std::future_status::ready, result.wait_for(std::chrono::seconds(20)));
    EXPECT_TRUE(accounts.mutex.Release());
    EXPECT_EQ(row.result, result.get());
    EXPECT_EQ(row.keys, accounts.keys());
    EXPECT_TRUE(accounts.is_mutex_free());
  }
}

// A mutex that blocks its owner, or is released by the first edit inside.
TEST(TableEdit, OwnerOfTheMutexEditsOn) {
  LockedAccounts accounts;
  accounts.fill({1}, 2);
  ASSERT_EQ(0, accounts.mutex.Wait(-1));
  EXPECT_EQ(1, accounts.table.Insert(5, 0, 0));
  EXPECT_EQ(-2, accounts.table.Insert(5, 0, 0));
  EXPECT_EQ(1, accounts.table.Update(account(5).data(), -1, 0));
  EXPECT_EQ(1, accounts.table.Delete(1, -1, 0));
  EXPECT_FALSE(accounts.is_mutex_free());
  EXPECT_TRUE(accounts.mutex.Release());
  EXPECT_TRUE(accounts.is_mutex_free());
}

// A duplicate that is searched before the mutex is taken, so that two threads insert one key.
TEST(TableEdit, DuplicateIsFoundUnderTheMutex) {
  LockedAccounts accounts;
  const auto insert = [](CRtTable &table) { return table.Insert(5, 0, 0); };
  EXPECT_EQ(-2, edit_that_waits(accounts, insert, [&] { EXPECT_EQ(0, accounts.table.Insert(5, 0, 0)); }));
  EXPECT_EQ(Keys{5}, accounts.keys());
}

// A count that is read again under the mutex.
TEST(ByDesign, CountBeforeLock) {
  LockedAccounts accounts;
  const auto insert = [](CRtTable &table) { return table.Insert(9, 0, 0); };
  EXPECT_EQ(-1, edit_that_waits(accounts, insert, [&] { accounts.fill({3, 5}, 6); }));
  EXPECT_EQ((Keys{3, 5}), accounts.keys());

  accounts.fill({3, 5}, 6);
  const auto insert_before = [](CRtTable &table) { return table.Insert(4, 0, 0); };
  const auto delete_first = [&] { EXPECT_EQ(1, accounts.table.Delete(3, -1, 0)); };
  EXPECT_EQ(0, edit_that_waits(accounts, insert_before, delete_first));
  EXPECT_EQ((Keys{4, 5, 0}), accounts.keys());
}

// A position that is looked for again under the mutex.
TEST(ByDesign, PositionNotRechecked) {
  LockedAccounts accounts;
  const auto delete_first = [&] { EXPECT_EQ(1, accounts.table.Delete(1, -1, 0)); };
  accounts.fill({1, 5, 9}, 10);
  const auto update = [](CRtTable &table) { return table.Update(account(5).data(), -1, 0); };
  EXPECT_EQ(1, edit_that_waits(accounts, update, delete_first));
  EXPECT_EQ((Keys{5, 5}), accounts.keys());

  accounts.fill({1, 5, 9}, 10);
  const auto remove = [](CRtTable &table) { return table.Delete(5, -1, 0); };
  EXPECT_EQ(1, edit_that_waits(accounts, remove, delete_first));
  EXPECT_EQ(Keys{5}, accounts.keys());
}

// A hint that is trusted, a sequence of edits that leaves order, content, stamps or counter wrong.
TEST(TableEdit, RandomEditsAgreeWithAMap) {
  struct Row {
    std::int32_t level, modified, project, status;
    bool operator==(const Row &) const = default;
  };
  const unsigned int seed = std::random_device{}();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  const auto below = [&](unsigned int limit) { return static_cast<std::int32_t>(random() % limit); };
  Accounts accounts(40);
  std::map<std::uint32_t, Row> model;
  std::uint32_t next = 1;
  for (int step = 0; step < 3000; ++step) {
    SCOPED_TRACE(step);
    const int project = below(2) * below(9), level = below(1000), status = below(5), hint = below(45) - 3;
    const auto key = static_cast<std::uint32_t>(below(60));
    std::string record = account(key, level, 3, status);
    const bool known = model.contains(key);
    if (const int event = below(5); event < 2) {
      const int position = accounts.table.Insert(record.data(), project);
      if (model.size() == 40 || known) {
        ASSERT_EQ(model.size() == 40 ? -1 : -2, position);
      } else {
        const std::uint32_t stored = key == 0 ? next : key;
        const bool last = model.empty() || model.rbegin()->first < stored;
        if (last) next = stored + 1;
        model[stored] = {level, 1, project == 0 ? 3 : project, project == 0 ? status : 2};
        ASSERT_EQ(std::distance(model.begin(), model.find(stored)), position);
      }
    } else if (event == 2) {
      const auto place = std::distance(model.begin(), model.find(key));
      ASSERT_EQ(known ? place : -1, accounts.table.Update(record.data(), hint, project));
      if (known) model[key] = {level, 1, project == 0 ? 3 : project, project != 0 && status == 1 ? 3 : status};
    } else if (key != 0) {
      ASSERT_EQ(known ? 1 : 0, accounts.table.Delete(key, hint, project));
      if (known && project != 0) {
        model[key] = {model[key].level, 1, project, 4};
      } else if (known) {
        model.erase(key);
        if (key == next - 1) next = model.empty() ? accounts.next_key() : model.rbegin()->first + 1;
      }
    }
    std::map<std::uint32_t, Row> found;
    const Keys keys = accounts.keys();
    for (std::size_t i = 0; i < keys.size(); ++i) {
      found[keys[i]] = {accounts.number(i, kLevel), accounts.number(i, kModified), accounts.number(i, kProject),
                        accounts.number(i, kStatus)};
    }
    ASSERT_TRUE(std::is_sorted(keys.begin(), keys.end()));
    ASSERT_EQ(model.size(), keys.size());
    ASSERT_TRUE(model == found);
    ASSERT_EQ(next, accounts.next_key());
  }
}
