// One database: the two copies of its descriptor, its tables, and what it does for all of them.
#include <functional>
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
  [[nodiscard]] static std::string local(const CRtDataBase &database) { return bytes_at(&database, 96); }

  char *record;  // of the directory; the manager keeps its segment mapped
};

std::size_t offset_in(CRtDataBase &database, const void *address) {
  return static_cast<std::size_t>(static_cast<const char *>(address) - database.GetStartAddress());
}

}  // namespace

// A getter or a table walk that reads the other copy of the descriptor.
TEST(DataBase, EachOperationReadsItsOwnCopy) {
  Plant image;
  CRtDataBase &plant = image.plant;
  std::memcpy(image.segment(), "image\0", 6);
  std::memcpy(image.segment() + 24, "caption\0", 8);
  const std::int32_t numbers[] = {20, 21, 1, 23, 24, 0, 0, 0};
  std::memcpy(image.segment() + 64, numbers, sizeof numbers);
  EXPECT_STREQ("image", plant.GetDBName());
  EXPECT_STREQ("caption", plant.GetDBCName());
  EXPECT_EQ(20U, plant.GetDBID());
  EXPECT_EQ(21U, plant.GetDBType());
  EXPECT_EQ(1, plant.GetDBTableNum());
  EXPECT_EQ(23, plant.GetDBFieldNum());
  EXPECT_EQ(24, plant.GetDBSize());
  EXPECT_EQ(image.segment() + 96, reinterpret_cast<char *>(plant.GetTableAddress()));
  EXPECT_EQ(image.segment() + 304, reinterpret_cast<char *>(plant.GetFieldAddress()));

  // One table by the segment's count, two by the local one.
  CRtTable table;
  EXPECT_EQ(1, plant.GetDBTableFromName(table, "Line"));
  EXPECT_EQ(1, plant.GetDBTableFromCName(table, "CLine"));
  EXPECT_EQ(1, plant.GetDBTableFromID(table, 7));
  EXPECT_EQ(1, plant.GetDBTableFromIndex(table, 1));
  int position = 1;
  EXPECT_TRUE(plant.GetNextTable(table, position));
  table.SetRecordCount(2);
  EXPECT_EQ(nullptr, plant.GetTableDataAddress(7U));
  EXPECT_EQ(nullptr, plant.GetTableDataAddress("Line"));
  EXPECT_EQ(nullptr, plant.GetTableDataAddressAt(1));
  EXPECT_EQ(0, plant.GetTableRecordCount(7));
  EXPECT_EQ(1, plant.IfHasTable());
  put(image.segment(), 72, 0);
  EXPECT_EQ(0, plant.IfHasTable());
  EXPECT_EQ(0, plant.GetFirstTablePostion());

  EXPECT_EQ(1, plant.DetachShareMemory());
  EXPECT_EQ(0, plant.IsInShareMemory());
  EXPECT_STREQ("plant", plant.GetDBName());
  EXPECT_EQ(2U, plant.GetDBID());
  EXPECT_EQ(2, plant.GetDBTableNum());
  EXPECT_EQ(nullptr, plant.GetTableAddress());
  EXPECT_EQ(nullptr, plant.GetFieldAddress());
  EXPECT_EQ(nullptr, plant.GetStartAddress());
}

