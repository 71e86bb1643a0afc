// Committing projects, and the write-through of single records.
#include <gtest/gtest.h>

#include "tests/persist/AccountImage.h"

namespace {

constexpr const char *kFile = "data/system_Account.txt";

void add_edited(CRtTable &account, std::uint32_t key, std::int32_t project, std::int32_t status) {
  char *record = add(account, key, "x", 0);
  poke(record, kProject, project);
  poke(record, kStatus, status);
}

TEST(ByDesign, CommitCursors) {
  struct Edit {
    std::uint32_t key;
    std::int32_t project;
    std::int32_t status;
  };
  const struct {
    const char *name;
    std::vector<Edit> edits;
    const char *keys;
    const char *projects;
    const char *statuses;
    std::int32_t behind;  // status in the slot behind the last record
    std::uint32_t next_key;
  } rows[] = {
      {"the first is marked, the last goes",
       {{10, 7, 4}, {20, 7, 2}, {30, 0, 0}, {40, 8, 3}},
       "10;20;30;",
       "0;0;0;",
       "4;1;1;",
       1,
       31},
      {"the cursors meet", {{1, 9, 2}, {2, 9, 4}, {3, 9, 3}}, "1;3;", "0;9;", "1;3;", 1, 4},
      {"no deletion", {{1, 9, 2}, {2, 8, 3}}, "1;2;", "0;0;", "1;1;", 0, 3},
      {"the last is marked, the first goes", {{1, 9, 2}, {2, 8, 3}, {3, 7, 4}}, "2;3;", "0;0;", "1;4;", 0, 4},
      {"a single record", {{5, 9, 4}}, "", "", "", 0, 1},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    AccountImage image;
    ASSERT_TRUE(image.started);
    for (const Edit &edit : row.edits) add_edited(image.account, edit.key, edit.project, edit.status);
    EXPECT_TRUE(image.account.CommitProject());
    EXPECT_EQ(shown(image.account, 0), row.keys);
    EXPECT_EQ(shown(image.account, kProject), row.projects);
    EXPECT_EQ(shown(image.account, kStatus), row.statuses);
    const char *behind = image.account.GetDataAddress() + 52 * image.account.GetRecordCount();
    EXPECT_EQ(peek(behind, 0), 0);
    EXPECT_EQ(peek(behind, kStatus), row.behind);
    EXPECT_EQ(image.account.GetIDExclusive(), row.next_key);
    std::string written;
    for (int i = 0; i < image.account.GetRecordCount(); ++i) {
      const char *record = image.account.GetAt(i);
      written += std::to_string(peek(record, 0)) + ";x;0;0.000000;2001-2-3 10:20:30;0;" +
                 std::to_string(peek(record, kProject)) + ';' + std::to_string(peek(record, kStatus)) + "\r\n";
    }
    EXPECT_EQ(image.root.read(kFile), "ID;Name;Level;Value;Since;bModified;iProjectID;iEditStatus\r\n" + written);
  }
}

// A commit that saved a table outside the project model would overwrite a file that nobody asked to write.
TEST(Commit, OnlyTablesWithBothFieldsTakePart) {
  AccountImage image("",
                     {{11, "NoStatus", 2, {"ID UINT 4", "iProjectID INT 4", "bModified INT 4"}},
                      {12, "NoProject", 2, {"ID UINT 4", "iEditStatus INT 4", "bModified INT 4"}},
                      {13, "Empty", 2, {"ID UINT 4", "iEditStatus INT 4", "IPROJECTID INT 4"}}},
                     {{20, "Pump", 2, {"ID UINT 4", "iEditStatus INT 4", "iProjectID INT 4"}}});
  ASSERT_TRUE(image.started);
  for (const unsigned int id : {11U, 12U}) {
    CRtTable table;
    ASSERT_EQ(image.manager.GetSystemTable(table, id), 1);
    poke(table.GetAt(table.Insert(1U, 0, 0)), 4, 3);
  }
  EXPECT_TRUE(image.manager.CommitProject());
  EXPECT_EQ(image.root.files("data"),
            (std::vector<std::string>{"plant_Pump.txt", "system_Account.txt", "system_Empty.txt"}));
  EXPECT_EQ(image.root.read("data/system_Empty.txt"), "ID;iEditStatus;IPROJECTID\r\n");
  for (const unsigned int id : {11U, 12U}) {
    CRtTable table;
    ASSERT_EQ(image.manager.GetSystemTable(table, id), 1);
    EXPECT_EQ(shown(table, 4), "3;");
    EXPECT_EQ(shown(table, 8), "1;");
  }
  EXPECT_FALSE(CRtdbManager().CommitProject());
}

// A commit whose save fails still leaves base data, and keeps the marks for the next save.
TEST(Commit, FailingSaveIsIgnored) {
  AccountImage image("SystemDataFolder=nowhere\n");
  ASSERT_TRUE(image.started);
  add_edited(image.account, 1, 9, 2);
  EXPECT_TRUE(image.manager.GetSystemDB()->CommitProject());
  EXPECT_EQ(shown(image.account, kStatus), "1;");
  EXPECT_EQ(shown(image.account, kModified), "1;");
}

TEST(ByDesign, WriteThrough) {
  AccountImage image;
  ASSERT_TRUE(image.started);
  add_edited(image.account, 5, 2, 3);
  char record[52];
  std::memcpy(record, image.account.GetAt(0), sizeof record);
  for (const char *store : {"DataInFile=1\n", "DataInFile=0\n"}) {
    SCOPED_TRACE(store);
    image.root.configure(store);
    EXPECT_FALSE(image.account.InsertRecordToDb(record));
    EXPECT_FALSE(image.account.UpdateRecordToDb(record));
    EXPECT_TRUE(image.account.RemoveRecordInDb(5, 2));
    EXPECT_EQ(std::memcmp(image.account.GetDataAddress(), record, sizeof record), 0);
    EXPECT_EQ(image.account.GetRecordCount(), 1);
  }
  EXPECT_TRUE(image.root.files("data").empty());
  image.manager.DetachShareMemory();
  EXPECT_FALSE(image.account.UpdateRecordToDb(record));
  EXPECT_TRUE(image.account.RemoveRecordInDb(5, 2));
  EXPECT_FALSE(CRtTable().RemoveRecordInDb(5, 2));
}

}  // namespace
