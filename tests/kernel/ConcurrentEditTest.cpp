#include <array>
#include <atomic>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

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

// What the table must hold: levels by key. Guarded by the database's mutex, like the table.
using Model = std::map<std::int32_t, std::int32_t>;

// One edit under the mutex, in the table and in the model; whether the table did as it should.
bool edit(CRtTable &table, Model &model, std::mt19937 &random) {
  const auto level = static_cast<std::int32_t>(random());
  const unsigned action = random() % 8;
  if (model.empty() || action < 4) {
    Record record = record_of(0, level);
    const bool full = model.size() == kCapacity;
    const int position = table.Insert(record.data(), 0);
    if (full || position < 0) return full && position == -1;
    return model.emplace(record[0], level).second && position == static_cast<int>(model.size()) - 1;
  }
  auto chosen = model.lower_bound(static_cast<std::int32_t>(random() % 4096));
  if (chosen == model.end()) chosen = model.begin();
  const int key = chosen->first;
  const int hint = static_cast<int>(random() % kCapacity) - 1;
  if (action < 6) {
    Record record = record_of(key, level);
    chosen->second = level;
    return table.Update(record.data(), hint, 0) == static_cast<int>(std::distance(model.begin(), chosen));
  }
  model.erase(chosen);
  const auto id = static_cast<std::uint32_t>(key);
  return table.Delete(id, hint, 0) == 1 && table.FindRecordIndex(id) == -1;
}

TEST(ConcurrentEdit, ThreadsUnderTheDatabasesMutexKeepTheTableWhole) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE(seed);
  Image image;
  Model model;
  std::atomic<int> wrong = 0;
  std::vector<std::thread> threads;
  for (unsigned i = 0; i < 4; ++i) {
    threads.emplace_back([&, i, view = std::make_unique<View>(image)] {
      std::mt19937 random(seed + i);
      for (int round = 0; round < 1500; ++round) {
        CMutexEx mutex;
        if (!mutex.Create(image.name.c_str()) || mutex.Wait(-1) != 0) ++wrong;
        if (!edit(view->table, model, random)) ++wrong;
        if (!mutex.Release()) ++wrong;
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);

  View view(image);
  Model found;
  int last = 0;
  for (int position = 0; position < view.table.GetRecordCount(); ++position) {
    Record record;
    std::memcpy(record.data(), view.table.GetAt(position), kRecordSize);
    EXPECT_GT(record[0], last) << "position " << position;
    last = record[0];
    found[last] = record[3];
    EXPECT_EQ(record[10], 1) << "bModified of position " << position;
  }
  EXPECT_EQ(found, model);
  EXPECT_GT(static_cast<int>(view.table.GetIDExclusive()), last);
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
