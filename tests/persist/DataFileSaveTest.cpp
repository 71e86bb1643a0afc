// Writing text data files: the bytes, the names, and what a failed save leaves.
#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include "tests/persist/AccountImage.h"
#include "tests/support/Child.h"

namespace {

constexpr const char *kFile = "data/system_Account.txt";
constexpr const char *kHeader = "ID;Name;Level;Value;Since;bModified;iProjectID;iEditStatus\r\n";

// A table with a field of every type whose text is not enciphered; record size 56.
const TableSpec kTypes{12,
                       "Types",
                       3,
                       {"ID UINT 4", "C CHAR 1", "U UCHAR 1", "S SHORT 2", "Us USHORT 2", "I INT 4", "L LONG 4",
                        "Ul ULONG 4", "F FLOAT 4", "D DOUBLE 8", "T STRING 6", "W TIME 16"}};
constexpr const char *kTypesText =
    "ID;C;U;S;Us;I;L;Ul;F;D;T;W\r\n"
    "1;A;\xE9;-32768;65535;-2147483648;2147483647;4294967295;1.500000;-0.100000;a b;2008-3-7 9:5:0\r\n"
    "2147483648;;;0;0;0;0;0;0.000000;100000000000000000000.000000;;1999-12-31 23:59:59\r\n"
    "4000000000;-; ;-1;1;-1;-1;1;-0.250000;0.000001;abcde;2000-2-29 0:0:1\r\n";

// Writes the three records of kTypesText byte by byte.
void fill_types(CRtTable &table) {
  struct [[gnu::packed]] Record {
    std::uint32_t id;
    signed char c;
    unsigned char u;
    std::int16_t s;
    std::uint16_t us;
    std::int32_t i, l;
    std::uint32_t ul;
    float f;
    double d;
    char t[6];
    SYSTEMTIME w;
  };
  static_assert(sizeof(Record) == 56);
  const Record records[] = {
      {1,
       'A',
       0xE9,
       -32768,
       65535,
       -2147483647 - 1,
       2147483647,
       4294967295U,
       1.5F,
       -0.1,
       "a b",
       {2008, 3, 5, 7, 9, 5, 0, 0}},
      {2147483648U, 0, 0, 0, 0, 0, 0, 0, 0, 1e20, "", {1999, 12, 5, 31, 23, 59, 59, 0}},
      {4000000000U, '-', ' ', -1, 1, -1, -1, 1, -0.25F, 1e-6, "abcde", {2000, 2, 2, 29, 0, 0, 1, 0}},
  };
  for (Record record : records) ASSERT_GE(table.Insert(reinterpret_cast<char *>(&record), 0), 0);
}

// A wrong width, sign or decimal sign in one type shows in the bytes; a loss on the way back in the second file.
void save_and_reload_types() {
  AccountImage image("", {kTypes});
  ASSERT_TRUE(image.started);
  CRtTable table;
  ASSERT_EQ(image.manager.GetSystemTable(table, 12U), 1);
  fill_types(table);
  ASSERT_TRUE(table.SaveData(0));
  EXPECT_EQ(image.root.read("data/system_Types.txt"), kTypesText);
  ASSERT_EQ(table.DeleteAllRecord(), 1);
  std::memset(table.GetDataAddress(), 0x55, 3 * 56);
  ASSERT_EQ(image.manager.LoadSystemDB(), 1);
  EXPECT_EQ(table.GetRecordCount(), 3);
  EXPECT_EQ(table.GetIDExclusive(), 4000000001U);
  EXPECT_EQ(table.FindRecordIndex(4000000000U), 2);
  ASSERT_TRUE(table.SaveData(0));
  EXPECT_EQ(image.root.read("data/system_Types.txt"), kTypesText);
}

TEST(DataFileSave, EveryTypeThereAndBack) { save_and_reload_types(); }

TEST(DataFileSave, NumbersIgnoreTheLocale) {
  TestRoot locales;
  setenv("LOCPATH", locales.folder().c_str(), 1);
  const std::string command = "localedef -i de_DE -f UTF-8 " + locales.path("comma") + " >/dev/null 2>&1";
  const bool made = std::system(command.c_str()) == 0 && std::setlocale(LC_ALL, "comma") != nullptr;
  if (made && *std::localeconv()->decimal_point == ',') {
    save_and_reload_types();
    std::setlocale(LC_ALL, "C");
    unsetenv("LOCPATH");
    return;
  }
  unsetenv("LOCPATH");
  GTEST_SKIP() << "no locale with a decimal comma can be made";
}

// Files of one configuration that another cannot find lose all data.
TEST(DataFileSave, NamesOfFilesAndColumns) {
  const std::string names = kHeader;
  const std::string captions = "CID;CName;CLevel;CValue;CSince;CbModified;CiProjectID;CiEditStatus\r\n";
  const struct {
    const char *configuration;
    const char *file;
    const std::string &header;
  } rows[] = {{"", kFile, names},
              {"UseCName=1\n", "data/SystemData_CAccount.txt", captions},
              {"UseCName=2\n", kFile, names},
              {"DataFileExt=.data1\n", "data/system_Account.data", names},
              {"DataFileExt=.abcdefg\n", "data/system_Account.abcd", names},
              {"DataFileExt=\n", "data/system_Account", names},
              {"UseCName=1x\nDataFileExt=.q\n", "data/SystemData_CAccount.q", captions},
              {"SystemDataFolder=data/sub\n", "data/sub/system_Account.txt", names}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.configuration);
    AccountImage image(row.configuration);
    ASSERT_TRUE(image.started);
    std::filesystem::create_directory(image.root.path("data/sub"));
    EXPECT_TRUE(image.account.SaveData(0));
    EXPECT_EQ(image.root.read(row.file), row.header);
  }
}

