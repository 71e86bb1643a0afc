// Mistakes and their events: every one has its code and its sentence, and the results stay what they are.
#include <algorithm>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/kernel/TableFixture.h"
#include "tests/support/PlantSchema.h"
#include "tests/support/Recorder.h"

namespace {

struct Plant {
  explicit Plant(const std::string &schema = kPlantSchema) { root.write("plant.schema", schema); }
  bool start() { return manager.RtdbManagerInit(false, root.path("plant.schema").c_str()); }

  TestRoot root;
  CRtdbManager manager;
};

// Catches: a schema that is refused without the line and the cause, or accepted without a word of what it loses.
TEST(Events, OfASchema) {
  const struct {
    const char *from, *to;
    bool starts;
    const char *event;
  } rows[] = {
      {"TYPE=STRING SIZE=8", "TYPE=TEXT SIZE=8", false, "error plant.schema:18:51 schema.type: unknown type \"TEXT\""},
      {"CNAME=N ID=2 INDEX=1 TYPE=STRING SIZE=8", "CNAME=N INDEX=1 ID=2 TYPE=STRING SIZE=8", false,
       "error plant.schema:18:38 schema.form: \"ID=\" is missing here"},
      {"#DBID=2 TABLEID=10 NAME=Name", "#DBID=2 TABLEID=11 NAME=Name", false,
       "error plant.schema:18:1 schema.table_id: no table of the database 2 has the ID 11"},
      {"#DBID=2 TABLEID=10 NAME=Name", "#DBID=3 TABLEID=10 NAME=Name", false,
       "error plant.schema:18:1 schema.database_id: no database has the ID 3"},
      {"#DBID=2 NAME=Pump", "#DBID=7 NAME=Pump", false,
       "error plant.schema:8:1 schema.database_id: no database has the ID 7"},
      {"ID=10 INDEX=0", "ID=10 INDEX=1", false,
       "error plant.schema:8:1 schema.table_index: INDEX=1 is not one of the 1 table slots of its database"},
      {"MAX=3 FIELDNUM=3", "MAX=3 FIELDNUM=-3", false, "error plant.schema:8:1 schema.field_count: FIELDNUM=-3"},
      {"ID=2 INDEX=1 TYPE=STRING SIZE=8", "ID=2 INDEX=-1 TYPE=STRING SIZE=8", false,
       "error plant.schema:18:1 schema.field_index: INDEX=-1 is negative"},
      {"Type=0 TableCount=1", "Type=0 TableCount=-1", false,
       "error plant.schema:3:36 schema.table_count: TableCount=-1 is negative"},
      {"Type=0 TableCount=1", "Type=0 TableCount=0", false, "error plant.schema:8:1 schema.table_index: INDEX=0"},
      {"MAX=3", "MAX=-3", false, "error Pump layout.table: the table cannot be laid out: MAX is negative"},
      {"SIZE=8\n", "SIZE=-8\n", false, "error Pump layout.table: the table cannot be laid out: the SIZE of a field"},
      {"MAX=3", "MAX=999999999", false, "error plant layout.size: the segment of the database would have more than"},
      {"Describe=P ID=2", "Describe=P ID=1", false, "error plant.schema:8:1 schema.database_id: no database has"},
      {"Name=system", "Name=sys", false, "error  start.system: the database with the ID 1 is not called \"system\""},
      {"MAX=3 FIELDNUM=3", "MAX=3 FIELDNUM=2", true,
       "warning plant.schema:19:1 schema.field_dropped: INDEX=2 is not below FIELDNUM=2"},
      {"ID=3 INDEX=2", "ID=3 INDEX=1", true, "warning plant.schema:13:1 schema.field_twice: INDEX=1 was given"},
      {"NAME=Level", "NAME=TheLevelOfTheWaterInTheTank", true,
       "warning plant.schema:19:20 schema.name_length: the text has 27 characters, of which 24 fit"},
      {"TYPE=DOUBLE SIZE=8", "TYPE=DOUBLE SIZE=4", true,
       "warning plant.schema:19:1 schema.field_size: SIZE=4 is less than the 8 bytes of the type"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.to);
    Plant plant(changed(kPlantSchema, row.from, row.to));
    const Recorder recorder(plant.root.folder());
    EXPECT_EQ(plant.start(), row.starts);
    EXPECT_TRUE(recorder.has(row.event)) << recorder.text();
    const std::string code = std::string(row.event).substr(0, std::string(row.event).find(": "));
    const std::string last = quillanest::last_failure();
    EXPECT_NE(last.find(code.substr(code.rfind(' ') + 1)), std::string::npos) << last;
  }
}

// Catches: a start that fails for its file, its configuration or its root without saying which.
TEST(Events, OfAStart) {
  Plant plant;
  const Recorder recorder(plant.root.folder());
  EXPECT_FALSE(plant.manager.RtdbManagerInit(false, nullptr));
  EXPECT_TRUE(recorder.has("error  schema.path: ")) << recorder.text();
  CRtdbManager second;
  EXPECT_FALSE(second.RtdbManagerInit(false, plant.root.path("missing").c_str()));
  EXPECT_TRUE(recorder.has("error missing schema.missing: ")) << recorder.text();
  EXPECT_NE(std::string(quillanest::last_failure()).find("[schema.missing]"), std::string::npos);
  CRtdbManager third;
  EXPECT_FALSE(third.RtdbManagerInit(true, nullptr));
  EXPECT_TRUE(recorder.has("error  start.")) << recorder.text();
}

// Catches: a text file that is refused, cut or emptied without a word.
TEST(Events, OfTextFiles) {
  const struct {
    const char *bytes;
    bool loads;
    const char *event;
  } rows[] = {
      {"ID;Name;Level\r\n1;a;1\r\n", true, nullptr},
      {"ID;Name\r\n1;a\r\n", true, "warning data/plant_Pump.txt:1 text.missing_column: no column is called \"Level\""},
      {"ID;Name;Levle\r\n1;a;1\r\n", true, "warning data/plant_Pump.txt:1 text.unknown_column: 1 columns"},
      {"ID;Name;Level\r\n1;a;1\r\n2;b;2\r\n3;c;3\r\n4;d;4\r\n5;e;5\r\n", true,
       "warning data/plant_Pump.txt text.capacity: the table is full with 3 records, and 2 more are in the file"},
      {"", false, "error data/plant_Pump.txt text.form: the file is not lines of text"},
      {"ID;Name;Level\r1;a;1\r", false, "error data/plant_Pump.txt text.form: the file is not lines of text"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.bytes));
    Plant plant;
    ASSERT_TRUE(plant.start());
    const std::string path = plant.root.write("data/plant_Pump.txt", row.bytes);
    const Recorder recorder(plant.root.folder());
    EXPECT_EQ(plant.manager.LoadTableData(2, 10, nullptr), row.loads);
    if (row.event == nullptr) {
      EXPECT_EQ(recorder.text(), "");
      EXPECT_STREQ(quillanest::last_failure(), "");
    } else {
      EXPECT_TRUE(recorder.has(row.event)) << recorder.text();
    }
  }
}

