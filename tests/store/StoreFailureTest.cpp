// Statements, transactions and servers that fail, and what a save or load then leaves.
#include <gtest/gtest.h>

#include "quillanest/persist/RtdbMedia.h"
#include "tests/store/Backends.h"
#include "tests/store/StoreFixture.h"
#include "tests/support/SilentServer.h"

namespace {

using StoreFailure = StoreScenario;
INSTANTIATE_TEST_SUITE_P(Backends, StoreFailure, kBackends, name_of_backend);

// Catches: a save into a missing table that is true, clears marks, or changes the other database; a load that empties.
TEST_P(StoreFailure, MissingStoreTableFailsAndKeepsTheMarks) {
  StoreImage image(slots());
  image.store({{.key = 9, .name = "former"}});
  image.add({.key = 1, .name = "one", .level = 1, .pass = "open"});
  (void)image.stores[0]->run("DROP TABLE plant_Item");
  EXPECT_FALSE(image.item.SaveData(0));
  if (image.stores.size() > 1) {
    EXPECT_EQ(image.stores[1]->run("SELECT ID FROM plant_Item"), "9\n");
  }
  EXPECT_FALSE(image.item.SaveData(5));
  EXPECT_FALSE(image.plant.SaveData(0));
  EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), 0);
  const std::string marked = record_text({{.key = 1, .name = "one", .level = 1, .pass = "open", .modified = 1}});
  EXPECT_EQ(image.records(), marked);
  EXPECT_TRUE(image.manager->SaveData(0)) << "the whole is true if single tables fail";
  EXPECT_EQ(image.records(), marked);
}

// Catches: a save that is true although the end of its transaction was refused, or that clears its marks.
TEST_P(StoreFailure, SaveThatCannotBeKeptIsFalseAndMarksAgain) {
  StoreImage image(slots());
  const Item former{.key = 1, .name = "former", .level = 1, .pass = "open"};
  image.add(former);
  ASSERT_TRUE(image.item.SaveData(0));
  poke(image.item.GetAt(0), Item::kModified, 3);
  image.add({.key = 2, .name = "second", .level = 2});
  std::unique_ptr<OtherProgram> reader;  // keeps the file from changing
  for (std::size_t i = 0; i < slots().size(); ++i) {
    if (slots()[i] == 'F') {
      reader = std::make_unique<OtherProgram>(image.root, "BEGIN; SELECT * FROM plant_Item");
    } else {
      (void)image.stores[i]->run(
          "CREATE FUNCTION refuse() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN RAISE 'no'; END $$; CREATE CONSTRAINT "
          "TRIGGER late AFTER INSERT ON plant_Item DEFERRABLE INITIALLY DEFERRED FOR EACH ROW EXECUTE FUNCTION "
          "refuse()");
    }
  }
  EXPECT_FALSE(image.item.SaveData(0));
  reader.reset();
  EXPECT_EQ(image.stored(), row_text({former}));
  EXPECT_EQ(image.records(), record_text({{.key = 1, .name = "former", .level = 1, .pass = "open", .modified = 3},
                                          {.key = 2, .name = "second", .level = 2, .modified = 1}}));
}

// Catches: a slot that failed to commit and whose transaction goes on, so that the next table cannot begin one.
TEST(ServerDatabase, RefusedCommitEndsWithItsTable) {
  StoreImage image("SF", {{21, "Other", 5, {"ID UINT 4", "Level INT 4"}}});
  image.run("CREATE TABLE plant_Other (ID bigint, Level integer)");
  image.add({.key = 1, .name = "one"});
  CRtTable other;
  ASSERT_EQ(image.plant.GetDBTableFromID(other, 21), 1);
  ASSERT_EQ(other.Insert(7, 0, 0), 0);
  (void)image.stores[0]->run(
      "CREATE FUNCTION refuse() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN RAISE 'no'; END $$; CREATE CONSTRAINT "
      "TRIGGER late AFTER INSERT ON plant_Item DEFERRABLE INITIALLY DEFERRED FOR EACH ROW EXECUTE FUNCTION refuse()");
  EXPECT_FALSE(image.plant.SaveData(0));
  for (const auto &store : image.stores) {
    EXPECT_EQ(store->run("SELECT ID FROM plant_Item"), "");
    EXPECT_EQ(store->run("SELECT ID FROM plant_Other"), "7\n");
  }
}

// Catches: a silent server that is tried for every table, or once more for every database.
TEST(ServerDatabase, SilentOneIsTriedOnceInACall) {
  SilentServer silent;
  StoreImage image;
  const auto at = [&](const std::string &slot) {
    return slot_lines(slot, {{"Type", "7"}, {"Name", "127.0.0.1:" + std::to_string(silent.port())}});
  };
  image.configure(at("MainDB") + "BackDBType=-1\n");
  EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), 0);
  EXPECT_EQ(silent.connections(), 1);
  image.configure(image.stores[0]->settings("MainDB") + at("BackDB"));
  EXPECT_TRUE(image.manager->SaveData(0));
  EXPECT_EQ(silent.connections(), 1);
}

