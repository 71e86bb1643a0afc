// Field descriptors: texts at their widths, assignment, type names, and the text form of every type.
#include <array>
#include <cmath>
#include <cstdio>
#include <functional>
#include <gtest/gtest.h>
#include <ios>
#include <limits>
#include <numeric>
#include <random>
#include <string>

#include "tests/kernel/TableFixture.h"

namespace {

enum TypeCode { kChar = 1, kUchar, kShort, kUshort, kInt, kUint, kLong = 9, kUlong, kFloat, kDouble, kString, kTime };
constexpr int kPasswd = 15;

std::string display(int type, void *value) {
  std::string text(400, '?');
  CRtField::GetDisplayText(type, static_cast<char *>(value), text.data());
  return text.c_str();
}

// The leading descriptor of an object of 'z' after the assignment of these bytes.
template <class Object, class Attr>
std::string assigned(const std::string &bytes, bool from_object) {
  Object target, source;
  std::memset(static_cast<void *>(&target), 'z', sizeof(Attr));
  std::memcpy(static_cast<void *>(&source), bytes.data(), sizeof(Attr));
  if (from_object) {
    target = source;
  } else {
    target = value_at<Attr>(bytes.data(), 0);
  }
  return bytes_at(&target, sizeof(Attr));
}

}  // namespace

// Catches: a limit that is off by one, a terminator that is left out, a longer text that is cut instead of refused.
TEST(ByDesign, FullWidthText) {
  struct Guarded {
    CRtField field;
    char guard[4];
  } guarded;
  CRtTable table;
  CRtDataBase database;
  const struct {
    const char *what;
    void *object;
    std::size_t size, offset, width;
    std::function<void(const char *)> set;
  } rows[] = {
      {"field name", &guarded, 132, 0, 24, [&](const char *text) { guarded.field.SetFieldName(text); }},
      {"field caption", &guarded, 132, 24, 40, [&](const char *text) { guarded.field.SetFieldCName(text); }},
      {"default value", &guarded, 132, 96, 32, [&](const char *text) { guarded.field.SetDefaultValue(text); }},
      {"table name", &table, 104, 0, 24, [&](const char *text) { table.SetTableName(text); }},
      {"table caption", &table, 104, 24, 40, [&](const char *text) { table.SetTableCName(text); }},
      {"database name", &database, 96, 0, 24, [&](const char *text) { database.SetDBName(text); }},
      {"database caption", &database, 96, 24, 40, [&](const char *text) { database.SetDBCName(text); }},
  };
  for (const auto &row : rows) {
    for (const std::size_t length : {row.width - 1, row.width, row.width + 1}) {
      SCOPED_TRACE(std::string(row.what) + " of length " + std::to_string(length));
      std::string expected(row.size, '\x11');
      std::memset(row.object, 0x11, row.size);
      const std::string text(length, 'x');
      row.set(text.c_str());
      if (length <= row.width) expected.replace(row.offset, length + 1, text + '\0');
      // The terminator of a default value of full width would be after the object.
      if (length == 32) expected[128] = '\x11';
      EXPECT_EQ(bytes_at(row.object, row.size), expected);
    }
  }
}

// Catches: a descriptor that does not lead its object, an assignment that copies a text field whole, mixes or forgets
// members.
TEST(Field, AssignmentKeepsBytesBehindTerminators) {
  std::string bytes(128, '\0');
  std::iota(bytes.begin(), bytes.end(), '\1');
  for (const std::size_t text : {0U, 24U, 96U}) bytes[text + 1] = '\0';
  std::string expected = bytes;
  expected.replace(2, 22, 22, 'z').replace(26, 38, 38, 'z');
  for (const bool from_object : {false, true}) {
    SCOPED_TRACE(from_object);
    EXPECT_EQ(expected.substr(0, 104), (assigned<CRtTable, _table_attr>(bytes, from_object)));
    EXPECT_EQ(expected.substr(0, 96), (assigned<CRtDataBase, _db_attr>(bytes, from_object)));
    EXPECT_EQ(expected.substr(0, 98) + std::string(30, 'z'), (assigned<CRtField, _field_attr>(bytes, from_object)));
  }
}

// Catches: a table of names that was put right, a name without its padding, a code that reads outside the table.
TEST(ByDesign, TypeNameTable) {
  const struct {
    int code;
    const char *name;
  } rows[] = {{0, " "},           {1, "CHAR      "},  {2, "UCHAR     "},  {3, "SHORT     "},  {4, "USHORT    "},
              {5, "INT       "},  {6, "UINT      "},  {7, "UINT      "},  {8, "UINT      "},  {9, "FLOAT     "},
              {10, "DOUBLE    "}, {11, "CHAR      "}, {12, "SYSTEMTIME"}, {13, "PASSWD    "}, {14, "SYSTEMTIME"},
              {15, "PASSWD    "}, {16, " "},          {-1, " "},          {2147483647, " "}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.code);
    CRtField field;
    field.SetFieldType(row.code);
    std::string slot = row.name;
    slot.resize(16);
    EXPECT_EQ(slot, bytes_at(field.GetTypeStr(), 16));
  }
}

