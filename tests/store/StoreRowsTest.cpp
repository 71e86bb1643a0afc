// Base rows and the rows of projects: which ones a save replaces, and what a load makes of both.
#include <array>
#include <gtest/gtest.h>

#include "quillanest/persist/RtdbMedia.h"
#include "tests/store/Backends.h"
#include "tests/store/StoreFixture.h"

namespace {

using StoreRows = StoreScenario;
INSTANTIATE_TEST_SUITE_P(Backends, StoreRows, kBackends, name_of_backend);

// Catches: a save that replaces rows of another project, leaves a former row, or writes what was not modified.
TEST_P(StoreRows, SavesReplaceTheRowsTheyAreMeantFor) {
  StoreImage image(slots());
  const Item six{.key = 1, .name = "six", .level = 6, .project = 6, .status = 3};
  image.store({{.key = 1, .name = "old"}, {.key = 99, .name = "gone"}, six});
  const Item one{.key = 1, .name = "one", .level = 11, .pass = "first"};
  const Item two{.key = 2, .name = "two", .level = 22, .pass = "second", .status = 1};
  const Item three{.key = 3, .name = "three", .level = 33};
  for (const Item &item : {one, two, three}) image.add(item);
  EXPECT_TRUE(image.manager->SaveData(0));
  const std::string base = row_text({one, two, three});
  EXPECT_EQ(image.stored(), base + row_text({six}));
  EXPECT_FALSE(image.item.IsModified());
  EXPECT_EQ(image.records(), record_text({one, two, three}));

  // Only what is modified is written, under the project's number and beside the base rows.
  std::array<char, Item::kSize> record{};
  std::memcpy(record.data(), image.item.GetAt(1), record.size());
  poke(record.data(), Item::kLevel, 222);
  ASSERT_EQ(image.item.Update(record.data(), 1, 5), 1);
  ASSERT_EQ(image.item.Delete(3, 2, 5), 1);
  poke(image.item.GetAt(0), Item::kLevel, 111);
  EXPECT_TRUE(image.item.SaveData(5));
  const Item updated{.key = 2, .name = "two", .level = 222, .project = 5, .status = 3};
  const Item deleted{.key = 3, .name = "three", .level = 33, .project = 5, .status = 4};
  EXPECT_EQ(image.stored(), base + row_text({updated, deleted, six}));
  EXPECT_FALSE(image.item.IsModified());

  // A second save of the project replaces its rows by key.
  poke(record.data(), Item::kLevel, 223);
  ASSERT_EQ(image.item.Update(record.data(), 1, 5), 1);
  EXPECT_TRUE(image.plant.SaveData(5));
  EXPECT_EQ(image.rows("SELECT Level FROM plant_Item ORDER BY iProjectID, ID"), "11\n22\n33\n223\n33\n6\n");

  // A full save writes every record as it is, with the project number it carries.
  EXPECT_EQ(image.manager->SaveDataTo(false), 1);
  EXPECT_EQ(image.rows("SELECT ID, Level, iProjectID FROM plant_Item ORDER BY iProjectID, ID"),
            "1|111|0\n2|223|5\n2|223|5\n3|33|5\n3|33|5\n1|6|6\n");
}

// Catches: a project's row that is not merged, changes a password, or comes into the image of another project.
TEST_P(StoreRows, ProjectRowsAreMergedOverBaseRows) {
  StoreImage image(slots());
  const Item three{.key = 3, .name = "three", .level = 3, .status = 1};
  const Item seven{.key = 7, .name = "seven", .level = 7, .pass = "own", .status = 1};
  const Item nine{.key = 9, .name = "nine", .level = 9, .pass = "typed", .status = 1};
  image.store({nine, three, seven});
  image.store({{.key = 7, .name = "SEVEN", .level = 77, .pass = "other", .project = 5, .status = 3},
               {.key = 12, .name = "new", .level = 12, .pass = "mine", .modified = 1, .project = 5, .status = 2},
               {.key = 9, .name = "nine", .level = 9, .project = 5, .status = 4},
               {.key = 3, .name = "six", .level = 66, .project = 6, .status = 3}});
  image.add({.key = 1, .name = "stale"});
  EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), 1);
  EXPECT_EQ(image.records(), record_text({three, seven, nine}));
  EXPECT_EQ(image.item.GetIDExclusive(), 10U);

  EXPECT_EQ(image.manager->LoadAllCustomizedDB(5), 1);
  EXPECT_EQ(image.records(),
            record_text({three,
                         {.key = 7, .name = "SEVEN", .level = 77, .pass = "own", .project = 5, .status = 3},
                         {.key = 9, .name = "nine", .level = 9, .pass = "typed", .project = 5, .status = 4},
                         {.key = 12, .name = "new", .level = 12, .modified = 1, .project = 5, .status = 2}}));
  EXPECT_EQ(image.item.GetIDExclusive(), 13U);

  EXPECT_EQ(image.manager->LoadAllCustomizedDB(-6), 1) << "only positive numbers name a project";
  EXPECT_EQ(image.records(), record_text({three, seven, nine}));

  // A full table leaves further new rows out and still merges the known ones.
  image.store({{.key = 1},
               {.key = 2},
               {.key = 20, .name = "no", .project = 6, .status = 2},
               {.key = 9, .name = "NINE", .project = 6, .status = 2}});
  EXPECT_EQ(image.manager->LoadAllCustomizedDB(6), 1);
  ASSERT_EQ(image.item.GetRecordCount(), 5);
  EXPECT_STREQ(image.item.GetAt(2) + Item::kName, "six");
  EXPECT_STREQ(image.item.GetAt(4) + Item::kName, "NINE");
}

