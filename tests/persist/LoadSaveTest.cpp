// Which store and which folder serve a load or save, and what a store that is not open answers.
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <regex>
#include <tuple>

#include "tests/persist/AccountImage.h"

namespace {

const std::vector<TableSpec> kPlant{{20, "Pump", 3, {"ID UINT 4", "Speed INT 4", "bModified INT 4"}},
                                    {21, "Tank", 3, {"ID UINT 4", "Full INT 4"}}};

// An image with a database "plant", whose table Pump it has.
struct PlantImage : AccountImage {
  PlantImage() : AccountImage("", {}, kPlant) { plant.GetDBTableFromID(pump, 20); }
  CRtTable pump;
};

// Catches: a configuration that is kept from call to call, so that a save goes to the store selected before.
TEST(LoadSave, StoreIsChosenPerCall) {
  PlantImage image;
  add(image.account, 3, "ann", 5);
  const auto save_databases = [&] { return image.manager.GetSystemDB()->SaveData(3) && image.plant.SaveData(3); };
  // Configuration, save, and the number of files afterwards.
  const std::tuple<const char *, std::function<bool()>, std::size_t> rows[] = {
      {"", [&] { return image.manager.SaveData(3); }, 0},
      {"DataInFile=1\n", [&] { return image.manager.SaveData(3); }, 3},
      {"DataInFile=0\n", [&] { return image.manager.SaveData(3); }, 0},
      {"DataInFile=1\n", save_databases, 3},
      {"DataInFile=0\n", save_databases, 0},
      {"DataInFile=1\n", [&] { return image.account.SaveData(3); }, 1},
      {"DataInFile=-1\n", [&] { return image.account.SaveData(3); }, 1},
      {"DataInFile=0\n", [&] { return image.account.SaveData(3); }, 0},
      {"DataInFile=0\n", [&] { return image.manager.SaveDataTo(true) == 1; }, 3},
      {"DataInFile=1\n", [&] { return image.manager.SaveDataTo(false) == 1; }, 0},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(testing::Message() << "row " << &row - rows);
    image.root.configure(std::string("RtdbDataPath=data/\n") + std::get<0>(row));
    poke(image.account.GetAt(0), Account::kModified, 1);
    EXPECT_TRUE(std::get<1>(row)());
    EXPECT_EQ(image.root.files("data").size(), std::get<2>(row));
    EXPECT_EQ(shown(image.account, Account::kModified), "0;");
    std::filesystem::remove_all(image.root.path("data"));
    std::filesystem::create_directory(image.root.path("data"));
  }
}

// Catches: a save to a closed store that is false, keeps marks or stamps nothing; a load that changes records.
TEST(ByDesign, ClosedStoreSaves) {
  PlantImage image;
  image.root.configure("DataInFile=0\n");
  for (const std::uint32_t key : {3U, 9U}) std::memset(add(image.account, key, "ann", 5) + Account::kSince, 0, 16);
  poke(image.account.GetAt(0), Account::kModified, 0);
  EXPECT_TRUE(image.account.SaveData(4));  // a project save takes modified records only
  EXPECT_EQ(shown(image.account, Account::kModified), "0;0;");
  EXPECT_EQ(peek(image.account.GetAt(0), Account::kSince), 0);
  EXPECT_NE(peek(image.account.GetAt(1), Account::kSince), 0);  // its time was stamped
  poke(image.account.GetAt(1), Account::kModified, 1);
  EXPECT_TRUE(image.manager.SaveData(0));
  EXPECT_EQ(shown(image.account, Account::kModified), "0;0;");
  EXPECT_NE(peek(image.account.GetAt(0), Account::kSince), 0);
  EXPECT_TRUE(image.root.files("data").empty());

  // Loads from it fail and change nothing.
  image.manager.SetRtdbStatus(1);
  EXPECT_EQ(image.manager.LoadSystemDB(), 0);
  EXPECT_EQ(image.manager.LoadAllCustomizedDB(0), 0);
  EXPECT_EQ(image.manager.GetRtdbStatus(), 1);
  EXPECT_EQ(shown(image.account), "3 ann 5;9 ann 5;");
}

// Catches: a load that fails because there is no database but the system's; a status that changes with a failed load.
TEST(LoadSave, NoCustomizedDatabase) {
  AccountImage image;
  image.root.write(kFile, "ID;Name;Level\n7;x;7\n");
  for (const char *configuration : {"DataInFile=0\n", "DataInFile=1\n"}) {
    SCOPED_TRACE(configuration);
    image.root.configure(configuration);
    image.manager.SetRtdbStatus(1);
    EXPECT_EQ(image.manager.LoadAllCustomizedDB(5), 1);
    EXPECT_EQ(image.manager.GetRtdbStatus(), 2);
    EXPECT_EQ(image.account.GetRecordCount(), 0);
  }
  image.manager.SetRtdbStatus(1);
  EXPECT_EQ(image.manager.LoadSystemDB(), 1);
  EXPECT_EQ(image.manager.GetRtdbStatus(), 2);
  EXPECT_EQ(shown(image.account), "7 x 7;");
  image.root.write(kFile, "");
  image.manager.SetRtdbStatus(1);
  EXPECT_EQ(image.manager.LoadSystemDB(), 0);  // no header
  EXPECT_EQ(image.manager.GetRtdbStatus(), 1);
}

// Catches: a slot that no line of the schema filled and that gets a file, or fails the save.
TEST(LoadSave, SlotsWithoutATable) {
  std::string schema = schema_text({account_table()});
  schema.replace(schema.find("TableCount=1"), 12, "TableCount=3");
  Image image(schema);
  CRtTable account = image.table(10);
  add(account, 3, "ann", 5);
  EXPECT_TRUE(image.manager.GetSystemDB()->SaveData(0));
  EXPECT_EQ(image.root.files("data"), std::vector<std::string>{"system_Account.txt"});
  EXPECT_EQ(image.manager.LoadSystemDB(), 1);
  EXPECT_EQ(shown(account), "3 ann 5;");
}

// Catches: a name with a separator in it that leads to a file outside the data folder.
TEST(LoadSave, NamesStayInTheFolder) {
  AccountImage image;
  add(image.account, 3, "ann", 5);
  std::filesystem::create_directory(image.root.path("data/system_.."));
  for (const char *name : {"/../../../out", "/x", "../../../out"}) {
    SCOPED_TRACE(name);
    image.account.SetTableName(name);
    EXPECT_FALSE(image.account.SaveData(0));
    EXPECT_EQ(shown(image.account, Account::kModified), "1;");
    EXPECT_EQ(image.root.files(""), (std::vector<std::string>{"conf", "data", "schema.txt"}));
  }
}

// Catches: a step that goes on with the view left open, and loads the plant's file into the system database or nowhere.
TEST(ByDesign, SystemViewLeftOpen) {
  PlantImage image;
  image.root.write(kFile, "ID;Name;Level\n7;x;7\n");
  image.root.write("data/plant_Pump.txt", "ID;Speed\n4;40\n5;50\n");
  image.root.write("data/plant_Tank.txt", "");  // fails, which does not count
  image.manager.SetRtdbStatus(1);
  EXPECT_EQ(image.manager.LoadAllCustomizedDB(0), 1);
  EXPECT_EQ(image.manager.GetRtdbStatus(), 2);
  EXPECT_EQ(image.account.GetRecordCount(), 0);
  EXPECT_EQ(shown(image.pump, 4), "40;50;");
}

// Catches: data files in another folder than the one named; a save that cannot begin and clears the marks.
TEST(LoadSave, Folders) {
  const struct {
    const char *lines, *system_file, *plant_file;  // null: none
  } rows[] = {
      {"RtdbDataPath=data/\n", kFile, "data/plant_Pump.txt"},
      {"RtdbDataPath=data\n", kFile, "data/plant_Pump.txt"},
      {"RtdbDataPath=data\nSystemDataFolder=sys\n", "sys/system_Account.txt", "data/plant_Pump.txt"},
      {"SystemDataFolder=sys/\nBaselineFolder=base\n", "sys/system_Account.txt", "base/plant_Pump.txt"},
      {"RtdbDataPath=data\nBaselineFolder=/ROOT/base/\n", kFile, "base/plant_Pump.txt"},
      {"RtdbDataPath=data\nBaselineFolder=nowhere\n", kFile, nullptr},
  };
  for (const auto &[lines, system_file, plant_file] : rows) {
    SCOPED_TRACE(lines);
    TestRoot root;
    root.configure("DataInFile=1\n" + std::regex_replace(lines, std::regex("/ROOT/"), root.folder()));
    for (const char *folder : {"sys", "base"}) std::filesystem::create_directory(root.path(folder));
    CRtdbManager manager;
    ASSERT_TRUE(manager.RtdbManagerInit(false, root.write("s", schema_text({account_table()}, kPlant)).c_str()));
    CRtDataBase plant;
    CRtTable pump;
    ASSERT_EQ(manager.FindTable(20, plant, pump), 1);
    ASSERT_EQ(pump.Insert(6U, 0, 0), 0);
    EXPECT_TRUE(manager.GetSystemDB()->SaveData(0));
    EXPECT_TRUE(root.exists(system_file));
    EXPECT_TRUE(manager.SaveData(0)) << "the results of single tables are not passed on";
    EXPECT_EQ(plant.SaveData(0), plant_file != nullptr);
    EXPECT_FALSE(root.exists("nowhere"));
    EXPECT_EQ(manager.LoadAllCustomizedDB(0), 1);
    EXPECT_EQ(shown(pump, 0), "6;");
    EXPECT_EQ(shown(pump, 8), plant_file != nullptr ? "0;" : "1;");
    if (plant_file != nullptr) {
      EXPECT_EQ(root.read(plant_file), "ID;Speed;bModified\r\n6;0;0\r\n");
      root.write(plant_file, "ID;Speed\n8;80\n");
      EXPECT_EQ(manager.LoadAllCustomizedDB(0), 1);
      EXPECT_EQ(shown(pump, 4), "80;");
    }
  }
}

// Catches: a failed lookup that leaves its target mapped, or reads a file of another table.
TEST(LoadSave, LoadTableDataResults) {
  PlantImage image;
  image.root.configure("DataInFile=0\n");  // text files are read all the same
  image.manager.SetRtdbStatus(1);
  const char *text = "ID;Speed\n8;80\n";
  EXPECT_FALSE(image.load(text, 20, 1));
  EXPECT_FALSE(image.load(text, 20, 9));
  EXPECT_FALSE(image.load(text, 99, 2));
  EXPECT_EQ(image.pump.GetRecordCount(), 0);
  EXPECT_TRUE(image.load(text, 20, 2));
  EXPECT_EQ(shown(image.pump, 4), "80;");
  EXPECT_EQ(image.manager.GetRtdbStatus(), 1);
}

// Catches: a call of the manager that follows the image's configuration, or one of a table that follows the manager's.
TEST(LoadSave, ConfigurationOfManagerAndImage) {
  AccountImage image;  // its root selects text files
  TestRoot other;
  other.configure("DataInFile=0\nUseCName=1\n");
  CRtdbManager second;
  ASSERT_EQ(second.AttachShareMemory(), 1);
  CRtTable account;
  ASSERT_EQ(second.GetSystemTable(account, 10U), 1);
  EXPECT_TRUE(second.SaveData(0));
  EXPECT_FALSE(image.root.exists(kFile));
  EXPECT_EQ(second.LoadSystemDB(), 0);
  EXPECT_TRUE(account.SaveData(0));
  EXPECT_TRUE(std::filesystem::remove(image.root.path(kFile)));
  EXPECT_TRUE(second.GetSystemDB()->SaveData(0));
  EXPECT_TRUE(std::filesystem::remove(image.root.path(kFile)));
  other.configure("DataInFile=1\nUseCName=1\n");
  image.root.configure("DataInFile=0\nRtdbDataPath=data/\n");
  EXPECT_TRUE(second.SaveData(0));  // text, under the names that the image's configuration gives
  EXPECT_TRUE(image.root.exists(kFile));
  EXPECT_TRUE(other.files("data").empty());
}

// Catches: a save of a view whose database is not mapped that is true or writes.
TEST(LoadSave, ViewsWithoutMapping) {
  PlantImage image;
  image.plant.DetachShareMemory();
  for (const char *configuration : {"DataInFile=1\nRtdbDataPath=data/\n", "DataInFile=0\n"}) {
    image.root.configure(configuration);
    EXPECT_FALSE(image.pump.SaveData(0) || image.plant.SaveData(0) || CRtdbManager().SaveData(0));
  }
  EXPECT_TRUE(image.root.files("data").empty());
}

}  // namespace
