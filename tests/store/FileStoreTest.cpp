// The relational store in a database file: its dates, its locks, and what a file may bring along.
#include <array>
#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <thread>

#include "quillanest/shm/Bytes.h"
#include "quillanest/sql/Engines.h"
#include "tests/store/StoreFixture.h"

namespace {

// Catches: a form of dates that is not read, a date with padding, and a text that is taken for one.
TEST(FileDatabase, DatesInEveryForm) {
  const struct {
    const char *value, *expected;
  } rows[] = {{"'2008-5-3 14:7:9'", "2008-5-3 14:7:9.0 day 6"},
              {"39571.5", "2008-5-3 12:0:0.0 day 6"},
              {"'soon'", "0-0-0 0:0:0.0 day 0"},
              {"NULL", "0-0-0 0:0:0.0 day 0"}};
  for (const std::string type : {"DATETIME", "TEXT", "", "timestamp"}) {
    StoreImage image("F", {{30, "Stamped", 20, {"ID UINT 4", "Since TIME 16", "Name STRING 24"}}});
    CRtTable table = image.table(30, "ID INTEGER, Since " + type + ", Name TEXT");
    for (const auto &row : rows) {
      image.run("INSERT INTO plant_Stamped VALUES(1," + std::string(row.value) + ",'#1 is no #date#')");
    }
    ASSERT_EQ(image.manager->LoadAllCustomizedDB(0), 1);
    ASSERT_EQ(table.GetRecordCount(), 4);
    for (int i = 0; i < 4; ++i) {
      EXPECT_EQ(time_text(value_at<SYSTEMTIME>(table.GetAt(i), 4)), rows[i].expected) << type << ' ' << rows[i].value;
    }
    EXPECT_TRUE(table.SaveData(0));
    EXPECT_EQ(image.rows("SELECT Since, Name FROM plant_Stamped LIMIT 1"), "2008-5-3 14:7:9|#1 is no #date#\n");
  }
}

// Catches: rows that are kept on their own after one of them has ended the whole transaction.
TEST(FileDatabase, TransactionThatEndsEarlyKeepsTheFormerRows) {
  StoreImage image;
  Item item{.key = 1, .name = "former", .level = 1};
  image.add(item);
  ASSERT_TRUE(image.item.SaveData(0));
  image.run(
      "CREATE TRIGGER refuse BEFORE INSERT ON plant_Item WHEN NEW.Level = 2 BEGIN SELECT RAISE(ROLLBACK, 'no'); END");
  std::string records = record_text({item});
  for (item = {.key = 2, .name = "new", .level = 2, .modified = 1}; item.key < 5; ++item.key, ++item.level) {
    image.add(item);
    records += record_text({item});
  }
  EXPECT_FALSE(image.item.SaveData(0));
  EXPECT_EQ(image.stored(), row_text({{.key = 1, .name = "former", .level = 1}}));
  EXPECT_EQ(image.records(), records);
}

// Catches: a save larger than any cache that waits for a reader of the file at every page.
TEST(FileDatabase, ReaderDelaysASaveOnce) {
  StoreImage image("F", {}, 30'000);
  const Item former{.key = 1, .name = "former", .level = 1};
  image.store({former});
  while (image.item.GetRecordCount() < 30'000) image.add({.name = std::string(15, 'n')});
  OtherProgram reader(image.root, "BEGIN; SELECT * FROM plant_Item");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(image.item.SaveData(0));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  reader.end();
  EXPECT_EQ(image.stored(), row_text({former}));
  EXPECT_TRUE(image.item.SaveData(0));
  EXPECT_EQ(image.rows("SELECT count(*), sum(Level), max(ID) FROM plant_Item"), "30000|0|30000\n");
}

// Catches: a locked file that counts as missing, so that a save is true and writes nothing; a wait at every table.
TEST(FileDatabase, LockedByAnotherProgramRejects) {
  std::vector<TableSpec> others;
  for (int i = 0; i < 6; ++i) others.push_back({30 + i, "Other" + std::to_string(i), 1, {"ID UINT 4"}});
  for (const std::string slots : {"F", "FS", "SF"}) {
    SCOPED_TRACE(slots);
    StoreImage image(slots, others);
    image.store({{.key = 9, .name = "former", .level = 9}});
    image.add({.key = 1, .name = "new", .level = 7, .pass = "open"});
    OtherProgram other(image.root, "BEGIN EXCLUSIVE");
    const auto start = std::chrono::steady_clock::now();
    if (slots == "F") {
      EXPECT_TRUE(image.manager->SaveData(0)) << "the whole is true if single tables fail";
      EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), 0);
    } else {
      EXPECT_FALSE(image.item.SaveData(0));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(5800)) << "2 seconds for each call";
    EXPECT_EQ(image.records(), record_text({{.key = 1, .name = "new", .level = 7, .pass = "open", .modified = 1}}));
    poke(image.item.GetAt(0), Item::kModified, 0);
    EXPECT_TRUE(image.item.SaveData(5)) << "nothing is asked for without a change";
    other.end();
    EXPECT_EQ(image.stored(), row_text({{.key = 9, .name = "former", .level = 9}}));
    EXPECT_TRUE(image.item.SaveData(0));
    EXPECT_EQ(image.stored(), row_text({{.key = 1, .name = "new", .level = 7}}));
  }
}

// Catches: a view without end that hangs the load, and what a file brings along that runs with all rights.
TEST(FileDatabase, HostileFilesComeToAnEnd) {
  const TestRoot root;
  FileStore store(root);
  (void)store.run(
      "CREATE TABLE t(x); INSERT INTO t VALUES(1); CREATE VIEW foreign_one AS SELECT * FROM pragma_user_version;"
      "CREATE VIEW endless AS WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) SELECT i FROM n");
  const auto connection = quillanest::open_sqlite(store.path(), std::chrono::milliseconds(200));
  EXPECT_EQ(connection->query("SELECT i FROM endless", 6).row_count(), 6U);
  EXPECT_THROW((void)connection->query("SELECT i FROM endless ORDER BY i", 6), _com_error);
  EXPECT_THROW((void)connection->execute("DELETE FROM t WHERE x < (SELECT max(i) FROM endless)"), _com_error);
  EXPECT_THROW((void)connection->query("SELECT * FROM foreign_one", 6), _com_error);
  (void)connection->execute("PRAGMA writable_schema = 1");
  EXPECT_THROW((void)connection->execute("DELETE FROM sqlite_schema"), _com_error);
  EXPECT_EQ(connection->execute("DELETE FROM t"), 1) << "every statement has its own time";
}

// Catches: descriptors that another thread changes and that are read twice, the second time without a test.
TEST(FileDatabase, DescriptorsThatChangeUnderWay) {
  StoreImage image;
  image.store({{.key = 1, .name = "one"}});
  auto &offset = const_cast<_table_attr *>(image.item.GetTableInfo())->FieldOffset;
  std::atomic<bool> ends{false};
  std::thread changing([&, whole = offset] {
    while (!ends) {
      for (const std::int32_t value : {-1, whole}) quillanest::store_shared(offset, value);
    }
  });
  const auto often = [](auto call) {
    for (int i = 0; i < 300; ++i) call();
  };
  std::array<char, Item::kSize> record{};
  often([&] { (void)image.manager->LoadAllCustomizedDB(0); });
  often([&] { (void)image.item.InsertRecordToDb(record.data()); });
  often([&] {
    image.item.SetRecordCount(5);
    (void)image.item.SaveData(0);
  });
  ends = true;
  changing.join();
}

}  // namespace