// Catches: a save that fails without the file and the system's reason.
TEST(Events, OfASaveThatCannotBegin) {
  Plant plant;
  ASSERT_TRUE(plant.start());
  CRtDataBase *system = plant.manager.GetSystemDB();
  const Recorder recorder(plant.root.folder());
  plant.root.configure("DataInFile=1\nSystemDataFolder=missing\n");
  EXPECT_FALSE(system->SaveData(0));
  EXPECT_TRUE(recorder.has("error missing/system_users.txt text.create: the file cannot be written: No such file"))
      << recorder.text();
  EXPECT_NE(std::string(quillanest::last_failure()).find(", and 1 more"), std::string::npos)
      << quillanest::last_failure();
  EXPECT_EQ(system->BuildIncludeFile(""), 0);
  EXPECT_TRUE(recorder.has("error  header.folder: "));
  quillanest::set_message_handler([](const char *) {});
  EXPECT_EQ(system->BuildIncludeFile(plant.root.path("nowhere").c_str()), 0);
  EXPECT_TRUE(recorder.has("error nowhere/system.h header.create: the header cannot be written: No such file"))
      << recorder.text();
  plant.root.configure("DataInFile=1\nBaselineFolder=missing\n");
  CRtDataBase database;
  ASSERT_EQ(plant.manager.GetDataBaseFromName(database, "plant"), 1);
  ASSERT_EQ(database.AttachShareMemory(), 1);
  EXPECT_FALSE(database.SaveData(0));
  EXPECT_TRUE(recorder.has("error  text.folder: ")) << recorder.text();
}

