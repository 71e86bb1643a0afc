#include <cstring>
#include <gtest/gtest.h>
#include <set>

#include "quillanest/Quillanest.h"
#include "tests/support/Child.h"
#include "tests/support/Mutexes.h"
#include "tests/support/TestRoot.h"

namespace {

constexpr int kRecords = 8000;  // some 500,000 bytes of data file, more than a buffer of the writer holds
constexpr int kLevelField = 2;

// The image of the account table that a root's schema describes.
struct Image {
  CRtdbManager manager;
  CRtTable table;
  bool started = false;

  explicit Image(const std::string &schema)
      : started(manager.RtdbManagerInit(false, schema.c_str()) && manager.GetSystemTable(table, 10u) == 1) {}

  // Fills the table up, gives every record the same level and saves.
  bool save(int level) {
    while (table.GetRecordCount() < kRecords) (void)table.Insert(0u, 0, 0);
    char value[sizeof level];
    std::memcpy(value, &level, sizeof level);
    table.SetColumnValueAt(kLevelField, value, 0, kRecords);
    return manager.SaveData(0);
  }
};

// The one level of all records that a new start loads, when there are as many as there should be; else -1.
int loaded_level(const std::string &schema) {
  const Image image(schema);
  std::set<int> levels;
  for (int position = 0; image.started && position < image.table.GetRecordCount(); ++position) {
    int level = -1;
    char value[sizeof level] = {};
    if (image.table.GetFieldDataAt(position, kLevelField, value) != 1) return -1;
    std::memcpy(&level, value, sizeof level);
    levels.insert(level);
  }
  return levels.size() == 1 && image.table.GetRecordCount() == kRecords ? *levels.begin() : -1;
}

// Arguments: schema, database, first level. Saves one level after the other until it is killed.
int save_for_ever(const std::vector<std::string> &arguments) {
  Image image(arguments[0]);
  CMutexEx mutex(arguments[1].c_str());
  if (!image.started || mutex.Wait(-1) < 0) return 1;
  for (int level = std::stoi(arguments[2]); image.save(level); ++level) say("saved");
  return 2;
}
const RegisterChild kSaver{"save_for_ever", save_for_ever};

// Arguments: schema, database. Inserts under the database's mutex and holds it.
int hold_edit(const std::vector<std::string> &arguments) {
  Image image(arguments[0]);
  CMutexEx mutex(arguments[1].c_str());
  if (!image.started || mutex.Wait(-1) < 0 || image.table.Insert(7u, 0, 0) != 0) return 1;
  say("held");
  wait_for_the_end();
}
const RegisterChild kHolder{"hold_edit", hold_edit};

// The table lies in a database whose mutex no other program takes.
TEST(Death, InsideAnEditBlocksNobodyAndLeavesNothing) {
  const TestRoot root;
  const MutexName name;
  std::string text = schema_text({account_table()});
  text.replace(text.find("Name=system"), 11, "Name=" + name.text());
  const std::string schema = root.write("schema.txt", text);
  for (int round = 0; round < 3; ++round) {
    SCOPED_TRACE(round);
    Child holder("hold_edit", {schema, name.text()});
    ASSERT_EQ(holder.hear(), "held");
    CMutexEx mutex(name.c_str());
    EXPECT_EQ(mutex.Wait(0), 0x102);
    holder.kill();
    EXPECT_EQ(mutex.Wait(-1), 0x80);
    EXPECT_TRUE(mutex.Release());
    Image image(schema);
    EXPECT_EQ(image.table.GetRecordCount(), 0);
    EXPECT_EQ(image.table.Insert(7u, 0, 0), 0);
    EXPECT_EQ(on_other_thread([&] { return mutex.Wait(0); }), 0) << "the edit kept the mutex";
  }
}

TEST(Death, AtAnyMomentOfASaveLeavesAWholeFile) {
  const TestRoot root;
  const std::string schema = root.write("schema.txt", schema_text({account_table(kRecords)}));
  int level = 0;
  for (int round = 0; round < 20; ++round) {
    SCOPED_TRACE(round);
    const MutexName name;
    Child saver("save_for_ever", {schema, name.text(), std::to_string(level + 1)});
    for (int save = 0; save <= round % 3; ++save) ASSERT_EQ(saver.hear(), "saved");
    // In half of the rounds death comes after the new content was begun.
    while (round % 2 == 0 && !root.exists("data/system_Account.txt.saving")) std::this_thread::yield();
    saver.kill();
    EXPECT_EQ(CMutexEx(name.c_str()).Wait(-1), 0x80);
    const int now = loaded_level(schema);
    ASSERT_GE(now, level + 1 + round % 3) << "the file is not whole, or a save that was reported is lost";
    level = now;
  }
  EXPECT_TRUE(Image(schema).save(level));
  EXPECT_EQ(root.files("data"), std::vector<std::string>{"system_Account.txt"});
}

}  // namespace
