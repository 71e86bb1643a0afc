// The descriptor of a table and its field directory.
#include <functional>
#include <gtest/gtest.h>
#include <string>

#include "tests/kernel/TableFixture.h"

namespace {

// Two fields whose names differ only by case, and captions likewise.
const TableSpec kTwins{10, "Twins", 2, {"ID UINT 4", "Name STRING 8", "NAME INT 4"}};

int slot_of(const CRtTable &table, const _field_attr *field) {
  return field == nullptr ? -1 : static_cast<int>(field - table.GetFieldAddress());
}

}  // namespace

// A setter that writes another member, the private copy instead of the image, or both.
TEST(TableFields, SettersWriteTheDescriptorInForce) {
  Image image({kTwins});
  CRtTable table = image.table(10);
  const CRtTable other = image.table(10);
  const struct {
    std::size_t offset;
    std::function<void()> set;
    std::function<std::int64_t()> get;
    std::int32_t value;
  } rows[] = {
      {64, [&] { table.SetDataBaseID(0x80000001); }, [&] { return other.GetDataBaseID(); }, -0x7FFFFFFF},
      {68, [&] { table.SetTableID(0x80000002); }, [&] { return other.GetTableID(); }, -0x7FFFFFFE},
      {72, [&] { table.SetIndexInDB(7); }, [&] { return other.GetIndexInDB(); }, 7},
      {76, [&] { table.SetTableSize(8); }, [&] { return other.GetTableSize(); }, 8},
      {80, [&] { table.SetRecordMaxCount(1); }, [&] { return other.GetRecordMaxCount(); }, 1},
      {84, [&] { table.SetTableFieldNum(2); }, [&] { return other.GetTableFieldNum(); }, 2},
      {96, [&] { table.SetRecordCount(-3); }, [&] { return other.GetRecordCount(); }, -3},
      {100, [&] { table.SetIDExclusive(41); }, [] { return 41; }, 41},
  };
  const std::string own = bytes_at(&table, 104);
  std::string shared = bytes_at(table.GetTableInfo(), 104);
  for (const auto &row : rows) {
    SCOPED_TRACE(row.offset);
    row.set();
    put(shared.data(), row.offset, row.value);
    EXPECT_EQ(shared, bytes_at(other.GetFieldAddress() - 1, 24 + 104).substr(24));
    EXPECT_EQ(row.value, static_cast<std::int32_t>(row.get()));
    EXPECT_EQ(own, bytes_at(&table, 104));
  }
  EXPECT_EQ(41U, table.GetIDExclusive());
  EXPECT_EQ(42U, table.GetIDExclusive());
  table.SetTableName("a name of 25 characters..");
  EXPECT_STREQ("Twins", table.GetTableName());
  table.SetTableName("Other");
  EXPECT_EQ("Other", bytes_at(other.GetFieldAddress() - 1, 29).substr(24));

  CRtTable detached = table;
  image.manager.GetSystemDB()->DetachShareMemory();
  detached.SetTableSize(99);
  EXPECT_EQ(99, value_at<std::int32_t>(&detached, 76));
  EXPECT_STREQ("Twins", detached.GetTableName());
  EXPECT_EQ(static_cast<void *>(&detached), detached.GetTableInfo());
}

// A comparison that minds case or takes the last match, a caption taken for a name, a null that is followed.
TEST(TableFields, LookupsTakeTheFirstMatch) {
  Image image({kTwins});
  const CRtTable table = image.table(10);
  const struct {
    const char *name;
    bool caption;
    int slot;
  } rows[] = {{"ID", false, 0}, {"id", false, 0},     {"nAmE", false, 1}, {"CNAME", true, 1},
              {"cid", true, 0}, {"CNAME", false, -1}, {"name", true, -1}, {"Nam", false, -1},
              {"", false, -1},  {nullptr, false, -1}, {nullptr, true, -1}};
  for (const auto &row : rows) {
    SCOPED_TRACE(std::string(row.name == nullptr ? "null" : row.name) + (row.caption ? " as caption" : ""));
    CRtField field;
    const bool found = row.slot >= 0;
    EXPECT_EQ(row.slot, table.FindFieldFromName(row.name, row.caption));
    EXPECT_EQ(found,
              1 == (row.caption ? table.GetFieldFromCName(field, row.name) : table.GetFieldFromName(field, row.name)));
    EXPECT_EQ(found ? static_cast<unsigned int>(row.slot) + 1 : 0xFFFFFFFF, field.GetFieldID());
    EXPECT_EQ(row.slot,
              slot_of(table, row.caption ? table.GetFieldFromCName(row.name) : table.GetFieldFromName(row.name)));
  }
}

// A range that is off by one; a CRtField that is touched by a failure.
TEST(TableFields, LookupsByIDAndIndexKeepTheirRange) {
  Image image({kTwins});
  const CRtTable table = image.table(10);
  for (const int slot : {-1, 0, 2, 3, 2147483647}) {
    SCOPED_TRACE(slot);
    const bool there = slot == 0 || slot == 2;
    CRtField by_index, by_id;
    EXPECT_EQ(there, 1 == table.GetFieldFromIndex(by_index, slot));
    EXPECT_EQ(there, 1 == table.GetFieldFromID(by_id, static_cast<unsigned int>(slot) + 1));
    for (const CRtField &field : {by_index, by_id}) {
      EXPECT_EQ(there ? static_cast<unsigned int>(slot) + 1 : 0xFFFFFFFF, field.GetFieldID());
    }
    EXPECT_EQ(there ? slot : -1, slot_of(table, table.GetFieldFromIndex(slot)));
    EXPECT_EQ(there ? slot : -1, slot_of(table, table.GetFieldFromID(static_cast<unsigned int>(slot) + 1)));
  }
}

// An iteration that reports the end together with the last field, or goes on from anywhere.
TEST(ByDesign, FieldsEndLate) {
  Image image({{10, "Two", 1, {"ID UINT 4", "Level INT 4"}}});
  const CRtTable table = image.table(10);
  CRtField field;
  int position = table.GetFirstFieldPostion();
  EXPECT_EQ(0, position);
  EXPECT_TRUE(table.GetNextField(field, position));
  EXPECT_EQ(1, position);
  EXPECT_TRUE(table.GetNextField(field, position));
  EXPECT_EQ(2, position);
  EXPECT_STREQ("Level", field.GetFieldName());
  EXPECT_FALSE(table.GetNextField(field, position));
  EXPECT_EQ(-1, position);
  EXPECT_FALSE(table.GetNextField(field, position));
  EXPECT_STREQ("Level", field.GetFieldName());
}

// A slot that is out of range, a member that is not taken over, a change that other views do not see.
TEST(TableFields, SetFieldOverwritesTheSharedDescriptor) {
  Image image({kTwins});
  CRtTable table = image.table(10);
  const CRtTable other = image.table(10);
  const std::string before = bytes_at(table.GetFieldAddress(), 3 * 128);
  CRtField field;
  field.SetFieldName("New");
  field.SetFieldSize(-5);
  field.SetFieldOffset(77);
  field.SetDefaultValue("d");
  for (const int slot : {-1, 3}) {
    SCOPED_TRACE(slot);
    field.SetIndexInTable(slot);
    EXPECT_FALSE(table.SetField(field));
    EXPECT_EQ(before, bytes_at(other.GetFieldAddress(), 3 * 128));
  }
  field.SetIndexInTable(1);
  EXPECT_TRUE(table.SetField(field));
  EXPECT_EQ(before.substr(0, 128) + bytes_at(&field, 128) + before.substr(256),
            bytes_at(other.GetFieldAddress(), 3 * 128));
}