// A setter that misses a copy, writes another member, or looks its directory record up by what it has just changed.
TEST(DataBase, SettersWriteAllThreeCopies) {
  const struct {
    const char *what;
    std::function<void(CRtDataBase &)> set;
    std::size_t offset;
    std::string bytes;
  } rows[] = {
      {"name", [](CRtDataBase &db) { db.SetDBName("mill"); }, 0, std::string("mill\0", 5)},
      {"full name", [](CRtDataBase &db) { db.SetDBName("twenty-four letters here"); }, 0,
       "twenty-four letters here" + std::string(1, '\0')},
      {"long name", [](CRtDataBase &db) { db.SetDBName("twenty-five letters in it"); }, 0, ""},
      {"no name", [](CRtDataBase &db) { db.SetDBName(nullptr); }, 0, ""},
      {"caption", [](CRtDataBase &db) { db.SetDBCName("Mill"); }, 24, std::string("Mill\0", 5)},
      {"full caption", [](CRtDataBase &db) { db.SetDBCName("a caption of forty letters, neither more"); }, 24,
       "a caption of forty letters, neither more" + std::string(1, '\0')},
      {"ID", [](CRtDataBase &db) { db.SetDBID(0x105); }, 64, std::string("\5\1\0\0", 4)},
      {"type", [](CRtDataBase &db) { db.SetDBType(0x01020304); }, 68, "\4\3\2\1"},
      {"tables", [](CRtDataBase &db) { db.SetDBTableNum(0x01020304); }, 72, "\4\3\2\1"},
      {"fields", [](CRtDataBase &db) { db.SetDBFieldNum(0x01020304); }, 76, "\4\3\2\1"},
      {"size", [](CRtDataBase &db) { db.SetDBSize(0x01020304); }, 80, "\4\3\2\1"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.what);
    Plant image;
    std::string expected = image.local(image.plant);
    const std::string system = bytes_at(image.record - 96, 96);
    row.set(image.plant);
    expected.replace(row.offset, row.bytes.size(), row.bytes);
    EXPECT_EQ(expected, image.local(image.plant));
    EXPECT_EQ(expected, bytes_at(image.segment(), 96));
    EXPECT_EQ(expected, bytes_at(image.record, 96));
    EXPECT_EQ(system, bytes_at(image.record - 96, 96));
  }
}

// A directory record that is found by the segment's ID or name instead of the local ones.
TEST(DataBase, DirectoryRecordIsFoundByTheLocalDescriptor) {
  Plant image;
  put(image.segment(), 64, 77);
  image.plant.SetDBType(9);
  EXPECT_EQ(77, value_at<std::int32_t>(image.record, 64));
  EXPECT_EQ(9, value_at<std::int32_t>(image.record, 68));
  EXPECT_EQ(2, value_at<std::int32_t>(&image.plant, 64));
  std::memcpy(image.segment(), "other", 6);
  image.plant.SetDBID(78);
  EXPECT_EQ(78, value_at<std::int32_t>(image.record, 64));
  EXPECT_STREQ("other", image.record);
}

// A copy that believes its flag and follows a null view, or shares the view.
TEST(DataBase, CopyOfAMappedObjectIsNotMapped) {
  Plant image;
  const std::string segment = bytes_at(image.segment(), 304);
  CRtDataBase assigned;
  assigned = image.plant;
  for (CRtDataBase copy : {CRtDataBase(image.plant), assigned}) {
    CRtTable table;
    int position = 0;
    EXPECT_EQ(image.local(image.plant), image.local(copy));
    EXPECT_EQ(&image.manager, copy.GetRtdbManager());
    EXPECT_EQ(nullptr, copy.GetStartAddress());
    EXPECT_EQ(nullptr, copy.GetTableAddress());
    EXPECT_EQ(nullptr, copy.GetFieldAddress());
    EXPECT_EQ(nullptr, copy.GetTableDataAddressAt(0));
    EXPECT_EQ(0, copy.GetDBTableFromID(table, 7));
    EXPECT_FALSE(copy.GetNextTable(table, position));
    copy.SetDBType(99);
    EXPECT_EQ(segment, bytes_at(image.segment(), 304));
    EXPECT_EQ(1, copy.AttachShareMemory());
    EXPECT_EQ(7U, copy.GetDBType());
    EXPECT_EQ(1, copy.GetDBTableFromID(table, 7));
    EXPECT_EQ(1, copy.DetachShareMemory());
  }
  EXPECT_EQ(1, image.plant.IsInShareMemory());
}

