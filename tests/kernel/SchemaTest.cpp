// Schema files: what is accepted, what it becomes in the image, and what is refused.
#include <array>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <sys/resource.h>
#include <tuple>
#include <vector>

#include "quillanest/Quillanest.h"
#include "tests/support/TestRoot.h"

namespace {

const std::string kSystem = "#Name=system Describe=SystemData ID=1 Type=0 TableCount=1\n";
const std::string kStation = "#DBID=1 NAME=Station CNAME=StationList ID=10 INDEX=0 MAX=4 FIELDNUM=2\n";
const std::string kKey = "#DBID=1 TABLEID=10 NAME=ID CNAME=Key ID=1 INDEX=0 TYPE=UINT SIZE=4 Default=prev\n";
const std::string kText = "#DBID=1 TABLEID=10 NAME=Text CNAME=CText ID=2 INDEX=1 TYPE=STRING SIZE=16";

std::string databases(const std::string &lines) { return "#Database_Start\n" + lines + "#Database_Finish\n"; }
std::string tables(const std::string &lines) { return "#Table_Start\n" + lines + "#Table_Finish\n"; }
std::string fields(const std::string &lines) { return "#Field_Start\n" + lines + "#Field_Finish\n"; }

// A schema whose sections hold these lines.
std::string schema(const std::string &database_lines, const std::string &table_lines, const std::string &field_lines) {
  return databases(database_lines) + tables(table_lines) + fields(field_lines);
}

// A manager that started from a schema text, in a root of its own.
struct Start {
  explicit Start(const std::string &text) : done(manager.RtdbManagerInit(false, root.write("s", text).c_str())) {}

  // The descriptor of a field of table 10, null when there is none.
  const _field_attr *field(int slot) {
    CRtTable table;
    return manager.GetSystemTable(table, 10U) != 0 ? table.GetFieldFromIndex(slot) : nullptr;
  }
  std::string table_name() {
    CRtTable table;
    return manager.GetSystemTable(table, 10U) != 0 ? table.GetTableName() : "<none>";
  }

