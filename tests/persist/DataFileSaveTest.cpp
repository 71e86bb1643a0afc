// Writing text data files: the bytes, the names, and what a failed save leaves.
#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <tuple>

#include "tests/persist/AccountImage.h"
#include "tests/support/FullDisk.h"

namespace {

void reload_and_save_types() {
  const std::string text =
      "ID;C;U;S;Us;I;L;Ul;F;D;T;W\r\n"
      "1;A;\xE9;-32768;65535;-2147483648;2147483647;4294967295;1.500000;-0.100000;a b;2008-3-7 9:5:0\r\n"
      "2147483648;;;0;0;0;0;0;0.000000;100000000000000000000.000000;;1999-12-31 23:59:59\r\n"
      "4000000000;-; ;-1;1;-1;-1;1;-0.250000;0.000001;abcde;2000-2-29 0:0:1\r\n";
  AccountImage image("", {{12,
                           "Types",
                           3,
                           {"ID UINT 4", "C CHAR 1", "U UCHAR 1", "S SHORT 2", "Us USHORT 2", "I INT 4", "L LONG 4",
                            "Ul ULONG 4", "F FLOAT 4", "D DOUBLE 8", "T STRING 6", "W TIME 16"}}});
  CRtTable table = image.table(12);
  std::memset(table.GetDataAddress(), 0x55, 3 * 56);
  ASSERT_TRUE(image.load(text, 12));
  EXPECT_EQ(table.FindRecordIndex(4000000000U), 2);
  ASSERT_TRUE(table.SaveData(0));
  EXPECT_EQ(image.root.read("data/system_Types.txt"), text);
}

// Catches: a wrong width, sign or decimal sign in one type, in either direction.
TEST(DataFileSave, EveryTypeThereAndBack) { reload_and_save_types(); }

// Catches: numbers with the decimal sign of the program's locale.
TEST(DataFileSave, NumbersIgnoreTheLocale) {
  TestRoot locales;
  setenv("LOCPATH", locales.folder().c_str(), 1);
  const std::string command = "localedef -i de_DE -f UTF-8 " + locales.path("comma") + " >/dev/null 2>&1";
  const bool made = std::system(command.c_str()) == 0 && std::setlocale(LC_ALL, "comma") != nullptr;
  if (made && *std::localeconv()->decimal_point == ',') {
    reload_and_save_types();
    std::setlocale(LC_ALL, "C");
    unsetenv("LOCPATH");
    return;
  }
  unsetenv("LOCPATH");
  GTEST_SKIP() << "no locale with a decimal comma can be made";
}

// Catches: another name of a file or column, with which former files would not be found.
TEST(DataFileSave, NamesOfFilesAndColumns) {
  const std::string names = kHeader;
  const std::string captions = "CID;CName;CLevel;CValue;CSince;CbModified;CiProjectID;CiEditStatus\r\n";
  const std::tuple<const char *, const char *, std::string> rows[] = {
      {"", kFile, names},
      {"UseCName=1\n", "data/Csystem_CAccount.txt", captions},
      {"UseCName=2\n", kFile, names},
      {"DataFileExt=.abcdefg\n", "data/system_Account.abcd", names},
      {"DataFileExt=\n", "data/system_Account", names},
      {"UseCName=1x\nDataFileExt=.q\n", "data/Csystem_CAccount.q", captions},
      {"SystemDataFolder=data/sub\n", "data/sub/system_Account.txt", names},
  };
  for (const auto &[configuration, file, header] : rows) {
    SCOPED_TRACE(configuration);
    AccountImage image(configuration);
    std::filesystem::create_directory(image.root.path("data/sub"));
    EXPECT_TRUE(image.account.SaveData(0));
    EXPECT_EQ(image.root.read(file), header);
  }
}

// Catches: a temporary file that is the data file itself, because the system cuts both names at the zero byte. A data
// file that is made in place keeps the permissions of a temporary one.
TEST(DataFileSave, ZeroByteEndsTheExtension) {
  AccountImage image(std::string_view("DataFileExt=.q\0r\n", 17));
  const mode_t mask = umask(022);
  EXPECT_TRUE(image.account.SaveData(0));
  umask(mask);
  EXPECT_EQ(image.root.read("data/system_Account.q"), kHeader);
  const std::filesystem::file_status status = std::filesystem::status(image.root.path("data/system_Account.q"));
  EXPECT_EQ(status.permissions(), std::filesystem::perms{0644});
}

// Catches: a live record that is not stamped, a mark that stays, a text that is changed.
TEST(DataFileSave, RecordsTimesAndMarks) {
  AccountImage image;
  char *record = add(image.account, 3, "ann", -5);
  add(image.account, 9, "a;b", 6);  // nothing guards a separator
  std::memset(record + Account::kSince, 0, 16);
  poke(record, Account::kProject, 4);
  ASSERT_TRUE(image.manager.SaveData(3));
  EXPECT_EQ(shown(image.account, Account::kModified), "0;0;");
  SYSTEMTIME stamp{};
  std::memcpy(&stamp, record + Account::kSince, sizeof stamp);
  EXPECT_GE(stamp.wYear, 2024);  // the live record was stamped
  const std::string date = std::to_string(stamp.wYear) + '-' + std::to_string(stamp.wMonth) + '-';
  const std::string file = image.root.read(kFile);
  EXPECT_TRUE(file.starts_with(kHeader + ("3;ann;-5;0.000000;" + date))) << file;
  EXPECT_TRUE(file.ends_with(";0;4;0\r\n9;a;b;6;0.000000;2001-2-3 10:20:30;0;0;0\r\n")) << file;
  EXPECT_EQ(image.root.files("data").size(), 1U);
}

// Catches: a percent sign that is written as it is, or reads an argument.
TEST(ByDesign, TextIsFormat) {
  const std::pair<const char *, const char *> rows[] = {{"50%%", "50%"}, {"%%%%", "%%"},       {"%%%", "%%"},
                                                        {"5%", "5%"},    {"%s%n%d", "%s%n%d"}, {"%%d", "%d"}};
  AccountImage image("", {}, {}, 6);
  std::string text = kHeader;
  std::uint32_t key = 0;
  for (const auto &[stored, written] : rows) {
    add(image.account, ++key, stored, 2);
    text += std::to_string(key) + ';' + written + ";2;0.000000;2001-2-3 10:20:30;0;0;0\r\n";
  }
  ASSERT_TRUE(image.account.SaveData(0));
  EXPECT_EQ(image.root.read(kFile), text);
}

// Catches: a mark that is cleared before its column is written.
TEST(ByDesign, ModifiedClearedPerColumn) {
  AccountImage image(
      "", {{11, "First", 2, {"bModified INT 4", "Level INT 4"}}, {12, "Second", 2, {"ID INT 4", "bModified INT 4"}}});
  CRtTable first = image.table(11);
  CRtTable second = image.table(12);
  ASSERT_EQ(first.Insert(8U, 0, 0), 0);
  ASSERT_EQ(second.Insert(8U, 0, 0), 0);
  ASSERT_TRUE(image.manager.SaveData(0));
  EXPECT_EQ(image.root.read("data/system_First.txt"), "bModified;Level\r\n1;0\r\n");
  EXPECT_EQ(shown(first, 0), "0;");
  EXPECT_EQ(image.root.read("data/system_Second.txt"), "ID;bModified\r\n8;0\r\n");
  EXPECT_EQ(shown(second, 4), "0;");
}

const TableSpec kSecret{11, "Secret", 2, {"ID UINT 4", "Pass PASSWD 12", "After INT 4"}};
constexpr const char *kSecretFile = "data/system_Secret.txt";

std::string password(const CRtTable &secret, int position) { return {secret.GetAt(position) + 4, 12}; }

// Catches: a password in clear, or in a file that more than its owner may read.
TEST(DataFileSave, PasswordsAreNotWrittenInClear) {
  AccountImage image("", {kSecret});
  CRtTable table = image.table(11);
  ASSERT_EQ(table.Insert(1U, 0, 0), 0);
  ASSERT_EQ(table.Insert(2U, 0, 0), 1);
  std::memcpy(table.GetAt(0) + 4, "100%%;open", 10);
  ASSERT_TRUE(table.SaveData(0));
  EXPECT_EQ(image.root.read(kSecretFile).find("open"), std::string::npos);
  // The built-in key does not hide the passwords of a new file from those who may read it.
  const mode_t mask = umask(022);
  using std::filesystem::perms;
  const auto permissions = [&](const char *file) {
    EXPECT_TRUE(image.manager.SaveData(0));
    return std::filesystem::status(image.root.path(file)).permissions();
  };
  EXPECT_EQ(permissions(kSecretFile), perms{0600});
  EXPECT_EQ(permissions(kFile), perms{0644});
  std::filesystem::permissions(image.root.path(kSecretFile), perms{0640});
  EXPECT_EQ(permissions(kSecretFile), perms{0640});
  umask(mask);
  std::memset(table.GetDataAddress(), 0x55, 40);
  ASSERT_EQ(image.manager.LoadSystemDB(), 1);
  EXPECT_EQ(password(table, 0), std::string("100%%;open\0\0", 12));
  EXPECT_EQ(password(table, 1), std::string(12, '\0'));
  EXPECT_EQ(shown(table, 16), "0;0;");
}

// Catches: a password that is loaded without its key, cut to the field, and saved so: it is lost for good.
TEST(DataFileSave, CutPasswordIsNotSaved) {
  const std::string text = "ID;Pass;After\r\n1;qnp1.HiK-uOsOdyPrHuOIoy7kJtxDzK_LiUk;5\r\n";
  AccountImage image("PasswdKeyFile=conf/key\n", {kSecret});
  CRtTable table = image.table(11);
  image.root.write(kSecretFile, text);
  ASSERT_EQ(image.manager.LoadSystemDB(), 1);
  EXPECT_EQ(password(table, 0), "qnp1.HiK-uOs");
  EXPECT_FALSE(table.SaveData(0));
  EXPECT_EQ(image.root.read(kSecretFile), text);
  image.root.write("conf/key", "a secret\n");
  ASSERT_EQ(image.manager.LoadSystemDB(), 1);
  EXPECT_EQ(password(table, 0), std::string("secret\0\0\0\0\0\0", 12));
  EXPECT_TRUE(image.manager.SaveData(0));
  EXPECT_EQ(image.root.read(kSecretFile), text);
}

// Catches: a failed save that destroys the former file, leaves another one, or clears marks.
TEST(DataFileSave, FullDiskKeepsTheFormerFile) {
  AccountImage image("", {}, {}, 300);
  add(image.account, 1, "ann", 5);
  ASSERT_TRUE(image.account.SaveData(0));
  const std::string before = image.root.read(kFile);
  std::string marks;
  for (int i = 0; i < 300; ++i) {
    if (i > 0) add(image.account, static_cast<std::uint32_t>(i) + 1, "bob", 6);
    poke(image.account.GetAt(i), Account::kModified, i % 3);
    marks += std::to_string(i % 3) + ';';
  }
  const FullDisk full(4096);
  EXPECT_FALSE(image.account.SaveData(0));
  EXPECT_EQ(image.root.read(kFile), before);
  EXPECT_EQ(image.root.files("data").size(), 1U);
  EXPECT_EQ(shown(image.account, Account::kModified), marks);
  image.account.DeleteAllRecord();
  EXPECT_TRUE(image.account.SaveData(0)) << "there is room again";
  EXPECT_EQ(image.root.read(kFile), kHeader);
}

}  // namespace
