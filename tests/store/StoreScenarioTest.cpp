// One suite of scenarios for both engines, alone and as main and backup of each other.
#include <array>
#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <thread>

#include "quillanest/persist/RtdbMedia.h"
#include "quillanest/sql/Engines.h"
#include "tests/store/SilentServer.h"
#include "tests/store/StoreFixture.h"

namespace {

struct Backend {
  const char *name, *slots;
};
void PrintTo(const Backend &backend, std::ostream *out) { *out << backend.name; }

template <class T>
std::string bytes_of(const T &value) {
  return bytes_at(&value, sizeof value);
}

class StoreScenario : public testing::TestWithParam<Backend> {};

INSTANTIATE_TEST_SUITE_P(Backends, StoreScenario,
                         testing::Values(Backend{"File", "F"}, Backend{"Server", "S"},
                                         Backend{"FileWithServerBackup", "FS"}, Backend{"ServerWithFileBackup", "SF"}),
                         [](const auto &test) { return std::string(test.param.name); });

// --- Values ----------------------------------------------------------------------------------------------------------

const TableSpec kKinds{21,
                       "Kinds",
                       4,
                       {"ID UINT 4", "aChar CHAR 1", "aUchar UCHAR 1", "aShort SHORT 2", "aUshort USHORT 2",
                        "anInt INT 4", "aUint UINT 4", "aLong LONG 4", "aUlong ULONG 4", "aFloat FLOAT 4",
                        "aDouble DOUBLE 8", "aText STRING 24", "aTime TIME 16", "aPass PASSWD 16"}};
constexpr const char *kKindsColumns =
    "ID bigint, aChar integer, aUchar integer, aShort integer, aUshort integer, anInt integer, aUint bigint, aLong "
    "integer, aUlong bigint, aFloat real, aDouble double precision, aText varchar(100), aTime timestamp, aPass "
    "varchar(100)";

#pragma pack(push, 1)
struct Kinds {
  std::uint32_t id;
  char a_char;
  unsigned char a_uchar;
  std::int16_t a_short;
  std::uint16_t a_ushort;
  std::int32_t an_int;
  std::uint32_t a_uint;
  std::int32_t a_long;
  std::uint32_t a_ulong;
  float a_float;
  double a_double;
  char a_text[24];
  SYSTEMTIME a_time;
  char a_pass[16];
};
#pragma pack(pop)

struct KindsImage : StoreImage {
  explicit KindsImage(std::string_view slots, const std::string &columns = kKindsColumns)
      : StoreImage(slots, {kKinds}), kinds(table(21, columns)) {}

  void add(Kinds record) { EXPECT_GE(kinds.Insert(reinterpret_cast<char *>(&record), 0), 0); }
  void expect(int position, const Kinds &expected) const {
    SCOPED_TRACE("record " + std::to_string(position));
    const auto found = value_at<Kinds>(kinds.GetAt(position), 0);
    EXPECT_EQ(std::memcmp(&found, &expected, offsetof(Kinds, a_text)), 0) << +found.a_float << ' ' << +found.a_double;
    EXPECT_STREQ(found.a_text, expected.a_text);
    EXPECT_EQ(std::memcmp(&found.a_time, &expected.a_time, sizeof(SYSTEMTIME)), 0) << +found.a_time.wYear;
    EXPECT_STREQ(found.a_pass, expected.a_pass);
  }
  CRtTable kinds;
};

// Each type at the ends of its range, bit for bit.
TEST_P(StoreScenario, EveryTypeComesBack) {
  KindsImage image(GetParam().slots);
  ASSERT_TRUE(image.started);
  const SYSTEMTIME time{2008, 5, 6, 3, 14, 7, 9, 0};  // a Saturday
  const std::array<Kinds, 3> saved{{
      {1, '0', '9', -32768, 65535, INT32_MIN, 4294967295U, INT32_MIN, 2147483648U, -3.4028234663852886e38F, -1e300,
       "Gr\xC3\xB6\xC3\x9F"
       "e \xE2\x82\xAC\xF0\x9F\x98\x80",
       time, "p\xC3\xA4ss;word"},
      {2,
       '1',
       '2',
       32767,
       1,
       INT32_MAX,
       2147483648U,
       INT32_MAX,
       1,
       0.1F,
       1234567.890625,
       "100% {x} ?\\ #;--\"$1",
       {1601, 1, 1, 1, 0, 0, 0, 0},
       ""},
      {2147483647, '5', '6', 0, 0, 0, 0, 0, 0, 16777216.0F, -0.000001, "x", {9999, 12, 5, 31, 23, 59, 59, 0}, "'"},
  }};
  for (const Kinds &record : saved) image.add(record);

  EXPECT_TRUE(image.kinds.SaveData(0));
  // Times go to both slots in the words of the current one, and only a file understands "#...#".
  const std::string numbers = "SELECT aChar, aUchar, aShort, aUshort, anInt, aUint, aLong, aUlong FROM plant_Kinds";
  const std::string expected =
      "0|9|-32768|65535|-2147483648|4294967295|-2147483648|2147483648\n"
      "1|2|32767|1|2147483647|2147483648|2147483647|1\n"
      "5|6|0|0|0|0|0|0\n";
  const bool foreign_times = std::string_view(GetParam().slots) == "FS";
  EXPECT_EQ(image.rows(numbers + " ORDER BY ID"), foreign_times ? "main: " + expected + "backup: " : expected);
  EXPECT_EQ(image.stores[0]->run("SELECT count(*) FROM plant_Kinds WHERE aPass LIKE '%word%' OR length(aPass) < 8"),
            "0\n");

  image.kinds.DeleteAllRecord();
  EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), 1);
  ASSERT_EQ(image.kinds.GetRecordCount(), 3);
  for (int i = 0; i < 3; ++i) {
    Kinds as_number = saved[static_cast<std::size_t>(i)];
    as_number.a_char = static_cast<char>(as_number.a_char - '0');
    as_number.a_uchar = static_cast<unsigned char>(as_number.a_uchar - '0');
    image.expect(i, as_number);
  }
  EXPECT_EQ(image.kinds.GetIDExclusive(), 2147483648U);
}