  TestRoot root;
  CRtdbManager manager;
  bool done;
};

// A text of `width` bytes that may lack its terminator.
std::string bounded(const char *text, std::size_t width) { return {text, strnlen(text, width)}; }

std::string plant_lines(int first_id, int count) {
  std::string lines;
  for (int i = 0; i < count; ++i) {
    const std::string id = std::to_string(first_id + i);
    lines += "#Name=plant" + id + " Describe=P ID=" + id + " Type=0 TableCount=1\n";
  }
  return lines;
}

const std::string kPlain = schema(kSystem, kStation, kKey + kText + "\n");

// Catches: a line taken into the wrong section, skipped or rejected would change which schemas start.
TEST(Schema, LinesAndSections) {
  const std::string long_comment(1023, '-');
  const std::tuple<const char *, std::string, bool> rows[] = {
      {"plain", kPlain, true},
      {"lines without # are skipped", "free text\n \n\nName=x\n" + kPlain, true},
      {"empty", "", false},
      {"text after a marker", "#Database_Start now\n" + kSystem + "#Database_FinishX\n" + tables(kStation), true},
      {"marker in another case", "#database_start\n" + kSystem + "#Database_Finish\n", false},
      {"record line outside any section", kText + "\n" + kPlain, true},
      {"runs of blanks", databases("#Name=system  Describe=S \t ID= 1   Type=-3TableCount=1\n"), true},
      {"keyword in another case", databases("#NAME=system Describe=S ID=1 Type=0 TableCount=1\n"), false},
      {"repeated sections", databases(kSystem) + databases(plant_lines(2, 1)) + tables(kStation), true},
      {"table before its database", tables(kStation) + databases(kSystem), false},
      {"field before its table", databases(kSystem) + fields(kKey) + tables(kStation), false},
      {"field of an unknown table", schema(kSystem, kStation, "#DBID=1 TABLEID=11" + kText.substr(19)), false},
      {"field of an unknown database", schema(kSystem, kStation, "#DBID=3" + kText.substr(7)), false},
      {"table of an unknown database", schema(kSystem, "#DBID=3" + kStation.substr(7), ""), false},
      {"table slot -1", schema(kSystem, "#DBID=1 NAME=T CNAME=T ID=10 INDEX=-1 MAX=1 FIELDNUM=1\n", ""), false},
      {"table slot = count", schema(kSystem, "#DBID=1 NAME=T CNAME=T ID=10 INDEX=1 MAX=1 FIELDNUM=1\n", ""), false},
      {"unknown type", schema(kSystem, kStation, "#DBID=1 TABLEID=10 NAME=a CNAME=b ID=1 INDEX=0 TYPE=I SIZE=8\n"),
       false},
      {"ten databases", databases(kSystem + plant_lines(100, 9)), true},
      {"eleven databases", databases(kSystem + plant_lines(100, 10)), false},
      {"two databases with one ID", databases(kSystem + plant_lines(1, 1)), true},
      {"system with another ID", databases("#Name=system Describe=S ID=2 Type=0 TableCount=1\n"), false},
      {"ID 1 with another name", databases(plant_lines(1, 1)), false},
      {"a byte order mark", "\xEF\xBB\xBF" + kPlain, true},
      {"a line past 1023 characters goes on as another line",
       databases(kSystem) + "#Table_Start\n" + long_comment + kStation + "#Table_Finish\n" + fields(kKey), true},
      {"CR LF", "#Database_Start\r\n#Name=system Describe=S ID=1 Type=0 TableCount=1\r\n#Database_Finish\r\n", true},
  };
  for (const auto &[name, text, starts] : rows) {
    SCOPED_TRACE(name);
    Start start(text);
    EXPECT_EQ(start.done, starts);
    EXPECT_EQ(start.manager.GetRtdbStatus() == RTDB_STATUS_LOADED, starts);
  }
}

// Catches: a second layout of a common segment that is written beyond its end.
TEST(ByDesign, SameIDSharesSegment) {
  for (const int slots : {1, 2, 3}) {
    SCOPED_TRACE(slots);
    const std::string second = "#Name=second Describe=S ID=7 Type=0 TableCount=" + std::to_string(slots) + '\n';
    Start start(databases(kSystem + "#Name=first Describe=F ID=7 Type=0 TableCount=2\n" + second));
    EXPECT_EQ(start.done, slots < 3);
    if (!start.done) continue;
    CRtDataBase database;
    EXPECT_EQ(start.manager.GetDataBaseFromName(database, "first"), 0);
    ASSERT_EQ(start.manager.GetDataBaseFromID(database, 7), 1);
    EXPECT_STREQ(database.GetDBName(), "first");  // the directory lists both
    ASSERT_EQ(database.AttachShareMemory(), 1);
    EXPECT_STREQ(database.GetDBName(), "second");
    EXPECT_EQ(database.GetDBTableNum(), slots);
  }
}

// Catches: a field slot outside the table that is written all the same lands in another table's descriptors.
TEST(Schema, FieldSlotOutsideTheTable) {
  const std::string line = "#DBID=1 TABLEID=10 NAME=Out CNAME=Out ID=9 INDEX=";
  for (const char *index : {"2", "2147483647"}) {
    SCOPED_TRACE(index);
    Start start(schema(kSystem, kStation, kKey + line + index + " TYPE=INT SIZE=4\n"));
    ASSERT_TRUE(start.done);
    EXPECT_STREQ(start.field(0)->FieldName, "ID");
    EXPECT_STREQ(start.field(1)->FieldName, "");
  }
  EXPECT_FALSE(Start(schema(kSystem, kStation, kKey + line + "-1 TYPE=INT SIZE=4\n")).done);
}

// Catches: a wrong code or element width breaks every conversion of that type.
TEST(Schema, TypeKeywords) {
  const std::tuple<const char *, int, int> rows[] = {
      {"CHAR", 1, 1},  {"uchar", 2, 1},   {"Short", 3, 2},  {"USHORT", 4, 2}, {"int", 5, 4},
      {"UINT", 6, 4},  {"LONG", 9, 4},    {"ULONG", 10, 4}, {"FLOAT", 11, 4}, {"double", 12, 8},
      {"TIME", 14, 2}, {"STRING", 13, 1}, {"pASSWD", 15, 1}};
  for (const auto &[keyword, code, width] : rows) {
    SCOPED_TRACE(keyword);
    const std::string line = std::string("NAME=f CNAME=f ID=1 INDEX=1 TYPE=") + keyword + " SIZE=3\n";
    Start start(schema(kSystem, kStation, kKey + "#DBID=1 TABLEID=10 " + line));
    ASSERT_TRUE(start.done);
    EXPECT_EQ(start.field(1)->FieldType, code);
    EXPECT_EQ(start.field(1)->FieldTypeSize, width);
    EXPECT_EQ(start.field(1)->FieldSize, 3);  // as written, for any type
  }
}

// Catches: a default text that new records do not get; each row is the end of a field line after one whose default is
// "prev".
TEST(Schema, DefaultTexts) {
  const std::string width32(32, 'd');
  const std::pair<std::string, std::string> rows[] = {{" Default=x", "x"},
                                                      {"", "prev"},
                                                      {" Default=", ""},
                                                      {" Default", ""},
                                                      {" Default=x   ", "x"},
                                                      {" Default=x \t ", "x \t"},
                                                      {" Default= a b", " a b"},
                                                      {" Default:5", "5"},
                                                      {" default=5", "prev"},
                                                      {" Default=" + width32, width32},
                                                      {" Default=" + width32 + "d", "prev"}};
  for (const auto &[end, value] : rows) {
    for (const char *line_end : {"\n#Field_Finish\n", "\r\n#Field_Finish\n", ""}) {
      SCOPED_TRACE(end + line_end);
      Start start(databases(kSystem) + tables(kStation) + "#Field_Start\n" + kKey + kText + end + line_end);
      ASSERT_TRUE(start.done);
      EXPECT_EQ(bounded(start.field(1)->DefaultValue, 32), value);
    }
  }
}

TEST(ByDesign, DefaultAnywhere) {
  Start start(
      schema(kSystem, kStation, kKey + "#DBID=1 TABLEID=10 NAME=n CNAME=theDefault ID=2 INDEX=1 TYPE=INT SIZE=4\n"));
  ASSERT_TRUE(start.done);
  EXPECT_STREQ(start.field(1)->DefaultValue, "ID=2 INDEX=1 TYPE=INT SIZE=4");
  EXPECT_STREQ(start.field(1)->FieldCName, "theDefault");
}

TEST(ByDesign, ValuesInherited) {
  const std::string name25(25, 'n');
  const std::string caption41(41, 'c');
  const std::string second = "#DBID=1 NAME=" + name25 + " CNAME=" + caption41 + " ID=10 INDEX=1 MAX=4 FIELDNUM=2\n";
  Start start(
      schema("#Name=system Describe=" + caption41 + " ID=1 Type=0 TableCount=2\n",
             "#DBID=1 NAME=First CNAME=CFirst ID=9 INDEX=0 MAX=1 FIELDNUM=0\n" + second,
             kKey + "#DBID=1 TABLEID=10 NAME=" + name25 + " CNAME=" + caption41 + " ID=2 INDEX=1 TYPE=INT SIZE=4\n"));
  ASSERT_TRUE(start.done);
  EXPECT_STREQ(start.manager.GetSystemDB()->GetDBCName(), "");  // a database line starts afresh
  EXPECT_EQ(start.table_name(), "First");
  EXPECT_STREQ(start.field(1)->FieldName, "ID");
  EXPECT_STREQ(start.field(1)->FieldCName, "Key");
  EXPECT_STREQ(start.field(1)->DefaultValue, "prev");
}

// Catches: a terminator of a full caption name that falls on the low byte of the database ID that follows it: a line
// whose ID was set first named another database, and the start failed.
TEST(Schema, FullWidthNames) {
  const std::string name24(24, 'n');
  const std::string caption40(40, 'c');
  const auto text = [&](const std::string &id, const std::string &caption) {
    return databases(kSystem + "#Name=" + name24 + " Describe=" + caption40 + " ID=" + id + " Type=0 TableCount=1\n") +
           tables("#DBID=" + id + " NAME=" + name24 + " CNAME=" + caption + " ID=20 INDEX=0 MAX=1 FIELDNUM=1\n") +
           fields("#DBID=" + id + " TABLEID=20 NAME=" + name24 + " CNAME=" + caption +
                  " ID=1 INDEX=0 TYPE=INT SIZE=4\n");
  };
  Start start(text("258", caption40));
  ASSERT_TRUE(start.done);
  CRtDataBase database;
  CRtTable table;
  ASSERT_EQ(start.manager.FindTable(20, database, table), 1);
  const auto *attr = reinterpret_cast<const _db_attr *>(database.GetStartAddress());
  EXPECT_EQ(bounded(attr->DBName, 24), name24);
  EXPECT_EQ(bounded(attr->DBCName, 40), caption40);
  EXPECT_EQ(attr->DBID, 258U);
  EXPECT_EQ(bounded(table.GetTableCName(), 40), caption40);
  EXPECT_EQ(table.GetDataBaseID(), 258U);
  EXPECT_EQ(table.GetFieldFromIndex(0)->DataBaseID, 258U);
  EXPECT_EQ(bounded(table.GetFieldFromIndex(0)->FieldName, 24), name24);
  EXPECT_EQ(bounded(table.GetFieldFromIndex(0)->FieldCName, 40), caption40);
}

TEST(ByDesign, StartCountsFromNextLine) {
  // A marker with immediate effect would take the Table_Start line as no record of the open section.
  EXPECT_FALSE(Start("#Database_Start\n" + kSystem + tables(kStation)).done);
  // A Finish marker that waited for the next line would parse that line, too.
  EXPECT_TRUE(Start(databases(kSystem) + "#no record\n" + tables(kStation)).done);
}

TEST(ByDesign, LastLineTwice) {
  const std::string open = tables("") + "#Database_Start\n" + kSystem + plant_lines(100, 8);
  const std::string last = "#Name=last Describe=L ID=300 Type=0 TableCount=1";
  const std::pair<const char *, bool> rows[] = {
      {"", true}, {"\n", false}, {"\r\n", false}, {"\n#Database_Finish\n", true}, {"\n\n", true}};
  for (const auto &[end, starts] : rows) {
    SCOPED_TRACE(testing::PrintToString(end));
    EXPECT_EQ(Start(open + last + end).done, starts);
  }
}

// Catches: a negative or overflowing number would give a small segment with offsets far outside it.
TEST(Schema, AbsurdNumbers) {
  // Tables, records, fields and size. Products that pass 2^32: 41297763 * 104, 536870913 * 8 and 33554433 * 128.
  const std::pair<std::array<long, 4>, bool> rows[] = {{{100000, 4, 2, 4}, true},      {{1, 0, 2, 4}, true},
                                                       {{1, 4, 0, 4}, true},           {{1, 4, 2, 0}, true},
                                                       {{0, 4, 2, 4}, false},          {{-1, 4, 2, 4}, false},
                                                       {{2147483647, 4, 2, 4}, false}, {{41297763, 4, 2, 4}, false},
                                                       {{1, -1, 2, 4}, false},         {{1, -2147483648, 2, 4}, false},
                                                       {{1, 2147483647, 2, 4}, false}, {{1, 268435456, 2, 4}, false},
                                                       {{1, 536870913, 2, 4}, false},  {{1, 4, -1, 4}, false},
                                                       {{1, 4, 2147483647, 4}, false}, {{1, 4, 33554433, 4}, false},
                                                       {{1, 4, 2, -4}, false},         {{1, 4, 2, -2147483648}, false},
                                                       {{1, 4, 2, 2147483647}, false}, {{1, 1, 2, 1073741824}, false},
                                                       {{1, 65537, 2, 65536}, false}};
  rusage before{};
  getrusage(RUSAGE_SELF, &before);
  for (const auto &[numbers, starts] : rows) {
    SCOPED_TRACE(testing::PrintToString(numbers));
    const std::string field = " TYPE=INT SIZE=" + std::to_string(numbers[3]) + '\n';
    Start start(schema("#Name=system Describe=S ID=1 Type=0 TableCount=" + std::to_string(numbers[0]) + '\n',
                       "#DBID=1 NAME=T CNAME=T ID=10 INDEX=0 MAX=" + std::to_string(numbers[1]) +
                           " FIELDNUM=" + std::to_string(numbers[2]) + '\n',
                       "#DBID=1 TABLEID=10 NAME=f CNAME=f ID=1 INDEX=0" + field +
                           "#DBID=1 TABLEID=10 NAME=g CNAME=g ID=2 INDEX=1" + field));
    EXPECT_EQ(start.done, starts);
    EXPECT_EQ(start.table_name(), starts ? "T" : "<none>");
  }
  // Many table slots that a rejected line leaves unused cost nothing.
  EXPECT_FALSE(Start(databases("#Name=system Describe=S ID=1 Type=0 TableCount=20000000\n#Name=\n")).done);
  rusage after{};
  getrusage(RUSAGE_SELF, &after);
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 200 * 1024);
}

// Catches: databases of a failed reading that were dropped, or entered twice, would change what the next start builds.
TEST(Schema, FailedReadingKeepsItsDatabases) {
  for (const int kept : {9, 10}) {
    SCOPED_TRACE(kept);
    Start start(databases(plant_lines(100, kept) + "#Name=\n"));
    ASSERT_FALSE(start.done);
    EXPECT_EQ(start.manager.GetRtdbStatus(), RTDB_STATUS_BUILDING);
    const bool has_room = kept == 9;
    EXPECT_EQ(start.manager.RtdbManagerInit(false, start.root.write("s", kPlain).c_str()), has_room);
    CRtDataBase database;
    EXPECT_EQ(start.manager.GetDataBaseFromName(database, "plant108"), has_room ? 1 : 0);
    EXPECT_EQ(start.manager.GetDataBaseFromName(database, "system"), has_room ? 1 : 0);
  }
}

}  // namespace
