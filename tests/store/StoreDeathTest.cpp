// The end of the program, the server or the disk in the middle of a save leaves the former rows, and all of them.
#include <array>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include "quillanest/sql/OdbcWorker.h"
#include "tests/store/StoreFixture.h"
#include "tests/support/Child.h"
#include "tests/support/FullDisk.h"

namespace {

namespace fs = std::filesystem;

constexpr int kFormer = 2'000;
constexpr int kRecords = 50'000;

const TableSpec kPoints{30, "Points", kRecords, {"ID UINT 4", "Level INT 4", "bModified INT 4", "Name STRING 80"}};

void set_level(CRtTable &table, int records, int level) {
  while (table.GetRecordCount() < records) std::memset(table.GetAt(table.Insert(0U, 0, 0)) + 12, 'n', 79);
  std::array<char, sizeof level> value{};
  std::memcpy(value.data(), &level, sizeof level);
  table.SetColumnValueAt(1, value.data(), 0, records);
}

// A store that holds 2,000 rows of level 0, and the image that 50,000 records of a new level are saved from.
struct PointsImage : StoreImage {
  explicit PointsImage(std::string_view slots) : StoreImage(slots, {kPoints}) {
    points = table(30, "ID bigint, Level integer, bModified integer, Name varchar(80)");
    set_level(points, kFormer, 0);
    ready = points.SaveData(0) && rows(kLevels) == "0|2000|1|2000\n";
  }

  // Calls the server's shell when a row with that key is stored or read, and waits there.
  void stop_at(int key, Store &server, const std::string &command, int seconds, const char *watched = kStored) {
    (void)server.run("CREATE FUNCTION seen(ID bigint) RETURNS bigint LANGUAGE plpgsql AS $$ BEGIN IF ID = " +
                     std::to_string(key) + " THEN COPY (SELECT 1) TO PROGRAM '" + command + "'; PERFORM pg_sleep(" +
                     std::to_string(seconds) + "); END IF; RETURN ID; END $$; " + watched);
  }
  static constexpr const char *kStored = "ALTER TABLE plant_Points ADD CHECK (seen(ID) > 0)";
  static constexpr const char *kRead =
      "ALTER TABLE plant_Points RENAME TO p; "
      "CREATE VIEW plant_Points AS SELECT seen(ID) AS ID, Level, bModified, Name FROM p";