TEST_P(StoreScenario, NullsAndForeignValuesByType) {
  KindsImage image(GetParam().slots);
  Kinds full;
  std::memset(&full, 0x55, sizeof full);
  full.id = 7;
  image.add(full);
  image.run("INSERT INTO plant_Kinds(ID, aFloat, aDouble) VALUES(7, 1, 2);");
  image.run(
      "INSERT INTO plant_Kinds VALUES(8, 256 + 65, 255, 65535, 65536, -1, 4294967296, 2147483647, -1, 0.5, 1.5, "
      "'A text that is longer than its field', '2008-02-29 00:00:00', 'typed in clear, too long');");

  EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), 1);
  ASSERT_EQ(image.kinds.GetRecordCount(), 2);
  Kinds nulls{};
  nulls.id = 7;
  nulls.a_float = 1;
  nulls.a_double = 2;
  image.expect(0, nulls);
  image.expect(1, {8,
                   'A',
                   255,
                   -1,
                   0,
                   -1,
                   0,
                   2147483647,
                   4294967295U,
                   0.5F,
                   1.5,
                   "A text that is longer t",
                   {2008, 2, 5, 29, 0, 0, 0, 0},
                   "typed in clear,"});
}

// A SHORT that a load stored with four bytes went unnoticed, because the column of its neighbour came next. Here the
// fields lie apart, and no byte between them may change.
TEST_P(StoreScenario, NoByteBesideAFieldChanges) {
  const SYSTEMTIME time{2008, 5, 6, 3, 14, 7, 9, 0};
  const struct {
    const char *type;
    std::int32_t size;
    const char *column, *value;
    std::string bytes;
  } rows[] = {{"CHAR", 1, "integer", "55", "7"},
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
              {"TIME", 16, "timestamp", "'2008-05-03 14:07:09'", bytes_of(time)},
              {"PASSWD", 5, "varchar(99)", "'typed in'", std::string("type\0", 5)}};
  constexpr std::size_t kApart = 40;
  TableSpec apart{30, "Apart", 2, {"ID UINT 40"}};
  std::string columns = "ID bigint", values = "VALUES(1";
  for (const auto &row : rows) {
    const std::string name = "f" + std::to_string(apart.fields.size());
    apart.fields.push_back(name + ' ' + row.type + " 40");
    columns += ", " + name + ' ' + row.column;
    values += std::string(",") + row.value;
  }
  apart.fields.emplace_back("iProjectID INT 40");
  StoreImage image(GetParam().slots, {apart});
  CRtTable table = image.table(30, columns + ", iProjectID integer");
  const std::size_t size = kApart * apart.fields.size();
  const auto shown = [&] { return bytes_at(table.GetDataAddress(), 2 * size); };
  std::string loaded(2 * size, 'Z');
  put(loaded.data(), 0, 1);
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    const_cast<_field_attr *>(table.GetFieldAddress())[i + 1].FieldSize = rows[i].size;
    loaded.replace((i + 1) * kApart, rows[i].bytes.size(), rows[i].bytes);
  }
  put(loaded.data(), size - kApart, 0);
  std::string merged = loaded;
  put(merged.data(), size - kApart, 5);
  merged.replace(size - 2 * kApart, 5, "ZZZZZ");  // a project changes no password

  std::memset(table.GetDataAddress(), 'Z', 2 * size);
  image.run("INSERT INTO plant_Apart " + values + ",0)");
  EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), 1);
  EXPECT_EQ(shown(), loaded);
  EXPECT_TRUE(table.SaveData(0));
  EXPECT_EQ(shown(), loaded);
  EXPECT_EQ(image.stores[0]->run("SELECT count(*) FROM plant_Apart"), "1\n");

  std::memset(table.GetDataAddress() + 4, 'Z', 2 * size - 4);
  image.run("INSERT INTO plant_Apart " + values + ",5)");
  quillanest::CRtdbMedia media(*image.manager);
  ASSERT_NE(media.open_for(image.plant, true), 0);
  EXPECT_TRUE(media.MergeProjectRows(table, "SELECT * FROM plant_Apart WHERE iProjectID = 5"));
  EXPECT_EQ(shown(), merged);
}

