// Reading text data files: which lines and columns count, and what becomes of the records.
#include <gtest/gtest.h>
#include <tuple>

#include "tests/persist/AccountImage.h"

namespace {

using namespace std::string_literals;

// Every row starts from the records "5 old 50" and "6 prior 60" with next key 7, in a table of capacity 5.
// A row: name, text, records and next key afterwards.
const std::tuple<const char *, std::string, const char *, std::uint32_t> kRows[] = {
    {"plain", "ID;Name;Level\n10;bob;7\n11;eve;8\n", "10 bob 7;11 eve 8;", 12},
    {"CR LF", "ID;Name;Level\r\n10;bob;7\r\n11;eve;8\r\n", "10 bob 7;11 eve 8;", 12},
    {"comments and zero bytes before the header", "#c\n\0Name\n#\nID;Name;Level\n10;bob;7\n"s, "10 bob 7;", 11},
    {"lines that are no records", "ID;Name;Level\n\n0;a;1\n-1;b;2\n 1;c;3\n#1;d;4\n10;bob;7\nx;e;5\n11;eve;8\n",
     "10 bob 7;11 eve 8;", 12},
    {"a blank line is a header", "\nID;Name;Level\n10;bob;7\n", "5 old 50;", 6},
    {"columns in another order and case", "whatever;LEVEL;name\n10;7;bob\n", "10 bob 7;", 11},
    {"unknown column", "ID;What;Level\n10;zzz;7\n", "10 old 7;", 11},
    {"columns past the number of fields",
     "ID;Name;Level;Value;Since;bModified;iProjectID;iEditStatus;Name\n10;bob;7;1;2020-1-1 0:0:0;0;0;0;zed\n",
     "10 bob 7;", 11},
    {"separators only", ";;\n10;bob;7\n", "10 old 50;", 11},
    {"one column, the key", "ID\n10\n11\n", "10 old 50;11 prior 60;", 12},
    {"one column, unknown", "Key\n10\n11\n", "5 old 50;6 prior 60;", 7},
    {"one column, another field", "Name\n10\n", "5 10 50;", 6},
    {"empty texts", "ID;Name;Level\n10;;\n", "10  0;", 11},
    {"fewer columns", "ID;Name;Level\n10;bob\n11\n", "10 bob 50;11 prior 60;", 12},
    {"more columns", "ID;Name;Level\n10;bob;7;8;9\n", "10 bob 7;", 11},
    {"header only", "ID;Name;Level\n", "", 7},
    {"capacity", "ID;Name;Level\n1;a;1\n2;b;2\n3;c;3\n4;d;4\n5;e;5\n6;f;6\n7;g;7\n", "1 a 1;2 b 2;3 c 3;4 d 4;5 e 5;",
     6},
    {"large keys and numbers", "ID;Level;Name\n2147483648;4294967295;a\n4294967294;-2147483648;b\n",
     "2147483648 a -1;4294967294 b -2147483648;", 4294967295U},
    {"numbers with a tail", "ID;Level;Name\n10x;12abc;a\n11; +7;b\n12;x9;c\n", "10 a 12;11 b 7;12 c 0;", 13},
    {"a line past 4095 characters goes on as another line",
     "ID;Name;Level\n10;bob;7;" + std::string(4086, 'x') + "11;eve;8\n12;z;9\n", "10 bob 7;11 eve 8;12 z 9;", 13},
    {"a header past 4095 characters", "ID;Name;Level;" + std::string(4081, 'x') + "12;eve;8\n13;bob;7\n",
     "12 eve 8;13 bob 7;", 14},
    {"a byte order mark", "\xEF\xBB\xBFID;Name;Level\n10;bob;7\n", "10 bob 7;", 11},
    {"a byte order mark before a remark", "\xEF\xBB\xBF#c\nID;Name;Level\n10;bob;7\n", "10 bob 7;", 11},
};

// Catches: a line or column that is read as another one; a file of no lines that empties the table.
TEST(DataFileLoad, Grammar) {
  AccountImage image;
  const auto refill = [&] {
    image.account.DeleteAllRecord();
    std::memset(image.account.GetDataAddress(), 0, 5 * 52);
    add(image.account, 5, "old", 50);
    add(image.account, 6, "prior", 60);
  };
  for (const auto &[name, text, records, next_key] : kRows) {
    SCOPED_TRACE(name);
    refill();
    EXPECT_TRUE(image.load(text));
    EXPECT_EQ(shown(image.account), records);
    EXPECT_EQ(image.account.GetIDExclusive(), next_key);
  }
  refill();
  EXPECT_FALSE(image.load(""));
  EXPECT_FALSE(image.load("#a\n#b\n"));
  // Not lines of text: UTF-16 of both orders, line ends of another kind, a record with a zero byte.
  for (const std::string &text :
       {"\xFF\xFEI\0D\0;\0N\0a\0m\0e\0\n\0001\0;\0b\0\n\0"s, "\0I\0D\0;\0N\0a\0m\0e\0\n\0001\0;\0b\0\n\0"s,
        "ID;Name;Level\r10;bob;7\r"s, "#c\rID;Name;Level\r10;bob;7\r"s, "#c\nID;Name;Level\r10;bob;7\r"s,
        "ID;Name;Level\r10;bob;7\r\n"s, "ID;Name;Level"s, "ID;Name;Level\n10;bob\0;7\n"s,
        "ID;Name;Level\n\0\n10;bob;7\n"s}) {
    EXPECT_FALSE(image.load(text)) << testing::PrintToString(text);
    EXPECT_FALSE(image.manager.LoadSomeData(1, 10, image.root.path("load.txt").c_str(), false, ';'));
  }
  for (const std::string &path : {image.root.path("missing"), image.root.path("data"), ""s}) {
    EXPECT_TRUE(image.manager.LoadTableData(1, 10, path.c_str())) << path;
  }
  EXPECT_EQ(shown(image.account), "5 old 50;6 prior 60;");
}

// Catches: searches that take it that keys ascend, and so miss keys that halving meets; an insert then doubles them.
TEST(DataFileLoad, KeysOutOfOrderAreHalved) {
  AccountImage image;
  const auto positions = [&](std::initializer_list<std::uint32_t> keys) {
    std::string text;
    for (const std::uint32_t key : keys) text += std::to_string(image.account.FindRecordIndex(key)) + ' ';
    return text;
  };
  ASSERT_TRUE(image.load("ID\n10\n20\n30\n40\n5\n"));
  EXPECT_EQ(positions({10, 20, 30, 40, 5}), "0 1 2 3 -1 ");
  ASSERT_EQ(image.account.Delete(0, 0, 0), 1);
  EXPECT_EQ(image.account.Insert(40U, 0, 0), -2);
  ASSERT_TRUE(image.load("ID\n1\n2\n9\n4\n5\n"));
  EXPECT_EQ(positions({1, 2, 9, 4, 5}), "0 1 2 -1 -1 ");
  ASSERT_TRUE(image.load("ID\n10\n20\n"));
  image.account.SetIDExclusive(3);  // too low: the key that is issued goes to the end all the same
  ASSERT_EQ(image.account.Insert(0U, 0, 0), 2);
  EXPECT_EQ(positions({10, 20, 3}), "0 1 -1 ");
  ASSERT_TRUE(image.load("ID\n10\n20\n30\n40\n50\n"));
  EXPECT_EQ(image.account.SetFieldDataAt(4, 0, "\5\0\0"), 1);
  EXPECT_EQ(positions({10, 20, 30, 40, 5}), "0 1 2 3 -1 ");
  char nine[] = "9";
  ASSERT_TRUE(image.load("ID\n1\n2\n3\n4\n5\n"));
  EXPECT_EQ(image.account.SetFieldByText(2, 0, nine), 1);
  EXPECT_EQ(positions({1, 2, 9, 4, 5}), "0 1 2 -1 -1 ");
  const std::string update = image.root.write("update.txt", "Name;ID\nann;9\n");
  ASSERT_TRUE(image.load("ID;Name\n1;a\n2;b\n3;ann\n4;c\n5;d\n"));
  EXPECT_EQ(positions({1, 2, 3, 4, 5}), "0 1 2 3 4 ");
  ASSERT_TRUE(image.manager.LoadSomeData(1, 10, update.c_str(), false, ';'));
  EXPECT_EQ(positions({1, 2, 9, 4, 5}), "0 1 2 -1 -1 ");
}

// Catches: a last line without a line end whose value keeps its last character.
TEST(ByDesign, LastColumnLosesOne) {
  AccountImage image;
  EXPECT_TRUE(image.load("ID;Name;Level\n10;bob;75\n11;eve;86"));
  EXPECT_EQ(shown(image.account), "10 bob 75;11 eve 8;");
}

// Catches: a file of comments only that keeps the records.
TEST(ByDesign, CommentsOnlyEmpties) {
  AccountImage image;
  for (const std::string &text : {"#a"s, "#a\n#b"s}) {
    SCOPED_TRACE(testing::PrintToString(text));
    image.account.DeleteAllRecord();
    add(image.account, 5, "old", 50);
    EXPECT_TRUE(image.load(text));
    EXPECT_EQ(shown(image.account), "");
    EXPECT_EQ(image.account.GetIDExclusive(), 6U);
  }
}

// Catches: a text of full width without its terminator in the next field, which is loaded before it here.
TEST(ByDesign, FullWidthString) {
  AccountImage image;
  EXPECT_TRUE(image.load("ID;Level;Name\n1;16909060;seven77\n2;16909060;exactly8\n3;16909060;morethan8\n"));
  EXPECT_EQ(shown(image.account), "1 seven77 16909060;2 exactly8 16909056;3 morethan 16909056;");
}

// Catches: a conversion that writes more or less than the field's type, and so leaves rests of former values.
TEST(DataFileLoad, ValuesByType) {
  // Type and size, text, and the bytes of the field, over bytes 'U', with the 'U's of the next field after them.
  const std::tuple<const char *, const char *, std::string> rows[] = {
      {"CHAR 1", "xyz", "xUUUU"s},
      {"UCHAR 1", "", "\0UUUU"s},
      {"SHORT 2", "70000", "\x70\x11UUUU"s},
      {"INT 8", "1", "\x01\0\0\0UUUUUUUU"s},
      {"DOUBLE 8", "-2", "\0\0\0\0\0\0\0\xC0UUUU"s},
      {"PASSWD 6", "ab", "ab\0\0\0\0UUUU"s},
      {"PASSWD 6", "sixlet", "sixletUUUU"s},
      {"PASSWD 6", "longer7", "longerUUUU"s},
      {"TIME 16", "2008-3-7 9:5:0", "\xD8\x07\x03\0\0\0\x07\0\x09\0\x05\0\0\0\0\0UUUU"s},
      {"TIME 16", "2008-03-07 09:05:00", "\xD8\x07\x03\0\0\0\x07\0\x09\0\x05\0\0\0\0\0UUUU"s},
      {"TIME 16", "2008-3-7", "\xD8\x07\x03\0\0\0\x07\0\0\0UUUUUUUUUU"s},  // minutes and seconds stay
      {"TIME 16", "", "UUUUUUUUUUUUUUUUUUUU"s},
  };
  for (const auto &[type, text, bytes] : rows) {
    SCOPED_TRACE(testing::Message() << type << ' ' << text);
    AccountImage image("", {{11, "One", 2, {"ID UINT 4", "V "s + type, "After INT 4"}}});
    CRtTable table = image.table(11);
    std::memset(table.GetDataAddress(), 'U', static_cast<std::size_t>(2 * table.GetTableSize()));
    EXPECT_TRUE(image.load("ID;V;\n3;"s + text + ";\n", 11));
    ASSERT_EQ(table.GetRecordCount(), 1);
    EXPECT_EQ(std::string(table.GetAt(0) + 4, bytes.size()), bytes);
  }
}

}  // namespace
