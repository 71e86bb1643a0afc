// Partial-update files: which records and fields they change, and that nothing else changes.
#include <gtest/gtest.h>
#include <tuple>

#include "tests/persist/AccountImage.h"

namespace {

const std::string kBefore = "1 ann 5;2 bob 6;3 cat 7;";
const std::string kBob60 = "1 ann 5;2 bob 60;3 cat 7;";
const std::string kOverlong = "Name;Level;What\nbob;60;" + std::string(4088, 'x') + "cat;70;1\n";
// Name, text, records and marks afterwards.
const std::tuple<const char *, std::string, std::string, const char *> kFiles[] = {
    {"in any case", "name;LEVEL\nBOB;60\n", kBob60, "0;1;0;"},
    {"a number is not found by its digits", "ID;Level\n3;70\n", kBefore, "0;0;0;"},
    {"but by its bytes", "ID;Name\n\3;zed\n", "1 ann 5;2 bob 6;3 zed 7;", "0;0;1;"},
    {"no such record", "Name;Level\nbo;60\n;61\n", kBefore, "0;0;0;"},
    {"unknown key column", "What;Level\nbob;60\n", kBefore, "0;0;0;"},
    {"unknown column between", "Name;What;Level\nbob;1;60\n", kBob60, "0;1;0;"},
    {"only unknown columns", "Name;What\nbob;1\n", kBefore, "0;0;0;"},
    {"key only", "Name;Level\nbob\n", kBefore, "0;0;0;"},
    {"empty value", "Name;Level\nbob;\n", "1 ann 5;2 bob 0;3 cat 7;", "0;1;0;"},
    {"comment before the header", "#c\n#d\nName;Level\nbob;60\n", kBob60, "0;1;0;"},
    {"comment after the header names no record", "Name;Level\n#bob;9\n\nbob;60\n", kBob60, "0;1;0;"},
    {"a blank line is a header", "\nName;Level\nbob;60\n", kBefore, "0;0;0;"},
    {"more columns than fields", "Name;Level;W;W;W;W;W;W;Level\nbob;60;1;1;1;1;1;1;99\n", kBob60, "0;1;0;"},
    {"last line without line end", "Name;Level\nbob;61", kBefore, "0;1;0;"},
    {"a line past 4095 characters goes on as another", kOverlong, "1 ann 5;2 bob 60;3 cat 70;", "0;1;1;"},
};

// Catches: a wrong record, a wrong column or a missing mark, which lose the update silently.
TEST(PartialUpdate, Files) {
  AccountImage image;
  image.root.configure("DataInFile=0\nUseCName=1\n");  // neither counts here
  const auto update = [&](const std::string &text, bool captions, char separator, unsigned int table = 10) {
    return image.manager.LoadSomeData(1, table, image.root.write("update.txt", text).c_str(), captions, separator);
  };
  const auto refill = [&] {
    image.account.DeleteAllRecord();
    poke(add(image.account, 1, "ann", 5), Account::kModified, 0);
    poke(add(image.account, 2, "bob", 6), Account::kModified, 0);
    poke(add(image.account, 3, "cat", 7), Account::kModified, 0);
  };
  for (const auto &[name, text, records, marks] : kFiles) {
    SCOPED_TRACE(name);
    refill();
    EXPECT_TRUE(update(text, false, ';'));
    EXPECT_EQ(shown(image.account), records);
    EXPECT_EQ(shown(image.account, Account::kModified), marks);
    EXPECT_EQ(image.account.GetIDExclusive(), 4U);
  }
  refill();
  EXPECT_TRUE(update("Name;Level\nbob;61\n", true, ';'));  // names where captions count
  EXPECT_FALSE(update("", false, ';'));
  EXPECT_FALSE(update("#Name;Level\n", false, ';'));
  EXPECT_FALSE(update("Name;Level\nbob;61\n", false, ';', 11));
  EXPECT_TRUE(image.manager.LoadSomeData(1, 10, image.root.path("missing").c_str(), false, ';'));
  EXPECT_TRUE(image.manager.LoadSomeData(1, 10, image.root.path("data").c_str(), false, ';'));
  EXPECT_EQ(shown(image.account), kBefore);
  EXPECT_EQ(shown(image.account, Account::kModified), "0;0;0;");
  EXPECT_TRUE(update("CName;CLevel;Level\nbob;60;9\n", true, ';'));
  EXPECT_TRUE(update("Name,Level\nann,50\n", false, ','));
  EXPECT_EQ(shown(image.account), "1 ann 50;2 bob 60;3 cat 7;");
}

// Catches: a second record with the same text that changes too; a table without the mark that is not updated.
TEST(PartialUpdate, FirstMatchAndTableWithoutMark) {
  AccountImage image("", {{11, "Plain", 3, {"ID UINT 4", "Kind STRING 4", "Text STRING 4", "After INT 4"}}});
  CRtTable table = image.table(11);
  for (int i = 0; i < 3; ++i) {
    char *record = table.GetAt(table.Insert(0U, 0, 0));
    poke(record, 4, i == 0 ? 'a' : 'b');
    poke(record, 12, 0x01010101);
  }
  const std::string path = image.root.write("update.txt", "Kind;Text\nB;abcdef\n");
  EXPECT_TRUE(image.manager.LoadSomeData(1, 11, path.c_str(), false, ';'));
  EXPECT_EQ(shown(table, 8), "0;1684234849;0;");               // "abcd"
  EXPECT_EQ(shown(table, 12), "16843009;16843008;16843009;");  // the terminator falls after a full text
}

}  // namespace