// A column value that is none of its field's type reaches the client, and what was loaded before it stays.
TEST_P(StoreScenario, ValuesThatDoNotConvertReachTheClient) {
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
    KindsImage image(GetParam().slots, columns);
    image.run(
        "INSERT INTO plant_Kinds(ID, aFloat, aDouble, anInt) VALUES(3, 1, 2, 33); INSERT INTO "
        "plant_Kinds(ID, aFloat, aDouble) VALUES(4, 1, 2); UPDATE plant_Kinds SET " +
        std::string(row.column) + " = " + row.value + " WHERE ID = 4;");
    Kinds old{};
    old.id = 1;
    image.add(old);
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

TEST_P(StoreScenario, ErrorsOfTheStartReachTheClient) {
  StoreImage image(GetParam().slots);
  image.run(
      "CREATE TABLE system_Account(ID bigint, Name varchar(9), Level integer, Value double precision, Since "
      "timestamp, bModified integer, iProjectID integer, iEditStatus integer); INSERT INTO "
      "system_Account(ID, iProjectID) VALUES(1, 0);");
  image.item = CRtTable();
  image.plant = CRtDataBase();
  image.manager.reset();
  {
    CRtdbManager manager;
    EXPECT_THROW((void)manager.RtdbManagerInit(false, image.root.path("schema.txt").c_str()), _com_error);
    EXPECT_EQ(manager.GetRtdbStatus(), 1);
  }
  image.run("UPDATE system_Account SET Value = 2.5;");
  CRtdbManager manager;
  CRtTable account;
  EXPECT_TRUE(manager.RtdbManagerInit(false, image.root.path("schema.txt").c_str()));
  EXPECT_EQ(manager.GetRtdbStatus(), 2);
  ASSERT_EQ(manager.GetSystemTable(account, 10U), 1);
  EXPECT_EQ(account.GetRecordCount(), 1);
}

// --- Base rows and project rows --------------------------------------------------------------------------------------

TEST_P(StoreScenario, SavesReplaceTheRowsTheyAreMeantFor) {
  StoreImage image(GetParam().slots);
  image.run("INSERT INTO plant_Item VALUES(1,'old',0,0,'',0,0,0),(99,'gone',0,0,'',0,0,0),(1,'six',6,0,'',0,6,3);");
  image.add(1, "one", 11);
  poke(image.add(2, "two", 22), kStatus, 1);
  image.add(3, "three", 33);
  EXPECT_TRUE(image.manager->SaveData(0));
  const std::string base = "1|one|11|0|0|0\n2|two|22|0|0|1\n3|three|33|0|0|0\n";
  EXPECT_EQ(image.item_rows(), base + "1|six|6|0|6|3\n");
  EXPECT_FALSE(image.item.IsModified());
  EXPECT_EQ(image.items(), "1 one 11 pass1 0 0 0\n2 two 22 pass2 0 0 1\n3 three 33 pass3 0 0 0\n");

  // Only what is modified is written, under the project's number and beside the base rows.
  std::array<char, 60> record{};
  std::memcpy(record.data(), image.item.GetAt(1), record.size());
  poke(record.data(), kLevel, 222);
  ASSERT_EQ(image.item.Update(record.data(), 1, 5), 1);
  ASSERT_EQ(image.item.Delete(3, 2, 5), 1);
  poke(image.item.GetAt(0), kLevel, 111);
  EXPECT_TRUE(image.item.SaveData(5));
  const std::string edited = "2|two|222|0|5|3\n3|three|33|0|5|4\n";
  EXPECT_EQ(image.item_rows(), base + edited + "1|six|6|0|6|3\n");
  EXPECT_FALSE(image.item.IsModified());

  // A second save of the project replaces its rows by key.
  poke(record.data(), kLevel, 223);
  ASSERT_EQ(image.item.Update(record.data(), 1, 5), 1);
  EXPECT_TRUE(image.plant.SaveData(5));
  EXPECT_EQ(image.item_rows(), base + "2|two|223|0|5|3\n3|three|33|0|5|4\n1|six|6|0|6|3\n");

  // A full save writes every record as it stands, with the project number it carries.
  EXPECT_TRUE(image.manager->SaveDataTo(false) == 1);
  EXPECT_EQ(image.rows("SELECT ID, Level, iProjectID FROM plant_Item ORDER BY iProjectID, ID"),
            "1|111|0\n2|223|5\n2|223|5\n3|33|5\n3|33|5\n1|6|6\n");
}

TEST_P(StoreScenario, ProjectRowsAreMergedOverBaseRows) {
  StoreImage image(GetParam().slots);
  image.run(
      "INSERT INTO plant_Item VALUES(9,'nine',9,0,'typed',0,0,1),(3,'three',3,0,'',0,0,1),(7,'seven',7,0,'own',0,0,1);"
      "INSERT INTO plant_Item "
      "VALUES(7,'SEVEN',77,0,'other',0,5,3),(12,'new',12,0,'mine',1,5,2),(9,'nine',9,0,'',0,5,4),"
      "(3,'six',66,0,'',0,6,3);");
  image.add(1, "stale", 1);
  EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), 1);
  EXPECT_EQ(image.items(), "3 three 3  0 0 1\n7 seven 7 own 0 0 1\n9 nine 9 typed 0 0 1\n");
  EXPECT_EQ(image.item.GetIDExclusive(), 10U);

  EXPECT_EQ(image.manager->LoadAllCustomizedDB(5), 1);
  EXPECT_EQ(image.items(), "3 three 3  0 0 1\n7 SEVEN 77 own 0 5 3\n9 nine 9 typed 0 5 4\n12 new 12  1 5 2\n");
  EXPECT_EQ(image.item.GetIDExclusive(), 13U);

  EXPECT_EQ(image.manager->LoadAllCustomizedDB(-6), 1) << "only positive numbers name a project";
  EXPECT_EQ(image.items(), "3 three 3  0 0 1\n7 seven 7 own 0 0 1\n9 nine 9 typed 0 0 1\n");

  // A full table leaves further new rows out and still merges the known ones.
  image.run(
      "INSERT INTO plant_Item VALUES(1,'','1',0,'',0,0,1),(2,'',2,0,'',0,0,1),(20,'no',0,0,'',0,6,2),"
      "(9,'NINE',0,0,'',0,6,2);");
  EXPECT_EQ(image.manager->LoadAllCustomizedDB(6), 1);
  ASSERT_EQ(image.item.GetRecordCount(), 5);
  EXPECT_STREQ(image.item.GetAt(2) + kName, "six");
  EXPECT_STREQ(image.item.GetAt(4) + kName, "NINE");
}

TEST_P(StoreScenario, CommitMakesTheImageTheBaseRows) {
  StoreImage image(GetParam().slots);
  image.run("INSERT INTO plant_Item VALUES(1,'base',1,0,'',0,0,0),(2,'project',2,0,'',0,5,3);");
  for (const std::uint32_t key : {10U, 20U, 30U, 40U}) poke(image.add(key, "n", 1), kProject, 5);
  poke(image.item.GetAt(0), kStatus, 4);
  EXPECT_TRUE(image.manager->CommitProject());
  const std::string expected = "10|n|1|0|0|4\n20|n|1|0|0|1\n30|n|1|0|0|1\n";
  EXPECT_EQ(image.item_rows(), expected + "2|project|2|0|5|3\n");
  EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), 1);
  EXPECT_EQ(image.items(), "10 n 1 pass10 0 0 4\n20 n 1 pass20 0 0 1\n30 n 1 pass30 0 0 1\n");
}