// Saved texts are what the next start reads.
TEST(DataFileSave, RecordsTimesAndMarks) {
  AccountImage image;
  ASSERT_TRUE(image.started);
  char *record = add(image.account, 3, "ann", -5);
  add(image.account, 9, "a;b", 6);  // nothing guards a separator
  std::memset(record + kSince, 0, 16);
  poke(record, kProject, 4);
  ASSERT_EQ(shown(image.account, kModified), "1;1;");
  ASSERT_TRUE(image.manager.SaveData(3));
  EXPECT_EQ(shown(image.account, kModified), "0;0;");
  SYSTEMTIME stamp{};
  std::memcpy(&stamp, record + kSince, sizeof stamp);
  EXPECT_GE(stamp.wYear, 2024);  // the live record was stamped
  const std::string time = std::to_string(stamp.wYear) + '-' + std::to_string(stamp.wMonth) + '-' +
                           std::to_string(stamp.wDay) + ' ' + std::to_string(stamp.wHour) + ':' +
                           std::to_string(stamp.wMinute) + ':' + std::to_string(stamp.wSecond);
  EXPECT_EQ(image.root.read(kFile),
            kHeader + ("3;ann;-5;0.000000;" + time + ";0;4;0\r\n") + "9;a;b;6;0.000000;2001-2-3 10:20:30;0;0;0\r\n");
  EXPECT_EQ(image.root.files("data").size(), 1U);
}

TEST(ByDesign, TextIsFormat) {
  const struct {
    const char *stored;
    const char *written;
  } rows[] = {{"50%%", "50%"}, {"%%%%", "%%"}, {"%%%", "%%"}, {"5%", "5%"}, {"%s%n%d", "%s%n%d"}, {"%%d", "%d"}};
  AccountImage image;
  ASSERT_TRUE(image.started);
  for (const auto &row : rows) {
    SCOPED_TRACE(row.stored);
    image.account.DeleteAllRecord();
    add(image.account, 1, row.stored, 2);
    ASSERT_TRUE(image.account.SaveData(0));
    EXPECT_EQ(image.root.read(kFile),
              kHeader + (std::string("1;") + row.written) + ";2;0.000000;2001-2-3 10:20:30;0;0;0\r\n");
  }
}

TEST(ByDesign, ModifiedClearedPerColumn) {
  AccountImage image(
      "", {{11, "First", 2, {"bModified INT 4", "Level INT 4"}}, {12, "Second", 2, {"ID INT 4", "bModified INT 4"}}});
  ASSERT_TRUE(image.started);
  CRtTable first;
  CRtTable second;
  ASSERT_EQ(image.manager.GetSystemTable(first, 11U), 1);
  ASSERT_EQ(image.manager.GetSystemTable(second, 12U), 1);
  ASSERT_EQ(first.Insert(8U, 0, 0), 0);
  ASSERT_EQ(second.Insert(8U, 0, 0), 0);
  ASSERT_TRUE(image.manager.SaveData(0));
  EXPECT_EQ(image.root.read("data/system_First.txt"), "bModified;Level\r\n1;0\r\n");
  EXPECT_EQ(shown(first, 0), "0;");
  EXPECT_EQ(image.root.read("data/system_Second.txt"), "ID;bModified\r\n8;0\r\n");
  EXPECT_EQ(shown(second, 4), "0;");
}

