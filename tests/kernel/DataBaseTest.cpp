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

// The array of a database without fields is empty; it begins where it would.
TEST(DataBase, FieldAddressWithoutFields) {
  Image image({{11, "Bare", 2, {}}});
  CRtDataBase &system = *image.manager.GetSystemDB();
  EXPECT_EQ(reinterpret_cast<char *>(system.GetFieldAddress()), system.GetStartAddress() + 200);
  system.DetachShareMemory();
  EXPECT_EQ(system.GetFieldAddress(), nullptr);
}

// A name that is read while it is written would be measured twice, and once be too long.
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

// A getter or a table walk that reads the other copy of the descriptor.
TEST(DataBase, EachOperationReadsItsOwnCopy) {
  Plant image;
  CRtDataBase &plant = image.plant;
  std::memcpy(image.segment(), "image\0", 6);
  const std::int32_t numbers[] = {20, 21, 1, 23, 24, 0, 0, 0};
  std::memcpy(image.segment() + 64, numbers, sizeof numbers);
  EXPECT_STREQ("image", plant.GetDBName());
  EXPECT_EQ(20U, plant.GetDBID());
  EXPECT_EQ(21U, plant.GetDBType());
  EXPECT_EQ(1, plant.GetDBTableNum());
  EXPECT_EQ(image.segment() + 96, reinterpret_cast<char *>(plant.GetTableAddress()));
  EXPECT_EQ(image.segment() + 304, reinterpret_cast<char *>(plant.GetFieldAddress()));

  // The directory record is found by the local ID and name.
  plant.SetDBType(9);
  EXPECT_EQ(20, value_at<std::int32_t>(image.record, 64));
  EXPECT_EQ(9, value_at<std::int32_t>(image.record, 68));

  // One table by the segment's count, two by the local one.
  CRtTable table;
  int position = 1;
  EXPECT_EQ(1, plant.GetDBTableFromName(table, "Line"));
  EXPECT_EQ(1, plant.GetDBTableFromCName(table, "CLine"));
  EXPECT_EQ(1, plant.GetDBTableFromID(table, 7));
  EXPECT_EQ(1, plant.GetDBTableFromIndex(table, 1));
  EXPECT_TRUE(plant.GetNextTable(table, position));
  table.SetRecordCount(2);
  EXPECT_EQ(nullptr, plant.GetTableDataAddress(7U));
  EXPECT_EQ(nullptr, plant.GetTableDataAddress("Line"));
  EXPECT_EQ(nullptr, plant.GetTableDataAddressAt(1));
  EXPECT_EQ(0, plant.GetTableRecordCount(7));
  EXPECT_EQ(1, plant.IfHasTable());
  put(image.segment(), 72, 0);
  EXPECT_EQ(0, plant.IfHasTable());

  EXPECT_EQ(1, plant.DetachShareMemory());
  EXPECT_STREQ("plant", plant.GetDBName());
  EXPECT_EQ(nullptr, plant.GetTableAddress());
}

// A setter that misses a copy, writes another member, or looks its directory record up by what it has just changed.
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
  EXPECT_EQ(expected, bytes_at(&plant, 96));
  EXPECT_EQ(expected, bytes_at(image.segment(), 96));
  EXPECT_EQ(expected, bytes_at(image.record, 96));
  EXPECT_EQ(system, bytes_at(image.record - 96, 96));
}

// A copy that believes its flag and follows a null view, or shares the view.
TEST(DataBase, CopyOfAMappedObjectIsNotMapped) {
  Plant image;
  const std::string segment = bytes_at(image.segment(), 304);
  CRtDataBase assigned;
  assigned = image.plant;
  for (CRtDataBase copy : {CRtDataBase(image.plant), assigned}) {
    CRtTable table;
    EXPECT_EQ(bytes_at(&image.plant, 96), bytes_at(&copy, 96));
    EXPECT_EQ(&image.manager, copy.GetRtdbManager());
    EXPECT_EQ(nullptr, copy.GetStartAddress());
    EXPECT_EQ(nullptr, copy.GetTableDataAddressAt(0));
    EXPECT_EQ(0, copy.GetDBTableFromID(table, 7));
    copy.SetDBType(99);
    EXPECT_EQ(segment, bytes_at(image.segment(), 304));
    EXPECT_EQ(1, copy.AttachShareMemory());
    EXPECT_EQ(1, copy.GetDBTableFromID(table, 7));
    EXPECT_EQ(1, copy.DetachShareMemory());
  }
  EXPECT_EQ(1, image.plant.IsInShareMemory());
}