TEST_P(StoreScenario, CountAndCounterAfterLoads) {
  StoreImage image(GetParam().slots);
  image.add(1, "one", 1);
  EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), 1);
  EXPECT_EQ(image.item.GetRecordCount(), 0);
  EXPECT_EQ(image.item.GetIDExclusive(), 2U) << "an empty result keeps the counter";

  image.run(
      "INSERT INTO plant_Item VALUES(1,'',1,0,'',0,0,0),(2,'',2,0,'',0,0,0),(2,'',3,0,'',0,0,0),(5,'',4,0,'',0,0,0)"
      ",(6,'',5,0,'',0,0,0),(9,'',6,0,'',0,0,0),(10,'',7,0,'',0,0,0);");
  quillanest::CRtdbMedia media(*image.manager);
  EXPECT_FALSE(media.LoadTable(image.plant, image.item, 0)) << "more rows than the table holds";
  EXPECT_EQ(media.connection().GetRecordCount(), 6) << "one more tells that";
  EXPECT_EQ(image.items(), "1  1  0 0 0\n2  2  0 0 0\n2  3  0 0 0\n5  4  0 0 0\n6  5  0 0 0\n");
  EXPECT_EQ(image.item.GetIDExclusive(), 7U);
}

// --- Statements that fail --------------------------------------------------------------------------------------------

TEST_P(StoreScenario, MissingStoreTableFailsAndKeepsTheMarks) {
  StoreImage image(GetParam().slots);
  image.run("INSERT INTO plant_Item VALUES(9,'former',9,0,'',0,0,0);");
  image.add(1, "one", 1);
  (void)image.stores[0]->run("DROP TABLE plant_Item");
  EXPECT_FALSE(image.item.SaveData(0));
  if (image.stores.size() > 1) {
    EXPECT_EQ(image.stores[1]->run("SELECT ID FROM plant_Item"), "9\n");
  }
  EXPECT_FALSE(image.item.SaveData(5));
  EXPECT_FALSE(image.plant.SaveData(0));
  EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), 0);
  EXPECT_EQ(image.items(), "1 one 1 pass1 1 0 0\n");
  EXPECT_TRUE(image.manager->SaveData(0)) << "the whole is true whatever becomes of single tables";
  EXPECT_EQ(image.items(), "1 one 1 pass1 1 0 0\n");
}

const TableSpec kMixed{
    31, "Mixed", 400, {"ID UINT 4", "Mark CHAR 1", "Name STRING 64", "Note STRING 64", "Sign UCHAR 1", "Level INT 4"}};
constexpr const char *kMixedColumns =
    "ID bigint, Mark integer, Name varchar(64), Note varchar(64), Sign integer, Level integer CHECK (Level < 1000)";

// A value that ended its literal early was carried out, and the next quote made a row of what lay between: statements
// travel together. Each costs at most its own row.
TEST_P(StoreScenario, ValuesCostTheirOwnRowsOnly) {
  struct Row {
    char mark;
    std::string name, note, stored;  // Name and Note in the store; empty: no row
  };
  std::vector<Row> rows{{'1', "it''s", "''", "it's|'"},
                        {'1', "\\", ",1,1);DELETE FROM plant_Mixed;--", "\\|,1,1);DELETE FROM plant_Mixed;--"},
                        {'1', "C:\\'' \\''", "\\\\", "C:\\' \\'|\\\\"},
                        {'1', "\xC3", "?;DELETE FROM plant_Mixed;--'' {", "\xC3|?;DELETE FROM plant_Mixed;--' {"},
                        {'1', "x','n',1,7);", "DELETE FROM plant_Mixed;--'", ""},
                        {'1', "{fn now()} ? $1", "/* \" ;", "{fn now()} ? $1|/* \" ;"}};
  for (const char *name : {"'", "a'''b", "a' || 'b", "x','n',1,7);DELETE FROM plant_Mixed;--", "refused",
                           "x','n',1,7) ON CONFLICT DO NOTHING;--", "x','n',1,7),(1,1,'x','n',1,7)--"}) {
    rows.insert(rows.begin(), {'1', name, "", ""});
  }
  for (const char mark : {'\'', '"', '#', '?', '{', ';', '\\', '\xC3'}) rows.insert(rows.begin(), {mark, "x", "x", ""});
  StoreImage image(GetParam().slots, {kMixed, {32, "Marked", 9, {"ID UINT 4", "Mark CHAR 1"}}});
  CRtTable mixed = image.table(31, kMixedColumns);
  std::vector<std::string> expected(image.stores.size());
  for (std::uint32_t key = 1; key <= 300; ++key) {
    const Row &row = key % 4 < 2 ? rows[(key / 4 + key % 2) % rows.size()] : rows.back();
    char *record = mixed.GetAt(mixed.Insert(key, 0, 0));
    record[4] = row.mark;
    std::strcpy(record + 5, row.name.c_str());
    std::strcpy(record + 69, row.note.c_str());
    record[133] = '2';
    poke(record, 134, row.name == "refused" ? 1000 : 7);
    for (std::size_t i = 0; i < expected.size() && !row.stored.empty(); ++i) {
      const bool is_taken = row.name[0] != '\xC3' || (i == 0 && GetParam().slots[0] == 'F');  // no text to a server
      if (is_taken) expected[i] += std::to_string(key) + "|1|" + row.stored + "|2|7\n";
    }
  }
  EXPECT_TRUE(mixed.SaveData(0));
  for (std::size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(image.stores[i]->run("SELECT * FROM plant_Mixed ORDER BY ID"), expected[i]) << i;
  }
  CRtTable marked = image.table(32, "ID bigint, Mark varchar(999)");
  for (const char mark : std::string_view("1'2'3")) marked.GetAt(marked.Insert(0U, 0, 0))[4] = mark;
  EXPECT_TRUE(marked.SaveData(0));
  EXPECT_EQ(image.rows("SELECT * FROM plant_Marked ORDER BY ID"), "1|1\n3|2\n5|3\n");
}

