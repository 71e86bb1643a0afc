// The strict mode on real stores: what is true is there as a whole, and what is refused has changed nothing.
#include <cmath>
#include <filesystem>
#include <functional>
#include <limits>

#include "tests/store/Backends.h"
#include "tests/store/KindsImage.h"
#include "tests/support/Recorder.h"

namespace {

using StrictStore = StoreScenario;
INSTANTIATE_TEST_SUITE_P(Backends, StrictStore, kBackends, name_of_backend);

void make_strict(const StoreImage &image, const std::string &settings) {
  const std::string key = image.root.write("password.key", "not a secret");
  std::filesystem::permissions(key, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
  image.root.configure("DataInFile=0\nStrict=1\nPasswdKeyFile=password.key\nRtdbDataPath=data/\n[RtdbMedia]\n" +
                       settings);
}

// An image in the strict mode, loaded from its empty tables.
struct StrictImage : KindsImage {
  explicit StrictImage(std::string_view slots, const std::string &columns = kKindsColumns)
      : KindsImage(slots, columns), events(root.folder()) {
    (void)kinds.SaveData(0);  // by default; what it leaves is not looked at
    make_strict(*this, settings());
    EXPECT_EQ(manager->LoadAllCustomizedDB(0), 1) << quillanest::last_failure();
    events.events.clear();
  }
  Recorder events;
};

// Catches: a value of any type, quotes and backslashes, numbers that are not finite, an empty time or text, that does
// not come back exactly.
TEST_P(StrictStore, EveryValueComesBack) {
  StrictImage image(slots());
  std::vector<Kinds> records(std::begin(kEnds), std::end(kEnds));
  records[1].a_char = 'x';
  records[1].a_uchar = 0;
  records[1].a_double = 0.1;
  records[1].a_float = 0.1F;
  records[1].a_time = {};
  records[2].a_double = std::numeric_limits<double>::quiet_NaN();
  records[2].a_float = -std::numeric_limits<float>::infinity();
  std::strcpy(records[2].a_text, "O'Brien\\' ;\r\n\"'');--");
  std::strcpy(records[0].a_text, "");
  for (const Kinds &record : records) image.add(record);
  ASSERT_TRUE(image.kinds.SaveData(0)) << image.events.text();
  EXPECT_EQ(image.events.text(), "");
  image.kinds.DeleteAllRecord();
  ASSERT_EQ(image.manager->LoadAllCustomizedDB(0), 1) << image.events.text();
  EXPECT_TRUE(std::isnan(value_at<double>(image.kinds.GetAt(2), offsetof(Kinds, a_double))));
  records[2].a_double = 1;
  put(image.kinds.GetAt(2), offsetof(Kinds, a_double), 1.0);
  for (int i = 0; i < 3; ++i) image.expect(i, records[static_cast<std::size_t>(i)]);
}

// Catches: a number whose last bit is lost on the way to a store or back.
TEST_P(StrictStore, NumbersAreExact) {
  StoreImage image(slots(), {{22, "Numbers", 3000, {"ID UINT 4", "Value DOUBLE 8", "Small FLOAT 4"}}});
  CRtTable numbers = image.table(22, "ID bigint, Value double precision, Small real");
  make_strict(image, image.settings());
  ASSERT_EQ(image.manager->LoadAllCustomizedDB(0), 1);
  std::uint64_t bits = 88172645463325252U;
  for (std::uint32_t key = 1; key <= 3000; ++key) {
    bits ^= bits << 13, bits ^= bits >> 7, bits ^= bits << 17;
    char *record = numbers.GetAt(numbers.Insert(key, 0, 0));
    const double value = static_cast<double>(bits >> 11) * (key % 2 == 0 ? 1e-16 : 1e-290);
    put(record, 4, value);
    put(record, 12, static_cast<float>(static_cast<double>(bits >> 40) * 1e-7));
  }
  const std::string before = bytes_at(numbers.GetAt(0), std::size_t{3000} * 16);
  ASSERT_TRUE(numbers.SaveData(0)) << quillanest::last_failure();
  numbers.DeleteAllRecord();
  ASSERT_EQ(image.manager->LoadAllCustomizedDB(0), 1) << quillanest::last_failure();
  EXPECT_TRUE(bytes_at(numbers.GetAt(0), std::size_t{3000} * 16) == before);
}

// Catches: columns that are found by their place, reserved words as names, names in another case.
TEST_P(StrictStore, ColumnsAreNamed) {
  StoreImage image(slots(), {{22, "Words", 4, {"ID UINT 4", "order INT 4", "User STRING 8", "full DOUBLE 8"}}});
  CRtTable words = image.table(22, "\"full\" double precision, \"user\" varchar(20), \"order\" integer, ID bigint");
  make_strict(image, image.settings());
  ASSERT_EQ(image.manager->LoadAllCustomizedDB(0), 1) << quillanest::last_failure();
  char *record = words.GetAt(words.Insert(7, 0, 0));
  poke(record, 4, 12);
  std::strcpy(record + 8, "ann");
  put(record, 16, 2.5);
  ASSERT_TRUE(words.SaveData(0)) << quillanest::last_failure();
  EXPECT_EQ(image.rows("SELECT ID, \"order\", \"user\", \"full\" FROM plant_Words"), "7|12|ann|2.5\n");
}

// Catches: a save or load that the store cannot carry and that is true, changes a database or a mark, or has no reason.
TEST_P(StrictStore, WhatDoesNotFitIsRefused) {
  const struct {
    const char *change;  // of the table in every store, before the load
    bool loads;
    const char *event;
  } rows[] = {
      {"ALTER TABLE plant_Item ADD COLUMN more integer", false,
       "error plant_Item store.column: the column \"more\" of the store's table is not that of one field"},
      {"ALTER TABLE plant_Item RENAME COLUMN Level TO Levle", false,
       "error plant_Item store.column: the store's table has no column \"Level\""},
      {"DROP TABLE plant_Item", false, "error plant_Item store.query: the rows cannot be read: "},
      {"INSERT INTO plant_Item (ID, Name, iProjectID) VALUES (9, 'a text of seventeen', 0)", false,
       "error plant_Item store.value: the row with the ID 9: the value of \"Name\" is longer than the field"},
      {"INSERT INTO plant_Item (ID, Name, iProjectID) VALUES (3, 'twin', 0)", false,
       "error plant_Item store.order: a row with the ID 3 is not after one with a smaller ID"},
      {"INSERT INTO plant_Item (ID, Name, iProjectID) VALUES (11, 'a', 0), (12, 'b', 0), (13, 'c', 0)", false,
       "error plant_Item store.capacity: the table has room for 5 records, and the store has more"},
      {"UPDATE plant_Item SET Level = 7 WHERE ID = 3", true, ""},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.change);
    StoreImage image(slots());
    image.store({{.key = 1, .name = "one", .level = 1},
                 {.key = 3, .name = "three", .level = 3},
                 {.key = 5, .name = "five", .level = 5}});
    make_strict(image, image.settings());
    ASSERT_EQ(image.manager->LoadAllCustomizedDB(0), 1) << quillanest::last_failure();
    const std::string records = image.records();
    poke(image.item.GetAt(0), Item::kModified, 1);
    image.run(row.change);
    const Recorder events(image.root.folder());
    EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), row.loads ? 1 : 0);
    if (row.loads) continue;
    EXPECT_TRUE(events.has(row.event)) << events.text();
    poke(image.item.GetAt(0), Item::kModified, 0);
    EXPECT_EQ(image.records(), records);
  }
}

