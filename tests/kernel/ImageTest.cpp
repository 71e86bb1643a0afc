// The bytes of a real image and of the objects that lead with them, compared with the layout written down by hand.
#include <array>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/kernel/TableFixture.h"

namespace {

// Writes numbers one after the other.
std::size_t put_all(std::string &bytes, std::size_t offset, std::initializer_list<std::int32_t> numbers) {
  for (const std::int32_t number : numbers) {
    put(bytes.data(), offset, number);
    offset += 4;
  }
  return offset;
}

void put_text(std::string &bytes, std::size_t offset, std::string_view text) {
  text.copy(bytes.data() + offset, text.size());
}

// The first place where two blocks differ, or -1; a whole segment is too long to print.
long difference(const std::string &left, const std::string &right) {
  for (std::size_t i = 0; i < left.size(); ++i) {
    if (left[i] != right[i]) return static_cast<long>(i);
  }
  return -1;
}

std::string segment(int key, std::size_t size) {
  CShareMemory memory(key);
  const void *address = memory.Attach();
  return address == nullptr ? std::string(size, '?') : bytes_at(address, size);
}

// One database with these table and field lines.
std::string schema_of_lines(int tables, const std::string &table_lines, const std::string &field_lines) {
  return "#Database_Start\n#Name=system Describe=S ID=1 Type=0 TableCount=" + std::to_string(tables) +
         "\n#Database_Finish\n#Table_Start\n" + table_lines + "#Table_Finish\n#Field_Start\n" + field_lines +
         "#Field_Finish\n";
}

template <class Object, class Attr>
std::string leading_bytes_after_assignment(const std::string &pattern) {
  const auto attr = value_at<Attr>(pattern.data(), 0);
  Object object;
  object = attr;
  return bytes_at(&object, sizeof(Attr));
}

}  // namespace

// A wrong offset, width or order of any member, padding, or garbage behind a text.
TEST(Image, DatabaseSegmentIsLaidOutByteForByte) {
  const Image image({account_table()}, {{7, "Pump", 100, {"ID UINT 4", "Name STRING 24 none", "Flow DOUBLE 8"}},
                                        {9, "Line", 10, {"ID UINT 4", "Level INT 4 12"}}});
  std::string expected(4624, '\0');
  put_text(expected, 0, "plant");
  put_text(expected, 24, "PlantData");
  put_all(expected, 64, {2, 7, 2, 5, 4624, 96, 304, 944});
  put_text(expected, 96, "Pump");
  put_text(expected, 120, "CPump");
  put_all(expected, 160, {2, 7, 0, 36, 100, 3, 304, 944, 0, 1});
  put_text(expected, 200, "Line");
  put_text(expected, 224, "CLine");
  put_all(expected, 264, {2, 9, 1, 8, 10, 2, 688, 4544, 0, 1});
  const struct {
    std::size_t at;
    const char *name, *caption, *text;
    std::initializer_list<std::int32_t> numbers;
  } fields[] = {
      {304, "ID", "CID", "", {2, 7, 1, 0, 6, 4, 4, 0}},
      {432, "Name", "CName", "none", {2, 7, 2, 1, 13, 1, 24, 4}},
      {560, "Flow", "CFlow", "", {2, 7, 3, 2, 12, 8, 8, 28}},
      {688, "ID", "CID", "", {2, 9, 1, 0, 6, 4, 4, 0}},
      {816, "Level", "CLevel", "12", {2, 9, 2, 1, 5, 4, 4, 4}},
  };
  for (const auto &field : fields) {
    put_text(expected, field.at, field.name);
    put_text(expected, field.at + 24, field.caption);
    put_all(expected, field.at + 64, field.numbers);
    put_text(expected, field.at + 96, field.text);
  }
  EXPECT_EQ(-1, difference(expected, segment(2, 4624)));
}

// A directory or flag at the wrong place, an attribute that is not copied, a directory record that is not its
// segment's.
TEST(Image, ManagerSegmentIsLaidOutByteForByte) {
  const Image image({account_table()}, {{7, "Pump", 100, {"ID UINT 4"}}});
  std::string expected(1296, '\0');
  put_all(expected, 0, {296, 1256, 1296, 0, 0});
  put_text(expected, 20, image.root.folder() + "conf/fix_Rtdb.ini");
  put_text(expected, 116, image.root.folder() + "data/");
  char host[256] = {};
  ASSERT_EQ(0, gethostname(host, sizeof host - 1));
  put_text(expected, 212, std::string_view(host).substr(0, 23));
  put_all(expected, 236, {10, 2});
  put_text(expected, 296, segment(1, 96));
  put_text(expected, 392, segment(2, 96));
  put_all(expected, 1256, {1, 1});
  EXPECT_EQ(-1, difference(expected, segment(kManagerKey, 1296)));
}

