// Committing projects.
#include <gtest/gtest.h>

#include "tests/persist/AccountImage.h"

namespace {

struct Edit {
  std::uint32_t key;
  std::int32_t project, status;
};

void add_edited(CRtTable &account, const Edit &edit) {
  char *record = add(account, edit.key, "x", 0);
  poke(record, Account::kProject, edit.project);
  poke(record, Account::kStatus, edit.status);
}

// Catches: cursors that pass each other, keep a deleted record, or leave the slot after the last record as it was.
TEST(ByDesign, CommitCursors) {
  const struct {
    std::vector<Edit> edits, left;
    std::int32_t after;  // status in the slot after the last record
    std::uint32_t next_key;
  } rows[] = {
      {{{10, 7, 4}, {20, 7, 2}, {30, 0, 0}, {40, 8, 3}}, {{10, 0, 4}, {20, 0, 1}, {30, 0, 1}}, 1, 31},
      {{{1, 9, 2}, {2, 9, 4}, {3, 9, 3}}, {{1, 0, 1}, {3, 9, 3}}, 1, 4},  // the cursors meet
      {{{1, 9, 2}, {2, 8, 3}}, {{1, 0, 1}, {2, 0, 1}}, 0, 3},
      {{{1, 9, 2}, {2, 8, 3}, {3, 7, 4}}, {{2, 0, 1}, {3, 0, 4}}, 0, 4},
      {{{5, 9, 4}}, {}, 0, 1},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.next_key);
    AccountImage image;
    for (const Edit &edit : row.edits) add_edited(image.account, edit);
    EXPECT_TRUE(image.account.CommitProject());
    std::string written = kHeader;
    for (const Edit &edit : row.left) {
      written += std::to_string(edit.key) + ";x;0;0.000000;2001-2-3 10:20:30;0;" + std::to_string(edit.project) + ';' +
                 std::to_string(edit.status) + "\r\n";
    }
    EXPECT_EQ(image.root.read(kFile), written);
    ASSERT_EQ(static_cast<std::size_t>(image.account.GetRecordCount()), row.left.size());
    for (std::size_t i = 0; i < row.left.size(); ++i) {
      const char *record = image.account.GetAt(static_cast<int>(i));
      EXPECT_EQ(peek(record, 0), static_cast<std::int32_t>(row.left[i].key));
      EXPECT_EQ(peek(record, Account::kProject), row.left[i].project);
      EXPECT_EQ(peek(record, Account::kStatus), row.left[i].status);
    }
    const char *after = image.account.GetDataAddress() + 52 * row.left.size();
    EXPECT_EQ(peek(after, 0), 0);
    EXPECT_EQ(peek(after, Account::kStatus), row.after);
    EXPECT_EQ(image.account.GetIDExclusive(), row.next_key);
  }
}

// Catches: a commit that saves a table without both fields, and so overwrites a file that it was not asked to write.
TEST(Commit, OnlyTablesWithBothFieldsTakePart) {
  AccountImage image("",
                     {{11, "NoStatus", 2, {"ID UINT 4", "iProjectID INT 4", "bModified INT 4"}},
                      {12, "NoProject", 2, {"ID UINT 4", "iEditStatus INT 4", "bModified INT 4"}},
                      {13, "Empty", 2, {"ID UINT 4", "iEditStatus INT 4", "IPROJECTID INT 4"}}},
                     {{20, "Pump", 2, {"ID UINT 4", "iEditStatus INT 4", "iProjectID INT 4"}}});
  CRtTable others[] = {image.table(11), image.table(12)};
  for (CRtTable &table : others) poke(table.GetAt(table.Insert(1U, 0, 0)), 4, 3);
  EXPECT_TRUE(image.manager.CommitProject());
  EXPECT_EQ(image.root.files("data"),
            (std::vector<std::string>{"plant_Pump.txt", "system_Account.txt", "system_Empty.txt"}));
  for (const CRtTable &table : others) {
    EXPECT_EQ(shown(table, 4), "3;");
    EXPECT_EQ(shown(table, 8), "1;");
  }
  EXPECT_FALSE(CRtdbManager().CommitProject());
}

}  // namespace
