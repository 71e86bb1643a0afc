// A program that edits and saves is killed at random moments; the next one finds whole tables and nothing in its way.
//
// All records of a table carry one level, which every save of the image raises, and the number of records follows from
// it. So a table that mixes two saves, or lacks a record of one, shows.
#include <algorithm>
#include <array>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <signal.h>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>

#include "tests/abuse/Length.h"
#include "tests/store/StoreFixture.h"
#include "tests/support/Child.h"
#include "tests/support/Mutexes.h"

namespace {

namespace fs = std::filesystem;

constexpr unsigned kPatience = 30;  // seconds, after which a program that waits for something in vain is ended

const std::vector<std::string> kFields{"ID UINT 4", "Level INT 4", "Name STRING 24", "Value DOUBLE 8",
                                       "bModified INT 4"};
struct Record {
  std::int32_t key, level;
  std::array<char, 24> name;
  double value;
  std::int32_t modified;
};
constexpr std::size_t kCompared = offsetof(Record, modified);

// In the order in which a save walks them. The first one lies in the system database; the number is its ID.
constexpr std::array<std::pair<unsigned, const char *>, 4> kTables{
    {{10, "Limits"}, {20, "Points"}, {21, "Texts"}, {22, "Units"}}};

int count_at(const CRtTable &table, int level) { return level == 0 ? 0 : table.GetRecordMaxCount() - level * 3 % 4; }

Record record_at(const CRtTable &table, int key, int level) {
  Record record{key, level, {}, level + 0.5 * key, 0};
  const std::string name = std::to_string(table.GetTableID()) + '-' + std::to_string(key) + '-' + std::to_string(level);
  name.copy(record.name.data(), record.name.size() - 1);
  return record;
}

// The level of a table of which every record is as a save of that level wrote it; -1 when one is not.
int level_of(const CRtTable &table) {
  const int count = table.GetRecordCount();
  const int level = count == 0 ? 0 : peek(table.GetAt(0), offsetof(Record, level));
  for (int position = 0; position < count; ++position) {
    const Record record = record_at(table, position + 1, level);
    if (std::memcmp(table.GetAt(position), &record, kCompared) != 0) return -1;
  }
  return count == count_at(table, level) ? level : -1;
}

bool raise_table(CRtTable &table, int level) {
  const int count = count_at(table, level);
  for (int key = table.GetRecordCount(); key > count; --key) (void)table.Delete(static_cast<unsigned>(key), -1, 0);
  for (int key = 1; key <= count; ++key) {
    Record record = record_at(table, key, level);
    char *bytes = reinterpret_cast<char *>(&record);
    (void)(key <= table.GetRecordCount() ? table.Update(bytes, -1, 0) : table.Insert(bytes, 0));
  }
  return level_of(table) == level;
}

struct LevelImage {
  CRtdbManager manager;
  std::array<CRtDataBase, kTables.size()> databases;  // each table's
  std::array<CRtTable, kTables.size()> tables;
  bool started;

  explicit LevelImage(const std::string &schema)
      : started(manager.RtdbManagerInit(false, schema.c_str()) && manager.LoadAllCustomizedDB(0) == 1) {
    for (std::size_t i = 0; i < tables.size(); ++i) {
      started = started && manager.FindTable(kTables[i].first, databases[i], tables[i]) == 1;
    }
  }

