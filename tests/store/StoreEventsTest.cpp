// What a store says by default of what it loses beside a documented result.
#include "tests/store/Backends.h"
#include "tests/store/StoreFixture.h"
#include "tests/support/Recorder.h"

namespace {

using StoreEvents = StoreScenario;
INSTANTIATE_TEST_SUITE_P(Backends, StoreEvents, kBackends, name_of_backend);

// Catches: rows that a database rejects without a word; values of records in the words.
TEST_P(StoreEvents, OfRejectedRows) {
  StoreImage image(slots());
  for (std::uint32_t key = 1; key <= 5; ++key) {
    (void)image.add({.key = key, .name = "secret", .level = key == 3 ? 30 : 4000});
  }
  const Recorder events(image.root.folder());
  EXPECT_TRUE(image.item.SaveData(0));
  for (const char *key : {"1", "2", "4"}) {
    EXPECT_TRUE(
        events.has(std::string("warning plant_Item store.row: the record with the ID ") + key + " is not saved: "))
        << events.text();
  }
  EXPECT_TRUE(events.has("warning plant_Item store.rows: 4 of 5 records are not saved")) << events.text();
  EXPECT_NE(events.text().find("constraint"), std::string::npos) << "the driver's own words: " << events.text();
  EXPECT_EQ(events.text().find("secret"), std::string::npos) << events.text();
  EXPECT_EQ(image.stored(), "3|secret|30|0|0|0\n");
}

// Catches: the schema's newest column that the store lacks, which empties the table at the first save without a word.
TEST_P(StoreEvents, OfColumns) {
  StoreImage image(slots());
  image.store({{.key = 1, .name = "one", .level = 1}});
  image.run("ALTER TABLE plant_Item DROP COLUMN Name");
  const Recorder events(image.root.folder());
  EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), 1);
  EXPECT_TRUE(
      events.has("warning plant.Item store.column: the store's table has no column \"Name\", so the next save "
                 "loses rows or values"))
      << events.text();
  EXPECT_TRUE(image.item.SaveData(0));
  EXPECT_TRUE(events.has("warning plant_Item store.row: the record with the ID 1 is not saved: ")) << events.text();
  image.run("ALTER TABLE plant_Item ADD COLUMN Name varchar(100)");
  image.run("ALTER TABLE plant_Item ADD COLUMN More varchar(100)");
  image.run("INSERT INTO plant_Item (ID, Value, iProjectID) VALUES (1, 0, 0)");
  EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), 1);
  EXPECT_TRUE(events.has("warning plant.Item store.column: the store's table has 9 columns, the table 8 fields"))
      << events.text();
  image.run("UPDATE plant_Item SET Name = 'a text of seventeen'");
  EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), 1);
  EXPECT_TRUE(events.has("warning plant.Item store.value: the row with the ID 1: the value of \"Name\" is not kept"))
      << events.text();
}

// Catches: an error of a value that does not say where it is.
TEST_P(StoreEvents, OfValues) {
  StoreImage image(slots());
  image.run("INSERT INTO plant_Item (ID, Name, iProjectID) VALUES (7, 'seven', 0)");
  const Recorder events(image.root.folder());
  std::string what;
  try {
    (void)image.manager->LoadAllCustomizedDB(0);
  } catch (const _com_error &error) {
    what = error.what();
  }
  EXPECT_EQ(what, "plant.Item, ID 7: column Value: a column value is not of its field's type");
  EXPECT_TRUE(events.has("error  store.value: " + what)) << events.text();
}

// Catches: edits of projects that a full save, a load or a commit loses without a word.
TEST_P(StoreEvents, OfProjects) {
  StoreImage image(slots());
  image.store({{.key = 1, .name = "one", .level = 1, .project = 5},
               {.key = 2, .name = "two", .level = 2, .project = 5},
               {.key = 3, .project = 5},
               {.key = 4, .project = 5},
               {.key = 5, .project = 5},
               {.key = 6, .project = 5}});
  const Recorder events(image.root.folder());
  ASSERT_EQ(image.manager->LoadAllCustomizedDB(5), 1);
  EXPECT_TRUE(events.has("warning plant.Item store.merge: 1 rows of the project are not merged")) << events.text();
  EXPECT_TRUE(image.item.SaveData(0));
  EXPECT_TRUE(events.has("warning plant_Item store.edits: 5 records carry edits of projects")) << events.text();
  poke(image.item.GetAt(0), Item::kStatus, EDIT_STATUS_DELETED);
  EXPECT_TRUE(image.item.CommitProject());
  EXPECT_TRUE(events.has("warning plant.Item commit.mirror: of 1 records that are marked as deleted, 1 are not"))
      << events.text();
  EXPECT_TRUE(image.item.RemoveRecordInDb(1, 0));
  EXPECT_TRUE(events.has("warning plant_Item store.write_through: no store is changed")) << events.text();
  image.run("DROP TABLE plant_Item");
  EXPECT_TRUE(image.item.CommitProject());
  EXPECT_TRUE(
      events.has("error plant_Item store.delete: a database rejects the DELETE of the former rows, which ends "
                 "the save: main: "))
      << events.text();
}

// Catches: a wrong password, name or port that looks like any other failure; a password in a sentence.
TEST(StoreReasons, DriversSayWhy) {
  StoreImage image("S");
  const std::string port = std::to_string(postgres().port());
  const struct {
    std::string settings;
    const char *sentence;
  } rows[] = {
      {server("MainDB", 7, local(postgres().port()), "pass!wrong"), "password authentication failed for user"},
      {server("MainDB", 7, local(1)), "Connection refused"},
      {slot_lines("MainDB", {{"Type", "7"},
                             {"Name", local(postgres().port())},
                             {"User", PostgresServer::kUser},
                             {"Passwd", PostgresServer::kPassword},
                             {"InitDB", "nowhere"}}),
       "database \"nowhere\" does not exist"},
      {slot_lines("MainDB", {{"Type", "1"}, {"Name", "missing.db"}}), "unable to open database file"},
      {slot_lines("MainDB", {{"Type", "9"}, {"Name", "x"}}), "store.closed"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.sentence);
    image.configure(row.settings + "BackDBType=-1\n");
    const Recorder events(image.root.folder());
    EXPECT_TRUE(image.item.SaveData(0));
    EXPECT_NE(events.text().find(row.sentence), std::string::npos) << events.text();
    EXPECT_EQ(events.text().find("pass!wrong"), std::string::npos) << events.text();
    EXPECT_EQ(events.text().find(PostgresServer::kPassword), std::string::npos) << events.text();
  }
}

}  // namespace
