#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include "quillanest/Quillanest.h"
#include "tests/support/Child.h"
#include "tests/support/Mutexes.h"
#include "tests/support/TestRoot.h"

namespace {

namespace fs = std::filesystem;

constexpr int kRecords = 8000;  // some 500,000 bytes of data file, more than a buffer of the writer holds
constexpr int kLevelField = 2;

// The image of the account table that a root's schema describes.
struct Image {
  CRtdbManager manager;
  CRtTable table;
  bool started = false;

  explicit Image(const std::string &schema)
      : started(manager.RtdbManagerInit(false, schema.c_str()) && manager.GetSystemTable(table, 10u) == 1) {}

  // Fills the table up and gives every record the same level.
  void set_level(int level) {
    while (table.GetRecordCount() < kRecords) (void)table.Insert(0u, 0, 0);
    char value[sizeof level];
    std::memcpy(value, &level, sizeof level);
    table.SetColumnValueAt(kLevelField, value, 0, kRecords);
  }
};

// The one level of all records, when there are as many as there should be; else -1.
int level_of(const CRtTable &table) {
  int level = -1;
  for (int position = 0; position < table.GetRecordCount(); ++position) {
    int found = -1;
    char value[sizeof found] = {};
    if (table.GetFieldDataAt(position, kLevelField, value) != 1) return -1;
    std::memcpy(&found, value, sizeof found);
    if (position > 0 && found != level) return -1;
    level = found;
  }
  return table.GetRecordCount() == kRecords ? level : -1;
}

std::vector<std::string> segments_left_behind() {
  std::vector<std::string> names;
  for (const char *folder : {"/dev/shm", "/tmp", "."}) {
    for (const auto &entry : fs::directory_iterator(folder)) {
      const std::string name = entry.path().filename().string();
      if (name.starts_with("SM_")) names.push_back(entry.path().string());
    }
  }
  return names;
}

// Arguments: schema, database, first level. Saves one level after the other until it is killed.
int save_for_ever(const std::vector<std::string> &arguments) {
  Image image(arguments[0]);
  CMutexEx mutex(arguments[1].c_str());
  if (!image.started || mutex.Wait(-1) < 0) return 1;
  for (int level = std::stoi(arguments[2]);; ++level) {
    image.set_level(level);
    say("saving");
    if (!image.manager.SaveData(0)) return 2;
  }
}
const RegisterChild kSaver{"save_for_ever", save_for_ever};

// Arguments: schema, level, bytes. The system kills it when it has written that many bytes of a file.
int die_while_saving(const std::vector<std::string> &arguments) {
  Image image(arguments[0]);
  if (!image.started) return 1;
  image.set_level(std::stoi(arguments[1]));
  const rlimit no_core{0, 0};
  const rlimit bytes{std::stoul(arguments[2]), RLIM_INFINITY};
  setrlimit(RLIMIT_CORE, &no_core);
  signal(SIGXFSZ, SIG_DFL);
  setrlimit(RLIMIT_FSIZE, &bytes);
  (void)image.manager.SaveData(0);
  return 2;
}
const RegisterChild kDier{"die_while_saving", die_while_saving};

// Arguments: schema, database. Inserts under the database's mutex and holds it.
int hold_edit(const std::vector<std::string> &arguments) {
  CRtdbManager manager;
  CRtDataBase database;
  CRtTable table;
  if (!manager.RtdbManagerInit(false, arguments[0].c_str())) return 1;
  if (manager.FindTable(20, database, table) != 1) return 2;
  CMutexEx mutex(arguments[1].c_str());
  if (mutex.Wait(-1) < 0 || table.Insert(7u, 0, 0) != 0) return 3;
  say("held");
  wait_for_the_end();
}
const RegisterChild kHolder{"hold_edit", hold_edit};

TEST(Death, InsideAnEditBlocksNobodyAndLeavesNothing) {
  const TestRoot root;
  const MutexName name;
  TableSpec other = account_table();
  other.id = 20;
  std::string schema = schema_text({account_table()}, {other});
  schema.replace(schema.find("Name=plant"), 10, "Name=" + name.text());
  root.write("schema.txt", schema);
  for (int round = 0; round < 3; ++round) {
    SCOPED_TRACE(round);
    Child holder("hold_edit", {root.path("schema.txt"), name.text()});
    ASSERT_EQ(holder.hear(), "held");
    CMutexEx mutex(name.c_str());
    EXPECT_EQ(mutex.Wait(0), 0x102);
    holder.kill();
    EXPECT_EQ(mutex.Wait(-1), 0x80);
    EXPECT_TRUE(mutex.Release());
    EXPECT_EQ(segments_left_behind(), std::vector<std::string>{});

    CRtdbManager manager;
    CRtDataBase database;
    CRtTable table;
    ASSERT_TRUE(manager.RtdbManagerInit(false, root.path("schema.txt").c_str()));
    ASSERT_EQ(manager.FindTable(20, database, table), 1);
    EXPECT_EQ(table.GetRecordCount(), 0);
    EXPECT_EQ(table.Insert(7u, 0, 0), 0);
    EXPECT_EQ(on_other_thread([&] { return mutex.Wait(0); }), 0) << "the edit kept the mutex";
  }
}

// A root whose data file holds level 0 in all records.
struct SavedRoot {
  TestRoot root;
  std::string schema;

