// Values of every type in the relational store: what comes back, and what does not convert.
#include <array>
#include <gtest/gtest.h>

#include "quillanest/persist/RtdbMedia.h"
#include "tests/store/Backends.h"
#include "tests/store/KindsImage.h"

namespace {

using StoreValues = StoreScenario;
INSTANTIATE_TEST_SUITE_P(Backends, StoreValues, kBackends, name_of_backend);

// Catches: a type that loses bits, a sign or a part of its text on the way to a store or back.
TEST_P(StoreValues, EveryTypeComesBack) {
  KindsImage image(slots());
  ASSERT_TRUE(image.started);
  for (const Kinds &record : kEnds) image.add(record);
  EXPECT_TRUE(image.kinds.SaveData(0));
  const std::string expected =
      "0|9|-32768|65535|-2147483648|4294967295|-2147483648|2147483648\n"
      "1|2|32767|1|2147483647|2147483648|2147483647|1\n"
      "5|6|0|0|0|0|0|0\n";
  // Times go to both slots in the words of the current one, and only a file understands "#...#".
  EXPECT_EQ(
      image.rows("SELECT aChar, aUchar, aShort, aUshort, anInt, aUint, aLong, aUlong FROM plant_Kinds ORDER BY ID"),
      slots() == "FS" ? "main: " + expected + "backup: " : expected);
  EXPECT_EQ(image.stores[0]->run("SELECT count(*) FROM plant_Kinds WHERE aPass LIKE '%word%' OR length(aPass) < 8"),
            "0\n");

  image.kinds.DeleteAllRecord();
  EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), 1);
  ASSERT_EQ(image.kinds.GetRecordCount(), 3);
  for (int i = 0; i < 3; ++i) {
    Kinds as_number = kEnds[i];
    as_number.a_char = static_cast<char>(as_number.a_char - '0');
    as_number.a_uchar = static_cast<unsigned char>(as_number.a_uchar - '0');
    image.expect(i, as_number);
  }
  EXPECT_EQ(image.kinds.GetIDExclusive(), 2147483648U);
}

// Catches: a NULL that leaves the former value in its field, a foreign value that is not cut to the field's width.
TEST_P(StoreValues, NullsAndForeignValuesByType) {
  KindsImage image(slots());
  Kinds full;
  std::memset(static_cast<void *>(&full), 0x55, sizeof full);
  full.id = 7;
  image.add(full);
  image.run(
      "INSERT INTO plant_Kinds(ID, aFloat, aDouble) VALUES(7, 1, 2); INSERT INTO plant_Kinds "
      "VALUES(8, 256 + 65, 255, 65535, 65536, -1, 4294967296, 2147483647, -1, 0.5, 1.5, "
      "'A text that is longer than its field', '2008-02-29 00:00:00', 'typed in clear, too long');");
  EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), 1);
  ASSERT_EQ(image.kinds.GetRecordCount(), 2);
  image.expect(0, {.id = 7, .a_float = 1, .a_double = 2});
  image.expect(1, {.id = 8,
                   .a_char = 'A',
                   .a_uchar = 255,
                   .a_short = -1,
                   .an_int = -1,
                   .a_long = 2147483647,
                   .a_ulong = 4294967295U,
                   .a_float = 0.5F,
                   .a_double = 1.5,
                   .a_text = "A text that is longer t",
                   .a_time = {2008, 2, 5, 29, 0, 0, 0, 0},
                   .a_pass = "typed in clear,"});
}

template <class T>
std::string bytes_of(const T &value) {
  return bytes_at(&value, sizeof value);
}

