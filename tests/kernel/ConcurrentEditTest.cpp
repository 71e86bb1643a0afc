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
constexpr std::size_t kLevelAt = 12;

// A record of the account table in the caller's memory.
struct Record {
  alignas(8) char bytes[kRecordSize] = {};

  [[nodiscard]] std::uint32_t key() const { return number<std::uint32_t>(0); }
  [[nodiscard]] std::int32_t level() const { return number<std::int32_t>(kLevelAt); }
  void set(std::uint32_t key, std::int32_t level) {
    std::memcpy(bytes, &key, sizeof key);
    std::memcpy(bytes + kLevelAt, &level, sizeof level);
  }
  template <class Number>
  [[nodiscard]] Number number(std::size_t at) const {
    Number value;
    std::memcpy(&value, bytes + at, sizeof value);
    return value;
  }
};

// An image whose second database has a name of its own, and with it a mutex that no other program takes.
class Image {
 public:
  Image() {
    std::string schema = schema_text({account_table()}, {account_table(kCapacity)});
    schema.replace(schema.find("Name=plant"), 10, "Name=" + name_.text());
    started_ = manager_.RtdbManagerInit(false, root_.write("schema.txt", schema).c_str());
  }

  [[nodiscard]] bool started() const { return started_; }
  [[nodiscard]] const char *name() const { return name_.c_str(); }
  // A database object for one thread, not mapped yet.
  std::unique_ptr<CRtDataBase> database() {
    auto database = std::make_unique<CRtDataBase>();
    EXPECT_EQ(manager_.GetDataBaseFromName(*database, name()), 1);
    return database;
  }

 private:
  MutexName name_;
  TestRoot root_;
  CRtdbManager manager_;
  bool started_ = false;
};

// What the table must hold: levels by key. Guarded by the database's mutex, like the table.
using Model = std::map<std::uint32_t, std::int32_t>;

// One edit under the mutex, in the table and in the model; whether the table did as it should.
bool edit(CRtTable &table, Model &model, std::mt19937 &random) {
  Record record;
  const auto level = static_cast<std::int32_t>(random());
  const unsigned action = random() % 8;
  if (model.empty() || action < 4) {
    record.set(0, level);
    const bool full = model.size() == kCapacity;
    const int position = table.Insert(record.bytes, 0);
    if (full || position < 0) return full && position == -1;
    return model.emplace(record.key(), level).second && position == static_cast<int>(model.size()) - 1;
  }
  auto chosen = model.lower_bound(static_cast<std::uint32_t>(random() % 4096));
  if (chosen == model.end()) chosen = model.begin();
  const std::uint32_t key = chosen->first;
  const auto place = static_cast<int>(std::distance(model.begin(), chosen));
  const int hint = static_cast<int>(random() % kCapacity) - 1;
  if (action < 6) {
    record.set(key, level);
    chosen->second = level;
    return table.Update(record.bytes, hint, 0) == place;
  }
  model.erase(chosen);
  return table.Delete(key, hint, 0) == 1 && table.FindRecordIndex(key) == -1;
}

TEST(ConcurrentEdit, ThreadsUnderTheDatabasesMutexKeepTheTableWhole) {
  constexpr int kThreads = 4;
  constexpr int kEdits = 1500;
  Image image;
  ASSERT_TRUE(image.started());
  const auto seed = std::random_device{}();
  SCOPED_TRACE(seed);
  Model model;
  std::array<int, kThreads> wrong{};
  std::vector<std::thread> threads;
  for (unsigned i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i, database = image.database()] {
      std::mt19937 random(seed + i);
      CRtTable table;
      if (database->AttachShareMemory() != 1 || database->GetDBTableFromID(table, 10) != 1) {
        wrong[i] = kEdits;
        return;
      }
      for (int round = 0; round < kEdits; ++round) {
        CMutexEx mutex;
        if (!mutex.Create(image.name()) || mutex.Wait(-1) != 0) ++wrong[i];
        if (!edit(table, model, random)) ++wrong[i];
        if (!mutex.Release()) ++wrong[i];
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(wrong, (std::array<int, kThreads>{}));

  const auto database = image.database();
  CRtTable table;
  ASSERT_EQ(database->AttachShareMemory(), 1);
  ASSERT_EQ(database->GetDBTableFromID(table, 10), 1);
  Model found;
  std::uint32_t last = 0;
  for (int position = 0; position < table.GetRecordCount(); ++position) {
    Record record;
    std::memcpy(record.bytes, table.GetAt(position), kRecordSize);
    EXPECT_GT(record.key(), last) << "position " << position;
    last = record.key();
    found[record.key()] = record.level();
    EXPECT_EQ(record.number<std::int32_t>(40), 1) << "bModified of position " << position;
  }
  EXPECT_EQ(found, model);
  EXPECT_GT(table.GetIDExclusive(), last);
}

// An edit that did not wait would show, in most rounds, while the mutex is held.
TEST(ConcurrentEdit, EditWaitsForTheHolderOfTheMutex) {
  Image image;
  ASSERT_TRUE(image.started());
  const auto database = image.database();
  CRtTable table;
  ASSERT_EQ(database->AttachShareMemory(), 1);
  ASSERT_EQ(database->GetDBTableFromID(table, 10), 1);
  CMutexEx mutex(image.name());
  const auto state = [&] {
    return std::string(table.GetDataAddress(), kRecordSize * 3) + std::to_string(table.GetRecordCount());
  };
  for (int round = 0; round < 60; ++round) {
    SCOPED_TRACE(round);
    std::atomic<bool> begins = false;
    int result = -9;
    ASSERT_EQ(mutex.Wait(0), 0);
    const std::string before = state();
    std::thread editor([&] {
      Record record;
      record.set(1, round);
      begins = true;
      result = round % 3 == 0   ? table.Insert(1u, 0, 0)
               : round % 3 == 1 ? table.Update(record.bytes, -1, 0)
                                : table.Delete(1, 0, 0);
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
  ASSERT_TRUE(image.started());
  const auto database = image.database();
  CRtTable table;
  ASSERT_EQ(database->AttachShareMemory(), 1);
  ASSERT_EQ(database->GetDBTableFromID(table, 10), 1);
  CMutexEx mutex(image.name());
  const auto abandon = [&] { ASSERT_EQ(on_other_thread([&] { return mutex.Wait(0); }), 0); };
  Record record;
  abandon();
  EXPECT_EQ(table.Insert(record.bytes, 0), 0);
  record.set(1, 77);
  abandon();
  EXPECT_EQ(table.Update(record.bytes, 0, 0), 0);
  std::memcpy(record.bytes, table.GetAt(0), kRecordSize);
  EXPECT_EQ(record.level(), 77);
  abandon();
  EXPECT_EQ(table.Delete(1, 0, 0), 1);
  EXPECT_EQ(table.GetRecordCount(), 0);
  EXPECT_EQ(on_other_thread([&] { return mutex.Wait(0); }), 0) << "the edit kept the abandoned mutex";
}

}  // namespace