// A binding that does not set the segment's key, or touches what it should leave.
TEST(DataBase, BindingToADescriptorReachesItsSegment) {
  Plant image;
  CRtDataBase database;
  EXPECT_EQ(0, database.AttachShareMemory());
  database = value_at<_db_attr>(image.record, 0);
  EXPECT_EQ(0, database.IsInShareMemory());
  EXPECT_EQ(nullptr, database.GetRtdbManager());
  EXPECT_EQ(1, database.AttachShareMemory());
  EXPECT_EQ(image.segment(), database.GetStartAddress());
  _db_attr absent = value_at<_db_attr>(image.record, 0);
  absent.DBID = 1234;
  database = absent;
  EXPECT_EQ(1, database.AttachShareMemory()) << "the view stays";
  EXPECT_EQ(1, database.DetachShareMemory());
  EXPECT_EQ(0, database.AttachShareMemory());
  EXPECT_EQ(0, database.IsInShareMemory());
}

// A comparison that minds case, a range that is off by one, a table that a failure touches.
TEST(DataBase, TableLookups) {
  Plant image;
  const struct {
    const char *what;
    std::function<int(CRtDataBase &, CRtTable &)> look_up;
    unsigned int id;
  } rows[] = {
      {"name", [](CRtDataBase &db, CRtTable &table) { return db.GetDBTableFromName(table, "lINE"); }, 7},
      {"no name", [](CRtDataBase &db, CRtTable &table) { return db.GetDBTableFromName(table, "Lin"); }, 0},
      {"null name", [](CRtDataBase &db, CRtTable &table) { return db.GetDBTableFromName(table, nullptr); }, 0},
      {"caption", [](CRtDataBase &db, CRtTable &table) { return db.GetDBTableFromCName(table, "CACCOUNT"); }, 10},
      {"no caption", [](CRtDataBase &db, CRtTable &table) { return db.GetDBTableFromCName(table, "Line"); }, 0},
      {"null caption", [](CRtDataBase &db, CRtTable &table) { return db.GetDBTableFromCName(table, nullptr); }, 0},
      {"ID", [](CRtDataBase &db, CRtTable &table) { return db.GetDBTableFromID(table, 10); }, 10},
      {"no ID", [](CRtDataBase &db, CRtTable &table) { return db.GetDBTableFromID(table, 8); }, 0},
      {"slot", [](CRtDataBase &db, CRtTable &table) { return db.GetDBTableFromIndex(table, 1); }, 7},
      {"slot 2", [](CRtDataBase &db, CRtTable &table) { return db.GetDBTableFromIndex(table, 2); }, 0},
      {"slot -1", [](CRtDataBase &db, CRtTable &table) { return db.GetDBTableFromIndex(table, -1); }, 0},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.what);
    CRtTable table;
    EXPECT_EQ(row.id == 0 ? 0 : 1, row.look_up(image.plant, table));
    EXPECT_EQ(row.id == 0 ? 0xFFFFFFFF : row.id, table.GetTableID());
    EXPECT_EQ(row.id != 0, table.GetDataAddress() != nullptr) << "bound to the database";
  }
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
  EXPECT_EQ(0, fresh.IfHasTable());
  EXPECT_FALSE(fresh.GetNextTable(table, position));
  EXPECT_TRUE(fresh.DeleteAllRecord());
  EXPECT_TRUE(fresh.CommitProject());
  EXPECT_FALSE(fresh.IsModified());
  EXPECT_FALSE(fresh.SaveData(0));
}