constexpr std::size_t kApart = 40;
const struct {
  const char *type;
  std::int32_t size;
  const char *column, *value;
  std::string bytes;
} kApartFields[] = {{"CHAR", 1, "integer", "55", "7"},
                    {"UCHAR", 1, "integer", "311", "7"},
                    {"SHORT", 2, "integer", "-2", "\xFE\xFF"},
                    {"USHORT", 2, "integer", "65534", "\xFE\xFF"},
                    {"INT", 4, "integer", "-2", "\xFE\xFF\xFF\xFF"},
                    {"UINT", 4, "bigint", "4294967294", "\xFE\xFF\xFF\xFF"},
                    {"LONG", 4, "integer", "-2", "\xFE\xFF\xFF\xFF"},
                    {"ULONG", 4, "bigint", "4294967294", "\xFE\xFF\xFF\xFF"},
                    {"FLOAT", 4, "real", "-1.5", bytes_of(-1.5F)},
                    {"DOUBLE", 8, "double precision", "-1.5", bytes_of(-1.5)},
                    {"STRING", 5, "varchar(9)", "'abcdefgh'", std::string("abcd\0", 5)},
                    {"STRING", 5, "varchar(9)", "'ab'", std::string("ab\0", 3)},
                    {"TIME", 16, "timestamp", "'2008-05-03 14:07:09'", bytes_of(kTime)},
                    {"PASSWD", 5, "varchar(99)", "'typed in'", std::string("type\0", 5)}};

// The table of these fields, which lie 40 bytes apart, with its columns, a row's values and the bytes of their record.
struct ApartFields {
  ApartFields() {
    put(bytes.data(), 0, 1);
    for (const auto &field : kApartFields) {
      const std::string name = "f" + std::to_string(layout.fields.size());
      bytes += std::string(kApart, 'Z');
      bytes.replace(layout.fields.size() * kApart, field.bytes.size(), field.bytes);
      layout.fields.push_back(name + ' ' + field.type + " 40");
      columns += ", " + name + ' ' + field.column;
      values += std::string(",") + field.value;
    }
    layout.fields.emplace_back("iProjectID INT 40");
    columns += ", iProjectID integer";
  }
  // The record in an area of two, both of bytes 'Z' before.
  [[nodiscard]] std::string area(int project) const {
    std::string both = bytes + std::string(bytes.size() + 2 * kApart, 'Z');
    put(both.data(), bytes.size(), project);
    return both;
  }
  TableSpec layout{30, "Apart", 2, {"ID UINT 40"}};
  std::string columns = "ID bigint", values = "VALUES(1", bytes = std::string(kApart, 'Z');
};

// Catches: a load that stores a field with more or fewer bytes than its type has, such as a SHORT with four.
TEST_P(StoreValues, NoByteBesideAFieldChanges) {
  const ApartFields fields;
  StoreImage image(slots(), {fields.layout});
  CRtTable table = image.table(30, fields.columns);
  auto *attributes = const_cast<_field_attr *>(table.GetFieldAddress());
  for (const auto &field : kApartFields) (++attributes)->FieldSize = field.size;
  const std::size_t size = 2 * kApart * fields.layout.fields.size();
  const auto shown = [&] { return bytes_at(table.GetDataAddress(), size); };

  std::memset(table.GetDataAddress(), 'Z', size);
  image.run("INSERT INTO plant_Apart " + fields.values + ",0)");
  EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), 1);
  EXPECT_EQ(shown(), fields.area(0));
  EXPECT_TRUE(table.SaveData(0));
  EXPECT_EQ(shown(), fields.area(0));
  EXPECT_EQ(image.stores[0]->run("SELECT count(*) FROM plant_Apart"), "1\n");

  std::memset(table.GetDataAddress() + 4, 'Z', size - 4);
  image.run("INSERT INTO plant_Apart " + fields.values + ",5)");
  quillanest::CRtdbMedia media(*image.manager);
  ASSERT_NE(media.open_for(image.plant, true), 0);
  EXPECT_TRUE(media.MergeProjectRows(table, "SELECT * FROM plant_Apart WHERE iProjectID = 5"));
  EXPECT_EQ(shown(), fields.area(5).replace(fields.bytes.size() - kApart, 5, "ZZZZZ")) << "a project has no passwords";
}