// Catches: a wrong width or sign, a number form other than "%f", a code that is not refused.
TEST(Field, DisplayTextOfEveryType) {
  const struct {
    int type;
    std::uint64_t bits;
    std::string text;
  } rows[] = {{kChar, 0x4241, "A"},
              {kChar, 0x4100, ""},
              {kUchar, 0xFF, "\xFF"},
              {kShort, 0x18000, "-32768"},
              {kUshort, 0x1FFFF, "65535"},
              {kInt, 0x180000000, "-2147483648"},
              {kUint, 0x1FFFFFFFF, "4294967295"},
              {kLong, 0x1FFFFFFFF, "-1"},
              {kUlong, 0x180000000, "2147483648"},
              {kFloat, 0xFFFFFFFF3FC00000, "1.500000"},
              {kFloat, 0x7F7FFFFF, "340282346638528859811704183484516925440.000000"},
              {kFloat, 0x80000000, "-0.000000"},
              {kFloat, 0xFF800000, "-inf"},
              {kFloat, 0x7FC00000, "nan"},
              {kDouble, 0x3FF3C0CA428C59FB, "1.234568"},
              {kDouble, 0x7FF0000000000000, "inf"},
              {kString, 0x00636261, "abc"},
              {kString, 0x00636200, ""}};
  // The value starts at an odd address, as record bytes do.
  char value[17] = {};
  for (const auto &row : rows) {
    SCOPED_TRACE("type " + std::to_string(row.type) + " shown as " + row.text);
    put(value, 1, row.bits);
    EXPECT_EQ(display(row.type, value + 1), row.text);
    EXPECT_EQ(value_at<std::uint64_t>(value, 1), row.bits);
  }
  for (const int type : {0, 7, 8, 16, -1}) EXPECT_EQ(display(type, value + 1), "") << type;
}

// Catches: a decimal that is not rounded as the C library does, a tie to the even one.
TEST(Field, DecimalsAreTheCLibrarys) {
  const auto expect = [](double value) {
    std::array<char, 400> expected;
    std::array<char, 400> text;
    std::snprintf(expected.data(), expected.size(), "%f", value);
    CRtField::GetDisplayText(12, reinterpret_cast<char *>(&value), text.data());
    EXPECT_STREQ(text.data(), expected.data()) << std::hexfloat << value;
  };
  for (const double value : {0.0, -0.0, 1.0, -0.0000001, 0.0000005, 0.0078125, 0.0234375, 0.5, 0.9999995, 0.99999949999,
                             8796093022207.9999, 8796093022208.5, 9007199254740993.0, 1e22, 1.7976931348623157e308,
                             5e-324, 2e-308, std::numeric_limits<double>::infinity(), std::nan("")}) {
    expect(value);
    expect(-value);
  }
  const auto seed = std::random_device{}();
  SCOPED_TRACE(seed);
  std::mt19937_64 random(seed);
  for (int round = 0; round < 20'000 && !HasFailure(); ++round) {
    expect(std::ldexp(static_cast<double>(random()), static_cast<int>(random() % 140) - 120));
    // Ties: odd numbers of 2^-7 and less.
    expect(static_cast<double>(random() % 1'000'000 * 2 + 1) / static_cast<double>(1 << (7 + random() % 10)));
  }
}

// Catches: a range that is off by one or checks the calendar, a stamp that does not reach the record, text that pads.
TEST(ByDesign, TimeStamped) {
  const struct {
    std::uint16_t month, day;
    const char *text;  // null: stamped
  } rows[] = {{0, 1, nullptr},         {13, 1, nullptr},           {1, 0, nullptr},
              {12, 32, nullptr},       {2, 31, "2008-2-31 9:5:0"}, {12, 1, "2008-12-1 9:5:0"},
              {1, 1, "2008-1-1 9:5:0"}};
  for (const auto &row : rows) {
    SCOPED_TRACE(std::to_string(row.month) + "-" + std::to_string(row.day));
    const SYSTEMTIME before{2008, row.month, 6, row.day, 9, 5, 0, 999};
    SYSTEMTIME time = before, now{};
    GetLocalTime(now);
    const std::string text = display(kTime, &time);
    if (row.text != nullptr) {
      EXPECT_EQ(text, row.text);
      EXPECT_EQ(bytes_at(&before, sizeof before), bytes_at(&time, sizeof time));
      continue;
    }
    EXPECT_EQ(display(kTime, &time), text) << "the stamp is what is shown, and stays";
    EXPECT_EQ(time.wMilliseconds, 0);
    // A minute may end between the two readings of the clock.
    const int minutes = (time.wHour * 60 + time.wMinute) - (now.wHour * 60 + now.wMinute);
    EXPECT_TRUE(minutes == 0 || minutes == 1 || minutes == 1 - 24 * 60) << minutes;
    EXPECT_TRUE(time.wDay == now.wDay || minutes < 0);
  }
}

// Catches: a password that shows in clear, or whose stored form the display changes.
TEST(Field, DisplayTextHidesPasswords) {
  char stored[16] = "secret";
  const std::string text = display(kPasswd, stored);
  EXPECT_NE(text, "");
  EXPECT_EQ(std::string::npos, text.find("secret"));
  EXPECT_STREQ(stored, "secret");
}