TEST(DataFileSave, PasswordsAreNotWrittenInClear) {
  AccountImage image("", {{11, "Secret", 2, {"ID UINT 4", "Pass PASSWD 12", "After INT 4"}}});
  ASSERT_TRUE(image.started);
  CRtTable table;
  ASSERT_EQ(image.manager.GetSystemTable(table, 11U), 1);
  ASSERT_EQ(table.Insert(1U, 0, 0), 0);
  ASSERT_EQ(table.Insert(2U, 0, 0), 1);
  std::memcpy(table.GetAt(0) + 4, "100%%;open", 10);
  ASSERT_TRUE(table.SaveData(0));
  EXPECT_EQ(image.root.read("data/system_Secret.txt").find("open"), std::string::npos);
  std::memset(table.GetDataAddress(), 0x55, 40);
  ASSERT_EQ(image.manager.LoadSystemDB(), 1);
  EXPECT_EQ(std::string(table.GetAt(0) + 4, 12), std::string("100%%;open\0\0", 12));
  EXPECT_EQ(std::string(table.GetAt(1) + 4, 12), std::string(12, '\0'));
  EXPECT_EQ(shown(table, 16), "0;0;");
}

// A save that cannot begin must not clear the marks, or the changes are never saved.
TEST(DataFileSave, NoPlaceToWrite) {
  const struct {
    const char *name;
    const char *configuration;
    bool folder_in_place;
  } rows[] = {{"folder in place of the file", "", true}, {"no folder", "SystemDataFolder=nowhere/\n", false}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    AccountImage image(row.configuration);
    ASSERT_TRUE(image.started);
    if (row.folder_in_place) std::filesystem::create_directory(image.root.path(kFile));
    add(image.account, 3, "ann", 5);
    EXPECT_FALSE(image.account.SaveData(0));
    EXPECT_FALSE(image.manager.GetSystemDB()->SaveData(0));
    EXPECT_TRUE(image.manager.SaveData(0));  // the results of single tables are not passed on
    EXPECT_EQ(shown(image.account, kModified), "1;");
    EXPECT_EQ(image.root.files("data").size(), row.folder_in_place ? 1U : 0U);
    EXPECT_FALSE(image.root.exists("nowhere"));
  }
}

// Leaves room for 8,192 bytes in the folder: by a file system of that size, or by a limit on the size of a file.
void leave_little_room(const std::string &folder) {
  if (unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
      mount("none", folder.c_str(), "tmpfs", 0, "size=8k") == 0) {
    return;
  }
  signal(SIGXFSZ, SIG_IGN);
  const rlimit limit{4096, 4096};
  setrlimit(RLIMIT_FSIZE, &limit);
}

// Saves one record, then many more than there is room for. The result is the number of the first claim that fails.
int save_without_room(const std::vector<std::string> &) {
  AccountImage image("", {}, {}, 300);
  if (!image.started) return 1;
  add(image.account, 1, "ann", 5);
  leave_little_room(image.root.path("data"));
  if (!image.account.SaveData(0)) return 2;
  const std::string before = image.root.read(kFile);
  std::string marks;
  for (std::uint32_t key = 2; key <= 300; ++key) add(image.account, key, "bob", 6);
  for (int i = 0; i < 300; ++i) {
    poke(image.account.GetAt(i), kModified, i % 3);
    marks += std::to_string(i % 3) + ';';
  }
  if (image.account.SaveData(0)) return 3;
  if (before.size() < 80 || image.root.read(kFile) != before) return 4;
  if (image.root.files("data").size() != 1) return 5;
  if (shown(image.account, kModified) != marks) return 6;
  image.account.DeleteAllRecord();
  return image.account.SaveData(0) && image.root.read(kFile) == kHeader ? 0 : 7;  // there is room again
}
const RegisterChild kWithoutRoom{"save_without_room", save_without_room};

TEST(DataFileSave, FullFileSystemKeepsTheFormerFile) { EXPECT_EQ(Child("save_without_room").wait(), 0); }

}  // namespace