// Catches: one refused row that costs the others, a mark that is lost with it, a value in the sentence.
TEST_P(StrictStore, RefusedRowsRollBack) {
  StoreImage image(slots());
  image.store({{.key = 1, .name = "one", .level = 1}});
  make_strict(image, image.settings());
  ASSERT_EQ(image.manager->LoadAllCustomizedDB(0), 1);
  (void)image.add({.key = 2, .name = "secret", .level = 4000});  // the store checks for less than 1000
  poke(image.item.GetAt(0), Item::kLevel, 2);
  const std::string before = image.stored();
  const Recorder events(image.root.folder());
  for (const int project : {0, 5}) {
    poke(image.item.GetAt(1), Item::kProject, project);
    EXPECT_FALSE(image.item.SaveData(project));
    EXPECT_FALSE(image.manager->SaveData(project));
    EXPECT_EQ(image.stored(), before);
    EXPECT_EQ(peek(image.item.GetAt(1), Item::kModified), 1);
  }
  EXPECT_TRUE(events.has("error plant_Item store.row: the record with the ID 2 is not saved: ")) << events.text();
  EXPECT_EQ(events.text().find("secret"), std::string::npos) << events.text();
  poke(image.item.GetAt(1), Item::kLevel, 40);
  EXPECT_TRUE(image.item.SaveData(5)) << events.text();
  EXPECT_EQ(image.stored(), before + "2|secret|40|0|5|0\n");
}

