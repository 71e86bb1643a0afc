// Opening, asking and closing connections.
#include <array>
#include <filesystem>
#include <gtest/gtest.h>
#include <regex>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/store/ConnectionFixture.h"
#include "tests/support/SilentServer.h"

namespace {

namespace fs = std::filesystem;
using quillanest::CDbConnection;

int closed_port() { return SilentServer().port(); }

struct Opening {
  const char *what;
  std::string lines;
  bool first_only;
  int mask, slot, type;
};

std::vector<Opening> openings(const ConnectionFixture &fixture) {
  const std::string main = fixture.file("MainDB", "data/store.db");
  const std::string back = fixture.file("BackDB", "data/store.db");
  const auto alone = [&](const char *below) { return fixture.file("MainDB", below) + kNoBackup; };
  const int port = postgres().port();
  return {
      {"both", main + back, false, 3, 0, 1},
      {"only the first", main + back, true, 1, 0, 1},
      {"no main", "MainDBType=4\n" + back, false, 2, 1, 1},
      {"no main, the first that opens", "MainDBType=4\n" + back, true, 2, 1, 1},
      {"a backup of no type", main + "BackDBType=5\nBackDBName=x\n", false, 1, 0, 1},
      {"types that are none", "MainDBType=6\nBackDBType=8\n", false, 0, -1, -1},
      {"a missing file", alone("data/missing.db"), false, 0, -1, -1},
      {"a folder", alone("data"), false, 0, -1, -1},
      {"a file that is no database", alone("data/text.db"), false, 0, -1, -1},
      {"an empty name", "MainDBType=1\nMainDBName=\n" + back, true, 2, 1, 1},
      {"host:port", server("MainDB", 7, local(port)) + kNoBackup, false, 1, 0, 7},
      {"host,port", server("MainDB", 7, "localhost," + std::to_string(port)) + kNoBackup, false, 1, 0, 7},
      {"a wrong password", server("MainDB", 7, local(port), "wrong") + back, true, 2, 1, 1},
      {"a closed port", server("MainDB", 7, local(closed_port())) + back, true, 2, 1, 1},
      {"a closed port of type 0", server("MainDB", 0, local(closed_port(), ',')) + back, true, 2, 1, 1},
      {"a closed port of type 3", server("MainDB", 3, local(closed_port())) + back, true, 2, 1, 1},
      {"a driver that is not there", server("MainDB", 2, local(closed_port())) + back, true, 2, 1, 1},
  };
}

// Catches: a slot that opens although it cannot, or does not; a wait for one that fails.
TEST(Connection, OpensWhatCanBeOpened) {
  ConnectionFixture fixture;
  const FileStore store(fixture.root);
  fixture.root.write("data/text.db",
                     "This is no database, although it is long enough for the head of one: " + std::string(4000, '-'));
  for (const Opening &row : openings(fixture)) {
    SCOPED_TRACE(row.what);
    fixture.configure(row.lines);
    EXPECT_LT(fixture.open(row.first_only), kAtOnce);
    EXPECT_EQ(fixture.mask, row.mask);
    EXPECT_EQ(fixture.connection.GetCurrentSlot(), row.slot);
    EXPECT_EQ(fixture.connection.GetCurrentType(), row.type);
    EXPECT_EQ(fixture.connection.OpenRecordset("SELECT 1"), row.mask != 0);
    EXPECT_TRUE(fixture.connection.Close());
    EXPECT_EQ(fixture.connection.GetCurrentSlot(), -1);
  }
  EXPECT_FALSE(fixture.root.exists("data/missing.db"));
}

// Catches: settings that are kept after a close, or read again while a slot is open.
TEST(Connection, ReadsItsConfigurationWhenItIsClosed) {
  ConnectionFixture fixture;
  const FileStore store(fixture.root);
  fixture.configure(fixture.file("MainDB", "data/store.db") + fixture.file("BackDB", "data/store.db"));
  ASSERT_EQ(fixture.connection.Open(true), 1);
  fixture.configure("MainDBType=8\nBackDBType=8\n");
  EXPECT_EQ(fixture.connection.Open(false), 1) << "open already";
  EXPECT_EQ(fixture.connection.GetCurrentType(), 1);
  EXPECT_TRUE(fixture.connection.Close());
  EXPECT_EQ(fixture.connection.Open(false), 0);
  fixture.configure(fixture.file("MainDB", "data/missing.db") + fixture.file("BackDB", "data/store.db"));
  EXPECT_EQ(fixture.connection.Open(false), 2) << "nothing was open, so the settings are read again";
}

// Catches: names that arrive as others: the driver decodes some values and takes others as written.
TEST(Connection, NamesReachTheServerAsTheyAre) {
  ConnectionFixture fixture;
  for (const std::string name :
       {"a%41+b", "{a}", "{", "}{=", "%", "+", "it's a\\b", "{a'%}+=user=b", "\xC3\xA4\"@:/?#"}) {
    SCOPED_TRACE(name);
    const auto quoted = [&](const std::string &quote) {
      return quote + std::regex_replace(name, std::regex(quote), quote + quote) + quote;
    };
    (void)postgres().run("CREATE ROLE " + quoted("\"") + " LOGIN PASSWORD " + quoted("'") + ";\nCREATE DATABASE " +
                         quoted("\""));
    const std::string source = local(postgres().port());
    const auto lines =
        slot_lines("MainDB", {{"Type", "7"}, {"Name", source}, {"User", name}, {"Passwd", name}, {"InitDB", name}});
    EXPECT_EQ(fixture.reopen(lines), 1);
    EXPECT_TRUE(fixture.connection.OpenRecordset("SELECT current_user AS u, current_database() AS d"));
    EXPECT_EQ(fixture.text("u"), name);
    EXPECT_EQ(fixture.text("d"), name);
  }
}

// Catches: a connection string that is not read from the file beside the configuration, or is read cut.
TEST(Connection, TakesConnectionStringsFromAFile) {
  ConnectionFixture fixture;
  FileStore store(fixture.root);
  (void)store.run("CREATE TABLE t(a); INSERT INTO t VALUES('file')");
  (void)postgres().run("DROP TABLE IF EXISTS t; CREATE TABLE t(a text); INSERT INTO t VALUES('server')");
  const std::string provider = "Provider=Microsoft.Jet.OLEDB.4.0;";
  const std::string source = ";Data Source=" + store.path();
  const auto padded = [&](std::size_t size) {
    return provider + std::string(size - provider.size() - source.size(), 'x') + source;
  };
  fixture.root.write("conf/db.ini",
                     "[Group]\nDriver=Driver=psqlodbcw.so;Server=127.0.0.1;Port=" + std::to_string(postgres().port()) +
                         ";Database=postgres;UID=keeper;PWD={" + "pa{ss w}}ord}\nProvider=" + provider + source +
                         "\nLong=" + padded(199) + "\nTooLong=" + padded(200) + "\nWords=no string at all\n");
  const struct {
    const char *file, *group, *key;
    const char *expected;  // null: not opened
  } rows[] = {{"db.ini", "Group", "Driver", "server"}, {"db.ini", "GROUP", "provider", "file"},
              {"db.ini", "Group", "Long", "file"},     {"db.ini", "Group", "TooLong", nullptr},
              {"db.ini", "Group", "Words", nullptr},   {"db.ini", "Group", "Missing", nullptr},
              {"db.ini", "Other", "Driver", nullptr},  {"no.ini", "Group", "Driver", nullptr}};
  for (const auto &row : rows) {
    SCOPED_TRACE(std::string(row.file) + ' ' + row.group + ' ' + row.key);
    const auto lines = slot_lines(
        "MainDB", {{"Type", "100"}, {"Name", row.file}, {"ConnStrIniGroup", row.group}, {"ConnStrIniKey", row.key}});
    ASSERT_EQ(fixture.reopen(lines), row.expected == nullptr ? 0 : 1);
    if (row.expected == nullptr) continue;
    EXPECT_EQ(fixture.connection.GetCurrentType(), 100);
    ASSERT_TRUE(fixture.connection.OpenRecordset("SELECT a FROM t"));
    EXPECT_EQ(fixture.text("a"), row.expected);
  }
}

// Catches: settings that are not cut to their widths, and a connection string that is cut instead of refused.
TEST(Connection, CutsSettingsToTheirWidths) {
  ConnectionFixture fixture;
  const FileStore store(fixture.root);
  const std::string folder = fixture.root.path("data/");
  const std::string name = folder + std::string(63 - folder.size(), 'n');
  fs::copy_file(store.path(), name);
  EXPECT_EQ(fixture.reopen("MainDBType=1\nMainDBName=" + name + "x\n"), 1) << "the 64th character is cut";
  // 61 characters of the provider, 31 between the values, 63 of the name: 44 are left.
  for (const std::size_t user : {21U, 22U}) {
    const auto lines = slot_lines(
        "MainDB", {{"Type", "1"}, {"Name", name}, {"User", std::string(user, 'u')}, {"Passwd", std::string(40, 'p')}});
    EXPECT_EQ(fixture.reopen(lines), user == 21 ? 1 : 0) << user;
  }
}

// Catches: a row, column or end of rows that is not the one asked for.
TEST(Connection, ReadsRows) {
  for (const bool in_file : {true, false}) {
    SCOPED_TRACE(in_file ? "file" : "server");
    ConnectionFixture fixture;
    FileStore store(fixture.root);
    fixture.configure(
        (in_file ? fixture.file("MainDB", "data/store.db") : server("MainDB", 7, local(postgres().port()))) +
        kNoBackup);
    CDbConnection &reader = fixture.connection;
    EXPECT_FALSE(reader.OpenRecordset("SELECT 1"));
    EXPECT_TRUE(std::holds_alternative<std::monostate>(reader.GetFieldValue("a")));
    ASSERT_EQ(reader.Open(true), 1);
    ASSERT_TRUE(reader.OpenRecordset("SELECT 7 AS Alpha, 'x' AS beta UNION SELECT 8, 'y' ORDER BY 1"));
    EXPECT_EQ(reader.GetRecordCount(), 2);
    EXPECT_EQ(quillanest::to_int32(reader.GetFieldValue("ALPHA")), 7U);
    reader.MoveNext();
    EXPECT_EQ(fixture.text("Beta"), "y");
    EXPECT_TRUE(std::holds_alternative<std::monostate>(reader.GetFieldValue("gamma"))) << "an unknown column";
    EXPECT_FALSE(reader.IsEOF());
    for (int i = 0; i < 3; ++i) reader.MoveNext();
    EXPECT_TRUE(reader.IsEOF());
    EXPECT_TRUE(std::holds_alternative<std::monostate>(reader.GetFieldValue("Alpha"))) << "after the last row";
    reader.MoveFirst();
    EXPECT_EQ(quillanest::to_int32(reader.GetFieldValue("Alpha")), 7U);
    ASSERT_TRUE(reader.OpenRecordset("SELECT 1 AS a WHERE 1 = 0"));
    EXPECT_EQ(reader.GetRecordCount(), 0);
    EXPECT_TRUE(reader.IsEOF());
    EXPECT_TRUE(reader.Close());
    EXPECT_TRUE(reader.IsEOF());
    EXPECT_EQ(reader.GetRecordCount(), 0);
  }
}

// Catches: a file that may only be read and opens as one that may be written, so that saves fail in both databases.
TEST(Connection, FileThatMayOnlyBeReadIsNoSlot) {
  ConnectionFixture fixture;
  const FileStore store(fixture.root);
  fixture.configure(fixture.file("MainDB", "data/store.db") + kNoBackup);
  chmod(store.path().c_str(), 0444);
  chmod(fixture.root.folder().c_str(), 0755);
  const uid_t user = geteuid();  // root may write all the same
  ASSERT_TRUE(user != 0 || seteuid(65534) == 0);
  fixture.open(false);
  ASSERT_EQ(seteuid(user), 0);
  EXPECT_EQ(fixture.mask, 0);
  chmod(store.path().c_str(), 0644);
  EXPECT_EQ(fixture.connection.Open(false), 1) << "nothing else is in the way";
}

// Catches: a backup without settings that is not tried, or costs a wait.
TEST(ByDesign, BackupByDefault) {
  ConnectionFixture fixture;
  EXPECT_LT(fixture.open(false), kAtOnce);
  EXPECT_EQ(fixture.mask, 0);
  const FileStore store(fixture.root);
  SilentServer silent;
  fixture.configure(fixture.file("MainDB", "data/store.db"));
  EXPECT_LT(fixture.open(false), kAtOnce) << "an empty data source fails at once";
  EXPECT_EQ(fixture.mask, 1);
  (void)fixture.connection.Close();
  // With a name the backup is tried, in the words of its type.
  fixture.configure(fixture.file("MainDB", "data/store.db") + "BackDBName=" + local(silent.port()) + '\n');
  (void)fixture.open(false);
  EXPECT_EQ(fixture.mask, 1);
  ASSERT_EQ(silent.connections(), 1);
  EXPECT_EQ(silent.first_byte(), 0x12);
}

// Main and backup in two files.
struct MirrorFixture : ConnectionFixture {
  MirrorFixture() : main(root) {
    back_path = root.path("data/back.db");
    fs::copy_file(main.path(), back_path);
    configure(file("MainDB", "data/store.db") + file("BackDB", "data/back.db"));
    mask = connection.Open(false);
  }
  // Runs statements on the backup alone.
  std::string run_on_backup(const std::string &statements) {
    return main.run("ATTACH '" + back_path + "' AS back; " + statements);
  }
  FileStore main;
  std::string back_path;
};

// Catches: a backup that runs what the main database refused, or a main one that takes back what it ran.
TEST(ByDesign, FirstErrorStops) {
  MirrorFixture fixture;
  ASSERT_EQ(fixture.mask, 3);
  (void)fixture.run_on_backup("CREATE TABLE back.b(x); CREATE TABLE main.m(x);");
  EXPECT_EQ(fixture.connection.Execute("INSERT INTO b VALUES(1)", 3), -1);
  EXPECT_EQ(fixture.run_on_backup("SELECT count(*) FROM back.b"), "0\n") << "the backup ran what the main one refused";
  EXPECT_EQ(fixture.connection.Execute("INSERT INTO m VALUES(1)", 3), -1);
  EXPECT_EQ(fixture.main.run("SELECT count(*) FROM m"), "1\n") << "what the main one ran stays";
  EXPECT_EQ(fixture.connection.Execute("INSERT INTO b VALUES(1)", 2), 1);
  EXPECT_EQ(fixture.connection.Execute("INSERT INTO m VALUES(1)", 1), 1);
  EXPECT_EQ(fixture.connection.Execute("INSERT INTO m VALUES(1)", 0), 0);
}

// Catches: a count of the main database, or of more than 16 bits.
TEST(ByDesign, CountOfLastSlot) {
  MirrorFixture fixture;
  ASSERT_EQ(fixture.mask, 3);
  (void)fixture.run_on_backup("CREATE TABLE main.t(x); CREATE TABLE back.t(x)");
  const auto fill = [](const std::string &table, int rows) {
    return "INSERT INTO " + table + " WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
           std::to_string(rows) + ") SELECT i FROM n;";
  };
  for (const auto &[rows, count] :
       {std::pair(32767, 32767), std::pair(32768, -32768), std::pair(65536, 0), std::pair(70000, 4464)}) {
    SCOPED_TRACE(rows);
    (void)fixture.run_on_backup(fill("main.t", 5) + fill("back.t", rows));
    EXPECT_EQ(fixture.connection.Execute("DELETE FROM t", 3), count);
    EXPECT_EQ(fixture.connection.Execute("DELETE FROM t", 3), 0);
  }
  (void)fixture.run_on_backup(fill("main.t", 5));
  EXPECT_EQ(fixture.connection.Execute("DELETE FROM t", 3), 0) << "the backup had no rows";
}

// Catches: an end of rows that is reported without a query.
TEST(ByDesign, EofUnknownIsFalse) {
  ConnectionFixture fixture;
  const FileStore store(fixture.root);
  EXPECT_TRUE(fixture.connection.IsEOF()) << "no slot";
  ASSERT_EQ(fixture.reopen(fixture.file("MainDB", "data/store.db")), 1);
  EXPECT_FALSE(fixture.connection.IsEOF()) << "no query yet";
  ASSERT_TRUE(fixture.connection.OpenRecordset("SELECT 1 WHERE 1 = 0"));
  EXPECT_TRUE(fixture.connection.IsEOF());
  EXPECT_FALSE(fixture.connection.OpenRecordset("SELECT nonsense"));
  EXPECT_FALSE(fixture.connection.IsEOF()) << "the query failed";
  EXPECT_EQ(fixture.connection.GetRecordCount(), 0);
}

}  // namespace
