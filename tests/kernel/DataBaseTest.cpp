// One database: the two copies of its descriptor, its tables, and what it does for all of them.
#include <gtest/gtest.h>
#include <memory>
#include <string>

#include "tests/kernel/TableFixture.h"

namespace {

// "plant" with two tables, the second one without version fields.
struct Plant : Image {
  Plant() : Image({account_table()}, {account_table(), {7, "Line", 2, {"ID UINT 4", "Level INT 4"}}}) {
    CShareMemory memory(kManagerKey);
    record = static_cast<char *>(memory.Attach()) + 296 + 96;
  }
  char *segment() { return plant.GetStartAddress(); }

  char *record;  // of the directory; the manager keeps its segment mapped
};

// Catches: an array of a database without fields that does not begin where it would.
TEST(DataBase, FieldAddressWithoutFields) {
  Image image({{11, "Bare", 2, {}}});
  CRtDataBase &system = *image.manager.GetSystemDB();
  EXPECT_EQ(reinterpret_cast<char *>(system.GetFieldAddress()), system.GetStartAddress() + 200);
  system.DetachShareMemory();
  EXPECT_EQ(system.GetFieldAddress(), nullptr);
}

// Catches: a name that is read while it is written would be measured twice, and once be too long.
TEST(DataBase, NameOfItsOwnDescriptor) {
  Image image({{11, "Bare", 2, {}}});
  CRtDataBase &system = *image.manager.GetSystemDB();
  system.SetDBName("exactly_24_characters_ab");
  system.SetDBCName(system.GetDBName());
  EXPECT_STREQ(system.GetDBCName(), "exactly_24_characters_ab");
  system.DetachShareMemory();
  EXPECT_STREQ(system.GetDBCName(), "exactly_24_characters_ab");
}

}  // namespace

// Catches: a getter or a table walk that reads the other copy of the descriptor.
TEST(DataBase, EachOperationReadsItsOwnCopy) {
  Plant image;
  CRtDataBase &plant = image.plant;
  std::memcpy(image.segment(), "image\0", 6);
  const std::int32_t numbers[] = {20, 21, 1, 23, 24, 0, 0, 0};
  std::memcpy(image.segment() + 64, numbers, sizeof numbers);
  EXPECT_STREQ(plant.GetDBName(), "image");
  EXPECT_EQ(plant.GetDBID(), 20U);
  EXPECT_EQ(plant.GetDBType(), 21U);
  EXPECT_EQ(plant.GetDBTableNum(), 1);
  EXPECT_EQ(image.segment() + 96, reinterpret_cast<char *>(plant.GetTableAddress()));
  EXPECT_EQ(image.segment() + 304, reinterpret_cast<char *>(plant.GetFieldAddress()));

  // The directory record is found by the local ID and name.
  plant.SetDBType(9);
  EXPECT_EQ(value_at<std::int32_t>(image.record, 64), 20);
  EXPECT_EQ(value_at<std::int32_t>(image.record, 68), 9);

  // One table by the segment's count, two by the local one.
  CRtTable table;
  int position = 1;
  EXPECT_EQ(plant.GetDBTableFromName(table, "Line"), 1);
  EXPECT_EQ(plant.GetDBTableFromCName(table, "CLine"), 1);
  EXPECT_EQ(plant.GetDBTableFromID(table, 7), 1);
  EXPECT_EQ(plant.GetDBTableFromIndex(table, 1), 1);
  EXPECT_TRUE(plant.GetNextTable(table, position));
  table.SetRecordCount(2);
  EXPECT_EQ(plant.GetTableDataAddress(7U), nullptr);
  EXPECT_EQ(plant.GetTableDataAddress("Line"), nullptr);
  EXPECT_EQ(plant.GetTableDataAddressAt(1), nullptr);
  EXPECT_EQ(plant.GetTableRecordCount(7), 0);
  EXPECT_EQ(plant.IfHasTable(), 1);
  put(image.segment(), 72, 0);
  EXPECT_EQ(plant.IfHasTable(), 0);

  EXPECT_EQ(plant.DetachShareMemory(), 1);
  EXPECT_STREQ(plant.GetDBName(), "plant");
  EXPECT_EQ(plant.GetTableAddress(), nullptr);
}

