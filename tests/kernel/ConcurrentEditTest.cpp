#include <array>
#include <atomic>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <thread>

#include "quillanest/Quillanest.h"
#include "tests/support/Mutexes.h"
#include "tests/support/TestRoot.h"

namespace {

constexpr int kCapacity = 300;
constexpr std::size_t kRecordSize = 52;

// A record of the account table: number 0 is the key, number 3 the level, number 10 the mark of modification.
struct Record {
  std::array<std::int32_t, kRecordSize / 4> numbers{};

  char *data() { return reinterpret_cast<char *>(numbers.data()); }
  std::int32_t operator[](std::size_t number) const { return numbers[number]; }
};

Record record_of(std::int32_t key, std::int32_t level) { return {{key, 0, 0, level}}; }

// An image whose second database has a name of its own, and with it a mutex that no other program takes.
struct Image {
  MutexName name;
  TestRoot root;
  CRtdbManager manager;

  Image() {
    std::string schema = schema_text({account_table()}, {account_table(kCapacity)});
    schema.replace(schema.find("Name=plant"), 10, "Name=" + name.text());
    EXPECT_TRUE(manager.RtdbManagerInit(false, root.write("schema.txt", schema).c_str()));
  }
};

// One thread's view of the table.
struct View {
  CRtDataBase database;
  CRtTable table;

  explicit View(Image &image) {
    EXPECT_EQ(image.manager.GetDataBaseFromName(database, image.name.c_str()), 1);
    EXPECT_EQ(database.AttachShareMemory(), 1);
    EXPECT_EQ(database.GetDBTableFromID(table, 10), 1);
  }
};

// A manager that attaches while another one builds the image sees nothing of it, or a whole directory.
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
    EXPECT_EQ(table.GetTableSize(), static_cast<int>(kRecordSize));
    starter.join();
    EXPECT_TRUE(started);
  }
}

// An insertion, a change and a deletion of one record in turn.
int edit_by_number(CRtTable &table, int number) {
  Record record = record_of(1, number);
  if (number % 3 == 0) return table.Insert(record.data(), 0);
  return number % 3 == 1 ? table.Update(record.data(), -1, 0) : table.Delete(1, 0, 0);
}

// An edit that did not wait would show, in most rounds, while the mutex is held.
TEST(ConcurrentEdit, EditWaitsForTheHolderOfTheMutex) {
  Image image;
  View view(image);
  CMutexEx mutex(image.name.c_str());
  const auto state = [&] {
    return std::string(view.table.GetDataAddress(), kRecordSize * 3) + std::to_string(view.table.GetRecordCount());
  };
  for (int round = 0; round < 60; ++round) {
    SCOPED_TRACE(round);
    std::atomic<bool> begins = false;
    int result = -9;
    ASSERT_EQ(mutex.Wait(0), 0);
    const std::string before = state();
    std::thread editor([&] {
      begins = true;
      result = edit_by_number(view.table, round);
    });
    while (!begins) std::this_thread::yield();
    for (int i = 0; i < 200; ++i) std::this_thread::yield();
    EXPECT_EQ(state(), before) << "edited under another thread's mutex";
    EXPECT_TRUE(mutex.Release());
    editor.join();
    EXPECT_EQ(result, round % 3 == 2 ? 1 : 0);
    EXPECT_NE(state(), before);
  }
}

TEST(ByDesign, WaitNotExamined) {
  Image image;
  View view(image);
  CMutexEx mutex(image.name.c_str());
  for (int round = 0; round < 6; ++round) {
    ASSERT_EQ(on_other_thread([&] { return mutex.Wait(0); }), 0) << "the edit before kept the mutex";
    EXPECT_EQ(edit_by_number(view.table, round), round % 3 == 2 ? 1 : 0) << "edit " << round;
    EXPECT_EQ(view.table.GetRecordCount(), round % 3 == 2 ? 0 : 1);
  }
}

}  // namespace