// A value that is longer than the room for many rows at a time is read by itself.
TEST_P(StoreScenario, LongTextsComeBackWhole) {
  StoreImage image(GetParam().slots, {{21, "Note", 3, {"ID UINT 4", "Text STRING 5000"}}});
  CRtTable note = image.table(21, "ID bigint, Text text");
  const std::string text(4000, 'x');
  for (const std::uint32_t key : {1U, 2U, 3U}) {
    char *record = note.GetAt(note.Insert(key, 0, 0));
    if (key == 2) std::memcpy(record + 4, text.data(), text.size());
  }
  EXPECT_TRUE(note.SaveData(0));
  note.DeleteAllRecord();
  (void)image.manager->LoadAllCustomizedDB(0);
  ASSERT_EQ(note.GetRecordCount(), 3);
  EXPECT_EQ(std::string(note.GetAt(1) + 4), text);
}

// What is kept only at the end of the transaction may be refused there.
TEST_P(StoreScenario, SaveThatCannotBeKeptIsFalseAndMarksAgain) {
  StoreImage image(GetParam().slots);
  image.add(1, "former", 1);
  ASSERT_TRUE(image.item.SaveData(0));
  poke(image.item.GetAt(0), kModified, 3);
  image.add(2, "second", 2);
  std::string_view slots = GetParam().slots;
  sqlite3 *reader = nullptr;
  for (std::size_t i = 0; i < slots.size(); ++i) {
    if (slots[i] == 'F') {  // a reader in the middle of its rows keeps the file from changing
      ASSERT_EQ(sqlite3_open(image.root.path("data/store.db").c_str(), &reader), SQLITE_OK);
      ASSERT_EQ(sqlite3_exec(reader, "BEGIN; SELECT * FROM plant_Item", nullptr, nullptr, nullptr), SQLITE_OK);
    } else {
      (void)image.stores[i]->run(
          "CREATE FUNCTION refuse() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN RAISE 'no'; END $$;"
          "CREATE CONSTRAINT TRIGGER late AFTER INSERT ON plant_Item DEFERRABLE INITIALLY DEFERRED FOR EACH ROW "
          "EXECUTE "
          "FUNCTION refuse()");
    }
  }
  EXPECT_FALSE(image.item.SaveData(0));
  sqlite3_close(reader);
  EXPECT_EQ(image.item_rows(), "1|former|1|0|0|0\n");
  EXPECT_EQ(image.items(), "1 former 1 pass1 3 0 0\n2 second 2 pass2 1 0 0\n");
}

TEST_P(StoreScenario, EmptyTextsByCurrentSlot) {
  StoreImage image(GetParam().slots);
  image.add(1, "", 1);
  EXPECT_TRUE(image.item.SaveData(0));
  const bool blank = GetParam().slots[0] == 'F';
  EXPECT_EQ(image.rows("SELECT length(Name) FROM plant_Item"), blank ? "1\n" : "0\n");
  EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), 1);
  EXPECT_STREQ(image.item.GetAt(0) + kName, blank ? " " : "");
}

// --- Single records --------------------------------------------------------------------------------------------------

TEST_P(StoreScenario, InsertRecordCountsItsRow) {
  const TableSpec stamped{30, "Stamped", 2, {"ID UINT 4", "Since TIME 16"}};
  StoreImage image(GetParam().slots, {stamped});
  const CRtTable table = image.table(30, "ID bigint, Since timestamp");
  image.run("INSERT INTO plant_Stamped VALUES(1, '2001-02-03 04:05:06')");
  quillanest::CRtdbMedia media(*image.manager);
  std::array<std::byte, 20> record{std::byte{2}};
  const quillanest::FieldList fields(table.GetFieldAddress(), table.GetFieldAddress() + 2);
  EXPECT_FALSE(media.InsertRecord("plant_Stamped", record, fields)) << "nothing is open";
  ASSERT_NE(media.open_for(image.plant, false), 0);
  EXPECT_FALSE(media.InsertRecord("plant_Stamped", record, {})) << "an incomplete statement";
  EXPECT_FALSE(media.InsertRecord("plant_Missing", record, fields));
  const bool accepted = std::string_view(GetParam().slots) != "FS";
  EXPECT_EQ(media.InsertRecord("plant_Stamped", record, fields), accepted);
  EXPECT_EQ(image.stores[0]->run("SELECT ID FROM plant_Stamped ORDER BY ID"), "1\n2\n");
}

// --- Files only ------------------------------------------------------------------------------------------------------

// Dates are read in every form, and written unpadded between marks that only dates have.
TEST(FileDatabase, DatesInEveryForm) {
  const struct {
    const char *value, *expected;
  } rows[] = {{"'2008-5-3 14:7:9'", "2008-5-3 14:7:9 6"},
              {"39571.5", "2008-5-3 12:0:0 6"},
              {"'soon'", "0-0-0 0:0:0 0"},
              {"NULL", "0-0-0 0:0:0 0"}};
  const TableSpec stamped{30, "Stamped", 20, {"ID UINT 4", "Since TIME 16", "Name STRING 24"}};
  for (const char *type : {"DATETIME", "TEXT", "", "timestamp"}) {
    StoreImage image("F", {stamped});
    CRtTable table = image.table(30, "ID INTEGER, Since " + std::string(type) + ", Name TEXT");
    for (const auto &row : rows) {
      image.run("INSERT INTO plant_Stamped VALUES(1," + std::string(row.value) + ",'#1 is no #date#')");
    }
    ASSERT_EQ(image.manager->LoadAllCustomizedDB(0), 1);
    ASSERT_EQ(table.GetRecordCount(), 4);
    for (int i = 0; i < 4; ++i) {
      SCOPED_TRACE(std::string(type) + ' ' + rows[i].value);
      SYSTEMTIME time{};
      std::memcpy(&time, table.GetAt(i) + 4, sizeof time);
      std::array<char, 80> text{};
      std::snprintf(text.data(), text.size(), "%d-%d-%d %d:%d:%d %d", time.wYear, time.wMonth, time.wDay, time.wHour,
                    time.wMinute, time.wSecond, time.wDayOfWeek);
      EXPECT_STREQ(text.data(), rows[i].expected);
    }
    EXPECT_TRUE(table.SaveData(0));
    EXPECT_EQ(image.rows("SELECT Since, Name FROM plant_Stamped LIMIT 1"), "2008-5-3 14:7:9|#1 is no #date#\n");
  }
}

