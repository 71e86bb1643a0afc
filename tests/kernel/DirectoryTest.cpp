// The directory of databases: lookups, iteration and the records that the databases' setters keep in step.
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "tests/kernel/TableFixture.h"

namespace {

constexpr const char *kSchema =
    "#Database_Start\n"
    "#Name=system Describe=SystemData ID=1 Type=0 TableCount=1\n"
    "#Name=plant Describe=North ID=2 Type=7 TableCount=1\n"
    "#Name=PLANT Describe=South ID=3 Type=8 TableCount=2\n"
    "#Database_Finish\n#Table_Start\n"
    "#DBID=1 NAME=Account CNAME=A ID=10 INDEX=0 MAX=2 FIELDNUM=0\n"
    "#DBID=2 NAME=Pump CNAME=P ID=20 INDEX=0 MAX=2 FIELDNUM=0\n"
    "#DBID=3 NAME=Valve CNAME=V ID=20 INDEX=0 MAX=2 FIELDNUM=0\n"
    "#DBID=3 NAME=Tank CNAME=T ID=30 INDEX=1 MAX=2 FIELDNUM=0\n"
    "#Table_Finish\n";

struct Directory : testing::Test, Image {
  Directory() : Image(std::string(kSchema)) {}

  void set_present(std::size_t slot, std::int32_t flag) { poke(bytes, 1256 + 4 * slot, flag); }

  // The IDs that an iteration delivers, with the position after each.
  std::string walk() {
    int position = 5;
    if (manager.GetFirstDataBasePostion(position) == 0) return "none " + std::to_string(position);
    std::string text = std::to_string(position) + ":";
    CRtDataBase database;
    while (manager.GetNext(database, position) != 0) {
      if (database.GetStartAddress() != nullptr) text += " mapped!";
      text += ' ' + std::to_string(database.GetDBID()) + '/' + std::to_string(position);
    }
    return text + ' ' + std::to_string(position);
  }