  bool raise(int level) {
    return std::all_of(tables.begin(), tables.end(), [&](CRtTable &table) { return raise_table(table, level); });
  }
  bool save() { return databases.front().SaveData(0) && databases.back().SaveData(0); }
};

// Arguments: schema, database. Raises the level and saves until it is killed. Two times out of three it holds the
// database's mutex from the first edit to the end of the save, otherwise the edits take it for themselves.
int save_for_ever(const std::vector<std::string> &arguments) {
  LevelImage image(arguments[0]);
  CMutexEx mutex(arguments[1].c_str());
  bool well = image.started;
  for (int level = well ? level_of(image.tables[0]) + 1 : 0; well; ++level) {
    const bool holds = level % 3 != 0;
    well = (!holds || mutex.Wait(-1) == 0) && image.raise(level) && image.save() && (!holds || mutex.Release());
    say(well ? std::to_string(level) : "gave up");
  }
  return 1;
}
const RegisterChild kSaver{"save_for_ever", save_for_ever};

// Arguments: schema, database, data folder. Says the result of a wait for the mutex, how many unfinished files and how
// many unknown ones lie in the folder after the load, and the levels; then it raises the level, saves, and says how
// many saves were refused.
int load_raise_and_save(const std::vector<std::string> &arguments) {
  alarm(kPatience);
  LevelImage image(arguments[0]);
  CMutexEx mutex(arguments[1].c_str());
  if (!image.started) return 1;
  const int wait = mutex.Wait(-1);
  int unfinished = 0, unknown = 0, level = 0, refused = 0;
  for (const auto &entry : fs::directory_iterator(arguments[2])) {
    const std::string kind = entry.path().extension().string();
    unfinished += kind == ".saving" ? 1 : 0;
    // SQLite leaves a journal that was never needed, which begins with a zero, alone until the next transaction.
    const bool spent = kind == ".db-journal" && std::ifstream(entry.path()).get() <= 0;
    unknown += !spent && kind != ".saving" && kind != ".txt" && kind != ".db" ? 1 : 0;
  }
  std::string line = std::to_string(wait) + ' ' + std::to_string(unfinished) + ' ' + std::to_string(unknown);
  for (const CRtTable &table : image.tables) {
    line += ' ' + std::to_string(level_of(table));
    level = std::max(level, level_of(table));
  }
  say(line);
  if (!image.raise(level + 1) || !mutex.Release()) return 2;
  while (refused < 10 && !image.save()) ++refused;
  say(std::to_string(refused));
  return refused < 10 ? 0 : 3;
}
const RegisterChild kSuccessor{"load_raise_and_save", load_raise_and_save};

double now() { return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count(); }

// The files in the memory file system, up to the first full stop of their names, but for those of servers; of the
// mutexes, those whose names are of this process.
std::set<std::string> memory_files() {
  const std::string mutexes = "/dev/shm/quillanest-" + std::to_string(geteuid());
  const std::string mine = "nqt" + std::to_string(getpid()) + 'n';
  std::set<std::string> names;
  for (const std::string &folder : {std::string("/dev/shm"), mutexes}) {
    std::error_code gone;  // a file that another program removes in between, or the folder before the first mutex
    for (const auto &entry : fs::directory_iterator(folder, gone)) {
      const std::string name = entry.path().filename().string();
      const bool counts = folder == mutexes ? name.starts_with(mine) : !name.starts_with("PostgreSQL.");
      if (counts && entry.is_regular_file(gone)) names.insert(name.substr(0, name.find('.')));
    }
  }
  return names;
}

// Programs that work on one store and are killed. Their second database has a name of this run alone, and with it a
// mutex that no other program takes.
class KilledPrograms {
 public:
  explicit KilledPrograms(int records) {  // the capacity of each table
    std::vector<TableSpec> tables;
    for (const auto &[id, name] : kTables) tables.push_back({static_cast<int>(id), name, records, kFields});
    std::string text = schema_text({tables[0]}, {tables.begin() + 1, tables.end()});
    text.replace(text.find("Name=plant"), 10, "Name=" + name_.text());
    arguments_ = {root.write("schema.txt", text), name_.text(), root.path("data")};
  }

  // Configures the store and makes its tables.
  void use(Store &store) {
    root.configure("DataInFile=0\nRtdbDataPath=data/\n[RtdbMedia]\n" + store.settings("MainDB") + "BackDBType=-1\n");
    for (const auto &[id, name] : kTables) {
      (void)store.run("CREATE TABLE " + (id == kTables[0].first ? "system" : name_.text()) + '_' + name +
                      "(ID bigint, Level integer, Name varchar(24), Value double precision, bModified integer)");
    }
  }

