// Start-up: building, attaching to and re-opening an image; configuration; what is left afterwards.
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <tuple>
#include <unistd.h>
#include <utility>

#include "quillanest/Quillanest.h"
#include "tests/support/Child.h"
#include "tests/support/TestRoot.h"

namespace {

constexpr int kStatusOffset = 20 + 220;
constexpr int kFlagsOffset = 1256;

// The bytes of the segment under a key while the object lives; null when there is none.
struct Segment {
  explicit Segment(int key) : memory(key), bytes(static_cast<char *>(memory.Attach())) {}

  [[nodiscard]] std::int32_t number(int offset) const {
    std::int32_t value = 0;
    std::memcpy(&value, bytes + offset, sizeof value);
    return value;
  }
  void set_number(int offset, std::int32_t value) const { std::memcpy(bytes + offset, &value, sizeof value); }

  CShareMemory memory;
  char *bytes;
};

bool segment_exists(int key) { return Segment(key).bytes != nullptr; }

std::string write_schema(const TestRoot &root, bool with_plant = true) {
  const std::vector<TableSpec> plant{{20, "Pump", 3, {"ID UINT 4", "Speed INT 4"}}};
  return root.write(with_plant ? "plant.txt" : "system.txt",
                    schema_text({account_table()}, with_plant ? plant : std::vector<TableSpec>()));
}

bool start(CRtdbManager &manager, const TestRoot &root, bool with_plant = true) {
  return manager.RtdbManagerInit(false, write_schema(root, with_plant).c_str());
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

// A status that is set too early lets lookups read descriptors that are not there yet.
TEST(Start, StatusShowsHowFarAStartCame) {
  TestRoot root;
  {
    EXPECT_FALSE(CRtdbManager().RtdbManagerInit(true, nullptr));
    EXPECT_FALSE(segment_exists(333));
    CRtdbManager manager;
    EXPECT_FALSE(manager.RtdbManagerInit(false, root.path("missing").c_str()));
    EXPECT_EQ(Segment(333).number(kStatusOffset), 0);
    EXPECT_FALSE(has_database(manager, "system"));
  }
  EXPECT_FALSE(segment_exists(333));
  root.configure("DataInFile=0\n");  // nothing serves the load
  {
    CRtdbManager manager;
    EXPECT_FALSE(start(manager, root));
    EXPECT_EQ(Segment(333).number(kStatusOffset), 1);
    EXPECT_TRUE(has_database(manager, "plant"));
  }
  root.configure("DataInFile=1\n");
  CRtdbManager manager;
  ASSERT_TRUE(start(manager, root));
  EXPECT_EQ(Segment(333).number(kStatusOffset), 2);
}

// A second manager that built anew would wipe the records of the first one.
TEST(Start, SecondManagerAttaches) {
  TestRoot root;
  CRtdbManager first;
  ASSERT_TRUE(start(first, root));
  ASSERT_EQ(add_account(first), 0);
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

// A start over an image that lacks its system database reuses the segments; stale records would survive in them.
TEST(Start, BuildsOverAnImageWithoutSystemDatabase) {
  TestRoot root;
  CRtdbManager first;
  ASSERT_TRUE(start(first, root));
  ASSERT_EQ(add_account(first), 0);
  const Segment segment(333);
  segment.set_number(kFlagsOffset, 0);
  segment.set_number(12, 77);
  CRtdbManager second;
  ASSERT_TRUE(start(second, root, false));
  EXPECT_EQ(segment.number(12), 0);
  EXPECT_EQ(accounts(first), 0);
  EXPECT_EQ(add_account(second), 0);
  EXPECT_EQ(accounts(first), 1);
  EXPECT_TRUE(has_database(second, "plant"));  // slot 1 was not laid out again and keeps its entry

  segment.set_number(kFlagsOffset, 0);
  CRtdbManager third;  // needs more room than the segment has
  const std::string larger = root.write("s", schema_text({account_table(50)}));
  EXPECT_FALSE(third.RtdbManagerInit(false, larger.c_str()));
  EXPECT_EQ(segment.number(kStatusOffset), 0);
}

// Re-opens the directory of an image that is marked as unfinished, then lets go of every object.
int reopen_in_child(const std::vector<std::string> &) {
  TestRoot root;
  auto first = std::make_unique<CRtdbManager>();
  if (!start(*first, root) || add_account(*first) != 0) return 1;
  first->SetRtdbStatus(0);
  {
    CRtdbManager second;
    if (!second.RtdbManagerInit(true, nullptr)) return 2;
    if (second.GetRtdbStatus() != 2 || accounts(second) != 1 || !has_database(second, "plant")) return 3;
    first.reset();
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
  TestRoot root;
  CRtdbManager manager;
  return start(manager, root) && add_account(manager) == 0 ? 0 : 1;
}
const RegisterChild kStarter{"start", start_in_child};

// A database under the manager's own key overlays the directory; nothing may be read or written outside.
TEST(Start, DatabaseUnderTheManagersKey) {
  for (const int capacity : {1, 200}) {
    TestRoot root("FileKey_Manager=2\n");
    const TableSpec small{20, "Small", capacity, {"ID UINT 4"}};
    CRtdbManager manager;
    EXPECT_FALSE(manager.RtdbManagerInit(false, root.write("s", schema_text({small}, {small})).c_str()));
    EXPECT_FALSE(has_database(manager, "system"));
  }
}

// The lock on a mutex's file was held as long as the mutex was mapped, so a second process waited for the first to end.
TEST(Start, ProcessesStartSideBySide) {
  TestRoot root;
  CRtdbManager manager;
  ASSERT_TRUE(start(manager, root));
  ASSERT_EQ(add_account(manager), 0);
  EXPECT_EQ(Child("start").wait(), 0);
}

TEST(ByDesign, ReopenKeepsSegments) { EXPECT_EQ(Child("reopen").wait(), 0); }

TEST(ByDesign, DestroyKeepsDatabases) {
  TestRoot root;
  CRtdbManager manager;
  ASSERT_TRUE(start(manager, root));
  ASSERT_EQ(add_account(manager), 0);
  manager.DestroyMemory();
  EXPECT_FALSE(segment_exists(333));
  EXPECT_TRUE(segment_exists(1));
  EXPECT_TRUE(segment_exists(2));
  EXPECT_EQ(accounts(manager), 1);  // the view on the system database stays, too
  EXPECT_EQ(manager.GetRtdbStatus(), 2);
  EXPECT_FALSE(has_database(manager, "plant"));
  EXPECT_EQ(manager.AttachShareMemory(), 0);
}

// Configuration texts and what the manager makes of them: a wrong key finds no image, a wrong path no data.
TEST(Start, Configuration) {
  const std::tuple<const char *, int, const char *> rows[] = {
      {"", 333, ""},
      {"[quillaNEST]\r\nfilekey_MANAGER = 12abc\r\n rtdbdatapath =  a b/ \r\n", 12, "a b/"},
      {"[Quillanest]\nFileKey_Manager=\nRtdbDataPath=\"d d/\"\n", 333, "d d/"},
      {"[Quillanest]\nFileKey_Manager=abc\nRtdbDataPath='d/'\n", 0, "d/"},
      {"[Quillanest]\n;FileKey_Manager=7\nFileKey_Manager=8\nFileKey_Manager=9\n", 8, ""},
      {"FileKey_Manager=7\n[Quillanest]\nRtdbDataPath=/abs/\n[Other]\nFileKey_Manager=8", 333, "/abs/"},
  };
  for (const auto &[text, key, data_path] : rows) {
    SCOPED_TRACE(text);
    TestRoot root;
    root.write("conf/fix_Rtdb.ini", text);
    CRtdbManager manager;
    (void)start(manager, root);  // the segment appears although no store is open
    EXPECT_TRUE(segment_exists(key));
    EXPECT_EQ(manager.GetDataPath(), root.path(data_path));
  }
}

// Paths that do not fit their 96 bytes must not run into the next member.
TEST(Start, InstallationRoots) {
  TestRoot root("FileKey_Manager=444\n");
  const std::string without_slash = root.folder().substr(0, root.folder().size() - 1);
  setenv("QUILLANEST_ROOT", without_slash.c_str(), 1);
  EXPECT_EQ(std::string(CRtdbManager().GetSysIniFile()), root.path("conf/fix_Rtdb.ini"));
  EXPECT_EQ(std::string(CRtdbManager().GetDataPath()), root.path("data/"));

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
    EXPECT_EQ(std::string(manager.GetSysIniFile()), fits ? folder + "conf/fix_Rtdb.ini" : "");
    EXPECT_EQ(std::string(manager.GetDataPath()), fits ? folder + data_path : "");
    EXPECT_EQ(start(manager, root), fits);
  }
}

// A copy that owned the databases as well would free them twice; one that did not share them would lose them.
TEST(Start, CopyOutlivesTheOriginal) {
  TestRoot root;
  auto original = std::make_unique<CRtdbManager>();
  ASSERT_TRUE(start(*original, root));
  ASSERT_EQ(add_account(*original), 0);
  CRtdbManager copy(*original);
  CRtdbManager assigned;
  assigned = *original;
  assigned = *&assigned;
  EXPECT_EQ(accounts(copy), -1);
  ASSERT_EQ(copy.AttachShareMemory(), 1);
  original.reset();
  EXPECT_EQ(accounts(copy), 1);
  EXPECT_EQ(assigned.AttachShareMemory(), 1);
  EXPECT_EQ(add_account(assigned), 1);
  copy = CRtdbManager();
  EXPECT_EQ(accounts(assigned), 2);
}

// Two images of one process share segments of equal database IDs, never the directory.
TEST(Start, ManagersWithDifferentKeys) {
  TestRoot root;
  CRtdbManager first;
  ASSERT_TRUE(start(first, root));
  ASSERT_EQ(add_account(first), 0);
  root.configure("DataInFile=1\nFileKey_Manager=600\n");
  {
    CRtdbManager second;
    ASSERT_TRUE(start(second, root, false));
    EXPECT_FALSE(has_database(second, "plant"));
    EXPECT_TRUE(has_database(first, "plant"));
    EXPECT_EQ(accounts(first), 0);  // laid out anew by the second start
    second.SetRtdbStatus(0);
    EXPECT_EQ(first.GetRtdbStatus(), 2);
  }
  EXPECT_FALSE(segment_exists(600));
  EXPECT_EQ(add_account(first), 0);
}

// Open descriptors, and mappings of segments and mutexes.
std::pair<long, long> resources() {
  long mappings = 0;
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.find("memfd:") != std::string::npos || line.find("/dev/shm") != std::string::npos) ++mappings;
  }
  const std::filesystem::directory_iterator descriptors("/proc/self/fd");
  return {std::distance(begin(descriptors), end(descriptors)), mappings};
}

TEST(Start, RepeatedStartsLeaveNothingBehind) {
  TestRoot root;
  std::pair<long, long> after_first;
  for (int i = 0; i < 10; ++i) {
    {
      CRtdbManager manager;
      ASSERT_TRUE(start(manager, root));
      ASSERT_EQ(add_account(manager), 0);
      CRtdbManager other;
      ASSERT_EQ(other.AttachShareMemory(), 1);
      ASSERT_TRUE(manager.SaveData(0));
      ASSERT_EQ(manager.LoadAllCustomizedDB(0), 1);
      std::filesystem::remove_all(root.path("data/system_Account.txt"));
    }
    EXPECT_FALSE(segment_exists(333));
    EXPECT_FALSE(segment_exists(1));
    if (i == 0) after_first = resources();
  }
  EXPECT_EQ(resources(), after_first);
}

}  // namespace