// A row may end the whole transaction: what follows it may not be kept on its own then.
TEST(FileDatabase, TransactionThatEndsEarlyKeepsTheFormerRows) {
  StoreImage image;
  image.add(1, "former", 1);
  ASSERT_TRUE(image.item.SaveData(0));
  image.run(
      "CREATE TRIGGER refuse BEFORE INSERT ON plant_Item WHEN NEW.Level = 2 BEGIN SELECT RAISE(ROLLBACK, 'no'); "
      "END");
  for (const std::uint32_t key : {2U, 3U, 4U}) image.add(key, "new", static_cast<std::int32_t>(key));
  EXPECT_FALSE(image.item.SaveData(0));
  EXPECT_EQ(image.item_rows(), "1|former|1|0|0|0\n");
  EXPECT_EQ(image.items(), "1 former 1 pass1 0 0 0\n2 new 2 pass2 1 0 0\n3 new 3 pass3 1 0 0\n4 new 4 pass4 1 0 0\n");
}

// A save larger than any cache waits for a reader of the file once, not at every page.
TEST(FileDatabase, ReaderDelaysASaveOnce) {
  StoreImage image("F", {}, 30'000);
  image.run("INSERT INTO plant_Item VALUES(1,'former',1,0,'',0,0,0)");
  while (image.item.GetRecordCount() < 30'000)
    std::memset(image.item.GetAt(image.item.Insert(0U, 0, 0)) + kName, 'n', 15);
  sqlite3 *reader = nullptr;
  ASSERT_EQ(sqlite3_open(image.root.path("data/store.db").c_str(), &reader), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(reader, "BEGIN; SELECT * FROM plant_Item", nullptr, nullptr, nullptr), SQLITE_OK);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(image.item.SaveData(0));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  sqlite3_close(reader);
  EXPECT_EQ(image.item_rows(), "1|former|1|0|0|0\n");
  EXPECT_TRUE(image.item.SaveData(0));
  EXPECT_EQ(image.rows("SELECT count(*), sum(Level), max(ID) FROM plant_Item"), "30000|0|30000\n");
}

// A file that another program had locked counted as one that is not there: a save was true and wrote nothing, or the
// backup only. And every table waited for it.
TEST(FileDatabase, LockedByAnotherProgramRejects) {
  std::vector<TableSpec> others;
  for (int i = 0; i < 6; ++i) others.push_back({30 + i, "Other" + std::to_string(i), 1, {"ID UINT 4"}});
  for (const std::string slots : {"F", "FS", "SF"}) {
    SCOPED_TRACE(slots);
    StoreImage image(slots, others);
    image.run("INSERT INTO plant_Item VALUES(9,'former',9,0,'',0,0,0)");
    image.add(1, "new", 7);
    sqlite3 *other = nullptr;
    ASSERT_EQ(sqlite3_open(image.root.path("data/store.db").c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
    const auto start = std::chrono::steady_clock::now();
    if (slots == "F") {
      EXPECT_TRUE(image.manager->SaveData(0)) << "the whole is true whatever becomes of single tables";
      EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), 0);
    } else {
      EXPECT_FALSE(image.item.SaveData(0));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(5800)) << "2 seconds for each call";
    EXPECT_EQ(image.items(), "1 new 7 pass1 1 0 0\n");
    poke(image.item.GetAt(0), kModified, 0);
    EXPECT_TRUE(image.item.SaveData(5)) << "nothing is asked for without a change";
    sqlite3_close(other);
    EXPECT_EQ(image.item_rows(), "9|former|9|0|0|0\n");
    EXPECT_TRUE(image.item.SaveData(0));
    EXPECT_EQ(image.item_rows(), "1|new|7|0|0|0\n");
  }
}

// A view without end hung the load, and what a file brings along ran with all rights.
TEST(FileDatabase, HostileFilesComeToAnEnd) {
  const TestRoot root;
  FileStore store(root);
  (void)store.run(
      "CREATE TABLE t(x); INSERT INTO t VALUES(1); CREATE VIEW foreign_one AS SELECT * FROM pragma_user_version;"
      "CREATE VIEW endless AS WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) SELECT i FROM n");
  const auto connection = quillanest::open_sqlite(store.path(), std::chrono::milliseconds(200));
  EXPECT_EQ(connection->query("SELECT i FROM endless", 6).row_count(), 6U);
  EXPECT_THROW((void)connection->query("SELECT i FROM endless ORDER BY i", 6), _com_error);
  EXPECT_THROW((void)connection->execute("DELETE FROM t WHERE x < (SELECT max(i) FROM endless)"), _com_error);
  EXPECT_THROW((void)connection->query("SELECT * FROM foreign_one", 6), _com_error);
  (void)connection->execute("PRAGMA writable_schema = 1");
  EXPECT_THROW((void)connection->execute("DELETE FROM sqlite_schema"), _com_error);
  EXPECT_EQ(connection->execute("DELETE FROM t"), 1) << "every statement has its own time";
}

// Descriptors that another thread changes were looked at twice, and what the second look found was not tested.
TEST(FileDatabase, DescriptorsThatChangeUnderWay) {
  StoreImage image;
  image.run("INSERT INTO plant_Item VALUES(1,'one',1,0,'',0,0,0)");
  auto &offset = const_cast<_table_attr *>(image.item.GetTableInfo())->FieldOffset;
  std::atomic<bool> ends{false};
  std::thread changing([&, whole = offset] {
    while (!ends) {
      for (const std::int32_t value : {-1, whole}) quillanest::store_shared(offset, value);
    }
  });
  const auto often = [](auto call) {
    for (int i = 0; i < 300; ++i) call();
  };
  std::array<char, 60> record{};
  often([&] { (void)image.manager->LoadAllCustomizedDB(0); });
  often([&] { (void)image.item.InsertRecordToDb(record.data()); });
  often([&] {
    image.item.SetRecordCount(5);
    (void)image.item.SaveData(0);
  });
  ends = true;
  changing.join();
}

// --- Servers only ----------------------------------------------------------------------------------------------------

// On a server that reads escapes a backslash at the end of one text began a statement in the next one; beside such a
// server the other database was sent what ends its texts early.
void check_backslashes(const char *slots, const char *rows) {
  SCOPED_TRACE(slots);
  StoreImage image(slots, {kMixed});
  CRtTable mixed = image.table(31, kMixedColumns);
  const std::string role = std::string("ALTER ROLE ") + PostgresServer::kUser;
  image.stores[0]->run(role + " SET standard_conforming_strings = off; " + role + " SET escape_string_warning = off");
  const std::array<std::string, 5> names{"plain", "\\", "C:\\\\", "\\'''", "a\\tb"};
  for (const std::string &name : names) {
    char *record = mixed.GetAt(mixed.Insert(0U, 0, 0));
    record[4] = record[133] = '1';
    std::strcpy(record + 5, name.c_str());
    std::strcpy(record + 69, ",1,1);DELETE FROM plant_Mixed;--");
  }
  EXPECT_TRUE(mixed.SaveData(0));
  image.stores[0]->run(role + " RESET ALL");
  EXPECT_EQ(image.rows("SELECT ID, Name FROM plant_Mixed ORDER BY ID"), rows);
}

TEST(ServerDatabase, BackslashesOfAServerThatReadsEscapes) {
  check_backslashes("S", "1|plain\n3|C:\\\n4|''\n5|a\tb\n");
  check_backslashes("SF", "main: 1|plain\n3|C:\\\n5|a\tb\nbackup: 1|plain\n3|C:\\\\\n5|a\\tb\n");
}

// A silent server was tried for every table, and once more for every database.
TEST(ServerDatabase, SilentOneIsTriedOnceInACall) {
  SilentServer silent;
  StoreImage image;
  const auto at = [&](const std::string &slot) {
    return slot + "Type=7\n" + slot + "Name=127.0.0.1:" + std::to_string(silent.port()) + '\n';
  };
  image.configure(at("MainDB") + "BackDBType=-1\n");
  EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), 0);
  EXPECT_EQ(silent.connections(), 1);
  image.configure(image.stores[0]->settings("MainDB") + at("BackDB"));
  EXPECT_TRUE(image.manager->SaveData(0));
  EXPECT_EQ(silent.connections(), 1);
}