// Catches: a setter that misses a copy, writes another member, or looks its directory record up by what it has just
// changed.
TEST(DataBase, SettersWriteAllThreeCopies) {
  Plant image;
  CRtDataBase &plant = image.plant;
  std::string expected = bytes_at(&plant, 96);
  const std::string system = bytes_at(image.record - 96, 96);
  plant.SetDBName("mill");
  plant.SetDBName("twenty-five letters in it");
  plant.SetDBName(nullptr);
  plant.SetDBCName("Mill");
  plant.SetDBID(0x105);
  plant.SetDBType(0x01020304);
  plant.SetDBTableNum(0x01020305);
  plant.SetDBFieldNum(0x01020306);
  plant.SetDBSize(0x01020307);
  expected.replace(0, 5, std::string("mill\0", 5)).replace(24, 5, std::string("Mill\0", 5));
  expected.replace(64, 20, std::string("\5\1\0\0\4\3\2\1\5\3\2\1\6\3\2\1\7\3\2\1", 20));
  EXPECT_EQ(bytes_at(&plant, 96), expected);
  EXPECT_EQ(bytes_at(image.segment(), 96), expected);
  EXPECT_EQ(bytes_at(image.record, 96), expected);
  EXPECT_EQ(system, bytes_at(image.record - 96, 96));
}

// Catches: a copy that believes its flag and follows a null view, or shares the view.
TEST(DataBase, CopyOfAMappedObjectIsNotMapped) {
  Plant image;
  const std::string segment = bytes_at(image.segment(), 304);
  CRtDataBase assigned;
  assigned = image.plant;
  for (CRtDataBase copy : {CRtDataBase(image.plant), assigned}) {
    CRtTable table;
    EXPECT_EQ(bytes_at(&image.plant, 96), bytes_at(&copy, 96));
    EXPECT_EQ(&image.manager, copy.GetRtdbManager());
    EXPECT_EQ(copy.GetStartAddress(), nullptr);
    EXPECT_EQ(copy.GetTableDataAddressAt(0), nullptr);
    EXPECT_EQ(copy.GetDBTableFromID(table, 7), 0);
    copy.SetDBType(99);
    EXPECT_EQ(segment, bytes_at(image.segment(), 304));
    EXPECT_EQ(copy.AttachShareMemory(), 1);
    EXPECT_EQ(copy.GetDBTableFromID(table, 7), 1);
    EXPECT_EQ(copy.DetachShareMemory(), 1);
  }
  EXPECT_EQ(image.plant.IsInShareMemory(), 1);
}

// Catches: a comparison that minds case, a range that is off by one, a table that a failure touches.
TEST(DataBase, TableLookups) {
  Plant image;
  CRtDataBase &plant = image.plant;
  CRtTable table;
  for (const int result :
       {plant.GetDBTableFromName(table, "Lin"), plant.GetDBTableFromName(table, nullptr),
        plant.GetDBTableFromCName(table, "Line"), plant.GetDBTableFromCName(table, nullptr),
        plant.GetDBTableFromID(table, 8), plant.GetDBTableFromIndex(table, 2), plant.GetDBTableFromIndex(table, -1)}) {
    EXPECT_EQ(result, 0);
  }
  EXPECT_EQ(table.GetTableID(), 0xFFFFFFFF);
  EXPECT_EQ(plant.GetDBTableFromName(table, "lINE"), 1);
  EXPECT_EQ(table.GetTableID(), 7U);
  EXPECT_EQ(plant.GetDBTableFromCName(table, "CACCOUNT"), 1);
  EXPECT_EQ(table.GetTableID(), 10U);
  EXPECT_EQ(plant.GetDBTableFromIndex(table, 1), 1);
  EXPECT_EQ(plant.GetTableDataAddress(7U), table.GetDataAddress());
}

// Catches: an iteration that ends early, late, or not at all.
TEST(DataBase, TablesEndLate) {
  Plant image;
  CRtTable table;
  int position = image.plant.GetFirstTablePostion();
  for (const unsigned int id : {10U, 7U}) {
    EXPECT_TRUE(image.plant.GetNextTable(table, position));
    EXPECT_EQ(id, table.GetTableID());
  }
  EXPECT_EQ(position, 2);
  EXPECT_FALSE(image.plant.GetNextTable(table, position));
  EXPECT_EQ(position, -1);
  EXPECT_FALSE(image.plant.GetNextTable(table, position));

  CRtDataBase fresh;
  EXPECT_EQ(fresh.GetFirstTablePostion(), -1);
  EXPECT_FALSE(fresh.GetNextTable(table, position) || fresh.IsModified() || fresh.SaveData(0));
  EXPECT_TRUE(fresh.DeleteAllRecord() && fresh.CommitProject());
}

