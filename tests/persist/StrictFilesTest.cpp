// The strict mode on text files: what does not fit is refused, and neither the table nor the file changes.
#include <bit>
#include <cmath>
#include <filesystem>
#include <gtest/gtest.h>
#include <limits>
#include <sys/stat.h>

#include "tests/kernel/TableFixture.h"
#include "tests/support/Recorder.h"

namespace {

const TableSpec kTank{20,
                      "Tank",
                      4,
                      {"ID UINT 4", "Name STRING 8", "Level INT 4", "Ratio DOUBLE 8", "Small FLOAT 4", "Since TIME 16",
                       "Mark CHAR 1", "Count SHORT 2"}};
constexpr const char *kHeader = "ID;Name;Level;Ratio;Small;Since;Mark;Count\r\n";
constexpr const char *kFile = "data/system_Tank.txt";
constexpr std::size_t kSize = 47;

// Table 20 of the system database, with a data file before the start if `file` is not null.
struct Tanks {
  explicit Tanks(std::string_view settings = "Strict=1\n", const std::string *file = nullptr) : root(settings) {
    if (file != nullptr) root.write(kFile, *file);
    started = manager.RtdbManagerInit(false, root.write("schema.txt", schema_text({kTank})).c_str());
    if (manager.GetSystemTable(tank, 20) != 1) throw std::runtime_error("no such table");
  }

  char *add(std::uint32_t key) { return tank.GetAt(tank.Insert(key, 0, 0)); }
  [[nodiscard]] std::string bytes(int records) const {
    return bytes_at(tank.GetDataAddress(), kSize * static_cast<std::size_t>(records));
  }

