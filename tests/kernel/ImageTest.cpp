// The bytes of a real image and of the objects that lead with them, compared with the layout written down by hand.
#include <algorithm>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/kernel/TableFixture.h"

namespace {

using Numbers = std::initializer_list<std::int32_t>;

void put_numbers(std::string &bytes, std::size_t offset, Numbers numbers) {
  std::memcpy(bytes.data() + offset, numbers.begin(), numbers.size() * 4);
}

void put_text(std::string &bytes, std::size_t offset, std::string_view text) {
  text.copy(bytes.data() + offset, text.size());
}

// A descriptor of `size` bytes: name, caption, numbers, and the default value of a field.
std::string descriptor(std::size_t size, Numbers numbers, std::string_view name = {}, std::string_view caption = {},
                       std::string_view default_value = {}) {
  std::string bytes(size, '\0');
  put_text(bytes, 0, name);
  put_text(bytes, 24, caption);
  put_numbers(bytes, 64, numbers);
  if (!default_value.empty()) put_text(bytes, 96, default_value);
  return bytes;
}

std::string segment(int key, std::size_t size) {
  CShareMemory memory(key);
  const void *address = memory.Attach();
  return address == nullptr ? std::string(size, '?') : bytes_at(address, size);
}

// The first place where two blocks differ, or -1; a whole segment is too long to print.
long difference(const std::string &left, const std::string &right) {
  if (left == right) return -1;
  return std::mismatch(left.begin(), left.end(), right.begin(), right.end()).first - left.begin();
}

}  // namespace

// Catches: a wrong offset, width or order of any member, padding, or garbage after a text.
TEST(Image, DatabaseSegmentIsLaidOutByteForByte) {
  const Image image({account_table()}, {{7, "Pump", 100, {"ID UINT 4", "Name STRING 24 none", "Flow DOUBLE 8"}},
                                        {9, "Line", 10, {"ID UINT 4", "Level INT 4 12"}}});
  std::string expected = descriptor(96, {2, 7, 2, 5, 4624, 96, 304, 944}, "plant", "Cplant");
  expected += descriptor(104, {2, 7, 0, 36, 100, 3, 304, 944, 0, 1}, "Pump", "CPump");
  expected += descriptor(104, {2, 9, 1, 8, 10, 2, 688, 4544, 0, 1}, "Line", "CLine");
  expected += descriptor(128, {2, 7, 1, 0, 6, 4, 4, 0}, "ID", "CID");
  expected += descriptor(128, {2, 7, 2, 1, 13, 1, 24, 4}, "Name", "CName", "none");
  expected += descriptor(128, {2, 7, 3, 2, 12, 8, 8, 28}, "Flow", "CFlow");
  expected += descriptor(128, {2, 9, 1, 0, 6, 4, 4, 0}, "ID", "CID");
  expected += descriptor(128, {2, 9, 2, 1, 5, 4, 4, 4}, "Level", "CLevel", "12");
  expected.resize(4624);
  EXPECT_EQ(difference(expected, segment(2, 4624)), -1);
}

// Catches: a directory or flag at the wrong place, an attribute that is not copied, a record that is not its segment's.
TEST(Image, ManagerSegmentIsLaidOutByteForByte) {
  const Image image({account_table()}, {{7, "Pump", 100, {"ID UINT 4"}}});
  std::string expected(1296, '\0');
  put_numbers(expected, 0, {296, 1256, 1296, 0, 0});
  put_text(expected, 20, image.root.folder() + "conf/fix_Rtdb.ini");
  put_text(expected, 116, image.root.folder() + "data/");
  char host[256] = {};
  ASSERT_EQ(gethostname(host, sizeof host - 1), 0);
  put_text(expected, 212, std::string_view(host).substr(0, 23));
  put_numbers(expected, 236, {10, 2});
  put_text(expected, 296, segment(1, 96));
  put_text(expected, 392, segment(2, 96));
  put_numbers(expected, 1256, {1, 1});
  EXPECT_EQ(difference(expected, segment(kManagerKey, 1296)), -1);
}

// Catches: a slot that no line filled is left out of the layout, or is all zero instead of a fresh object's bytes.
TEST(Image, UnfilledSlotsHoldFreshDescriptors) {
  const Image image(
      "#Database_Start\n#Name=system Describe=S ID=1 Type=0 TableCount=3\n#Database_Finish\n#Table_Start\n"
      "#DBID=1 NAME=First CNAME=F ID=1 INDEX=0 MAX=2 FIELDNUM=3\n"
      "#DBID=1 NAME=Last CNAME=L ID=2 INDEX=2 MAX=1 FIELDNUM=1\n#Table_Finish\n#Field_Start\n"
      "#DBID=1 TABLEID=1 NAME=ID CNAME=I ID=1 INDEX=0 TYPE=UINT SIZE=4\n"
      "#DBID=1 TABLEID=1 NAME=Tail CNAME=T ID=3 INDEX=2 TYPE=INT SIZE=4\n"
      "#DBID=1 TABLEID=2 NAME=ID CNAME=I ID=1 INDEX=0 TYPE=UINT SIZE=4\n#Field_Finish\n");
  const std::string bytes = segment(1, 940);
  EXPECT_EQ(difference(descriptor(104, {-1, -1, -1, 0, 0, 0, 792, 936, 0, 1}), bytes.substr(200, 104)), -1);
  EXPECT_EQ(difference(descriptor(128, {-1, -1, -1, 0, 0, 0, 0, 4}), bytes.substr(536, 128)), -1);
  EXPECT_EQ(value_at<std::int32_t>(bytes.data(), 756), 4) << "offset of the field after it";
  EXPECT_EQ(value_at<std::int32_t>(bytes.data(), 396), 936) << "record area of the last table";
}

// Catches: members that a constructor forgets, or that are elsewhere in the object.
TEST(Image, FreshObjectsHoldTheirStartValues) {
  const CRtDataBase database;
  const CRtTable table;
  const CRtField field;
  EXPECT_EQ(descriptor(96, {-1, -1}), bytes_at(&database, 96));
  EXPECT_EQ(descriptor(104, {-1, -1, -1, 0, 0, 0, 0, 0, 0, 1}), bytes_at(&table, 104));
  EXPECT_EQ(descriptor(128, {-1, -1, -1}), bytes_at(&field, 128));
  static_assert(sizeof(CRtField) == 128);

  const TestRoot root;
  const CRtdbManager manager;
  std::string attributes(276, '\0');
  put_text(attributes, 0, root.folder() + "conf/fix_Rtdb.ini");
  put_text(attributes, 96, root.folder() + "data/");
  put_numbers(attributes, 216, {10});
  EXPECT_EQ(attributes, bytes_at(&manager, 276));
}
