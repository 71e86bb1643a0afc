// Reading and writing single values of records.
#include <gtest/gtest.h>
#include <string>

#include "tests/kernel/TableFixture.h"

namespace {

// Two tables whose descriptors and record areas follow each other.
struct Neighbours : Image {
  Neighbours()
      : Image({{10, "First", 2, {"ID UINT 4", "Level INT 4"}}, {11, "Second", 2, {"ID UINT 4", "Name STRING 8"}}}),
        first(table(10)),
        second(table(11)) {
    if (first.Insert(5, 0, 0) != 0 || second.Insert(6, 0, 0) != 0) throw std::runtime_error("no records");
  }
  CRtTable first, second;
};

}  // namespace

// Catches: index checks that are made alike; the descriptor of the next table that is not reached.
TEST(ByDesign, SetFieldDataIndex) {
  Neighbours tables;
  const std::string before = bytes_at(tables.first.GetDataAddress(), 40);
  char buffer[8] = {'?'};
  const std::uint32_t value = 0x01020304;
  const auto *bytes = reinterpret_cast<const char *>(&value);
  EXPECT_EQ(tables.first.SetFieldData(5, 3, bytes), 0);
  EXPECT_EQ(tables.first.GetFieldData(5, 2, buffer), 0);
  EXPECT_EQ(buffer[0], '?');
  EXPECT_EQ(before, bytes_at(tables.first.GetDataAddress(), 40));

  // Slot 2 of the first table is slot 0 of the second: 4 bytes at offset 0.
  EXPECT_EQ(tables.first.SetFieldData(5, 2, bytes), 1);
  EXPECT_EQ(value, value_at<std::uint32_t>(tables.first.GetDataAddress(), 0));
  EXPECT_EQ(before.substr(4), bytes_at(tables.first.GetDataAddress() + 4, 36));

  // A negative slot of the second table is one of the first.
  EXPECT_EQ(tables.second.SetFieldData(6, -1, bytes), 1);
  EXPECT_EQ(value, value_at<std::uint32_t>(tables.second.GetDataAddress(), 4));
  EXPECT_EQ(tables.second.GetFieldData(6, -2, buffer), 1);
  EXPECT_EQ(value_at<std::uint32_t>(buffer, 0), 6U);

  // Where no descriptor lies nothing is written; the last table's index is accepted all the same.
  const std::string untouched = bytes_at(tables.first.GetDataAddress(), 40);
  EXPECT_EQ(tables.second.SetFieldData(6, 2, bytes), 1);
  EXPECT_EQ(tables.second.SetFieldData(7, 2, bytes), 0) << "no such record";
  EXPECT_EQ(tables.second.GetFieldData(6, -3, buffer), 0) << "nothing to read";
  EXPECT_EQ(untouched, bytes_at(tables.first.GetDataAddress(), 40));
}

// Catches: a range that is off by one, a key that is not looked for, a failure that writes.
TEST(TableValues, RefusalsWriteNothing) {
  Accounts accounts({0, 5}, 6);
  CRtTable &table = accounts.table;
  const std::string before = accounts.area();
  char buffer[16] = "untouched";
  const int absent[] = {table.GetFieldData(0, 2, buffer),    table.GetFieldData(4, 2, buffer),
                        table.GetFieldData(5, 2, nullptr),   table.SetFieldData(4, 2, buffer),
                        table.SetFieldData(5, 2, nullptr),   table.GetFieldDataAt(0, 2, nullptr),
                        table.SetFieldDataAt(0, 2, nullptr), table.SetFieldByText(0, 2, nullptr)};
  for (const int &result : absent) EXPECT_EQ(result, 0) << &result - absent;
  const int places[][2] = {{0, 8}, {0, -1}, {2, 2}, {-1, 2}};
  for (const auto &[record, field] : places) {
    SCOPED_TRACE("record " + std::to_string(record) + " field " + std::to_string(field));
    EXPECT_EQ(table.GetFieldDataAt(record, field, buffer), 0);
    EXPECT_EQ(table.SetFieldDataAt(record, field, buffer), 0);
    EXPECT_EQ(table.SetFieldByText(record, field, buffer), 0);
  }
  EXPECT_STREQ(buffer, "untouched");
  EXPECT_EQ(before, accounts.area());
  EXPECT_EQ(table.SetFieldData(0, 2, "\x07\0\0"), 1) << "writing looks a key 0 up, reading does not";
  EXPECT_EQ(accounts.number(0, Account::kLevel), 7);
}

