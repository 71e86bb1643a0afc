// Generated C headers, byte for byte, and what a generator run leaves.
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <vector>

#include "tests/kernel/TableFixture.h"
#include "tests/support/FullDisk.h"

namespace {

// Every type, slots that no line fills, names beyond the padding, and captions with bytes that mean something in C or
// in formats. The third table slot stays empty.
std::string demo_schema() {
  const struct {
    const char *name, *caption, *type;
  } fields[] = {
      {"ID", "Key", "UINT SIZE=4"},
      {"letter", "cLetter", "CHAR SIZE=1"},
      {"bytes", "cBytes", "UCHAR SIZE=3"},
      {"small", "cSmall", "SHORT SIZE=2"},
      {"words", "cWords", "USHORT SIZE=5"},
      {"whole", "cWhole", "INT SIZE=4"},
      {"pair", "cPair", "INT SIZE=8"},
      {"Long", "cLong", "LONG SIZE=4"},
      {"ulong", "cUlong", "ULONG SIZE=4"},
      {"real", "cReal", "FLOAT SIZE=4"},
      {"doubles", "cDoubles", "DOUBLE SIZE=16"},
      {"NAME", "Label", "STRING SIZE=16"},
      {"at", "cAt", "TIME SIZE=16"},
      {"when", "cWhen", "TIME SIZE=32"},
      {"secret", "cSecret", "PASSWD SIZE=24"},
      {"half", "cHalf", "SHORT SIZE=1"},
  };
  std::string lines;
  for (const auto &field : fields) {
    lines += std::string("#DBID=5 TABLEID=10 NAME=") + field.name + " CNAME=" + field.caption +
             " ID=1 INDEX=" + std::to_string(&field - fields) + " TYPE=" + field.type + " Default=\n";
  }
  lines +=
      "#DBID=5 TABLEID=4294967295 NAME=and_a_field_of_22_chars CNAME=percent%s%%d ID=1 INDEX=0 TYPE=UINT SIZE=4 "
      "Default=\n";
  return "#Database_Start\n#Name=system Describe=S ID=1 Type=0 TableCount=1\n"
         "#Name=DEMO Describe=D ID=5 Type=0 TableCount=3\n#Database_Finish\n#Table_Start\n"
         "#DBID=1 NAME=Account CNAME=A ID=10 INDEX=0 MAX=2 FIELDNUM=0\n"
         "#DBID=5 NAME=Types CNAME=Every_Type ID=10 INDEX=0 MAX=2 FIELDNUM=17\n"
         "#DBID=5 NAME=a_name_of_23_characters CNAME=\xB1\xED ID=4294967295 INDEX=1 MAX=2 FIELDNUM=1\n"
         "#Table_Finish\n#Field_Start\n" +
         lines + "#Field_Finish\n";
}

struct IncludeFileTest : testing::Test {
  void start(const std::string &schema) {
    ASSERT_TRUE(manager.RtdbManagerInit(false, root.write("schema.txt", schema).c_str()));
    root.write("data/DEMO.h", "a former header");
  }