// Catches: a column value of another type than its field's that is loaded as zero, or undoes what was loaded before it.
TEST_P(StoreValues, ValuesThatDoNotConvertReachTheClient) {
  const struct {
    const char *value, *column, *type;
    std::int32_t code;
  } rows[] = {{"NULL", "aDouble", "double precision", quillanest::kTypeMismatch},
              {"NULL", "aFloat", "real", quillanest::kTypeMismatch},
              {"'abc'", "aDouble", "varchar(9)", quillanest::kTypeMismatch},
              {"''", "aFloat", "varchar(9)", quillanest::kTypeMismatch},
              {"1e39", "aFloat", "double precision", quillanest::kOverflow}};
  for (const auto &row : rows) {
    SCOPED_TRACE(std::string(row.column) + ' ' + row.value);
    std::string columns = kKindsColumns;
    const std::size_t at = columns.find(row.column) + std::strlen(row.column) + 1;
    columns.replace(at, columns.find(',', at) - at, row.type);
    KindsImage image(slots(), columns);
    image.run(
        "INSERT INTO plant_Kinds(ID, aFloat, aDouble, anInt) VALUES(3, 1, 2, 33); INSERT INTO "
        "plant_Kinds(ID, aFloat, aDouble) VALUES(4, 1, 2); UPDATE plant_Kinds SET " +
        std::string(row.column) + " = " + row.value + " WHERE ID = 4;");
    image.add({.id = 1});
    std::int32_t code = 0;
    try {
      (void)image.manager->LoadAllCustomizedDB(0);
    } catch (const _com_error &error) {
      code = error.Error();
    }
    EXPECT_EQ(code, row.code);
    EXPECT_EQ(image.kinds.GetRecordCount(), 1) << "the count is that of before";
    const std::int32_t an_int = value_at<Kinds>(image.kinds.GetAt(0), 0).an_int;  // a reference would not be aligned
    EXPECT_EQ(an_int, 33);
    image.run("DELETE FROM plant_Kinds WHERE ID = 4;");
    EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), 1);
    EXPECT_EQ(image.kinds.GetRecordCount(), 1);
  }
}

// Catches: a start that is true, or ready, without the records whose values did not convert.
TEST_P(StoreValues, ErrorsOfTheStartReachTheClient) {
  StoreImage image(slots());
  image.run(
      "CREATE TABLE system_Account(ID bigint, Name varchar(9), Level integer, Value double precision, Since "
      "timestamp, bModified integer, iProjectID integer, iEditStatus integer); INSERT INTO "
      "system_Account(ID, iProjectID) VALUES(1, 0);");
  image.item = CRtTable();
  image.plant = CRtDataBase();
  image.manager = std::make_unique<CRtdbManager>();
  const std::string schema = image.root.path("schema.txt");
  EXPECT_THROW((void)image.manager->RtdbManagerInit(false, schema.c_str()), _com_error);
  EXPECT_EQ(image.manager->GetRtdbStatus(), 1);
  image.manager.reset();
  image.run("UPDATE system_Account SET Value = 2.5;");
  CRtdbManager manager;
  CRtTable account;
  EXPECT_TRUE(manager.RtdbManagerInit(false, schema.c_str()));
  EXPECT_EQ(manager.GetRtdbStatus(), 2);
  ASSERT_EQ(manager.GetSystemTable(account, 10U), 1);
  EXPECT_EQ(account.GetRecordCount(), 1);
}

// Catches: the character of a digit that is stored as its code, or another one that is stored at all.
TEST(ByDesign, CharIsNumber) {
  const struct {
    char written;
    int loaded;  // -1: the store rejects the row
  } rows[] = {{'0', 0}, {'9', 9}, {'A', -1}, {'\0', -1}, {' ', -1}, {'?', -1}, {'\'', -1}, {7, -1}};
  for (const char *slots : {"F", "S"}) {
    StoreImage image(slots, {{30, "Marked", 2, {"ID UINT 4", "Mark CHAR 1", "Sign UCHAR 1"}}});
    CRtTable table = image.table(30, "ID bigint, Mark integer, Sign integer");
    for (const auto &row : rows) {
      SCOPED_TRACE(std::string(slots) + ' ' + std::to_string(row.written));
      table.DeleteAllRecord();
      char *record = table.GetAt(table.Insert(1U, 0, 0));
      record[4] = record[5] = row.written;
      EXPECT_TRUE(table.SaveData(0));
      EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), 1);
      ASSERT_EQ(table.GetRecordCount(), row.loaded < 0 ? 0 : 1);
      if (row.loaded < 0) continue;
      EXPECT_EQ(table.GetAt(0)[4], row.loaded);
      EXPECT_EQ(table.GetAt(0)[5], row.loaded);
    }
  }
}

}  // namespace
