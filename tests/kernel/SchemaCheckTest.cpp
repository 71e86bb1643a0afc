// What the checker of schema files finds, and that a start agrees with it.
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "quillanest/Check.h"
#include "quillanest/Quillanest.h"
#include "tests/support/PlantSchema.h"
#include "tests/support/Recorder.h"
#include "tests/support/TestRoot.h"

namespace {

// "severity line:column code: text" of every finding, each on a line.
std::string findings(const std::string &path) {
  constexpr const char *kNames[] = {"note", "warning", "error"};
  std::string text;
  for (const quillanest::Finding &found : quillanest::check_schema(path.c_str())) {
    text += std::string(kNames[static_cast<int>(found.severity)]) + ' ' + std::to_string(found.line) + ':' +
            std::to_string(found.column) + ' ' + found.code + ": " + found.text + '\n';
  }
  return text;
}

struct Mistake {
  const char *from, *to;
  bool starts;           // by default
  const char *findings;  // the beginning of each, separated by '|'
};

const Mistake kMistakes[] = {
    {"TYPE=STRING SIZE=8", "TYPE=STIRNG SIZE=8", false,
     "error 18:51 schema.type: unknown type \"STIRNG\"; did you mean STRING?"},
    {"TYPE=STRING SIZE=8", "TYPE=BLOB SIZE=8", false, "error 18:51 schema.type: unknown type \"BLOB\""},
    {"CNAME=N ID=2 INDEX=1 TYPE=STRING SIZE=8", "CNAME=N INDEX=1 ID=2 TYPE=STRING SIZE=8", false,
     "error 18:38 schema.form: \"ID=\" is missing here, or its value is; the keys have a fixed order"},
    {"NAME=Name CNAME=N ID=2", "Nmae=Name CNAME=N ID=2", false,
     "error 18:20 schema.form: \"NAME=\" is missing here; did you mean NAME=?"},
    {"NAME=Name CNAME=N ID=2", "NAME=Name CNAME=the name ID=2", false,
     "error 18:40 schema.form: \"ID=\" is missing here, probably because of a blank in the text before"},
    {"#DBID=2 TABLEID=10 NAME=Name", "DBID=2 TABLEID=10 NAME=Name", true,
     "error 18:1 schema.ignored: the line is ignored, because it does not begin with '#'"},
    {"#DBID=2 TABLEID=10 NAME=Name", "# the name\n#DBID=2 TABLEID=10 NAME=Name", false,
     "error 18:1 schema.form: \"#DBID=\" is missing here: a remark inside a section must not begin with '#'"},
    {"#Table_Start", "#Tabel_Start", false,
     "error 5:1 schema.marker: the line is a remark; did you mean #Table_Start?"},
    {"#Table_Start", "Table_Start", false, "error 5:1 schema.ignored: the line is ignored, because it does not begin"},
    {"#Table_Finish\n", "", false, "error 9:1 schema.marker: the section before is not finished"},
    {"#Field_Finish\nthe end\n", "", true, "warning 19:0 schema.unfinished: the file ends inside a section"},
    {"#DBID=2 TABLEID=10 NAME=Name", "#DBID=2 TABLEID=11 NAME=Name", false,
     "error 18:1 schema.table_id: no table of the database 2 has the ID 11"},
    {"#DBID=2 TABLEID=10 NAME=Name", "#DBID=3 TABLEID=10 NAME=Name", false,
     "error 18:1 schema.database_id: no database has the ID 3"},
    {"#DBID=2 NAME=Pump", "#DBID=7 NAME=Pump", false,
     "note 3:0 schema.table_slots|error 8:1 schema.database_id: no database has the ID 7"},
    {"ID=10 INDEX=0", "ID=10 INDEX=1", false, "error 8:1 schema.table_index: INDEX=1 is not one of the 1 table slots"},
    {"ID=106 INDEX=1", "ID=106 INDEX=0", false,
     "error 7:1 schema.table_twice: INDEX=0 is also that of the table in line 6"},
    {"ID=106 INDEX=1", "ID=104 INDEX=1", false,
     "error 7:1 schema.id_twice: another table of the database has the ID 104|error 15:1 schema.table_id"},
    {"NAME=rights", "NAME=Users", true,
     "error 7:0 schema.name_twice: the table \"Users\" has the name of the one in line 6"},
    {"MAX=3 FIELDNUM=3", "MAX=3 FIELDNUM=-3", false, "error 8:1 schema.field_count: FIELDNUM=-3 is negative"},
    {"MAX=3 FIELDNUM=3", "MAX=-3 FIELDNUM=3", false, "error 8:1 layout.table: the table cannot be laid out: MAX"},
    {"MAX=3 FIELDNUM=3", "MAX=3 FIELDNUM=2", true, "error 19:1 schema.field_dropped: INDEX=2 is not below FIELDNUM=2"},
    {"MAX=3 FIELDNUM=3", "MAX=3 FIELDNUM=4", true, "error 8:0 schema.field_missing: FIELDNUM=4, and no line gives the"},
    {"ID=2 INDEX=1 TYPE=STRING SIZE=8", "ID=2 INDEX=-1 TYPE=STRING SIZE=8", false,
     "error 18:1 schema.field_index: INDEX=-1 is negative"},
    {"ID=3 INDEX=2 TYPE=DOUBLE", "ID=3 INDEX=1 TYPE=DOUBLE", true,
     "error 19:1 schema.field_twice: INDEX=1 is also that of the field in line 18, which is lost"},
    {"NAME=Level CNAME=L ID=3", "NAME=name CNAME=L ID=3", true,
     "error 19:0 schema.name_twice: the field \"name\" has the name of the one in line 18"},
    {"NAME=Level CNAME=L ID=3", "NAME=Level CNAME=L ID=2", true, "warning 19:1 schema.id_twice: the field in line 18"},
    {"NAME=Level CNAME=L", "NAME=TheLevelOfTheWaterInTheTank CNAME=L", true,
     "error 19:20 schema.name_length: the text has 27 characters, of which 24 fit"},
    {"NAME=Level CNAME=L", "NAME=Level CNAME=The_level_of_the_water_in_the_upper_tank_of_the_plant", true,
     "error 19:31 schema.name_length: the text has 53 characters, of which 40 fit"},
    {"TYPE=DOUBLE SIZE=8", "TYPE=DOUBLE SIZE=4", true, "error 19:1 schema.field_size: SIZE=4 is less than the 8 bytes"},
    {"TYPE=DOUBLE SIZE=8", "TYPE=DOUBLE SIZE=9", true, "warning 19:1 schema.field_size: SIZE=9 is more than the 8"},
    {"TYPE=STRING SIZE=8", "TYPE=STRING SIZE=0", true, "warning 18:1 schema.field_size: SIZE=0 holds no text"},
    {"TYPE=DOUBLE SIZE=8", "TYPE=DOUBLE SIZE=-8", false,
     "error 19:1 layout.table: the table cannot be laid out: the SIZE of a field is negative"},
    {"TYPE=DOUBLE SIZE=8", "TYPE=DOUBLE SIZE=8 Default=one", true,
     "warning 19:71 schema.default_value: the default is"},
    {"TYPE=STRING SIZE=8", "TYPE=STRING SIZE=8 Default=pump", true,
     "warning 19:0 schema.default_inherited: the default \"pump\" of line 18 counts here too"},
    {"TYPE=STRING SIZE=8", "TYPE=STRING SIZE=8 Default=a_text_of_more_than_thirty-two_characters", true,
     "error 18:70 schema.default_length: the default has 41 characters, of which 32 fit"},
    {"CNAME=L ID=3", "CNAME=DefaultLevel ID=3", true,
     "error 19:37 schema.default_in_text: the word Default in a name or caption"},
    {"NAME=ID CNAME=K ID=1 INDEX=0 TYPE=UINT SIZE=4\n#DBID=2 TABLEID=10 NAME=Name",
     "NAME=ID CNAME=K ID=1 INDEX=0 TYPE=SHORT SIZE=2\n#DBID=2 TABLEID=10 NAME=Name", true,
     "warning 17:0 schema.key: the first field is the key of a record"},
    {"Type=0 TableCount=1", "Type=0 TableCount=-1", false, "error 3:36 schema.table_count: TableCount=-1 is negative"},
    {"Type=0 TableCount=1", "Type=0 TableCount=0", false,
     "error 3:0 layout.no_tables: TableCount=0|error 8:1 schema.table_index: INDEX=0 is not one of the 0 table slots"},
    {"Type=0 TableCount=1", "Type=0 TableCount=3", true,
     "note 3:0 schema.table_slots: TableCount=3, and 1 table slots"},
    {"Describe=P ID=2", "Describe=P ID=1", false,
     "error 3:1 schema.id_twice: another database has the ID 1|error 8:1 schema.database_id: no database has the ID 2"},
    {"Name=plant", "Name=system", true, "error 3:1 schema.name_twice: the database in line 2 has this name too"},
    {"Name=system", "Name=sys", false, "error 2:0 start.system: the database with the ID 1 is not called \"system\""},
    {"MAX=3", "MAX=999999999", false, "error 8:0 layout.size: with this table the segment of the database \"plant\""},
    {"SIZE=28\n", "SIZE=32\n", true, "warning 6:0 login.users: records of the users' table 104 have 96 bytes"},
    {"SIZE=32\n", "SIZE=31\n", true, "warning 7:0 login.rights: records of the rights' table 106 have 35 bytes"},
    {"#Database_Start", "\xEF\xBB\xBF#Database_Start", true, "note 1:1 schema.encoding: a byte order mark"},
    {"the end\n", "the end\n#DBID=2 TABLEID=10 NAME=More CNAME=M ID=4 INDEX=3 TYPE=INT SIZE=4\n", true,
     "error 22:1 schema.ignored: the line is ignored, because it is outside all sections"},
};

bool has_error(const std::string &found) { return found.find("error ") != std::string::npos; }

// Catches: a mistake that is not found, is found elsewhere, or drags others along that are none; a start in the strict
// mode that takes it, or one by default whose result has changed.
TEST(SchemaCheck, FindsMistakes) {
  for (const Mistake &mistake : kMistakes) {
    SCOPED_TRACE(std::string(mistake.to));
    TestRoot root;
    const std::string path = root.write("plant.schema", changed(kPlantSchema, mistake.from, mistake.to));
    const std::string found = findings(path);
    std::string rest = found;
    std::string wanted = mistake.findings;
    for (std::size_t at = 0; at != std::string::npos;) {
      at = wanted.find('|');
      const std::string each = wanted.substr(0, at);
      if (at != std::string::npos) wanted.erase(0, at + 1);
      EXPECT_TRUE(rest.starts_with(each)) << each << "\nin\n" << found;
      rest.erase(0, rest.find('\n') + 1);
    }
    EXPECT_EQ(rest, "");
    {
      CRtdbManager manager;
      EXPECT_EQ(manager.RtdbManagerInit(false, path.c_str()), mistake.starts) << found;
    }
    EXPECT_TRUE(mistake.starts || has_error(found)) << "refused without a finding";
    root.configure("DataInFile=1\nRtdbDataPath=data/\nStrict=1\n");
    const Recorder events(root.folder());
    CRtdbManager strict;
    (void)strict.RtdbManagerInit(false, path.c_str());
    EXPECT_EQ(events.text().find("error plant.schema") != std::string::npos, has_error(found)) << events.text();
  }
}

// Catches: findings in a file without mistakes.
TEST(SchemaCheck, AcceptsWhatIsRight) {
  TestRoot root;
  EXPECT_EQ(findings(root.write("plant.schema", kPlantSchema)), "");
  EXPECT_EQ(findings(root.write("plant.schema", changed(kPlantSchema, "the end\n", "the end"))), "");
  std::string windows = kPlantSchema;
  for (std::size_t at = 0; (at = windows.find('\n', at)) != std::string::npos; at += 2) windows.insert(at, "\r");
  EXPECT_EQ(findings(root.write("plant.schema", windows)), "");
  for (const char *example : {"examples/hello/stations.schema", "examples/plant/plant.schema"}) {
    EXPECT_EQ(has_error(findings(std::string(QUILLANEST_SOURCES) + "/" + example)), false) << example;
  }
}

// Catches: tables of two databases that replace each other's files and rows without a word.
TEST(SchemaCheck, FindsSharedStores) {
  TestRoot root;
  const std::string path =
      root.write("plant.schema",
                 changed(changed(changed(kPlantSchema, "Name=plant Describe=P ID=2 Type=0 TableCount=1\n",
                                         "Name=plant Describe=P ID=2 Type=0 TableCount=1\n#Name=Plant_old "
                                         "Describe=P ID=3 Type=0 TableCount=1\n"),
                                 "NAME=Pump", "NAME=old_Values"),
                         "#Table_Finish", "#DBID=3 NAME=values CNAME=V ID=10 INDEX=0 MAX=3 FIELDNUM=0\n#Table_Finish"));
  EXPECT_EQ(
      findings(path),
      "error 10:0 schema.shared_store: the data file and the store's table \"plant_old_values\" are also those of "
      "the table in line 9\n");
}

// Catches: files that are not text, or are not there, which look like schemas without a database.
TEST(SchemaCheck, ReadsAnyFile) {
  TestRoot root;
  EXPECT_EQ(findings(root.path("missing")).substr(0, 24), "error 0:0 schema.missing");
  EXPECT_EQ(findings(root.path("data")).substr(0, 24), "error 0:0 schema.missing");
  EXPECT_EQ(findings("").substr(0, 21), "error 0:0 schema.path");
  EXPECT_EQ(quillanest::check_schema(nullptr).size(), 1U);
  EXPECT_EQ(findings(root.write("f", "")).substr(0, 22), "error 0:0 start.system");
  EXPECT_EQ(findings(root.write("f", std::string("\xFF\xFE#\0D\0", 6))).substr(0, 25), "error 0:0 schema.encoding");
  EXPECT_EQ(findings(root.write("f", "#Database_Start\r#Name=a\r")).substr(0, 25), "error 0:0 schema.encoding");
  const std::string line = "#Name=system Describe=" + std::string(1100, 'x') + " ID=1 Type=0 TableCount=1\n";
  EXPECT_NE(findings(root.write("f", "#Database_Start\n" + line + "#Database_Finish\n")).find("2:0 schema.line_length"),
            std::string::npos);
}

}  // namespace