  SavedRoot() : schema(root.write("schema.txt", schema_text({account_table(kRecords)}))) {
    Image image(schema);
    image.set_level(0);
    saved = image.started && image.manager.SaveData(0);
  }
  bool saved = false;

  // The level that a new start loads.
  [[nodiscard]] int loaded_level() const {
    const Image image(schema);
    return image.started ? level_of(image.table) : -2;
  }
};

TEST(Death, InsideAWriteLeavesTheFormerFile) {
  const SavedRoot saved;
  ASSERT_TRUE(saved.saved);
  const std::string former = saved.root.read("data/system_Account.txt");
  ASSERT_GT(former.size(), 300'000u);
  for (const char *bytes : {"0", "1", "4096", "262144", "300000"}) {
    SCOPED_TRACE(bytes);
    Child child("die_while_saving", {saved.schema, "5", bytes});
    ASSERT_EQ(child.wait(), -1) << "it did not die of a signal";
    EXPECT_EQ(saved.root.files("data"), (std::vector<std::string>{"system_Account.txt", "system_Account.txt.saving"}));
    EXPECT_EQ(saved.root.read("data/system_Account.txt.saving").size(), std::stoul(bytes));
    EXPECT_EQ(saved.root.read("data/system_Account.txt"), former);
    EXPECT_EQ(saved.loaded_level(), 0);
  }
  Image image(saved.schema);
  image.set_level(6);
  EXPECT_TRUE(image.manager.SaveData(0));
  EXPECT_EQ(saved.root.files("data"), std::vector<std::string>{"system_Account.txt"});
}

TEST(Death, AtAnyMomentOfASaveLeavesAWholeFile) {
  const SavedRoot saved;
  ASSERT_TRUE(saved.saved);
  int level = 0;
  for (int round = 0; round < 20; ++round) {
    SCOPED_TRACE(round);
    const MutexName name;
    Child saver("save_for_ever", {saved.schema, name.text(), std::to_string(level + 1)});
    for (int save = 0; save <= round % 3; ++save) ASSERT_EQ(saver.hear(), "saving");
    // In half of the rounds death comes after the new content was begun.
    while (round % 2 == 0 && !saved.root.exists("data/system_Account.txt.saving")) std::this_thread::yield();
    saver.kill();
    CMutexEx mutex(name.c_str());
    EXPECT_EQ(mutex.Wait(-1), 0x80);
    EXPECT_TRUE(mutex.Release());

    const int now = saved.loaded_level();
    EXPECT_GE(now, level + round % 3) << "a save that was reported is lost";
    ASSERT_GE(now, 0) << "the file is neither the old nor the new one";
    level = now;
  }
  EXPECT_EQ(segments_left_behind(), std::vector<std::string>{});
}

}  // namespace