  TestRoot root;
  CRtdbManager manager;
  CRtTable tank;
  bool started = false;
};

const std::string kGood =
    std::string(kHeader) + "1;a;1;0.5;0.25;2001-2-3 4:5:6;x;1\r\n2;b;2;1;1;2001-2-3 4:5:6;y;2\r\n";

struct Mistake {
  std::string file;
  const char *event;  // after the severity
};

const Mistake kMistakes[] = {
    {"", "data/system_Tank.txt text.form: the file is not lines of text"},
    {"\xEF\xBB\xBF" + kGood, "data/system_Tank.txt text.form: the file begins with a byte order mark"},
    {std::string("\xFF\xFEI\0D\0", 6), "data/system_Tank.txt text.form: "},
    {kGood + std::string("3\0", 2), "data/system_Tank.txt text.form: "},
    {"ID;Name\r1;a\r", "data/system_Tank.txt text.form: "},
    {kGood + "3;c;3;1;1;2001-2-3 4:5:6;y\r\n",
     "data/system_Tank.txt:4 text.line: the line does not have the 8 columns"},
    {kGood + "3;c;3;1;1;2001-2-3 4:5:6;y;3;4\r\n", "data/system_Tank.txt:4 text.line: the line does not have the 8"},
    {kGood + "x;c;3;1;1;2001-2-3 4:5:6;y;3\r\n", "data/system_Tank.txt:4 text.line: the line does not begin with"},
    {kGood + "0;c;3;1;1;2001-2-3 4:5:6;y;3\r\n", "data/system_Tank.txt:4 text.line: the line does not begin with"},
    {kGood + "3;c;3;1;1;2001-2-3 4:5:6;y;3", "data/system_Tank.txt:4 text.line_end: the last line has no line end"},
    {kGood + "3;" + std::string(5000, 'c') + ";3\r\n", "data/system_Tank.txt:4 text."},
    {kGood + "2;c;3;1;1;2001-2-3 4:5:6;y;3\r\n", "data/system_Tank.txt:4 text.order: the key 2 comes after 2"},
    {kGood + "1;c;3;1;1;2001-2-3 4:5:6;y;3\r\n", "data/system_Tank.txt:4 text.order: the key 1 comes after 2"},
    {kGood + "4294967296;c;3;1;1;2001-2-3 4:5:6;y;3\r\n",
     "data/system_Tank.txt:4 text.value: column \"ID\": the text is"},
    {kGood + "3;nine char;3;1;1;2001-2-3 4:5:6;y;3\r\n",
     "data/system_Tank.txt:4 text.value: column \"Name\": the text is l"},
    {kGood + "3;c;3x;1;1;2001-2-3 4:5:6;y;3\r\n",
     "data/system_Tank.txt:4 text.value: column \"Level\": the text is not"},
    {kGood + "3;c;2147483648;1;1;2001-2-3 4:5:6;y;3\r\n", "data/system_Tank.txt:4 text.value: column \"Level\": the"},
    {kGood + "3;c;3;2,5;1;2001-2-3 4:5:6;y;3\r\n",
     "data/system_Tank.txt:4 text.value: column \"Ratio\": the text is not"},
    {kGood + "3;c;3;1;?;2001-2-3 4:5:6;y;3\r\n",
     "data/system_Tank.txt:4 text.value: column \"Small\": the text is not"},
    {kGood + "3;c;3;1;1;3.2.2001;y;3\r\n",
     "data/system_Tank.txt:4 text.value: column \"Since\": the text is not a date"},
    {kGood + "3;c;3;1;1;2001-2-3 4:5:6;yes;3\r\n", "data/system_Tank.txt:4 text.value: column \"Mark\": there is more"},
    {kGood + "3;c;3;1;1;2001-2-3 4:5:6;y;32768\r\n", "data/system_Tank.txt:4 text.value: column \"Count\": the text"},
    {"ID,Name,Level,Ratio,Small,Since,Mark,Count\r\n1,a,1,1,1,2001-2-3 4:5:6,y,3\r\n",
     "data/system_Tank.txt:1 text.unknown_column: 1 columns of the header"},
    {"ID;Name;Levle;Ratio;Small;Since;Mark;Count\r\n1;a;1;1;1;2001-2-3 4:5:6;y;3\r\n",
     "data/system_Tank.txt:1 text.missing_column: no column is called \"Level\""},
    {"ID;Name;Level;Level;Small;Since;Mark;Count\r\n1;a;1;1;1;2001-2-3 4:5:6;y;3\r\n",
     "data/system_Tank.txt:1 text.unknown_column: 2 columns are called \"Level\""},
    {"ID;Name;Level;Ratio;Small;Since;Mark;Count;More\r\n1;a;1;1;1;2001-2-3 4:5:6;y;3;4\r\n",
     "data/system_Tank.txt:1 text.unknown_column: 1 columns of the header"},
    {kGood + "3;c;3;1;1;2001-2-3 4:5:6;y;3\r\n4;c;3;1;1;2001-2-3 4:5:6;y;3\r\n5;c;3;1;1;2001-2-3 4:5:6;y;3\r\n",
     "data/system_Tank.txt text.capacity: the table is full with 4 records, and 1 more are in the file"},
};

// Catches: a mistake in a file that costs a record or a column when it is loaded into a table.
TEST(StrictFiles, MistakesLeaveTheTable) {
  for (const Mistake &mistake : kMistakes) {
    SCOPED_TRACE(mistake.event);
    Tanks image("Strict=1\n", &kGood);
    ASSERT_TRUE(image.started);
    ASSERT_EQ(image.tank.GetRecordCount(), 2);
    const std::string before = image.bytes(4);
    image.root.write(kFile, mistake.file);
    const Recorder events(image.root.folder());
    EXPECT_FALSE(image.manager.LoadTableData(1, 20, nullptr));
    EXPECT_EQ(image.manager.LoadSystemDB(), 0);
    EXPECT_TRUE(events.has(std::string("error ") + mistake.event)) << events.text();
    EXPECT_TRUE(image.bytes(4) == before);
    EXPECT_EQ(image.tank.GetRecordCount(), 2);
  }
}

// Catches: a start from such a file that says true, and a program that goes on all the same and replaces the file.
TEST(StrictFiles, MistakesKeepTheFile) {
  for (const Mistake &mistake : kMistakes) {
    SCOPED_TRACE(mistake.event);
    Tanks image("Strict=1\n", &mistake.file);
    EXPECT_FALSE(image.started);
    EXPECT_FALSE(CRtdbManager().RtdbManagerInit(false, image.root.path("schema.txt").c_str()));
    EXPECT_FALSE(image.manager.SaveData(0));
    EXPECT_FALSE(image.tank.SaveData(0));
    EXPECT_TRUE(image.root.read(kFile) == mistake.file);
  }
}

// Catches: a result that the sentences change where the strict mode is off, or a mistake without one.
TEST(StrictFiles, MistakesAreWarningsByDefault) {
  for (const Mistake &mistake : kMistakes) {
    SCOPED_TRACE(mistake.event);
    Tanks image("", &kGood);
    image.root.write(kFile, mistake.file);
    const Recorder events(image.root.folder());
    const bool is_text = std::string_view(mistake.event).find(" text.form:") == std::string_view::npos;
    const bool has_mark = mistake.file.starts_with("\xEF");  // which is skipped
    EXPECT_EQ(image.manager.LoadTableData(1, 20, nullptr), is_text || has_mark);
    EXPECT_TRUE(has_mark || events.text().find(mistake.event) != std::string::npos) << events.text();
  }
}

// Catches: a value that a save changes: six decimals, the stamp of an empty time, "%%", a text that fills its field.
TEST(StrictFiles, EveryValueComesBack) {
  Tanks image;
  ASSERT_TRUE(image.started);
  char *record = image.add(1);
  std::memcpy(record + 4, "100%% ok", 8);
  poke(record, 12, INT32_MIN);
  put(record, 16, 0.1 + 0.2);
  put(record, 24, 16777215.9F);
  put(record, 44, 'x');
  record = image.add(4294967295U);
  put(record, 16, std::numeric_limits<double>::denorm_min());
  put(record, 24, -std::numeric_limits<float>::infinity());
  put(record, 28, SYSTEMTIME{2020, 2, 0, 29, 23, 59, 59, 0});
  put(record, 45, std::int16_t{-32768});
  const std::string before = bytes_at(image.tank.GetAt(0), 2 * kSize);
  const Recorder events(image.root.folder());
  ASSERT_TRUE(image.tank.SaveData(0)) << events.text();
  image.tank.DeleteAllRecord();
  ASSERT_TRUE(image.manager.LoadTableData(1, 20, nullptr)) << events.text();
  EXPECT_TRUE(bytes_at(image.tank.GetAt(0), 2 * kSize) == before) << image.root.read(kFile);
  EXPECT_EQ(events.text(), "");
}

// Catches: a number of which the shortest form reads back as its neighbour.
TEST(StrictFiles, NumbersAreExact) {
  Tanks image;
  std::uint64_t bits = 88172645463325252U;
  for (int round = 0; round < 5000; ++round) {
    image.tank.DeleteAllRecord();
    for (std::uint32_t key = 1; key <= 4; ++key) {
      bits ^= bits << 13, bits ^= bits >> 7, bits ^= bits << 17;
      char *record = image.add(key);
      put(record, 16, std::bit_cast<double>(bits));
      put(record, 24, std::bit_cast<float>(static_cast<std::uint32_t>(bits >> 7)));
    }
    const std::string before = image.bytes(4);
    if (round % 100 != 0) continue;  // a save waits for the disk
    ASSERT_TRUE(image.tank.SaveData(0)) << quillanest::last_failure();
    ASSERT_TRUE(image.manager.LoadTableData(1, 20, nullptr));
    for (const std::size_t at : {0U, 1U, 2U, 3U}) {
      const auto was = value_at<double>(before.data(), at * kSize + 16);
      const auto is = value_at<double>(image.tank.GetAt(static_cast<int>(at)), 16);
      EXPECT_TRUE(was == is || std::isnan(was)) << was;
    }
  }
}

// Catches: a value that would not come back, in a file that is replaced all the same; marks that are lost with it.
TEST(StrictFiles, WhatWouldNotComeBackIsNotSaved) {
  const struct {
    const char *what;
    std::size_t offset;
    std::string bytes;
    const char *event;
  } rows[] = {
      {"a separator in a text", 4, "a;b", "column \"Name\": the value would not come back"},
      {"a line end in a text", 4, "a\nb", "a text has a line end in it"},
      {"a carriage return in a text", 4, "a\rb", "a text has a line end in it"},
      {"a separator as a character", 44, ";", "column \"Mark\": the value would not come back"},
      {"a key of 0", 0, std::string(4, '\0'), "its key is 0"},
      {"a key below the one before", 0, std::string("\1\0\0\0", 4), "not larger than the one before"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.what);
    Tanks image("Strict=1\n", &kGood);
    ASSERT_TRUE(image.started);
    char *record = image.tank.GetAt(1);
    std::memcpy(record + row.offset, row.bytes.data(), row.bytes.size());
    const Recorder events(image.root.folder());
    EXPECT_FALSE(image.tank.SaveData(0));
    EXPECT_FALSE(image.manager.SaveData(0));
    EXPECT_EQ(image.manager.SaveDataTo(true), 0);
    EXPECT_TRUE(events.has("error data/system_Tank.txt text.not_exact: the record with the ID ")) << events.text();
    EXPECT_NE(events.text().find(row.event), std::string::npos) << events.text();
    EXPECT_EQ(image.root.read(kFile), kGood);
    EXPECT_EQ(image.root.files("data").size(), 1U) << "the new content is not left behind";
  }
}

// Catches: a merge that is applied in part, or takes no notice of a line.
TEST(StrictFiles, MergesAreWholeOrNot) {
  const struct {
    const char *file, *event;
  } rows[] = {
      {"Name;Level\r\na;10\r\nb;x\r\n", "load.txt:3 text.value: column \"Level\": the text is not a number"},
      {"Name;Level\r\na;10\r\ng;70\r\n", "load.txt:3 merge.record: no record has the text of the first column"},
      {"Name;Levle\r\na;10\r\n", "load.txt:1 merge.column: 1 columns of the header are not fields"},
      {"Key;Level\r\n1;10\r\n",
       "load.txt:1 merge.column: 1 columns of the header are not fields of the table, and are"},
      {"Name;Level\r\na;10", "load.txt:2 text.line_end: "},
      {"Name;Count;Level\r\na;1\r\n", "load.txt:2 text.line: the line does not have the 3 columns of the header"},
      {"Name;Level\r\na;10\r\nb;20\r\n", nullptr},
  };
  for (const auto &row : rows) {
    for (const bool strict : {true, false}) {
      SCOPED_TRACE(row.file);
      Tanks image(strict ? "Strict=1\n" : "", &kGood);
      const std::string before = image.bytes(2);
      const std::string path = image.root.write("load.txt", row.file);
      const Recorder events(image.root.folder());
      EXPECT_EQ(image.manager.LoadSomeData(1, 20, path.c_str(), false, ';'), !strict || row.event == nullptr);
      EXPECT_TRUE(image.bytes(2) == before || !strict || row.event == nullptr);
      EXPECT_TRUE(row.event != nullptr || peek(image.tank.GetAt(1), 12) == 20);
      const std::string severity = strict ? "error " : "warning ";
      EXPECT_TRUE(row.event == nullptr || events.has(severity + row.event)) << events.text();
    }
  }
}

// Catches: a table that is saved before it was loaded, a failed table that does not count, another schema that does.
TEST(StrictFiles, SavesAndStartsSayWhatFailed) {
  TestRoot root("Strict=1\n");
  const std::string file = root.write(kFile, kGood);
  const std::string schema = root.write("schema.txt", schema_text({account_table()}, {kTank}));
  root.write("data/plant_Tank.txt", kGood);
  CRtdbManager manager;
  ASSERT_TRUE(manager.RtdbManagerInit(false, schema.c_str())) << quillanest::last_failure();
  const Recorder events(root.folder());
  EXPECT_FALSE(manager.SaveData(0)) << "database plant was not loaded";
  EXPECT_TRUE(events.has("error plant.Tank store.not_loaded: ")) << events.text();
  EXPECT_EQ(root.read("data/plant_Tank.txt"), kGood);
  ASSERT_EQ(manager.LoadAllCustomizedDB(0), 1) << events.text();
  EXPECT_TRUE(manager.SaveData(0)) << events.text();

  CRtdbManager second;
  EXPECT_TRUE(second.RtdbManagerInit(false, schema.c_str()));
  CRtdbManager third;
  EXPECT_FALSE(third.RtdbManagerInit(false, root.path("missing").c_str()));
  EXPECT_TRUE(events.has("error missing start.schema: the image of this process was built from another schema"));
  CRtdbManager fourth;
  EXPECT_FALSE(fourth.RtdbManagerInit(false, root.write("other.txt", schema_text({account_table()})).c_str()));

  std::filesystem::rename(root.path("data/plant_Tank.txt"), root.path("data/Plant_tank.txt"));
  EXPECT_EQ(manager.LoadAllCustomizedDB(0), 0);
  EXPECT_TRUE(
      events.has("error data/plant_Tank.txt text.case: there is no such file, but one is called \"Plant_tank.txt"))
      << events.text();
  std::filesystem::remove(root.path("data/Plant_tank.txt"));
  std::filesystem::create_directory(root.path("data/plant_Tank.txt"));
  EXPECT_FALSE(manager.SaveData(0));
  EXPECT_EQ(manager.LoadAllCustomizedDB(0), 0);
  EXPECT_TRUE(events.has("error data/plant_Tank.txt text.unreadable: ")) << events.text();
}

// Catches: passwords that are saved with a key that everyone has, or a key file that other users can read.
TEST(StrictFiles, PasswordsNeedTheirKey) {
  const struct {
    const char *setting;
    const char *key;  // null: no such file
    mode_t mode;
    const char *sentence;  // null: it starts
  } rows[] = {
      {"", "secret", 0600, "there are passwords, and no key file is named"},
      {"PasswdKeyFile=key\n", nullptr, 0, "the key file that PasswdKeyFile names is missing, empty"},
      {"PasswdKeyFile=key\n", "", 0600, "the key file that PasswdKeyFile names is missing, empty"},
      {"PasswdKeyFile=key\n", "secret", 0640, "the key file that PasswdKeyFile names is not this user's alone"},
      {"PasswdKeyFile=key\n", "secret", 0604, "the key file that PasswdKeyFile names is not this user's alone"},
      {"PasswdKeyFile=key\n", "secret", 0600, nullptr},
  };
  const std::string former = "ID;Pass\r\n1;open\r\n";
  for (const auto &row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.sentence));
    const TestRoot root(std::string("Strict=1\n") + row.setting);
    const std::string file = root.write("data/system_Users.txt", former);
    const bool is_made = row.key == nullptr || chmod(root.write("key", row.key).c_str(), row.mode) == 0;
    ASSERT_TRUE(is_made);
    const std::string schema =
        root.write("schema.txt", schema_text({{10, "Users", 4, {"ID UINT 4", "Pass PASSWD 16"}}}));
    const Recorder events(root.folder());
    CRtdbManager manager;
    EXPECT_EQ(manager.RtdbManagerInit(false, schema.c_str()), row.sentence == nullptr) << events.text();
    EXPECT_TRUE(row.sentence == nullptr || events.text().find(row.sentence) != std::string::npos) << events.text();
    EXPECT_EQ(manager.SaveData(0), row.sentence == nullptr);
    EXPECT_EQ(root.read("data/system_Users.txt") == former, row.sentence != nullptr);
  }
}