// A slot that nobody filled is left out of the layout, or is all zero instead of a fresh object's bytes.
TEST(Image, UnfilledSlotsHoldFreshDescriptors) {
  const Image image(schema_of_lines(
      3,
      "#DBID=1 NAME=First CNAME=F ID=1 INDEX=0 MAX=2 FIELDNUM=3\n#DBID=1 NAME=Last CNAME=L ID=2 INDEX=2 MAX=1 "
      "FIELDNUM=1\n",
      "#DBID=1 TABLEID=1 NAME=ID CNAME=I ID=1 INDEX=0 TYPE=UINT SIZE=4\n"
      "#DBID=1 TABLEID=1 NAME=Tail CNAME=T ID=3 INDEX=2 TYPE=INT SIZE=4\n"
      "#DBID=1 TABLEID=2 NAME=ID CNAME=I ID=1 INDEX=0 TYPE=UINT SIZE=4\n"));
  const std::string bytes = segment(1, 96 + 3 * 104 + 4 * 128 + 20);
  std::string table(104, '\0');
  put_all(table, 64, {-1, -1, -1, 0, 0, 0, 96 + 3 * 104 + 3 * 128, 96 + 3 * 104 + 4 * 128 + 16, 0, 1});
  EXPECT_EQ(-1, difference(table, bytes.substr(96 + 104, 104)));
  std::string field(128, '\0');
  put_all(field, 64, {-1, -1, -1, 0, 0, 0, 0, 4});
  EXPECT_EQ(-1, difference(field, bytes.substr(96 + 3 * 104 + 128, 128)));
  EXPECT_EQ(4, value_at<std::int32_t>(bytes.data(), 96 + 3 * 104 + 2 * 128 + 92)) << "offset of the field behind";
  EXPECT_EQ(936, value_at<std::int32_t>(bytes.data(), 96 + 2 * 104 + 92)) << "record area of the last table";
}

// Alignment of fields, and a table without records that takes room or loses its slot.
TEST(Image, FieldsArePackedAndEmptyAreasTakeNoRoom) {
  const Image image({{1, "None", 0, {"ID UINT 4"}}, {2, "Odd", 3, {"Flag CHAR 1", "Level INT 4"}}});
  const std::string bytes = segment(1, 96 + 2 * 104 + 3 * 128);
  const auto number = [&](std::size_t offset) { return value_at<std::int32_t>(bytes.data(), offset); };
  EXPECT_EQ(688, number(96 + 92));
  EXPECT_EQ(0, number(96 + 80));
  EXPECT_EQ(688, number(200 + 92));
  EXPECT_EQ(5, number(200 + 76));
  EXPECT_EQ(1, number(304 + 2 * 128 + 92));
  EXPECT_EQ(688 + 15, number(80));
}

// An object whose descriptor does not stand at its start in the order of the image.
TEST(Image, ObjectsLeadWithTheirDescriptor) {
  std::string database(96, '\0'), table(104, '\0'), field(128, '\0');
  for (std::string *bytes : {&database, &table, &field}) {
    put_text(*bytes, 0, "name");
    put_text(*bytes, 24, "caption");
  }
  put_all(database, 64, {11, 12, 13, 14, 15, 16, 17, 18});
  put_all(table, 64, {11, 12, 13, 14, 15, 16, 17, 18, 19, 20});
  put_all(field, 64, {11, 12, 13, 14, 15, 16, 17, 18});
  put_text(field, 96, "default");
  EXPECT_EQ(database, (leading_bytes_after_assignment<CRtDataBase, _db_attr>(database)));
  EXPECT_EQ(table, (leading_bytes_after_assignment<CRtTable, _table_attr>(table)));
  EXPECT_EQ(field, (leading_bytes_after_assignment<CRtField, _field_attr>(field)));
  static_assert(sizeof(CRtField) == 128);

  const TestRoot root;
  const CRtdbManager manager;
  std::string attributes(276, '\0');
  put_text(attributes, 0, root.folder() + "conf/fix_Rtdb.ini");
  put_text(attributes, 96, root.folder() + "data/");
  put_all(attributes, 216, {10});
  EXPECT_EQ(attributes, bytes_at(&manager, 276));
}

// Members that a constructor forgets.
TEST(Image, FreshObjectsHoldTheirStartValues) {
  std::string database(96, '\0'), table(104, '\0'), field(128, '\0');
  put_all(database, 64, {-1, -1});
  put_all(table, 64, {-1, -1, -1, 0, 0, 0, 0, 0, 0, 1});
  put_all(field, 64, {-1, -1, -1});
  const CRtDataBase fresh_database;
  const CRtTable fresh_table;
  const CRtField fresh_field;
  EXPECT_EQ(database, bytes_at(&fresh_database, 96));
  EXPECT_EQ(table, bytes_at(&fresh_table, 104));
  EXPECT_EQ(field, bytes_at(&fresh_field, 128));
}
