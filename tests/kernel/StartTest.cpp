// Start-up: building, attaching to and re-opening an image; configuration; what is left afterwards.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <tuple>
#include <unistd.h>

#include "tests/kernel/TableFixture.h"
#include "tests/support/Child.h"

namespace {

// Where the status, a caller's number and the flags of the slots are in the manager segment.
constexpr std::size_t kStatusOffset = 20 + 220;
constexpr std::size_t kReservedOffset = 12;
constexpr std::size_t kFlagsOffset = 1256;

// The bytes of the segment under a key while the object lives; null when there is none.
struct Segment {
  explicit Segment(int key) : memory(key), bytes(static_cast<char *>(memory.Attach())) {}

  CShareMemory memory;
  char *bytes;
};

bool segment_exists(int key) { return Segment(key).bytes != nullptr; }
std::int32_t status() { return peek(Segment(kManagerKey).bytes, kStatusOffset); }

const std::string kWithPlant = schema_text({account_table()}, {{20, "Pump", 3, {"ID UINT 4", "Speed INT 4"}}});
const std::string kSystemOnly = schema_text({account_table()});

bool start(CRtdbManager &manager, const TestRoot &root, const std::string &schema = kWithPlant) {
  return manager.RtdbManagerInit(false, root.write("schema.txt", schema).c_str());
}

int accounts(CRtdbManager &manager) {
  CRtTable table;
  return manager.GetSystemTable(table, 10U) != 0 ? table.GetRecordCount() : -1;
}

int add_account(CRtdbManager &manager) {
  CRtTable table;
  return manager.GetSystemTable(table, 10U) != 0 ? table.Insert(0U, 0, 0) : -1;
}

bool has_database(CRtdbManager &manager, const char *name) {
  CRtDataBase database;
  return manager.GetDataBaseFromName(database, name) != 0;
}

// A root, and an image with one account that its first manager has started.
struct Started {
  Started() : manager(std::make_unique<CRtdbManager>()) {
    if (!start(*manager, root) || add_account(*manager) != 0) throw std::runtime_error("the image does not start");
  }
  TestRoot root;
  std::unique_ptr<CRtdbManager> manager;
};

// Catches: a status that is set too early lets lookups read descriptors that are not there yet.
TEST(Start, StatusShowsHowFarAStartCame) {
  TestRoot root;
  {
    EXPECT_FALSE(CRtdbManager().RtdbManagerInit(true, nullptr));
    EXPECT_FALSE(segment_exists(333));
    CRtdbManager manager;
    const std::string missing = root.path("missing");
    for (const char *path : {static_cast<const char *>(nullptr), "", root.folder().c_str(), missing.c_str()}) {
      EXPECT_FALSE(manager.RtdbManagerInit(false, path));
    }
    EXPECT_EQ(status(), 0);
    EXPECT_FALSE(has_database(manager, "system"));
  }
  EXPECT_FALSE(segment_exists(333));
  root.configure("DataInFile=0\n");  // nothing serves the load
  {
    CRtdbManager manager;
    EXPECT_FALSE(start(manager, root));
    EXPECT_EQ(status(), 1);
    EXPECT_TRUE(has_database(manager, "plant"));
  }
  root.configure("DataInFile=1\n");
  {
    CRtdbManager manager;
    ASSERT_TRUE(start(manager, root));
    EXPECT_EQ(status(), 2);
  }
  for (const int key : {333, 1, 2}) EXPECT_FALSE(segment_exists(key)) << key;
}

// Catches: a second manager that built anew would wipe the records of the first one.
TEST(Start, SecondManagerAttaches) {
  Started image;
  CRtdbManager &first = *image.manager;
  first.SetRtdbStatus(1);
  for (const bool reopen : {false, true}) {
    SCOPED_TRACE(reopen);
    CRtdbManager second;
    ASSERT_TRUE(second.RtdbManagerInit(reopen, nullptr));
    EXPECT_EQ(second.GetRtdbStatus(), 1);  // as it was
    EXPECT_EQ(accounts(second), 1);
    second.DetachShareMemory();
    EXPECT_EQ(second.GetRtdbStatus(), 0);  // its own again
    EXPECT_FALSE(has_database(second, "system"));
    EXPECT_EQ(second.AttachShareMemory(), 1);
    EXPECT_EQ(accounts(second), 1);
  }
  EXPECT_TRUE(first.RtdbManagerInit(false, nullptr));  // started already
  EXPECT_EQ(accounts(first), 1);
}

// Catches: a start over an image that lacks its system database reuses the segments; stale records would survive in
// them.
TEST(Start, BuildsOverAnImageWithoutSystemDatabase) {
  Started image;
  CRtdbManager &first = *image.manager;
  const Segment segment(333);
  poke(segment.bytes, kFlagsOffset, 0);
  poke(segment.bytes, kReservedOffset, 77);
  CRtdbManager second;
  ASSERT_TRUE(start(second, image.root, kSystemOnly));
  EXPECT_EQ(peek(segment.bytes, kReservedOffset), 0);
  EXPECT_EQ(accounts(first), 0);
  EXPECT_EQ(add_account(second), 0);
  EXPECT_EQ(accounts(first), 1);
  EXPECT_TRUE(has_database(second, "plant"));  // slot 1 was not laid out again and keeps its entry

  poke(segment.bytes, kFlagsOffset, 0);
  CRtdbManager third;
  EXPECT_FALSE(start(third, image.root, schema_text({account_table(50)}))) << "larger than its segment";
  EXPECT_EQ(status(), 0);
}

// Re-opens the directory of an image that is marked as unfinished, then lets go of every object.
int reopen_in_child(const std::vector<std::string> &) {
  Started image;
  image.manager->SetRtdbStatus(0);
  {
    CRtdbManager second;
    if (!second.RtdbManagerInit(true, nullptr)) return 2;
    if (second.GetRtdbStatus() != 2 || accounts(second) != 1 || !has_database(second, "plant")) return 3;
    image.manager.reset();
    if (accounts(second) != 1) return 4;
  }
  if (segment_exists(333)) return 5;
  const Segment segment(1);
  if (segment.bytes == nullptr || !segment_exists(2)) return 6;
  return std::string(segment.bytes) == "system" ? 0 : 7;
}
const RegisterChild kReopener{"reopen", reopen_in_child};

// Builds an image of its own and edits it; the alarm ends a process that another one keeps waiting.
int start_in_child(const std::vector<std::string> &) {
  alarm(20);
  const Started image;
  return 0;
}
const RegisterChild kStarter{"start", start_in_child};

// Catches: a database under the manager's own key, which overlays the directory, that is read or written outside.
TEST(Start, DatabaseUnderTheManagersKey) {
  for (const int capacity : {1, 200}) {
    TestRoot root("FileKey_Manager=2\n");
    const TableSpec small{20, "Small", capacity, {"ID UINT 4"}};
    CRtdbManager manager;
    EXPECT_FALSE(start(manager, root, schema_text({small}, {small})));
    EXPECT_FALSE(has_database(manager, "system"));
  }
}

// Catches: the lock on a mutex's file was held as long as the mutex was mapped, so a second process waited for the
// first to end.
TEST(Start, ProcessesStartSideBySide) {
  const Started image;
  EXPECT_EQ(Child("start").wait(), 0);
}

TEST(ByDesign, ReopenKeepsSegments) { EXPECT_EQ(Child("reopen").wait(), 0); }

TEST(ByDesign, DestroyKeepsDatabases) {
  Started image;
  CRtdbManager &manager = *image.manager;
  manager.DestroyMemory();
  EXPECT_FALSE(segment_exists(333));
  EXPECT_TRUE(segment_exists(1));
  EXPECT_TRUE(segment_exists(2));
  EXPECT_EQ(accounts(manager), 1);  // the view on the system database stays, too
  EXPECT_EQ(manager.GetRtdbStatus(), 2);
  EXPECT_FALSE(has_database(manager, "plant"));
  EXPECT_EQ(manager.AttachShareMemory(), 0);
}

// Catches: a wrong key, which finds no image, and a wrong path, which finds no data.
TEST(Start, KeyAndDataPath) {
  TestRoot root;
  root.configure("FileKey_Manager=12\nRtdbDataPath=/abs/\n");
  CRtdbManager manager;
  (void)start(manager, root);  // the segment appears although no store is open
  EXPECT_TRUE(segment_exists(12));
  EXPECT_EQ(manager.GetDataPath(), root.path("/abs/"));
}

// Catches: a path that does not fit its 96 bytes and runs into the next member.
TEST(Start, InstallationRoots) {
  TestRoot root("FileKey_Manager=444\n");
  const std::string without_slash = root.folder().substr(0, root.folder().size() - 1);
  setenv("QUILLANEST_ROOT", without_slash.c_str(), 1);
  EXPECT_EQ(root.path("conf/fix_Rtdb.ini"), std::string(CRtdbManager().GetSysIniFile()));
  EXPECT_EQ(root.path("data/"), std::string(CRtdbManager().GetDataPath()));

  // "conf/fix_Rtdb.ini" takes 17 of the 95 characters, and so may the data path.
  const std::tuple<std::size_t, std::size_t, bool> rows[] = {
      {78, 17, true}, {78, 18, false}, {79, 0, false}, {300, 0, false}};
  for (const auto &[root_size, data_size, fits] : rows) {
    SCOPED_TRACE(testing::Message() << root_size << ' ' << data_size);
    std::string folder = root.folder();
    while (folder.size() < root_size) folder += folder.size() % 100 == 99 ? '/' : 'r';
    folder.back() = '/';
    const std::string data_path(data_size, 'p');
    std::filesystem::create_directories(folder + "conf");
    std::ofstream(folder + "conf/fix_Rtdb.ini") << "[Quillanest]\nDataInFile=1\nRtdbDataPath=" << data_path;
    setenv("QUILLANEST_ROOT", folder.c_str(), 1);
    CRtdbManager manager;
    EXPECT_EQ(root_size <= 78 ? folder + "conf/fix_Rtdb.ini" : "", std::string(manager.GetSysIniFile()));
    EXPECT_EQ(fits ? folder + data_path : "", std::string(manager.GetDataPath()));
    for (const int key : {-1, kManagerKey}) {
      EXPECT_EQ(start(manager, root), fits);  // every time
      EXPECT_EQ(segment_exists(key), fits && key == kManagerKey);
    }
  }
}

// Catches: a number of slots that a word of the rights overwrote and that sizes are computed from; a segment of another
// kind under the key is too small for the manager's.
TEST(Start, OverForeignNumbersAndSegments) {
  TestRoot root;
  for (const unsigned int slots : {0x7FFFFFFFU, 0xFFFFFFFFU, 11U}) {
    CRtdbManager manager;
    manager.SetRights(-7, slots);  // DataBaseMaxNum
    EXPECT_FALSE(start(manager, root)) << slots;
  }
  CRtdbManager manager;
  EXPECT_EQ(manager.AddDataBase(manager.GetSystemDB()), 0);  // would be freed twice
  CShareMemory small(kManagerKey);
  ASSERT_NE(small.Create(1295, false, false), nullptr);
  EXPECT_FALSE(start(manager, root));
}

// Catches: a copy that owned the databases as well would free them twice; one that did not share them would lose them.
TEST(Start, CopyOutlivesTheOriginal) {
  Started image;
  CRtdbManager copy(*image.manager);
  CRtdbManager assigned;
  assigned = *image.manager;
  assigned = *&assigned;
  EXPECT_EQ(accounts(copy), -1);
  ASSERT_EQ(copy.AttachShareMemory(), 1);
  image.manager.reset();
  EXPECT_EQ(accounts(copy), 1);
  EXPECT_EQ(assigned.AttachShareMemory(), 1);
  EXPECT_EQ(add_account(assigned), 1);
  copy = CRtdbManager();
  EXPECT_EQ(accounts(assigned), 2);
}

// Catches: a directory that two images of one process share.
TEST(Start, ManagersWithDifferentKeys) {
  Started image;
  CRtdbManager &first = *image.manager;
  image.root.configure("DataInFile=1\nFileKey_Manager=600\n");
  {
    CRtdbManager second;
    ASSERT_TRUE(start(second, image.root, kSystemOnly));
    EXPECT_FALSE(has_database(second, "plant"));
    EXPECT_TRUE(has_database(first, "plant"));
    EXPECT_EQ(accounts(first), 0);  // laid out anew by the second start
    second.SetRtdbStatus(0);
    EXPECT_EQ(first.GetRtdbStatus(), 2);
  }
  EXPECT_FALSE(segment_exists(600));
  EXPECT_EQ(add_account(first), 0);
}

}  // namespace
