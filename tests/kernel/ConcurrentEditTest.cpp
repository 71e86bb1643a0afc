// Starts and edits while other threads are at work; also run under ThreadSanitizer.
#include <atomic>
#include <gtest/gtest.h>
#include <string>
#include <thread>

#include "tests/kernel/LockedAccounts.h"

namespace {

// Catches: a manager that attaches while another one builds the image sees nothing of it, or a whole directory.
TEST(ConcurrentStart, AttachingSeesAWholeDirectory) {
  for (int round = 0; round < 20; ++round) {
    const TestRoot root;
    const std::string schema = root.write("schema.txt", schema_text({account_table()}, {account_table()}));
    std::thread starter;
    CRtdbManager manager;
    std::atomic<bool> started = false;
    starter = std::thread([&] {
      EXPECT_TRUE(manager.RtdbManagerInit(false, schema.c_str()));
      started = true;
    });
    CRtdbManager second;
    CRtDataBase plant;
    while (second.AttachShareMemory() == 0 || second.GetDataBaseFromName(plant, "plant") == 0) {
      std::this_thread::yield();
    }
    EXPECT_EQ(plant.AttachShareMemory(), 1);
    CRtTable table;
    EXPECT_EQ(plant.GetDBTableFromID(table, 10), 1);
    EXPECT_EQ(table.GetTableSize(), 52);
    starter.join();
    EXPECT_TRUE(started);
  }
}

// An insertion, a change and a deletion of one record in turn.
int edit_by_number(CRtTable &table, int number) {
  std::string record = account(1, number);
  if (number % 3 == 0) return table.Insert(record.data(), 0);
  return number % 3 == 1 ? table.Update(record.data(), -1, 0) : table.Delete(1, 0, 0);
}

// Catches: an edit that does not wait while the mutex is held, in most rounds.
TEST(ConcurrentEdit, EditWaitsForTheHolderOfTheMutex) {
  LockedAccounts accounts;
  const auto state = [&] { return accounts.area() + std::to_string(accounts.table.GetRecordCount()); };
  for (int round = 0; round < 60; ++round) {
    SCOPED_TRACE(round);
    std::atomic<bool> begins = false;
    int result = -9;
    ASSERT_EQ(accounts.mutex.Wait(0), 0);
    const std::string before = state();
    std::thread editor([&] {
      begins = true;
      result = edit_by_number(accounts.table, round);
    });
    while (!begins) std::this_thread::yield();
    for (int i = 0; i < 200; ++i) std::this_thread::yield();
    EXPECT_EQ(state(), before) << "edited under another thread's mutex";
    EXPECT_TRUE(accounts.mutex.Release());
    editor.join();
    EXPECT_EQ(result, round % 3 == 2 ? 1 : 0);
    EXPECT_NE(state(), before);
  }
}

TEST(ByDesign, WaitNotExamined) {
  LockedAccounts accounts;
  for (int round = 0; round < 6; ++round) {
    ASSERT_EQ(on_other_thread([&] { return accounts.mutex.Wait(0); }), 0) << "the edit before kept the mutex";
    EXPECT_EQ(edit_by_number(accounts.table, round), round % 3 == 2 ? 1 : 0) << "edit " << round;
    EXPECT_EQ(accounts.table.GetRecordCount(), round % 3 == 2 ? 0 : 1);
  }
}

// Catches: a save of the strict mode that sees half an edit, refuses a table because of one, or loses a mark.
TEST(ConcurrentEdit, StrictSavesSeeWholeEdits) {
  constexpr std::uint32_t kRecordsMade = 400;
  Image image(schema_text({account_table(1000)}), "Strict=1\n");
  CRtTable table = image.table(10);
  std::atomic<bool> ends = false;
  std::thread editor([&] {
    CRtTable own = image.table(10);
    for (std::uint32_t key = kRecordsMade; key > 0; --key) {  // each one moves all others
      std::string record = account(key, static_cast<int>(key));
      put(record.data(), Account::kSince, SYSTEMTIME{2001, 2, 6, 3, 10, 20, 30, 0});
      EXPECT_EQ(own.Insert(record.data(), 0), 0);
    }
    ends = true;
  });
  int saves = 0;
  for (; !ends || saves < 3; ++saves) EXPECT_TRUE(table.SaveData(0)) << quillanest::last_failure();
  editor.join();
  EXPECT_TRUE(table.SaveData(0)) << quillanest::last_failure();
  table.DeleteAllRecord();
  ASSERT_TRUE(image.manager.LoadTableData(1, 10, nullptr)) << quillanest::last_failure();
  ASSERT_EQ(table.GetRecordCount(), static_cast<int>(kRecordsMade));
  for (int i = 0; i < table.GetRecordCount(); ++i) EXPECT_EQ(peek(table.GetAt(i), Account::kLevel), i + 1);
}

}  // namespace
