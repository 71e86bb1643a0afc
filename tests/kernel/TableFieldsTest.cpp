// The descriptor of a table and its field directory.
#include <gtest/gtest.h>
#include <string>

#include "tests/kernel/TableFixture.h"

namespace {

// Three fields, two of whose names differ only by case, and captions likewise; two views on their table.
struct Twins : Image {
  Twins() : Image({{10, "Twins", 2, {"ID UINT 4", "Name STRING 8", "NAME INT 4"}}}), table(Image::table(10)) {}
  [[nodiscard]] int slot_of(const _field_attr *field) const {
    return field == nullptr ? -1 : static_cast<int>(field - table.GetFieldAddress());
  }
  [[nodiscard]] std::string descriptor() const { return bytes_at(table.GetFieldAddress(), 3 * 128); }

  CRtTable table;
  const CRtTable other = table;
};

}  // namespace

// Catches: a setter that writes another member, the private copy instead of the image, or both.
TEST(TableFields, SettersWriteTheDescriptorInForce) {
  Twins image;
  CRtTable &table = image.table;
  const CRtTable &other = image.other;
  const std::string own = bytes_at(&table, 104);
  const char *shared = image.manager.GetSystemDB()->GetStartAddress() + 96;
  std::string expected = bytes_at(shared, 104);
  const struct {
    std::size_t offset;
    std::int32_t value;
  } rows[] = {{64, -0x7FFFFFFF}, {68, -0x7FFFFFFE}, {72, 7}, {76, 8}, {80, 1}, {84, 2}, {96, -3}, {100, 41}};
  for (const auto &row : rows) put(expected.data(), row.offset, row.value);
  table.SetDataBaseID(0x80000001);
  table.SetTableID(0x80000002);
  table.SetTableSize(8);
  table.SetRecordMaxCount(1);
  table.SetTableFieldNum(2);
  table.SetRecordCount(-3);
  table.SetIDExclusive(41);
  table.SetIndexInDB(7);
  EXPECT_EQ(bytes_at(shared, 104), expected);
  EXPECT_EQ(own, bytes_at(&table, 104));
  EXPECT_EQ((std::vector<unsigned int>{0x80000001, 0x80000002}),
            (std::vector<unsigned int>{other.GetDataBaseID(), other.GetTableID()}));
  EXPECT_EQ((std::vector<int>{7, 8, 1, 2, -3}),
            (std::vector<int>{other.GetIndexInDB(), other.GetTableSize(), other.GetRecordMaxCount(),
                              other.GetTableFieldNum(), other.GetRecordCount()}));
  EXPECT_EQ(table.GetIDExclusive(), 41U);
  EXPECT_EQ(table.GetIDExclusive(), 42U);
  table.SetTableName("Other");
  EXPECT_STREQ(shared, "Other");

  image.manager.GetSystemDB()->DetachShareMemory();
  CRtTable detached = table;
  detached.SetTableSize(99);
  EXPECT_EQ(value_at<std::int32_t>(&detached, 76), 99);
  EXPECT_STREQ(detached.GetTableName(), "Twins");
}

// Catches: a comparison that minds case or takes the last match, a caption taken for a name, a null that is followed.
TEST(TableFields, LookupsTakeTheFirstMatch) {
  const Twins image;
  const CRtTable &table = image.table;
  const struct {
    const char *name;
    bool caption;
    int slot;
  } rows[] = {{"id", false, 0},   {"nAmE", false, 1}, {"CNAME", true, 1}, {"cid", true, 0},     {"CNAME", false, -1},
              {"name", true, -1}, {"Nam", false, -1}, {"", false, -1},    {nullptr, false, -1}, {nullptr, true, -1}};
  for (const auto &row : rows) {
    SCOPED_TRACE(std::string(row.name == nullptr ? "null" : row.name) + (row.caption ? " as caption" : ""));
    CRtField field;
    const int found = row.caption ? table.GetFieldFromCName(field, row.name) : table.GetFieldFromName(field, row.name);
    EXPECT_EQ(row.slot >= 0, found == 1);
    EXPECT_EQ(row.slot >= 0 ? static_cast<unsigned int>(row.slot) + 1 : 0xFFFFFFFF, field.GetFieldID());
    EXPECT_EQ(table.FindFieldFromName(row.name, row.caption), row.slot);
    EXPECT_EQ(image.slot_of(row.caption ? table.GetFieldFromCName(row.name) : table.GetFieldFromName(row.name)),
              row.slot);
  }
}

// Catches: a range that is off by one; a CRtField that is touched by a failure.
TEST(TableFields, LookupsByIDAndIndexKeepTheirRange) {
  const Twins image;
  for (const int slot : {-1, 0, 2, 3, 2147483647}) {
    SCOPED_TRACE(slot);
    const bool there = slot == 0 || slot == 2;
    const unsigned int id = static_cast<unsigned int>(slot) + 1;
    CRtField by_index, by_id;
    EXPECT_EQ(there, 1 == image.table.GetFieldFromIndex(by_index, slot));
    EXPECT_EQ(there, 1 == image.table.GetFieldFromID(by_id, id));
    EXPECT_EQ(there ? id : 0xFFFFFFFF, by_index.GetFieldID());
    EXPECT_EQ(there ? id : 0xFFFFFFFF, by_id.GetFieldID());
    EXPECT_EQ(there ? slot : -1, image.slot_of(image.table.GetFieldFromIndex(slot)));
    EXPECT_EQ(there ? slot : -1, image.slot_of(image.table.GetFieldFromID(id)));
  }
}

// Catches: an iteration that reports the end together with the last field, or goes on from anywhere.
TEST(ByDesign, FieldsEndLate) {
  const Twins image;
  CRtField field;
  int position = image.table.GetFirstFieldPostion();
  for (const int next : {1, 2, 3}) {
    EXPECT_TRUE(image.table.GetNextField(field, position));
    EXPECT_EQ(next, position);
  }
  for (int call = 0; call < 2; ++call) {
    EXPECT_FALSE(image.table.GetNextField(field, position));
    EXPECT_EQ(position, -1);
    EXPECT_STREQ(field.GetFieldName(), "NAME");
  }
}

// Catches: a slot that is out of range, a member that is not taken over, a change that other views do not see.
TEST(TableFields, SetFieldOverwritesTheSharedDescriptor) {
  Twins image;
  const std::string before = image.descriptor();
  CRtField field;
  field.SetFieldName("New");
  field.SetFieldSize(-5);
  field.SetDefaultValue("d");
  for (const int slot : {-1, 3}) {
    field.SetIndexInTable(slot);
    EXPECT_FALSE(image.table.SetField(field)) << slot;
    EXPECT_EQ(before, image.descriptor()) << slot;
  }
  field.SetIndexInTable(1);
  EXPECT_TRUE(image.table.SetField(field));
  EXPECT_EQ(before.substr(0, 128) + bytes_at(&field, 128) + before.substr(256), image.descriptor());
}