// Catches: a commit that removes a record that is not marked, or keeps one that is.
TEST(StrictFiles, CommitsRemoveWhatIsMarked) {
  TestRoot root("Strict=1\n");
  CRtdbManager manager;
  ASSERT_TRUE(manager.RtdbManagerInit(false, root.write("schema.txt", schema_text({account_table()})).c_str()));
  CRtTable account;
  ASSERT_EQ(manager.GetSystemTable(account, 10), 1);
  for (const std::uint32_t key : {1U, 2U, 3U, 4U, 5U}) {
    char *record = account.GetAt(account.Insert(key, 0, 0));
    poke(record, Account::kProject, 5);
    poke(record, Account::kStatus, key == 2 || key == 3 ? 4 : 2);
    put(record, Account::kSince, SYSTEMTIME{2001, 2, 6, 3, 10, 20, 30, 0});
  }
  ASSERT_TRUE(manager.CommitProject()) << quillanest::last_failure();
  ASSERT_EQ(account.GetRecordCount(), 3);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(peek(account.GetAt(i), 0), i == 0 ? 1 : i + 3);
    EXPECT_EQ(peek(account.GetAt(i), Account::kProject), 0);
    EXPECT_EQ(peek(account.GetAt(i), Account::kStatus), 1);
  }
}

}  // namespace
