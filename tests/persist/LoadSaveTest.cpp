// Which store and which folder serve a load or save, and what a store that is not open answers.
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>

#include "tests/persist/AccountImage.h"

namespace {

constexpr const char *kFile = "data/system_Account.txt";
const std::vector<TableSpec> kPlant{{20, "Pump", 3, {"ID UINT 4", "Speed INT 4", "bModified INT 4"}},
                                    {21, "Tank", 3, {"ID UINT 4", "Full INT 4"}}};

// The plant database of an image, mapped, with its table Pump.
struct Plant {
  explicit Plant(CRtdbManager &manager) {
    if (manager.GetDataBaseFromName(database, "plant") != 0 && database.AttachShareMemory() != 0) {
      database.GetDBTableFromID(pump, 20);
    }
  }
  CRtDataBase database;
  CRtTable pump;
};

// The configuration is read at every call; an answer that was kept would write to the store selected before.
TEST(LoadSave, StoreIsChosenPerCall) {
  AccountImage image("", {}, kPlant);
  ASSERT_TRUE(image.started);
  add(image.account, 3, "ann", 5);
  Plant plant(image.manager);
  ASSERT_EQ(plant.pump.Insert(1U, 0, 0), 0);
  const struct {
    const char *name;
    bool (*save)(AccountImage &, Plant &);
    bool both;  // databases, else Account only
  } saves[] = {
      {"manager", [](AccountImage &a, Plant &) { return a.manager.SaveData(3); }, true},
      {"databases",
       [](AccountImage &a, Plant &p) { return a.manager.GetSystemDB()->SaveData(3) && p.database.SaveData(3); }, true},
      {"table", [](AccountImage &a, Plant &) { return a.account.SaveData(3); }, false},
  };
  for (const auto &save : saves) {
    SCOPED_TRACE(save.name);
    for (const char *configuration : {"", "DataInFile=0\n", "DataInFile=1\n", "DataInFile=-1\n"}) {
      SCOPED_TRACE(configuration);
      const bool text = std::string(configuration).find("1") != std::string::npos;
      image.root.configure(std::string("RtdbDataPath=data/\n") + configuration);
      poke(image.account.GetAt(0), kModified, 1);
      EXPECT_TRUE(save.save(image, plant));
      EXPECT_EQ(image.root.files("data").size(), text ? (save.both ? 3U : 1U) : 0U);
      EXPECT_EQ(shown(image.account, kModified), "0;");
      std::filesystem::remove_all(image.root.path("data"));
      std::filesystem::create_directory(image.root.path("data"));
    }
  }
  for (const bool to_file : {true, false}) {  // SaveDataTo takes the store that the configuration does not select
    image.root.configure(to_file ? "DataInFile=0\n" : "DataInFile=1\n");
    poke(image.account.GetAt(0), kModified, 1);
    EXPECT_EQ(image.manager.SaveDataTo(to_file), 1);
    EXPECT_EQ(image.root.exists(kFile), to_file);
    EXPECT_EQ(shown(image.account, kModified), "0;");
    std::filesystem::remove(image.root.path(kFile));
  }
  EXPECT_FALSE(CRtdbManager().SaveData(0));
  EXPECT_EQ(CRtdbManager().SaveDataTo(true), 0);
}

TEST(ByDesign, ClosedStoreSaves) {
  AccountImage image("", {}, kPlant);
  ASSERT_TRUE(image.started);
  image.root.configure("DataInFile=0\n");
  for (const std::uint32_t key : {3U, 9U}) std::memset(add(image.account, key, "ann", 5) + kSince, 0, 16);
  poke(image.account.GetAt(0), kModified, 0);
  EXPECT_TRUE(image.account.SaveData(4));  // a project save takes modified records only
  EXPECT_EQ(shown(image.account, kModified), "0;0;");
  EXPECT_EQ(peek(image.account.GetAt(0), kSince), 0);
  EXPECT_NE(peek(image.account.GetAt(1), kSince), 0);  // its time was stamped
  poke(image.account.GetAt(1), kModified, 1);
  EXPECT_TRUE(image.manager.SaveData(0));
  EXPECT_EQ(shown(image.account, kModified), "0;0;");
  EXPECT_NE(peek(image.account.GetAt(0), kSince), 0);
  EXPECT_TRUE(image.root.files("data").empty());

  // Loads from it fail and change nothing.
  image.manager.SetRtdbStatus(1);
  EXPECT_EQ(image.manager.LoadSystemDB(), 0);
  EXPECT_EQ(image.manager.LoadAllCustomizedDB(0), 0);
  EXPECT_EQ(image.manager.GetRtdbStatus(), 1);
  EXPECT_EQ(shown(image.account), "3 ann 5;9 ann 5;");
}

// With nothing but the system database there is nothing to load, which both stores report as success.
TEST(LoadSave, NoCustomizedDatabase) {
  AccountImage image;
  ASSERT_TRUE(image.started);
  image.root.write(kFile, "ID;Name;Level\n7;x;7\n");
  for (const char *configuration : {"DataInFile=0\n", "DataInFile=1\n"}) {
    SCOPED_TRACE(configuration);
    image.root.configure(configuration);
    image.manager.SetRtdbStatus(1);
    EXPECT_EQ(image.manager.LoadAllCustomizedDB(5), 1);
    EXPECT_EQ(image.manager.GetRtdbStatus(), 2);
    EXPECT_EQ(image.account.GetRecordCount(), 0);
  }
  EXPECT_EQ(CRtdbManager().LoadAllCustomizedDB(0), 0);
  image.manager.SetRtdbStatus(1);
  EXPECT_EQ(image.manager.LoadSystemDB(), 1);
  EXPECT_EQ(image.manager.GetRtdbStatus(), 2);
  EXPECT_EQ(shown(image.account), "7 x 7;");
  image.root.write(kFile, "");
  image.manager.SetRtdbStatus(1);
  EXPECT_EQ(image.manager.LoadSystemDB(), 0);  // no header
  EXPECT_EQ(image.manager.GetRtdbStatus(), 1);
}

TEST(ByDesign, SystemViewLeftOpen) {
  // A step that went on with the view left open would load the plant's file into the system database, or not at all.
  AccountImage image("", {}, kPlant);
  ASSERT_TRUE(image.started);
  image.root.write(kFile, "ID;Name;Level\n7;x;7\n");
  image.root.write("data/plant_Pump.txt", "ID;Speed\n4;40\n5;50\n");
  image.root.write("data/plant_Tank.txt", "");  // fails, which does not count
  image.manager.SetRtdbStatus(1);
  EXPECT_EQ(image.manager.LoadAllCustomizedDB(0), 1);
  EXPECT_EQ(image.manager.GetRtdbStatus(), 2);
  EXPECT_EQ(image.account.GetRecordCount(), 0);
  Plant plant(image.manager);
  EXPECT_EQ(shown(plant.pump, 4), "40;50;");
}

// Data files in a folder that the configuration does not name are lost to the next start.
TEST(LoadSave, Folders) {
  const struct {
    std::string configuration;
    const char *system_file;
    const char *plant_file;  // null: no baseline
  } rows[] = {{"", kFile, "data/plant_Pump.txt"},
              {"RtdbDataPath=data\n", kFile, "data/plant_Pump.txt"},
              {"SystemDataFolder=sys\n", "sys/system_Account.txt", "data/plant_Pump.txt"},
              {"SystemDataFolder=sys/\nBaselineFolder=base\n", "sys/system_Account.txt", "base/plant_Pump.txt"},
              {"BaselineFolder=/ROOT/base/\n", kFile, "base/plant_Pump.txt"},
              {"BaselineFolder=nowhere\n", kFile, nullptr}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.configuration);
    TestRoot root;
    std::string configuration = row.configuration;
    if (const auto at = configuration.find("/ROOT/"); at != std::string::npos)
      configuration.replace(at, 6, root.folder());
    if (configuration.find("RtdbDataPath") == std::string::npos) configuration += "RtdbDataPath=data/\n";
    root.configure("DataInFile=1\n" + configuration);
    std::filesystem::create_directory(root.path("sys"));
    std::filesystem::create_directory(root.path("base"));
    CRtdbManager manager;
    ASSERT_TRUE(manager.RtdbManagerInit(false, root.write("s", schema_text({account_table()}, kPlant)).c_str()));
    Plant plant(manager);
    ASSERT_EQ(plant.pump.Insert(6U, 0, 0), 0);
    EXPECT_TRUE(manager.GetSystemDB()->SaveData(0));
    EXPECT_TRUE(root.exists(row.system_file));
    EXPECT_EQ(plant.database.SaveData(0), row.plant_file != nullptr);
    EXPECT_EQ(shown(plant.pump, 8), row.plant_file != nullptr ? "0;" : "1;");
    EXPECT_EQ(manager.LoadAllCustomizedDB(0), 1);
    EXPECT_EQ(shown(plant.pump, 0), "6;");
    if (row.plant_file != nullptr) {
      EXPECT_EQ(root.read(row.plant_file), "ID;Speed;bModified\r\n6;0;0\r\n");
      root.write(row.plant_file, "ID;Speed\n8;80\n");
      EXPECT_EQ(manager.LoadAllCustomizedDB(0), 1);
    } else {
      EXPECT_FALSE(root.exists("data/plant_Pump.txt"));
      EXPECT_TRUE(manager.LoadTableData(2, 20, root.write("load.txt", "ID;Speed\n8;80\n").c_str()));
      EXPECT_FALSE(manager.LoadTableData(2, 20, nullptr));
    }
    EXPECT_EQ(shown(plant.pump, 4), "80;");
  }
}