// Catches: a width that is not FieldSize, a text that is copied beyond its terminator, a stamp that single values do
// not get.
TEST(TableValues, CopiesFieldSizeOrText) {
  Accounts accounts({0, 5}, 6);
  const struct {
    int field;
    std::size_t offset;
    std::string value, stored, read;
  } rows[] = {
      {2, Account::kLevel, "\x01\x02\x03\x04XXXX", "\x01\x02\x03\x04____", "\x01\x02\x03\x04????"},
      {1, Account::kName, std::string("ab\0XXXXX", 8), std::string("ab\0_____", 8), std::string("ab\0?????", 8)},
      {3, 16, "abcdefgh", "abcdefgh", "abcdefgh"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.field);
    std::memset(accounts.slot(1) + 4, '_', Account::kSize - 4);
    std::string expected = bytes_at(accounts.slot(1), Account::kSize);
    expected.replace(row.offset, row.stored.size(), row.stored);
    std::string by_key(8, '?'), by_position(8, '?');
    EXPECT_EQ(row.field == 1 ? accounts.table.SetFieldData(5, row.field, row.value.data())
                             : accounts.table.SetFieldDataAt(1, row.field, row.value.data()),
              1);
    EXPECT_EQ(accounts.table.GetFieldData(5, row.field, by_key.data()), 1);
    EXPECT_EQ(accounts.table.GetFieldDataAt(1, row.field, by_position.data()), 1);
    EXPECT_EQ(bytes_at(accounts.slot(1), Account::kSize), expected);
    EXPECT_EQ(by_key, row.read);
    EXPECT_EQ(by_position, row.read);
  }
}

// Catches: a text copy that stops at the field's end; the same code serves keys and positions.
TEST(ByDesign, TextCopyUnbounded) {
  Accounts accounts({5, 6}, 7);
  std::string expected = accounts.area(1);
  expected.replace(Account::kName, 11, std::string("0123456789") + '\0');
  EXPECT_EQ(accounts.table.SetFieldData(5, 1, "0123456789"), 1);
  EXPECT_EQ(accounts.area(1), expected);
  char buffer[16];
  EXPECT_EQ(accounts.table.GetFieldDataAt(0, 1, buffer), 1);
  EXPECT_STREQ(buffer, "0123456789");
}

// Catches: an end that is off by one, a text that is not copied plainly.
TEST(ByDesign, EndPositionExclusive) {
  const struct {
    int first, end;
    const char *changed;
  } rows[] = {{0, -1, "XXXX_"}, {0, -7, "XXXX_"}, {0, 5, "XXXXX"}, {1, 3, "_XX__"}, {2, 2, "_____"},
              {3, 1, "_____"},  {4, -1, "_____"}, {4, 5, "____X"}, {0, 1, "X____"}};
  Accounts accounts;
  for (const auto &row : rows) {
    SCOPED_TRACE(std::to_string(row.first) + " to " + std::to_string(row.end));
    accounts.fill({1, 2, 3, 4, 5}, 6);
    std::string expected = accounts.area();
    for (std::size_t i = 0; i < 5; ++i) {
      if (row.changed[i] == 'X') expected.replace(i * Account::kSize + Account::kName, 8, std::string("X\0YYYYYY", 8));
    }
    EXPECT_EQ(accounts.table.SetColumnValueAt(1, "X\0YYYYYYZ", row.first, row.end), 1);
    EXPECT_EQ(accounts.area(), expected);
  }
  accounts.fill({1}, 2);
  EXPECT_EQ(accounts.table.SetColumnValueAt(1, "XXXXXXXX", 0, -1), 1);
  EXPECT_EQ(account(1, 1), accounts.area(1));
}