// Catches: a commit that leaves former base rows in the store, or takes the rows of a project away.
TEST_P(StoreRows, CommitMakesTheImageTheBaseRows) {
  StoreImage image(slots());
  const Item of_project{.key = 2, .name = "project", .level = 2, .project = 5, .status = 3};
  image.store({{.key = 1, .name = "base", .level = 1}, of_project});
  std::vector<Item> kept;
  for (const std::uint32_t key : {10U, 20U, 30U, 40U}) {
    const Item item{.key = key, .name = "n", .level = 1, .pass = "pass" + std::to_string(key)};
    poke(image.add(item), Item::kProject, 5);
    if (key < 40) kept.push_back(item);
  }
  poke(image.item.GetAt(0), Item::kStatus, 4);
  EXPECT_TRUE(image.manager->CommitProject());
  kept[0].status = 4;
  kept[1].status = kept[2].status = 1;
  EXPECT_EQ(image.stored(), row_text(kept) + row_text({of_project}));
  EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), 1);
  EXPECT_EQ(image.records(), record_text(kept));
}

// Catches: a count or a counter of keys that is not that of the rows, or a load past the table's capacity.
TEST_P(StoreRows, CountAndCounterAfterLoads) {
  StoreImage image(slots());
  image.add({.key = 1});
  EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), 1);
  EXPECT_EQ(image.item.GetRecordCount(), 0);
  EXPECT_EQ(image.item.GetIDExclusive(), 2U) << "an empty result keeps the counter";

  const std::vector<Item> five{
      {.key = 1, .level = 1}, {.key = 2, .level = 2}, {.key = 2, .level = 3}, {.key = 5, .level = 4}, {.key = 6}};
  image.store(five);
  image.store({{.key = 9}, {.key = 10}});
  quillanest::CRtdbMedia media(*image.manager);
  EXPECT_FALSE(media.LoadTable(image.plant, image.item, 0)) << "more rows than the table holds";
  EXPECT_EQ(media.connection().GetRecordCount(), 6) << "one more shows that";
  EXPECT_EQ(image.records(), record_text(five));
  EXPECT_EQ(image.item.GetIDExclusive(), 7U);
}

// Catches: an insertion that is true although a store rejected it, or that goes nowhere.
TEST_P(StoreRows, InsertRecordCountsItsRow) {
  StoreImage image(slots(), {{30, "Stamped", 2, {"ID UINT 4", "Since TIME 16"}}});
  const CRtTable table = image.table(30, "ID bigint, Since timestamp");
  image.run("INSERT INTO plant_Stamped VALUES(1, '2001-02-03 04:05:06')");
  quillanest::CRtdbMedia media(*image.manager);
  std::array<std::byte, 20> record{std::byte{2}};
  const quillanest::FieldList fields(table.GetFieldAddress(), table.GetFieldAddress() + 2);
  EXPECT_FALSE(media.InsertRecord("plant_Stamped", record, fields)) << "nothing is open";
  ASSERT_NE(media.open_for(image.plant, false), 0);
  EXPECT_FALSE(media.InsertRecord("plant_Stamped", record, {})) << "an incomplete statement";
  EXPECT_FALSE(media.InsertRecord("plant_Missing", record, fields));
  EXPECT_EQ(media.InsertRecord("plant_Stamped", record, fields), slots() != "FS");
  EXPECT_EQ(image.stores[0]->run("SELECT ID FROM plant_Stamped ORDER BY ID"), "1\n2\n");
}