// Catches: a store that is not there, lacks a table or loses rows, and says nothing.
TEST(Events, OfARelationalStore) {
  Plant plant;
  ASSERT_TRUE(plant.start());
  CRtDataBase database;
  ASSERT_EQ(plant.manager.GetDataBaseFromName(database, "plant"), 1);
  ASSERT_EQ(database.AttachShareMemory(), 1);
  CRtTable pumps;
  ASSERT_EQ(database.GetDBTableFromName(pumps, "Pump"), 1);
  plant.root.configure(
      "DataInFile=0\nRtdbDataPath=data/\n[RtdbMedia]\nMainDBType=1\nMainDBName=plant.db\nBackDBType=-1\n");
  const Recorder recorder(plant.root.folder());
  EXPECT_TRUE(pumps.SaveData(0));  // by design a save without a database is true
  EXPECT_TRUE(recorder.has("warning main store.open: the database cannot be opened: ")) << recorder.text();
  EXPECT_TRUE(recorder.has("warning plant.Pump store.closed: no database is open")) << recorder.text();
  EXPECT_EQ(plant.manager.LoadAllCustomizedDB(0), 0);
  EXPECT_TRUE(recorder.has("error plant_Pump store.query: no database is open to read from")) << recorder.text();

  sqlite3 *file = nullptr;
  ASSERT_EQ(sqlite3_open(plant.root.path("data/plant.db").c_str(), &file), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(file, "CREATE TABLE other (ID INTEGER)", nullptr, nullptr, nullptr), SQLITE_OK);
  EXPECT_FALSE(pumps.SaveData(0));
  EXPECT_TRUE(recorder.has("error plant_Pump store.delete: a database rejects the DELETE")) << recorder.text();
  ASSERT_EQ(
      sqlite3_exec(file, "CREATE TABLE plant_Pump (ID INTEGER, Name TEXT, Level REAL)", nullptr, nullptr, nullptr),
      SQLITE_OK);
  ASSERT_EQ(pumps.Insert(7, 0, 0), 0);
  ASSERT_EQ(pumps.SetFieldByText(0, 1, std::string("O'Brien").data()), 1);
  EXPECT_TRUE(pumps.SaveData(0));
  EXPECT_TRUE(recorder.has("warning plant_Pump store.row: the record with the ID 7 is not saved")) << recorder.text();
  EXPECT_EQ(recorder.text().find("Brien"), std::string::npos) << "a value of a record";
  ASSERT_EQ(sqlite3_exec(file, "INSERT INTO plant_Pump VALUES (1,'a',1),(2,'b',1),(3,'c',1),(4,'d',1)", nullptr,
                         nullptr, nullptr),
            SQLITE_OK);
  EXPECT_EQ(plant.manager.LoadAllCustomizedDB(0), 0);
  EXPECT_TRUE(recorder.has("error plant_Pump store.capacity: the table is full with 3 records")) << recorder.text();
  sqlite3_close(file);
}

// Catches: a login that no user can make, which looks like a wrong password.
TEST(Events, OfALogin) {
  const struct {
    const char *from, *to, *event;
  } rows[] = {
      {"ID=4 INDEX=3 TYPE=STRING SIZE=28", "ID=4 INDEX=3 TYPE=STRING SIZE=32",
       "error system login.users: records of the users' table 104 have 96 bytes instead of 92"},
      {"TYPE=STRING SIZE=32", "TYPE=STRING SIZE=31",
       "error system login.rights: records of the rights' table 106 have 35 bytes"},
  };
  for (const auto &row : rows) {
    Plant plant(changed(kPlantSchema, row.from, row.to));
    ASSERT_TRUE(plant.start());
    const Recorder recorder(plant.root.folder());
    EXPECT_EQ(plant.manager.UserLogin("ann", "x"), 0);
    EXPECT_TRUE(recorder.has(row.event)) << recorder.text();
  }
  Plant plant;
  ASSERT_TRUE(plant.start());
  const Recorder recorder(plant.root.folder());
  EXPECT_EQ(plant.manager.UserLogin("ann", "x"), -1);
  EXPECT_EQ(recorder.text(), "") << "what the result says already";
}

// Catches: a handler whose exception or whose own calls change a result, a failure of one thread that another one sees,
// one that outlives the next operation.
TEST(Events, HandlersAndThreadsAreApart) {
  Plant plant(changed(kPlantSchema, "TYPE=DOUBLE", "TYPE=DUOBLE"));
  quillanest::set_event_handler(
      [](const quillanest::Event &event, void *) {
        if (event.size < sizeof(quillanest::Event)) return;
        (void)CRtdbManager().RtdbManagerInit(false, "nothing");
        throw std::runtime_error("the handler's own");
      },
      nullptr);
  EXPECT_FALSE(plant.start());
  quillanest::set_event_handler(nullptr, nullptr);
  const std::string mine = quillanest::last_failure();
  EXPECT_NE(mine.find("plant.schema:19"), std::string::npos) << mine;
  EXPECT_NE(mine.find("\"DUOBLE\" [schema.type]"), std::string::npos) << mine;
  std::string other = "?";
  std::thread([&] { other = quillanest::last_failure(); }).join();
  EXPECT_EQ(other, "");
  CRtdbManager again;
  plant.root.write("plant.schema", kPlantSchema);
  plant.manager.DestroyMemory();
  EXPECT_TRUE(again.RtdbManagerInit(false, plant.root.path("plant.schema").c_str()));
  EXPECT_STREQ(quillanest::last_failure(), "");
}

// Catches: a version of the headers that is not that of the library.
TEST(Events, VersionIsThatOfTheHeaders) {
  EXPECT_STREQ(quillanest::version(), QUILLANEST_VERSION);
  EXPECT_EQ(std::string(QUILLANEST_VERSION), std::to_string(QUILLANEST_VERSION_MAJOR) + "." +
                                                 std::to_string(QUILLANEST_VERSION_MINOR) + "." +
                                                 std::to_string(QUILLANEST_VERSION_PATCH));
}

}  // namespace