  // Kills as often as the length of the run says. After each kill a new program starts, and `inspect` looks at the
  // store when it has ended. At rest the data folder holds the files that the first program leaves.
  void kill_often(const char *store, const std::function<void()> &inspect) {
    std::mt19937 random(seed_);
    SCOPED_TRACE("seed " + std::to_string(seed_));
    std::set<std::string> memory = memory_files();
    run_successor();
    const std::vector<std::string> at_rest = root.files("data");
    const int kills = length(25, 300);
    for (int kill = 0; kill < kills && !testing::Test::HasFailure(); ++kill) {
      SCOPED_TRACE("kill " + std::to_string(kill));
      Child saver("save_for_ever", arguments_);
      // Up to three times what a start with a save has just taken.
      std::uniform_real_distribution<double> delays(0, 3 * last_time_);
      std::this_thread::sleep_for(std::chrono::duration<double>(delays(random)));
      siginfo_t end{};
      EXPECT_EQ(waitid(P_PID, static_cast<id_t>(saver.id()), &end, WEXITED | WNOHANG | WNOWAIT), 0);
      EXPECT_EQ(end.si_pid, 0) << "it ended by itself";
      saver.kill();
      for (std::string line = saver.hear(); !line.empty(); line = saver.hear(), ++saves_) {
        ASSERT_EQ(line, std::to_string(++last_));
      }
      begun_ += root.files("data") != at_rest ? 1 : 0;
      run_successor();
      EXPECT_EQ(root.files("data"), at_rest);
      inspect();
    }
    memory.insert('n' + name_.text());
    EXPECT_EQ(memory_files(), memory);
    EXPECT_EQ(root.files(""), (std::vector<std::string>{"conf", "data", "schema.txt"}));
    EXPECT_TRUE(saves_ > 0 && held_ + between_ > 0) << "no kill came in the middle";
    std::printf(
        "abuse: death on %s: %d kills (seed %u), %d saves completed; %d kills with the mutex held, %d between two "
        "tables of a save, %d with a file begun; %d saves refused, slowest successor %.0f ms\n",
        store, kills, seed_, saves_, held_, between_, begun_, refused_, 1000 * slowest_);
  }

  TestRoot root;

 private:
  // Runs a program that loads what the last one left, edits and saves.
  void run_successor() {
    const double began = now();
    Child successor("load_raise_and_save", arguments_);
    std::istringstream said(successor.hear());
    int wait = -1, unfinished = 0, unknown = 0;
    std::array<int, kTables.size()> levels{};
    said >> wait >> unfinished >> unknown;
    for (int &level : levels) said >> level;
    ASSERT_TRUE(said) << "the image does not start, or a mutex blocks";
    EXPECT_TRUE(wait == 0 || wait == 0x80) << wait;
    EXPECT_LE(unfinished, 1) << "files that a save had begun";
    EXPECT_EQ(unknown, 0) << "files beside those of the store";
    for (std::size_t i = 0; i < levels.size(); ++i) {
      EXPECT_GE(levels[i], last_) << kTables[i].second << " is not whole, or a save that was reported is lost";
      EXPECT_LE(levels[i], i == 0 ? last_ + 1 : levels[i - 1]) << kTables[i].second << " is newer than it may be";
    }
    const std::string refused = successor.hear();
    ASSERT_EQ(successor.wait(), 0) << "no edit, no save, or none in time";
    last_time_ = now() - began;
    slowest_ = std::max(slowest_, last_time_);
    last_ = levels[0] + 1;
    refused_ += std::stoi(refused);
    held_ += wait == 0x80 ? 1 : 0;
    between_ += levels.front() != levels.back() ? 1 : 0;
  }

  const unsigned seed_ = seed();
  const MutexName name_;
  std::vector<std::string> arguments_;
  int last_ = 0;  // the level of the last save that was reported
  int saves_ = 0, held_ = 0, between_ = 0, begun_ = 0, refused_ = 0;
  double last_time_ = 0, slowest_ = 0;
};

// Catches: a save that a kill leaves half in its files, or a file or mutex in the way of the next program.
TEST(Kill, OnTextFiles) {
  KilledPrograms(1'500).kill_often("text files", [] {});
}

// Catches: a table that is saved outside one transaction; a file that the next program cannot open.
TEST(Kill, OnAFileOfSqlite) {
  KilledPrograms programs(300);
  FileStore store(programs.root);
  programs.use(store);
  programs.kill_often("a file of SQLite", [&] { EXPECT_EQ(store.run("PRAGMA integrity_check"), "ok\n"); });
}

// Catches: a table that is saved outside one transaction; a connection that outlives its program.
TEST(Kill, OnAServer) {
  KilledPrograms programs(30);
  ServerStore store;
  programs.use(store);
  // The system's settings of ODBC may have psqlodbc leave a log of every program.
  setenv("ODBCSYSINI", programs.root.path("conf").c_str(), 1);
  // A word about every dead client would fill the pipe of the server's log.
  (void)store.run(std::string("ALTER ROLE ") + PostgresServer::kUser + " SET log_min_messages = panic");
  programs.kill_often("PostgreSQL", [&] {
    const double end = now() + 10;
    std::string open(1, ' ');
    while (!open.empty() && now() < end) {
      open = store.run("SELECT state, query FROM pg_stat_activity WHERE client_addr IS NOT NULL");
    }
    EXPECT_EQ(open, "") << "of a client that is gone";
  });
}

}  // namespace