  CShareMemory segment{kManagerKey};
  char *bytes = static_cast<char *>(segment.Attach());
};

// Catches: a lookup that compares only part of a name, minds its case or takes a later slot finds the wrong database.
TEST_F(Directory, Lookups) {
  const std::pair<const char *, unsigned int> names[] = {{"SyStEm", 1}, {"plant", 2}, {"PLANT", 2}, {"plan", 0},
                                                         {"plants", 0}, {"", 0},      {nullptr, 0}};
  for (const auto &[name, id] : names) {
    SCOPED_TRACE(name == nullptr ? "null" : name);
    CRtDataBase database;
    ASSERT_EQ(manager.GetDataBaseFromName(database, name), id != 0 ? 1 : 0);
    EXPECT_EQ(database.GetStartAddress(), nullptr);
    EXPECT_TRUE(id == 0 || database.GetDBID() == id);
  }
  CRtDataBase database;
  EXPECT_EQ(manager.GetDataBaseFromCName(database, "SOUTH"), 1);
  EXPECT_EQ(database.GetDBID(), 3U);
  EXPECT_EQ(manager.GetDataBaseFromCName(database, "plant"), 0);
  EXPECT_EQ(manager.GetDataBaseFromCName(database, nullptr), 0);
  EXPECT_EQ(manager.GetDataBaseFromID(database, 2), 1);
  EXPECT_STREQ(database.GetDBCName(), "North");
  EXPECT_EQ(manager.GetDataBaseFromID(database, 4), 0);
}

// Catches: an iteration that stops at a gap and loses the databases after it.
TEST_F(Directory, IterationSkipsGaps) {
  const std::pair<std::vector<std::size_t>, const char *> rows[] = {{{}, "0: 1/1 2/2 3/3 -1"},
                                                                    {{0}, "1: 2/2 3/3 -1"},
                                                                    {{0, 2}, "1: 2/2 -1"},
                                                                    {{0, 1, 2}, "none -1"},
                                                                    {{1}, "0: 1/1 3/3 -1"}};
  for (const auto &[absent, expected] : rows) {
    for (std::size_t slot = 0; slot < 3; ++slot) set_present(slot, 1);
    for (const std::size_t slot : absent) set_present(slot, 0);
    EXPECT_EQ(walk(), expected);
  }
  CRtDataBase database;
  EXPECT_EQ(manager.GetDataBaseFromName(database, "plant"), 1);
  EXPECT_EQ(database.GetDBID(), 3U);
  EXPECT_EQ(manager.GetDataBaseFromID(database, 2), 0);
  int position = 10;
  EXPECT_EQ(manager.GetNext(database, position), 0);
  EXPECT_EQ(position, -1);
  EXPECT_EQ(manager.GetNext(database, position), 0);
  // A slot whose segment is not there is passed over, too.
  set_present(3, 1);
  set_present(9, -1);
  EXPECT_EQ(walk(), "0: 1/1 3/3 -1");
}

// Catches: lookups that went on would read descriptors that are not there yet.
TEST_F(Directory, NothingBeforeTheLayout) {
  const auto attr = value_at<_db_attr>(bytes, 296);
  manager.SetRtdbStatus(0);
  CRtDataBase database;
  CRtTable table;
  EXPECT_EQ(manager.GetDataBaseFromName(database, "system"), 0);
  EXPECT_EQ(manager.GetDataBaseFromCName(database, "North"), 0);
  EXPECT_EQ(manager.GetDataBaseFromID(database, 1), 0);
  EXPECT_EQ(walk(), "none -1");
  EXPECT_EQ(manager.FindTable(20, database, table), 0);
  EXPECT_EQ(manager.UpdateDBInfo(2, &attr), 0);
  EXPECT_EQ(manager.UpdateDBInfo("plant", &attr), 0);
  manager.SetRtdbStatus(1);
  EXPECT_EQ(walk(), "0: 1/1 2/2 3/3 -1");
}

// Catches: a table handed out with its database unmapped, or with another one, reads nothing or foreign records.
TEST_F(Directory, FindTable) {
  CRtDataBase database;
  CRtTable table;
  ASSERT_EQ(manager.FindTable(20, database, table), 1);
  EXPECT_STREQ(table.GetTableName(), "Pump");
  EXPECT_EQ(database.GetDBID(), 2U);
  EXPECT_EQ(table.Insert(0U, 0, 0), 0);
  database.DetachShareMemory();
  ASSERT_EQ(manager.FindTable(30, database, table), 1);
  EXPECT_STREQ(table.GetTableName(), "Tank");
  EXPECT_EQ(database.GetDBID(), 3U);
  CRtDataBase none;
  EXPECT_EQ(manager.FindTable(99, none, table), 0);
  EXPECT_EQ(none.GetStartAddress(), nullptr);
  EXPECT_STREQ(table.GetTableName(), "Tank");
  EXPECT_EQ(manager.GetSystemTable(table, 20U), 0);
  EXPECT_EQ(manager.GetSystemTable(table, "ACCOUNT"), 1);
}

// Catches: a record in the wrong slot, or only part of one, makes lookups map the wrong segment.
TEST_F(Directory, UpdateDBInfo) {
  _db_attr attr;
  std::memset(&attr, 'x', sizeof attr);
  EXPECT_EQ(manager.UpdateDBInfo(static_cast<const char *>(nullptr), &attr), 0);
  EXPECT_EQ(manager.UpdateDBInfo("nobody", &attr), 0);
  EXPECT_EQ(manager.UpdateDBInfo(9, &attr), 0);
  const std::string before = bytes_at(bytes + 296, 288);
  EXPECT_EQ(manager.UpdateDBInfo("Plant", &attr), 1);
  const std::string after = before.substr(0, 96) + std::string(96, 'x') + before.substr(192);
  EXPECT_EQ(bytes_at(bytes + 296, 288), after);
}

TEST(ByDesign, MappedTarget) {
  Image image{std::string(kSchema)};
  CRtDataBase &database = image.plant;
  // The first candidate is the system database, but the name compared is the one in the view on "plant".
  EXPECT_EQ(image.manager.GetDataBaseFromName(database, "plant"), 1);
  EXPECT_EQ(database.GetStartAddress(), nullptr);
  EXPECT_EQ(database.GetDBID(), 1U);
  EXPECT_STREQ(database.GetDBName(), "system");
}

}  // namespace