// --- Deliberate behaviours -------------------------------------------------------------------------------------------

// The operations for single records carry nothing to a store, and stamp the empty time of the caller's record.
TEST(ByDesign, WriteThrough) {
  const TableSpec stamped{30, "Stamped", 2, {"ID UINT 4", "Since TIME 16", "iProjectID INT 4"}};
  for (const char *slots : {"F", "SF"}) {
    StoreImage image(slots, {stamped});
    CRtTable table = image.table(30, "ID bigint, Since timestamp, iProjectID integer");
    image.run("INSERT INTO plant_Stamped VALUES(1, '2001-02-03 04:05:06', 0)");
    ASSERT_EQ(table.Insert(1U, 0, 0), 0);
    const std::string before = bytes_at(table.GetDataAddress(), 48);
    for (const bool in_files : {false, true}) {
      SCOPED_TRACE(std::string(slots) + (in_files ? " beside files" : ""));
      if (in_files) image.root.configure("DataInFile=1\nRtdbDataPath=data/\n");
      std::array<char, 24> inserted{2}, updated{1};
      EXPECT_FALSE(table.InsertRecordToDb(inserted.data()));
      EXPECT_FALSE(table.UpdateRecordToDb(updated.data()));
      EXPECT_TRUE(table.RemoveRecordInDb(1, 0));
      EXPECT_GE(value_at<std::uint16_t>(inserted.data(), 4), 2020) << "no time was stamped";
      EXPECT_GE(value_at<std::uint16_t>(updated.data(), 4), 2020) << "no time was stamped";
      EXPECT_EQ(image.rows("SELECT ID, iProjectID FROM plant_Stamped"), "1|0\n");
      EXPECT_EQ(image.root.files("data"), std::vector<std::string>{"store.db"});
      EXPECT_EQ(bytes_at(table.GetDataAddress(), 48), before);
    }
    image.manager->DetachShareMemory();
    ASSERT_EQ(image.plant.DetachShareMemory(), 1);
    std::array<char, 24> unmapped{1};
    EXPECT_FALSE(table.UpdateRecordToDb(unmapped.data()));
    EXPECT_TRUE(table.RemoveRecordInDb(1, 0));
  }
  EXPECT_FALSE(CRtTable().RemoveRecordInDb(5, 2));
}

TEST(ByDesign, QuotesNotEscaped) {
  StoreImage image;
  image.add(1, "O'Brien", 1);
  image.add(2, "twice''", 2);
  EXPECT_TRUE(image.item.SaveData(0));
  EXPECT_EQ(image.item_rows(), "2|twice'|2|0|0|0\n");
}

TEST(ByDesign, RejectedInsertIgnored) {
  StoreImage image;
  image.run(
      "DROP TABLE plant_Item; CREATE TABLE plant_Item(ID INTEGER, iProjectID INTEGER); INSERT INTO plant_Item "
      "VALUES(1, 0)");
  image.add(1, "one", 1);
  EXPECT_TRUE(image.item.SaveData(0)) << "no row fits the store's table";
  EXPECT_EQ(image.rows("SELECT * FROM plant_Item"), "");
  EXPECT_FALSE(image.item.IsModified());
}