// Catches: a column that is too narrow, or of another type, and changes a value without a word.
TEST(StrictStores, ValuesThatTheStoreChangesAreRefused) {
  const struct {
    const char *slots, *columns, *field;
  } rows[] = {
      {"S", "ID bigint, Value real", "Value"},
      {"S", "ID bigint, Value numeric(6,2)", "Value"},
      {"F", "ID bigint, Value integer CHECK (Value <> 2.125)", ""},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.columns);
    StoreImage image(row.slots, {{22, "Numbers", 3, {"ID UINT 4", "Value DOUBLE 8"}}});
    CRtTable numbers = image.table(22, row.columns);
    make_strict(image, image.settings());
    ASSERT_EQ(image.manager->LoadAllCustomizedDB(0), 1) << quillanest::last_failure();
    put(numbers.GetAt(numbers.Insert(1, 0, 0)), 4, 0.5);
    ASSERT_TRUE(numbers.SaveData(0)) << quillanest::last_failure();
    put(numbers.GetAt(0), 4, *row.field == 0 ? 2.125 : 0.123456789);
    EXPECT_FALSE(numbers.SaveData(0));
    EXPECT_NE(std::string(quillanest::last_failure()).find(*row.field == 0 ? "[store.row]" : "[store.not_exact]"),
              std::string::npos)
        << quillanest::last_failure();
    EXPECT_EQ(std::stod(image.rows("SELECT Value FROM plant_Numbers")), 0.5);
  }
}

// Catches: edits of projects that become base rows, or base rows of edited records that are deleted.
TEST_P(StrictStore, EditsOfProjectsAreNoBaseRows) {
  StoreImage image(slots());
  image.store({{.key = 1, .name = "one", .level = 1}, {.key = 2, .name = "two", .level = 2}});
  make_strict(image, image.settings());
  ASSERT_EQ(image.manager->LoadAllCustomizedDB(0), 1);
  (void)image.add({.key = 3, .name = "new", .level = 3, .project = 5, .status = 2});
  poke(image.item.GetAt(1), Item::kLevel, 20);
  poke(image.item.GetAt(1), Item::kProject, 5);
  poke(image.item.GetAt(1), Item::kStatus, 3);
  poke(image.item.GetAt(0), Item::kLevel, 10);
  const Recorder events(image.root.folder());
  ASSERT_TRUE(image.item.SaveData(0)) << quillanest::last_failure();
  EXPECT_TRUE(events.has("warning plant_Item store.edits: 1 records carry edits of projects and have no base row"))
      << events.text();
  ASSERT_TRUE(image.item.SaveData(0)) << quillanest::last_failure();
  EXPECT_EQ(image.stored(), "1|one|10|0|0|0\n2|two|2|0|0|0\n2|two|20|0|5|3\n3|new|3|0|5|2\n");
  ASSERT_EQ(image.manager->LoadAllCustomizedDB(0), 1);
  EXPECT_EQ(image.records(), ": 1|one|10|0|0|0\n: 2|two|2|0|0|0\n");
  ASSERT_EQ(image.manager->LoadAllCustomizedDB(5), 1);
  EXPECT_EQ(image.records(), ": 1|one|10|0|0|0\n: 2|two|20|0|5|3\n: 3|new|3|0|5|2\n");
}