// Catches: a catalogue under construction that loses tables; which slots it takes, schemas show.
TEST(DataBase, CatalogueTakesTablesAndFieldsBySlot) {
  const TestRoot root;
  CRtdbManager manager;
  auto owned = std::make_unique<CRtDataBase>();
  CRtDataBase *database = owned.get();
  database->SetDBID(5);
  database->SetDBTableNum(2);
  ASSERT_EQ(database->CreateTableMemory(), 1);
  ASSERT_EQ(manager.AddDataBase(owned.release()), 1);
  CRtTable table, found;
  table.SetDataBaseID(5);
  table.SetTableID(30);
  table.SetIndexInDB(1);
  EXPECT_EQ(manager.AddTable(table), 1);
  CRtField field;
  field.SetDataBaseID(5);
  field.SetTableID(30);
  EXPECT_EQ(manager.AddField(field), 1) << "a slot that the table has not counts all the same";
  EXPECT_EQ(database->GetDBTableFromID(found, 30), 1);
  EXPECT_EQ(found.GetIndexInDB(), 1);
  EXPECT_EQ(database->GetDBTableFromIndex(found, 0), 1);
  EXPECT_EQ(found.GetTableID(), 0xFFFFFFFF) << "a fresh slot";
  EXPECT_EQ(database->GetTableRecordAt(30, 0), nullptr);
  EXPECT_EQ(database->ReleaseTableMemory(), 1);
  EXPECT_EQ(database->GetDBTableFromID(found, 30), 0);
}

// Catches: a record area of another table, a function that reads or writes the wrong table or record.
TEST(DataBase, RecordFunctionsReachTheirTable) {
  Plant image;
  CRtDataBase &plant = image.plant;
  CRtTable line;
  ASSERT_EQ(plant.GetDBTableFromID(line, 7), 1);
  ASSERT_EQ(line.Insert(5, 0, 0), 0);
  ASSERT_EQ(line.Insert(6, 0, 0), 1);
  char *records = line.GetDataAddress();
  EXPECT_EQ(image.segment() + 1844, records);
  EXPECT_EQ(image.segment() + 1584, plant.GetTableDataAddress(10U));
  for (const char *found : {plant.GetTableDataAddress(7U), plant.GetTableDataAddress("LINE"),
                            plant.GetTableDataAddressAt(1), plant.GetTableRecordAt(7, 1) - 8}) {
    EXPECT_EQ(static_cast<const void *>(records), static_cast<const void *>(found));
  }
  for (const char *absent :
       {plant.GetTableDataAddress(8U), plant.GetTableDataAddress("Lin"), plant.GetTableDataAddressAt(2),
        plant.GetTableRecordAt(7, 2), plant.GetTableRecordAt(8, 0), plant.GetTableRecord(10, 6)}) {
    EXPECT_EQ(absent, nullptr);
  }
  char value[4] = {9, 0, 0, 0};
  EXPECT_EQ(plant.SetTableFieldData(7, 1, 6, value), 1);
  EXPECT_EQ(plant.SetTableFieldData(7, 1, 4, value), 0);
  EXPECT_EQ(value_at<std::int32_t>(records, 12), 9);
  EXPECT_EQ(plant.GetTableFieldData(8, 0, 6, value), 0);
}

// Catches: a modification in a later table that goes unseen, a table that keeps its records.
TEST(DataBase, WholeDatabaseOperationsVisitEveryTable) {
  Image image({account_table()}, {{7, "Line", 2, {"ID UINT 4"}}, account_table()});
  CRtTable line, accounts;
  ASSERT_EQ(image.plant.GetDBTableFromID(line, 7), 1);
  ASSERT_EQ(image.plant.GetDBTableFromID(accounts, 10), 1);
  ASSERT_EQ(line.Insert(1, 0, 0), 0);
  EXPECT_FALSE(image.plant.IsModified());
  ASSERT_EQ(accounts.Insert(1, 0, 0), 0);
  EXPECT_TRUE(image.plant.IsModified());
  EXPECT_FALSE(image.manager.IsSysTableModified());
  EXPECT_TRUE(image.plant.DeleteAllRecord());
  EXPECT_TRUE(line.IsEmpty() && accounts.IsEmpty());
  EXPECT_FALSE(image.plant.IsModified());
}