// A failed lookup that left its target mapped, or read a file of another table, shows here.
TEST(LoadSave, LoadTableDataResults) {
  AccountImage image("", {}, kPlant);
  ASSERT_TRUE(image.started);
  image.root.configure("DataInFile=0\n");  // text files are read all the same
  const std::string path = image.root.write("load.txt", "ID;Speed\n8;80\n");
  EXPECT_FALSE(image.manager.LoadTableData(1, 20, path.c_str()));
  EXPECT_FALSE(image.manager.LoadTableData(9, 20, path.c_str()));
  EXPECT_FALSE(image.manager.LoadTableData(2, 99, path.c_str()));
  Plant plant(image.manager);
  EXPECT_EQ(plant.pump.GetRecordCount(), 0);
  image.manager.SetRtdbStatus(1);
  EXPECT_TRUE(image.manager.LoadTableData(2, 20, path.c_str()));
  EXPECT_EQ(shown(plant.pump, 4), "80;");
  EXPECT_EQ(image.manager.GetRtdbStatus(), 1);
}

// The manager's calls follow its own configuration, tables and databases that of the image.
TEST(LoadSave, ConfigurationOfManagerAndImage) {
  AccountImage image;  // its root selects text files
  ASSERT_TRUE(image.started);
  add(image.account, 3, "ann", 5);
  {
    TestRoot other;
    other.configure("DataInFile=0\nUseCName=1\n");
    CRtdbManager second;
    ASSERT_EQ(second.AttachShareMemory(), 1);
    ASSERT_EQ(other.path("conf/fix_Rtdb.ini") == second.GetSysIniFile(), false);
    CRtTable account;
    ASSERT_EQ(second.GetSystemTable(account, 10U), 1);
    EXPECT_TRUE(second.SaveData(0));
    EXPECT_FALSE(image.root.exists(kFile));
    EXPECT_EQ(second.LoadSystemDB(), 0);
    EXPECT_TRUE(account.SaveData(0));
    EXPECT_TRUE(image.root.exists(kFile));
    std::filesystem::remove(image.root.path(kFile));
    EXPECT_TRUE(second.GetSystemDB()->SaveData(0));
    EXPECT_TRUE(image.root.exists(kFile));
    std::filesystem::remove(image.root.path(kFile));
    other.configure("DataInFile=1\nUseCName=1\n");
    image.root.configure("DataInFile=0\nRtdbDataPath=data/\n");
    EXPECT_TRUE(second.SaveData(0));  // text, under the names that the image's configuration gives
    EXPECT_TRUE(image.root.exists(kFile));
    EXPECT_EQ(other.files("data").size(), 0U);
  }
}

// A view whose database is not mapped has nothing to save.
TEST(LoadSave, ViewsWithoutMapping) {
  AccountImage image("", {}, kPlant);
  ASSERT_TRUE(image.started);
  Plant plant(image.manager);
  ASSERT_EQ(plant.pump.Insert(1U, 0, 0), 0);
  for (const char *configuration : {"DataInFile=1\nRtdbDataPath=data/\n", "DataInFile=0\n"}) {
    SCOPED_TRACE(configuration);
    image.root.configure(configuration);
    plant.database.DetachShareMemory();
    EXPECT_FALSE(plant.pump.SaveData(0));
    EXPECT_FALSE(plant.database.SaveData(0));
    EXPECT_FALSE(CRtTable().SaveData(0));
    EXPECT_FALSE(CRtDataBase().SaveData(0));
    EXPECT_TRUE(image.root.files("data").empty());
    ASSERT_EQ(plant.database.AttachShareMemory(), 1);
    EXPECT_EQ(shown(plant.pump, 8), "1;");
  }
  EXPECT_TRUE(plant.pump.SaveData(0));
  EXPECT_EQ(shown(plant.pump, 8), "0;");
}

}  // namespace