// A comparison that minds case, a range that is off by one, a table that a failure touches.
TEST(DataBase, TableLookups) {
  Plant image;
  CRtDataBase &plant = image.plant;
  CRtTable table;
  for (const int result :
       {plant.GetDBTableFromName(table, "Lin"), plant.GetDBTableFromName(table, nullptr),
        plant.GetDBTableFromCName(table, "Line"), plant.GetDBTableFromCName(table, nullptr),
        plant.GetDBTableFromID(table, 8), plant.GetDBTableFromIndex(table, 2), plant.GetDBTableFromIndex(table, -1)}) {
    EXPECT_EQ(0, result);
  }
  EXPECT_EQ(0xFFFFFFFF, table.GetTableID());
  EXPECT_EQ(1, plant.GetDBTableFromName(table, "lINE"));
  EXPECT_EQ(7U, table.GetTableID());
  EXPECT_EQ(1, plant.GetDBTableFromCName(table, "CACCOUNT"));
  EXPECT_EQ(10U, table.GetTableID());
  EXPECT_EQ(1, plant.GetDBTableFromIndex(table, 1));
  EXPECT_EQ(plant.GetTableDataAddress(7U), table.GetDataAddress());
}

// An iteration that ends early, late, or not at all.
TEST(DataBase, TablesEndLate) {
  Plant image;
  CRtTable table;
  int position = image.plant.GetFirstTablePostion();
  for (const unsigned int id : {10U, 7U}) {
    EXPECT_TRUE(image.plant.GetNextTable(table, position));
    EXPECT_EQ(id, table.GetTableID());
  }
  EXPECT_EQ(2, position);
  EXPECT_FALSE(image.plant.GetNextTable(table, position));
  EXPECT_EQ(-1, position);
  EXPECT_FALSE(image.plant.GetNextTable(table, position));

  CRtDataBase fresh;
  EXPECT_EQ(-1, fresh.GetFirstTablePostion());
  EXPECT_FALSE(fresh.GetNextTable(table, position) || fresh.IsModified() || fresh.SaveData(0));
  EXPECT_TRUE(fresh.DeleteAllRecord() && fresh.CommitProject());
}

// A catalogue under construction that loses tables; which slots it takes, schemas show.
TEST(DataBase, CatalogueTakesTablesAndFieldsBySlot) {
  const TestRoot root;
  CRtdbManager manager;
  auto owned = std::make_unique<CRtDataBase>();
  CRtDataBase *database = owned.get();
  database->SetDBID(5);
  database->SetDBTableNum(2);
  ASSERT_EQ(1, database->CreateTableMemory());
  ASSERT_EQ(1, manager.AddDataBase(owned.release()));
  CRtTable table, found;
  table.SetDataBaseID(5);
  table.SetTableID(30);
  table.SetIndexInDB(1);
  EXPECT_EQ(1, manager.AddTable(table));
  CRtField field;
  field.SetDataBaseID(5);
  field.SetTableID(30);
  EXPECT_EQ(1, manager.AddField(field)) << "a slot that the table has not counts all the same";
  EXPECT_EQ(1, database->GetDBTableFromID(found, 30));
  EXPECT_EQ(1, found.GetIndexInDB());
  EXPECT_EQ(1, database->GetDBTableFromIndex(found, 0));
  EXPECT_EQ(0xFFFFFFFF, found.GetTableID()) << "a fresh slot";
  EXPECT_EQ(nullptr, database->GetTableRecordAt(30, 0));
  EXPECT_EQ(1, database->ReleaseTableMemory());
  EXPECT_EQ(0, database->GetDBTableFromID(found, 30));
}

// A record area of another table, a function that reads or writes the wrong table or record.
TEST(DataBase, RecordFunctionsReachTheirTable) {
  Plant image;
  CRtDataBase &plant = image.plant;
  CRtTable line;
  ASSERT_EQ(1, plant.GetDBTableFromID(line, 7));
  ASSERT_EQ(0, line.Insert(5, 0, 0));
  ASSERT_EQ(1, line.Insert(6, 0, 0));
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
    EXPECT_EQ(nullptr, absent);
  }
  char value[4] = {9, 0, 0, 0};
  EXPECT_EQ(1, plant.SetTableFieldData(7, 1, 6, value));
  EXPECT_EQ(0, plant.SetTableFieldData(7, 1, 4, value));
  EXPECT_EQ(9, value_at<std::int32_t>(records, 12));
  EXPECT_EQ(0, plant.GetTableFieldData(8, 0, 6, value));
}

// A modification in a later table that goes unseen, a table that keeps its records.
TEST(DataBase, WholeDatabaseOperationsVisitEveryTable) {
  Image image({account_table()}, {{7, "Line", 2, {"ID UINT 4"}}, account_table()});
  CRtTable line, accounts;
  ASSERT_EQ(1, image.plant.GetDBTableFromID(line, 7));
  ASSERT_EQ(1, image.plant.GetDBTableFromID(accounts, 10));
  ASSERT_EQ(0, line.Insert(1, 0, 0));
  EXPECT_FALSE(image.plant.IsModified());
  ASSERT_EQ(0, accounts.Insert(1, 0, 0));
  EXPECT_TRUE(image.plant.IsModified());
  EXPECT_FALSE(image.manager.IsSysTableModified());
  EXPECT_TRUE(image.plant.DeleteAllRecord());
  EXPECT_TRUE(line.IsEmpty() && accounts.IsEmpty());
  EXPECT_FALSE(image.plant.IsModified());
}