// Catches: a conversion of the wrong width, sign, or number syntax; one that minds FieldSize.
TEST(TableValues, SetFieldByTextConvertsEveryType) {
  Image image({{10,
                "Types",
                1,
                {"ID UINT 4", "C CHAR 8", "U UCHAR 8", "S SHORT 8", "W USHORT 8", "I INT 8", "D UINT 8", "L LONG 8",
                 "M ULONG 8", "F FLOAT 8", "E DOUBLE 8", "T TIME 16", "P SHORT 1", "Q CHAR 7"}}});
  CRtTable table = image.table(10);
  ASSERT_EQ(table.Insert(5, 0, 0), 0);
  // The value's bytes, little-endian; '_' is a byte that stays.
  const struct {
    int field;
    const char *text;
    std::string stored;
  } rows[] = {{1, "AB", "A_______"},
              {1, "", std::string("\0_______", 8)},
              {2, "\xFF", "\xFF_______"},
              {3, "70000", "\x70\x11______"},
              {4, "65535x", "\xFF\xFF______"},
              {5, " \t-1", "\xFF\xFF\xFF\xFF____"},
              {6, "4294967295", "\xFF\xFF\xFF\xFF____"},
              {7, "+7", std::string("\7\0\0\0____", 8)},
              {8, "3000000000", std::string("\0\x5E\xD0\xB2____", 8)},
              {9, "1.5", std::string("\0\0\xC0\x3F____", 8)},
              {10, "-0.1e1z", std::string("\0\0\0\0\0\0\xF0\xBF", 8)},
              {10, "none", std::string("\0\0\0\0\0\0\0\0", 8)},
              {11, "2008-3-7 9:5:1", std::string("\xD8\7\3\0\0\0\7\0\x9\0\5\0\1\0\0\0", 16)},
              {12, "258", "\2\1______"}};
  const std::string blank(4 + 80 + 16 + 8, '_');
  const std::size_t offsets[] = {0, 4, 12, 20, 28, 36, 44, 52, 60, 68, 76, 84, 100};
  for (const auto &row : rows) {
    SCOPED_TRACE(std::to_string(row.field) + " " + row.text);
    std::memcpy(table.GetDataAddress(), blank.data(), blank.size());
    std::string expected = blank, text = row.text;
    expected.replace(offsets[row.field], row.stored.size(), row.stored);
    EXPECT_EQ(table.SetFieldByText(0, row.field, text.data()), 1);
    EXPECT_EQ(bytes_at(table.GetDataAddress(), blank.size()), expected);
    EXPECT_EQ(text, row.text);
  }
  for (const int type : {0, 7, 8, 16, -1}) {
    SCOPED_TRACE(type);
    table.GetFieldAddress()[5].FieldType = type;
    std::memcpy(table.GetDataAddress(), blank.data(), blank.size());
    char text[] = "12";
    EXPECT_EQ(table.SetFieldByText(0, 5, text), 0);
    EXPECT_EQ(blank, bytes_at(table.GetDataAddress(), blank.size()));
  }
}

// Catches: a cut that is off by one, or a caller's text that stays longer than what was stored.
TEST(ByDesign, CallerTextCut) {
  Image image({{10, "Texts", 1, {"ID UINT 4", "Name STRING 8", "Key PASSWD 8"}}});
  CRtTable table = image.table(10);
  ASSERT_EQ(table.Insert(5, 0, 0), 0);
  const struct {
    const char *text;
    std::string stored;
  } rows[] = {{"", std::string("\0_______", 8)},
              {"1234567", std::string("1234567\0", 8)},
              {"12345678", std::string("1234567\0", 8)},
              {"12345678901", std::string("1234567\0", 8)}};
  for (const int field : {1, 2}) {
    for (const auto &row : rows) {
      SCOPED_TRACE(std::to_string(field) + " " + row.text);
      std::memset(table.GetDataAddress(), '_', 20);
      std::string expected(20, '_'), text = row.text;
      expected.replace(field == 1 ? 4 : 12, 8, row.stored);
      EXPECT_EQ(table.SetFieldByText(0, field, text.data()), 1);
      EXPECT_EQ(bytes_at(table.GetDataAddress(), 20), expected);
      EXPECT_STREQ(row.stored.c_str(), text.c_str());
    }
  }
}