  // "level|rows|first key|last key" of each level in the store.
  static constexpr const char *kLevels =
      "SELECT Level, count(*), min(ID), max(ID) FROM plant_Points GROUP BY Level ORDER BY Level";
  CRtTable points;
  bool ready = false;
};

// Ends the program where it cannot write all.
ssize_t write_or_end(int file, const void *from, std::size_t size, off_t at) {
  const ssize_t written = pwrite(file, from, size, at);
  if (written < static_cast<ssize_t>(size)) (void)std::raise(SIGKILL);
  return written;
}

// Catches: a file with half of the rows after the program ends where the end of the transaction makes the file grow, or
// with single rows that still find room after a full disk has ended it; a number of deleted rows that is negative in 16
// bits and counts as a failure.
TEST(StoreDeath, OfTheProgramOrTheDiskLeavesTheRowsOfAFile) {
  PointsImage image("F");
  ASSERT_TRUE(image.ready);
  const std::string file = image.root.path("data/store.db");
  set_level(image.points, kRecords, 1);
  const auto expect_former_rows = [&] {
    EXPECT_EQ(image.rows(PointsImage::kLevels), "0|2000|1|2000\n");
    EXPECT_EQ(image.rows("PRAGMA integrity_check"), "ok\n");
  };
  {
    const FullDisk full(fs::file_size(file));
    EXPECT_FALSE(image.points.SaveData(0));
  }
  EXPECT_EQ(peek(image.points.GetAt(kRecords - 1), 8), 1) << "the mark was not set again";
  expect_former_rows();
  for (const std::uintmax_t grown : {1U, 1'000'000U, 2'000'000U}) {
    SCOPED_TRACE(grown);
    const int end = in_fork([&] {
      sqlite3_vfs *system = sqlite3_vfs_find(nullptr);
      for (const char *call : {"pwrite", "pwrite64"}) {
        (void)system->xSetSystemCall(system, call, reinterpret_cast<sqlite3_syscall_ptr>(write_or_end));
      }
      const FullDisk full(fs::file_size(file) + grown);
      return image.points.SaveData(0) ? 0 : 1;
    });
    EXPECT_LT(end, 0) << "it did not die of a signal";
    ASSERT_TRUE(fs::exists(file + "-journal")) << "the save was not in its middle";
    expect_former_rows();
  }
  for (const int level : {1, 2}) {
    set_level(image.points, kRecords, level);
    EXPECT_TRUE(image.points.SaveData(0)) << level;
  }
  EXPECT_EQ(image.rows(PointsImage::kLevels), "2|50000|1|50000\n");
}

// Catches: a save that is true although its server has died, or clears its marks.
TEST(StoreDeath, OfTheServerFailsTheSave) {
  for (const char *slots : {"S", "FS", "SF"}) {
    SCOPED_TRACE(slots);
    PointsImage image(slots);
    ASSERT_TRUE(image.ready);
    const std::size_t server = slots[0] == 'S' ? 0 : 1;
    image.stop_at(25'000, *image.stores[server], "kill -QUIT $(head -n 1 postmaster.pid)", 600);
    set_level(image.points, kRecords, 1);
    EXPECT_FALSE(image.points.SaveData(0));
    postgres().wait_for_death();
    EXPECT_EQ(peek(image.points.GetAt(0), 8), 0) << "not modified before";
    EXPECT_EQ(peek(image.points.GetAt(kFormer), 8), 1) << "the mark was not set again";
    EXPECT_EQ(peek(image.points.GetAt(kRecords - 1), 8), 1) << "the mark was not set again";
    postgres().start();
    EXPECT_EQ(image.stores[server]->run(PointsImage::kLevels), "0|2000|1|2000\n");
    // A file after the server has missed what the server refused, so it keeps its former rows; one before it has all.
    if (image.stores.size() > 1) {
      EXPECT_EQ(image.stores[1 - server]->run(PointsImage::kLevels),
                slots[0] == 'F' ? "1|50000|1|50000\n" : "0|2000|1|2000\n");
    }
  }
}

// Catches: a server that falls silent, in the middle of a row, and holds a save or load for ever.
TEST(StoreDeath, SilenceOfTheServerFailsSaveAndLoad) {
  quillanest::set_driver_patience(std::chrono::seconds(1));
  for (const bool saves : {true, false}) {
    SCOPED_TRACE(saves ? "save" : "load");
    PointsImage image("S");
    ASSERT_TRUE(image.ready);
    Store &server = *image.stores[0];
    const auto [key, watched] = saves ? std::pair(25'000, PointsImage::kStored) : std::pair(1'000, PointsImage::kRead);
    image.stop_at(key, server, "kill -STOP $PPID", 0, watched);
    set_level(image.points, kRecords, 1);
    const auto start = std::chrono::steady_clock::now();
    if (saves) {
      EXPECT_FALSE(image.points.SaveData(0));
      EXPECT_EQ(peek(image.points.GetAt(kRecords - 1), 8), 1) << "the mark was not set again";
    } else {
      EXPECT_EQ(image.manager->LoadAllCustomizedDB(0), 0);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    const std::string others =
        " FROM pg_stat_activity WHERE backend_type = 'client backend' AND pid <> pg_backend_pid()";
    kill(std::stoi(server.run("SELECT pid" + others)), SIGCONT);
    while (server.run("SELECT count(*)" + others) != "0\n") {
    }
    (void)server.run("DROP FUNCTION seen CASCADE; ALTER TABLE IF EXISTS p RENAME TO plant_Points");
    EXPECT_EQ(server.run(PointsImage::kLevels), "0|2000|1|2000\n") << "what was given up was done";
    EXPECT_TRUE(image.points.SaveData(0));
    EXPECT_EQ(server.run(PointsImage::kLevels), "1|50000|1|50000\n");
  }
  quillanest::set_driver_patience(std::chrono::seconds(35));
}

}  // namespace