// Catches: a save that is false, or keeps the former rows or its marks, because a store rejects a row.
TEST(ByDesign, RejectedInsertIgnored) {
  StoreImage image;
  image.run(
      "DROP TABLE plant_Item; CREATE TABLE plant_Item(ID INTEGER, iProjectID INTEGER); INSERT INTO plant_Item "
      "VALUES(1, 0)");
  image.add({.key = 1, .name = "one"});
  EXPECT_TRUE(image.item.SaveData(0)) << "no row fits the store's table";
  EXPECT_EQ(image.rows("SELECT * FROM plant_Item"), "");
  EXPECT_FALSE(image.item.IsModified());
}

constexpr const char *kRefuseInFile =
    "CREATE TRIGGER keep BEFORE DELETE ON plant_Item WHEN OLD.ID = 2 BEGIN SELECT RAISE(ABORT, 'no'); END";
constexpr const char *kRefuseInServer =
    "CREATE FUNCTION refuse() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN IF OLD.ID = 2 THEN RAISE 'no'; END IF; "
    "RETURN OLD; END $$; CREATE TRIGGER keep BEFORE DELETE ON plant_Item FOR EACH ROW EXECUTE FUNCTION refuse()";

// Saves three records over two rows, of which the store with that number keeps the second one from being deleted.
void save_over_kept_row(StoreImage &image, std::string_view slots, std::size_t keeping, int project) {
  for (const std::uint32_t key : {1U, 2U}) {
    image.store({{.key = key, .name = "old", .level = static_cast<int>(key), .project = project, .status = 3}});
  }
  for (const std::uint32_t key : {1U, 2U, 3U}) {
    image.add({.key = key, .name = "new", .level = 7, .modified = 1, .project = project});
  }
  (void)image.stores[keeping]->run(slots[keeping] == 'F' ? kRefuseInFile : kRefuseInServer);
  EXPECT_FALSE(image.item.SaveData(project));
}

// Catches: a database that takes back a DELETE which only the other one rejected, or what it had run before.
TEST(ByDesign, RejectedDeleteEnds) {
  const std::string former = "1|old|1|0|3\n2|old|2|0|3\n";
  const std::string first = "1|new|7|0|0\n";
  const std::string second = "2|old|2|0|3\n";
  const struct {
    std::string_view slots;
    std::size_t rejecting;
    int project;
    std::string main, backup;
  } rows[] = {{"F", 0, 0, former, ""},
              {"S", 0, 0, former, ""},
              {"FS", 0, 0, former, former},
              {"FS", 1, 0, "", former},
              {"SF", 1, 0, "", former},
              {"S", 0, 5, first + second, ""},
              {"SF", 0, 5, first + second, first + second},
              {"FS", 1, 5, first, first + second},
              {"SF", 1, 5, first, first + second}};
  for (const auto &row : rows) {
    SCOPED_TRACE(testing::Message() << row.slots << " rejected by " << row.rejecting << " project " << row.project);
    StoreImage image(row.slots);
    save_over_kept_row(image, row.slots, row.rejecting, row.project);
    const std::string query = "SELECT ID, Name, Level, bModified, iEditStatus FROM plant_Item ORDER BY ID";
    EXPECT_EQ(image.stores[0]->run(query), row.main);
    EXPECT_EQ(image.stores.back()->run(query), image.stores.size() > 1 ? row.backup : row.main);
    EXPECT_EQ(peek(image.item.GetAt(0), Item::kModified), row.project == 0 ? 1 : 0);
    EXPECT_EQ(peek(image.item.GetAt(1), Item::kModified), 1);
    EXPECT_EQ(peek(image.item.GetAt(2), Item::kModified), 1);
  }
}

// Catches: an open without a slot that ends a save, or a load that then changes the image.
TEST(ByDesign, OpenNeverFails) {
  StoreImage image;
  image.configure("MainDBType=8\nBackDBType=-1\n");
  image.add({.key = 1, .name = "one"});
  quillanest::CRtdbMedia media(*image.manager);
  EXPECT_EQ(media.open_for(image.plant, false), 0);
  EXPECT_EQ(media.connection().GetCurrentSlot(), -1);
  EXPECT_EQ(media.connection().GetCurrentType(), -1);
  EXPECT_FALSE(media.LoadTable(image.plant, image.item, 0)) << "a load finds no slot to ask";
  EXPECT_EQ(image.records(), record_text({{.key = 1, .name = "one", .modified = 1}}));
  EXPECT_TRUE(media.SaveTable(image.plant, image.item, 0)) << "a save goes on all the same";
  EXPECT_EQ(image.stored(), "");
}

}  // namespace