// A catalogue under construction that takes tables or fields into slots it does not have, or loses them.
TEST(DataBase, CatalogueTakesTablesAndFieldsBySlot) {
  const TestRoot root;
  CRtdbManager manager;
  auto owned = std::make_unique<CRtDataBase>();
  CRtDataBase *database = owned.get();
  database->SetDBID(5);
  database->SetDBTableNum(2);
  ASSERT_EQ(1, database->CreateTableMemory());
  ASSERT_EQ(1, manager.AddDataBase(owned.release()));
  CRtTable table;
  table.SetDataBaseID(5);
  table.SetTableID(30);
  table.SetTableName("Built");
  table.SetTableFieldNum(1);
  const struct { int slot, result; } rows[] = {{-1, 0}, {2, 0}, {1, 1}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.slot);
    table.SetIndexInDB(row.slot);
    EXPECT_EQ(row.result, manager.AddTable(table));
  }
  CRtField field;
  field.SetDataBaseID(5);
  field.SetTableID(31);
  EXPECT_EQ(0, manager.AddField(field)) << "no such table";
  field.SetTableID(30);
  EXPECT_EQ(1, manager.AddField(field));
  field.SetIndexInTable(1);
  EXPECT_EQ(1, manager.AddField(field)) << "a slot that the table has not counts all the same";

  CRtTable found;
  EXPECT_EQ(1, database->GetDBTableFromName(found, "bUILT"));
  EXPECT_EQ(1, found.GetIndexInDB());
  EXPECT_EQ(1, database->GetDBTableFromIndex(found, 0));
  EXPECT_EQ(0xFFFFFFFF, found.GetTableID()) << "a fresh slot";
  EXPECT_EQ(0, database->GetDBTableFromID(found, 31));
  EXPECT_EQ(nullptr, database->GetTableDataAddress(30U));
  EXPECT_EQ(nullptr, database->GetTableRecordAt(30, 0));
  EXPECT_EQ(1, database->ReleaseTableMemory());
  EXPECT_EQ(0, database->GetDBTableFromID(found, 30));
}

// A record area of another table, a function that reads the wrong table or record.
TEST(DataBase, RecordFunctionsReachTheirTable) {
  Plant image;
  CRtDataBase &plant = image.plant;
  CRtTable line;
  ASSERT_EQ(1, plant.GetDBTableFromID(line, 7));
  ASSERT_EQ(0, line.Insert(5, 0, 0));
  ASSERT_EQ(1, line.Insert(6, 0, 0));
  char *records = line.GetDataAddress();
  EXPECT_EQ(304U + 10 * 128 + 5 * 52, offset_in(plant, records));
  EXPECT_EQ(304U + 10 * 128, offset_in(plant, plant.GetTableDataAddress(10U)));
  EXPECT_EQ(records, plant.GetTableDataAddress(7U));
  EXPECT_EQ(records, plant.GetTableDataAddress("LINE"));
  EXPECT_EQ(records, plant.GetTableDataAddressAt(1));
  EXPECT_EQ(nullptr, plant.GetTableDataAddress(8U));
  EXPECT_EQ(nullptr, plant.GetTableDataAddress("Lin"));
  EXPECT_EQ(nullptr, plant.GetTableDataAddressAt(2));
  EXPECT_EQ(2, plant.GetTableRecordCount(7));
  EXPECT_EQ(0, plant.GetTableRecordCount(10));
  EXPECT_EQ(records + 8, plant.GetTableRecordAt(7, 1));
  EXPECT_EQ(nullptr, plant.GetTableRecordAt(7, 2));
  EXPECT_EQ(nullptr, plant.GetTableRecordAt(8, 0));
  EXPECT_EQ(records + 8, plant.GetTableRecord(7, 6));
  EXPECT_EQ(nullptr, plant.GetTableRecord(10, 6));
  EXPECT_EQ(nullptr, plant.GetTableRecord(7, 0));

  char value[4] = {9, 0, 0, 0};
  EXPECT_EQ(1, plant.SetTableFieldData(7, 1, 6, value));
  EXPECT_EQ(0, plant.SetTableFieldData(7, 1, 4, value));
  EXPECT_EQ(0, plant.SetTableFieldData(8, 1, 6, value));
  EXPECT_EQ(9, value_at<std::int32_t>(records, 12));
  EXPECT_EQ(1, plant.GetTableFieldData(7, 0, 6, value));
  EXPECT_EQ(6, value[0]);
  EXPECT_EQ(0, plant.GetTableFieldData(8, 0, 6, value));
  const char record[8] = {5, 0, 0, 0, 44};
  const char absent[8] = {4};
  EXPECT_EQ(1, plant.SetTableRecord(7, record, 0)) << "position 0 is a success";
  EXPECT_EQ(44, records[4]);
  EXPECT_EQ(0, plant.SetTableRecord(7, absent, 0));
  EXPECT_EQ(0, plant.SetTableRecord(8, record, 0));
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
  EXPECT_TRUE(line.IsEmpty());
  EXPECT_TRUE(accounts.IsEmpty());
  EXPECT_FALSE(image.plant.IsModified());
}