  TestRoot root;
  CRtdbManager manager;
};

std::vector<std::string> g_messages;
void keep_message(const char *text) { g_messages.emplace_back(text); }

// Catches: any other byte in a header, which programs that were compiled with it would notice.
TEST_F(IncludeFileTest, GoldenHeader) {
  start(demo_schema());
  CRtDataBase demo;
  ASSERT_EQ(manager.GetDataBaseFromName(demo, "DEMO"), 1);
  ASSERT_EQ(demo.AttachShareMemory(), 1);
  EXPECT_EQ(demo.BuildIncludeFile(root.path("data").c_str()), 1);
  std::ifstream golden(QUILLANEST_GOLDEN_FILE, std::ios::binary);
  const std::string expected{std::istreambuf_iterator<char>(golden), {}};
  ASSERT_GT(expected.size(), 3000U);
  EXPECT_EQ(root.read("data/DEMO.h"), expected);
}

// Catches: a database that is not mapped and whose header has tables, or does not come at all.
TEST_F(IncludeFileTest, NoTables) {
  start(demo_schema());
  CRtDataBase demo;
  demo.SetDBName("NONE");
  demo.SetDBID(4294967295U);
  EXPECT_EQ(demo.BuildIncludeFile(root.path("data/").c_str()), 1);
  EXPECT_EQ(root.read("data/NONE.h"),
            "#ifndef __NONE_h__\r\n#define __NONE_h__\r\n\r\n#include \"gSystemDef.h\"\r\n"
            "#define DB_ID_OF_NONE                               -1\r\n"
            "//\xB8\xF7\xB1\xED\x49\x44\r\n"
            "//\xB8\xF7\xB1\xED\xD4\xDA\xCA\xFD\xBE\xDD\xBF\xE2\xD6\xD0\xB5\xC4\xCB\xF7\xD2\xFD\r\n"
            "\r\n\r\n\r\n\r\n#endif   //__NONE_h__\r\n");
}

// Catches: a database whose header is left out, or a status that changes.
TEST_F(IncludeFileTest, ManagerWritesEveryDatabase) {
  start(demo_schema());
  CRtdbManager second;
  EXPECT_TRUE(second.BuildIncludeFile(root.path("data").c_str()));
  EXPECT_EQ(root.files("data"), (std::vector<std::string>{"DEMO.h", "system.h"}));
  EXPECT_EQ(root.read("data/DEMO.h").find("a former header"), std::string::npos);
  EXPECT_NE(root.read("data/system.h").find("#define system_TAB_Account_INDEX"), std::string::npos);
  EXPECT_EQ(manager.GetRtdbStatus(), RTDB_STATUS_LOADED);
}

// Catches: a folder that does not exist and ends the run, or costs no message a database.
TEST_F(IncludeFileTest, FileThatCannotBeCreated) {
  start(demo_schema());
  const std::string folder = root.path("no such folder");
  g_messages.clear();
  quillanest::set_message_handler(keep_message);
  CRtdbManager second;
  EXPECT_TRUE(second.BuildIncludeFile(folder.c_str()));
  EXPECT_EQ(manager.GetSystemDB()->BuildIncludeFile(folder.c_str()), 0);
  EXPECT_EQ(manager.GetSystemDB()->BuildIncludeFile(nullptr), 0);
  quillanest::set_message_handler(nullptr);
  EXPECT_EQ(g_messages, (std::vector<std::string>{"Fail to create file " + folder + "/system.h",
                                                  "Fail to create file " + folder + "/DEMO.h",
                                                  "Fail to create file " + folder + "/system.h"}));
  testing::internal::CaptureStderr();
  EXPECT_EQ(manager.GetSystemDB()->BuildIncludeFile(folder.c_str()), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Fail to create file " + folder + "/system.h\n");
}

// Catches: a line end in a name that begins a line; a separator, or an empty folder, that leads elsewhere.
TEST_F(IncludeFileTest, NamesStayInTheirPlaces) {
  start(schema_text({account_table()}));
  CRtTable table;
  ASSERT_EQ(manager.GetSystemTable(table, 10U), 1);
  table.SetTableCName("a\n#error injected");
  table.SetTableName("b\r\nc");
  CRtDataBase &system = *manager.GetSystemDB();
  ASSERT_EQ(system.BuildIncludeFile(root.path("data").c_str()), 1);
  const std::string text = root.read("data/system.h");
  EXPECT_NE(text.find("//a #error injected\r\n"), std::string::npos);
  EXPECT_NE(text.find("#define system_TAB_b  c_ID "), std::string::npos);
  EXPECT_EQ(text.find("\n#error"), std::string::npos);
  g_messages.clear();
  quillanest::set_message_handler(keep_message);
  EXPECT_EQ(system.BuildIncludeFile(""), 0);
  EXPECT_TRUE(g_messages.empty());
  system.SetDBName("../out");
  EXPECT_EQ(system.BuildIncludeFile(root.path("data").c_str()), 0);
  quillanest::set_message_handler(nullptr);
  EXPECT_EQ(g_messages.size(), 1U);
  EXPECT_FALSE(root.exists("out.h"));
}

// Catches: headers of a directory that may not be used yet or lists nothing, and an image that is then kept.
TEST_F(IncludeFileTest, ManagerWithoutDatabases) {
  EXPECT_FALSE(manager.BuildIncludeFile(root.folder().c_str()));
  start(schema_text({account_table()}));
  CRtdbManager second;
  ASSERT_EQ(second.AttachShareMemory(), 1);
  manager.SetRtdbStatus(RTDB_STATUS_BUILDING);
  EXPECT_FALSE(manager.BuildIncludeFile(root.path("data").c_str()));
  second.SetRtdbStatus(RTDB_STATUS_LOADED);
  CShareMemory segment(kManagerKey);
  poke(static_cast<char *>(segment.Attach()), 1256, 0);
  EXPECT_FALSE(second.BuildIncludeFile(root.path("data").c_str()));
  EXPECT_EQ(second.GetSystemDB()->GetStartAddress(), nullptr);
  EXPECT_EQ(root.files("data"), std::vector<std::string>{"DEMO.h"});
}

// Catches: an array for a field of several times.
TEST(ByDesign, TimeIsScalar) {
  Image image({{10, "T", 2, {"t TIME 64"}}});
  ASSERT_EQ(image.manager.GetSystemDB()->BuildIncludeFile(image.root.path("data/..").c_str()), 1);
  EXPECT_NE(image.root.read("system.h").find("\tSYSTEMTIME  \t\tt; "), std::string::npos);
}

// Catches: a manager segment that stays after its only view, or a database that goes with it.
TEST(ByDesign, HeadersDetach) {
  Image image({account_table()});
  EXPECT_TRUE(image.manager.BuildIncludeFile(image.root.folder().c_str()));
  EXPECT_EQ(image.manager.GetSystemDB()->GetStartAddress(), nullptr);
  EXPECT_EQ(image.manager.AttachShareMemory(), 0);
  EXPECT_NE(CShareMemory(1).Attach(), nullptr);
}

// Catches: a header that a full disk cuts short, or a result that says so.
TEST(ByDesign, HeaderWriteUnchecked) {
  Image image({account_table()});
  image.root.write("system.h", "a former header");
  const FullDisk full(100);
  EXPECT_EQ(image.manager.GetSystemDB()->BuildIncludeFile(image.root.folder().c_str()), 1);
  EXPECT_EQ(image.root.read("system.h"), "a former header");
}

}  // namespace