// Catches: an operation for a single record that reaches a store or the image, or leaves an empty time of its record.
TEST(ByDesign, WriteThrough) {
  for (const char *slots : {"F", "SF"}) {
    StoreImage image(slots, {{30, "Stamped", 2, {"ID UINT 4", "Since TIME 16", "iProjectID INT 4"}}});
    CRtTable table = image.table(30, "ID bigint, Since timestamp, iProjectID integer");
    image.run("INSERT INTO plant_Stamped VALUES(1, '2001-02-03 04:05:06', 0)");
    ASSERT_EQ(table.Insert(1U, 0, 0), 0);
    const std::string before = bytes_at(table.GetDataAddress(), 48);
    for (const bool in_files : {false, true}) {
      SCOPED_TRACE(std::string(slots) + (in_files ? " beside files" : ""));
      if (in_files) image.root.configure("DataInFile=1\nRtdbDataPath=data/\n");
      std::array<char, 24> inserted{2}, updated{1};
      EXPECT_FALSE(table.InsertRecordToDb(inserted.data()));
      EXPECT_FALSE(table.UpdateRecordToDb(updated.data()));
      EXPECT_TRUE(table.RemoveRecordInDb(1, 0));
      EXPECT_GE(value_at<std::uint16_t>(inserted.data(), 4), 2020) << "no time was stamped";
      EXPECT_GE(value_at<std::uint16_t>(updated.data(), 4), 2020) << "no time was stamped";
      EXPECT_EQ(image.rows("SELECT ID, iProjectID FROM plant_Stamped"), "1|0\n");
      EXPECT_EQ(image.root.files("data"), std::vector<std::string>{"store.db"});
      EXPECT_EQ(bytes_at(table.GetDataAddress(), 48), before);
    }
    image.manager->DetachShareMemory();
    ASSERT_EQ(image.plant.DetachShareMemory(), 1);
    std::array<char, 24> unmapped{1};
    EXPECT_FALSE(table.UpdateRecordToDb(unmapped.data()));
    EXPECT_TRUE(table.RemoveRecordInDb(1, 0));
  }
  EXPECT_FALSE(CRtTable().RemoveRecordInDb(5, 2));
}

// Catches: a load that is false because the rows of its project do not come.
TEST(ByDesign, MergeFailureIgnored) {
  StoreImage image;
  image.store({{.key = 7, .name = "seven", .level = 7}, {.key = 8, .name = "eight", .project = 5}});
  image.run(
      "ALTER TABLE plant_Item RENAME TO kept; CREATE VIEW plant_Item AS SELECT ID, Name, CASE WHEN iProjectID = 5 THEN "
      "abs(-9223372036854775807 - 1) ELSE Level END AS Level, Value, Pass, bModified, iProjectID, iEditStatus FROM "
      "kept; CREATE TABLE system_Account(ID bigint)");
  EXPECT_EQ(image.manager->LoadAllCustomizedDB(5), 1);
  EXPECT_EQ(image.records(), record_text({{.key = 7, .name = "seven", .level = 7}}));
}

// Catches: a project's row that brings a password, and a query that fails or goes nowhere and is true.
TEST(ByDesign, MergeKeepsPasswords) {
  StoreImage image;
  image.add({.key = 7, .name = "seven", .level = 7, .pass = "own"});
  image.store({{.key = 7, .name = "SEVEN", .level = 77, .pass = "other", .project = 5, .status = 3},
               {.key = 8, .name = "eight", .level = 8, .pass = "mine", .project = 5, .status = 2}});
  quillanest::CRtdbMedia media(*image.manager);
  EXPECT_FALSE(media.MergeProjectRows(image.item, "SELECT * FROM plant_Item")) << "nothing is open";
  ASSERT_EQ(media.open_for(image.plant, true), 1);
  EXPECT_FALSE(media.MergeProjectRows(image.item, "SELECT * FROM plant_Missing"));
  EXPECT_TRUE(media.MergeProjectRows(image.item, "SELECT * FROM plant_Item ORDER BY ID"));
  EXPECT_EQ(image.records(),
            record_text({{.key = 7, .name = "SEVEN", .level = 77, .pass = "own", .project = 5, .status = 3},
                         {.key = 8, .name = "eight", .level = 8, .project = 5, .status = 2}}));
}

}  // namespace