// Catches: a table that is saved without having been loaded, after a load that failed, or with another manager's help.
TEST_P(StrictStore, OnlyLoadedTablesAreSaved) {
  StoreImage image(slots());
  image.store({{.key = 1, .name = "one", .level = 1}});
  const std::string before = image.stored();
  make_strict(image, image.settings());
  const Recorder events(image.root.folder());
  EXPECT_FALSE(image.item.SaveData(0));
  EXPECT_FALSE(image.manager->SaveData(0));
  EXPECT_EQ(image.manager->SaveDataTo(false), 0);
  EXPECT_TRUE(events.has("error plant_Item store.not_loaded: ")) << events.text();
  EXPECT_EQ(image.stored(), before);
  ASSERT_EQ(image.manager->LoadAllCustomizedDB(0), 1) << events.text();
  EXPECT_TRUE(image.item.SaveData(0)) << events.text();
}

// Catches: a database that is away and misses a save, one that comes back with older rows and replaces newer ones.
TEST(StrictStores, MainAndBackupStayEqual) {
  for (const char *slots : {"FS", "SF"}) {
    SCOPED_TRACE(slots);
    StoreImage image(slots);
    image.store({{.key = 1, .name = "one", .level = 1}});
    make_strict(image, image.settings());
    ASSERT_EQ(image.manager->LoadAllCustomizedDB(0), 1);
    const Recorder events(image.root.folder());
    const std::string file = image.root.path("data/store.db");
    const std::string slot = *slots == 'F' ? "main" : "backup";
    std::filesystem::rename(file, file + ".away");
    EXPECT_FALSE(image.item.SaveData(0));
    EXPECT_TRUE(events.has("warning " + slot + " store.open: ")) << events.text();
    EXPECT_TRUE(events.has("error plant_Item store.closed: ")) << events.text();
    EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), 1) << "the other one serves";
    std::filesystem::rename(file + ".away", file);
    (void)image.stores[1]->run("UPDATE plant_Item SET Level = 2");
    poke(image.item.GetAt(0), Item::kLevel, 3);
    EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), 0);
    EXPECT_TRUE(events.has("error plant_Item store.differs: main has 1 rows and backup 1, and they differ from row 1"))
        << events.text();
    EXPECT_EQ(peek(image.item.GetAt(0), Item::kLevel), 3);
    (void)image.stores[0]->run(
        "INSERT INTO plant_Item (ID, Name, Level, Value, Pass, bModified, iProjectID, iEditStatus)"
        " VALUES (2, '', 0, 0, '', 0, 0, 0)");
    (void)image.stores[1]->run("UPDATE plant_Item SET Level = 1");
    EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), 0);
    EXPECT_TRUE(events.has("error plant_Item store.differs: main has 2 rows and backup 1, and they differ from row 2"))
        << events.text();
    (void)image.stores[0]->run("DELETE FROM plant_Item WHERE ID = 2");
    (void)image.stores[1]->run("DELETE FROM plant_Item");
    EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), 1) << "a new backup";
    EXPECT_TRUE(events.has("warning plant_Item store.differs: main has 1 rows and backup none")) << events.text();
    EXPECT_TRUE(image.item.SaveData(0)) << events.text();
    EXPECT_EQ(image.stored(), "1|one|1|0|0|0\n");
    (void)image.stores[0]->run("DELETE FROM plant_Item");
    EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), 0) << "a new main database";
  }
}

}  // namespace