// A database that ran a DELETE which the other one rejected took it back, and what it had run before.
TEST(ByDesign, RejectedDeleteEnds) {
  const std::string former = "1|old|1|0|3\n2|old|2|0|3\n";
  const std::string first = "1|new|7|0|0\n";
  const std::string second = "2|old|2|0|3\n";
  const struct {
    std::string_view slots;
    std::size_t rejecting;
    int project;
    std::string main, backup;
  } rows[] = {{"F", 0, 0, former, ""},
              {"S", 0, 0, former, ""},
              {"FS", 0, 0, former, former},
              {"FS", 1, 0, "", former},
              {"SF", 1, 0, "", former},
              {"S", 0, 5, first + second, ""},
              {"SF", 0, 5, first + second, first + second},
              {"FS", 1, 5, first, first + second},
              {"SF", 1, 5, first, first + second}};
  for (const auto &row : rows) {
    const std::string project = std::to_string(row.project);
    SCOPED_TRACE(std::string(row.slots) + " rejected by " + std::to_string(row.rejecting) + " project " + project);
    StoreImage image(row.slots);
    for (const std::string key : {"1", "2"}) {
      image.run("INSERT INTO plant_Item VALUES(" + key + ",'old'," + key + ",0,''," + "0," + project + ",3)");
    }
    for (const std::uint32_t key : {1U, 2U, 3U}) {
      poke(image.add(key, "new", 7), kProject, row.project);
      poke(image.item.GetAt(static_cast<int>(key) - 1), kModified, 1);
    }
    (void)image.stores[row.rejecting]->run(
        row.slots[row.rejecting] == 'F'
            ? "CREATE TRIGGER keep BEFORE DELETE ON plant_Item WHEN OLD.ID = 2 BEGIN SELECT RAISE(ABORT, 'no'); END"
            : "CREATE FUNCTION refuse() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN IF OLD.ID = 2 THEN RAISE 'no'; "
              "END IF; RETURN OLD; END $$; CREATE TRIGGER keep BEFORE DELETE ON plant_Item FOR EACH ROW EXECUTE "
              "FUNCTION refuse()");
    EXPECT_FALSE(image.item.SaveData(row.project));
    const std::string query = "SELECT ID, Name, Level, bModified, iEditStatus FROM plant_Item ORDER BY ID";
    EXPECT_EQ(image.stores[0]->run(query), row.main);
    EXPECT_EQ(image.stores.back()->run(query), image.stores.size() > 1 ? row.backup : row.main);
    EXPECT_EQ(peek(image.item.GetAt(0), kModified), row.project == 0 ? 1 : 0);
    EXPECT_EQ(peek(image.item.GetAt(1), kModified), 1);
    EXPECT_EQ(peek(image.item.GetAt(2), kModified), 1);
  }
}

TEST(ByDesign, CharIsNumber) {
  const struct {
    char written;
    int loaded;  // -1: the store rejects the row
  } rows[] = {{'0', 0}, {'9', 9}, {'A', -1}, {'\0', -1}, {' ', -1}, {'?', -1}, {'\'', -1}, {7, -1}};
  const TableSpec marked{30, "Marked", 2, {"ID UINT 4", "Mark CHAR 1", "Sign UCHAR 1"}};
  for (const char *slots : {"F", "S"}) {
    StoreImage image(slots, {marked});
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

TEST(ByDesign, MergeFailureIgnored) {
  StoreImage image;
  image.run(
      "INSERT INTO plant_Item VALUES(7,'seven',7,0,'',0,0,0),(8,'eight',8,0,'',0,5,2); ALTER TABLE plant_Item RENAME "
      "TO "
      "kept; CREATE VIEW plant_Item AS SELECT ID, Name, CASE WHEN iProjectID = 5 THEN abs(-9223372036854775807 - 1) "
      "ELSE Level END AS Level, Value, Pass, bModified, iProjectID, iEditStatus FROM kept; CREATE TABLE system_Account "
      "(ID bigint)");
  EXPECT_EQ(image.manager->LoadAllCustomizedDB(5), 1);
  EXPECT_EQ(image.items(), "7 seven 7  0 0 0\n");
}

TEST(ByDesign, MergeKeepsPasswords) {
  StoreImage image;
  image.add(7, "seven", 7);
  image.run("INSERT INTO plant_Item VALUES(7,'SEVEN',77,0,'other',0,5,3),(8,'eight',8,0,'mine',0,5,2)");
  quillanest::CRtdbMedia media(*image.manager);
  EXPECT_FALSE(media.MergeProjectRows(image.item, "SELECT * FROM plant_Item")) << "nothing is open";
  ASSERT_EQ(media.open_for(image.plant, true), 1);
  EXPECT_FALSE(media.MergeProjectRows(image.item, "SELECT * FROM plant_Missing"));
  EXPECT_TRUE(media.MergeProjectRows(image.item, "SELECT * FROM plant_Item ORDER BY ID"));
  EXPECT_EQ(image.items(), "7 SEVEN 77 pass7 0 5 3\n8 eight 8  0 5 2\n");
}

TEST(ByDesign, OpenNeverFails) {
  StoreImage image;
  image.configure("MainDBType=8\nBackDBType=-1\n");
  image.add(1, "one", 1);
  quillanest::CRtdbMedia media(*image.manager);
  EXPECT_EQ(media.open_for(image.plant, false), 0);
  EXPECT_EQ(media.connection().GetCurrentSlot(), -1);
  EXPECT_EQ(media.connection().GetCurrentType(), -1);
  EXPECT_FALSE(media.LoadTable(image.plant, image.item, 0)) << "a load finds no slot to ask";
  EXPECT_EQ(image.items(), "1 one 1 pass1 1 0 0\n");
  EXPECT_TRUE(media.SaveTable(image.plant, image.item, 0)) << "a save goes on all the same";
  EXPECT_EQ(image.item_rows(), "");
}

}  // namespace
