// Rows per second into and out of a relational store, through the library and without it.
//
//   save, library    CRtDataBase::SaveData(0): connect, DELETE, 20,000 INSERTs made from the records, COMMIT
//   save, straight   the same statements, ready made, sent one by one through sqlite3_prepare_v2 or PQexec in one
//                    transaction, with the connect
//   load, library    CRtdbManager::LoadAllCustomizedDB(0): connect, SELECT, 20,000 records filled
//   load, straight   the same query through sqlite3_step or PQexec, every value taken into a structure, with the
//   connect
//
// Records have 8 columns: 3 integers, 2 texts, a DOUBLE, a FLOAT and a TIME. Each operation runs seven times, library
// and straight in turn, and the median counts. After every save the rows in the store are counted, after every load the
// sums of the keys and values are compared.
//
//   store_bench FOLDER [PORT]
//
// FOLDER is scratch: the store file, schema and configuration are made in it. PORT is that of a PostgreSQL server on
// 127.0.0.1 with a database and a user called bench and no password; without it only SQLite is measured.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <libpq-fe.h>
#include <memory>
#include <sqlite3.h>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "quillanest/Quillanest.h"
#include "tests/support/SchemaText.h"

namespace {

namespace fs = std::filesystem;

constexpr int kRows = 20000;
constexpr int kRepetitions = 7;
constexpr const char *kQuery = "SELECT * FROM bench_samples ORDER BY ID";
constexpr const char *kDelete = "DELETE FROM bench_samples";
constexpr const char *kCount = "SELECT count(*) FROM bench_samples";

const TableSpec kSamples{20,
                         "samples",
                         kRows,
                         {"ID UINT 4", "source UINT 4", "samples INT 4", "name STRING 16", "unit STRING 8",
                          "value DOUBLE 8", "high FLOAT 4", "taken TIME 16"}};

constexpr const char *kSqliteTables = R"(
CREATE TABLE system_notes (ID INTEGER PRIMARY KEY);
CREATE TABLE bench_samples (ID INTEGER PRIMARY KEY, source INTEGER, samples INTEGER, name TEXT, unit TEXT,
                            value REAL, high REAL, taken DATETIME);
)";
constexpr const char *kPostgresTables = R"(
DROP TABLE IF EXISTS system_notes, bench_samples;
CREATE TABLE system_notes (ID bigint PRIMARY KEY);
CREATE TABLE bench_samples (ID bigint PRIMARY KEY, source bigint, samples integer, name text, unit text,
                            value double precision, high real, taken timestamp);
)";

// One record, as the image holds it but for the padding.
struct Sample {
  std::uint32_t id;
  std::uint32_t source;
  std::int32_t samples;
  std::array<char, 16> name;
  std::array<char, 8> unit;
  double value;
  float high;
  SYSTEMTIME taken;
};

Sample sample(int number) {
  Sample row{};
  row.id = static_cast<std::uint32_t>(number + 1);
  row.source = static_cast<std::uint32_t>(number / 40);
  row.samples = number * 31 % 1000;
  std::snprintf(row.name.data(), row.name.size(), "S%03d-%05d", number / 80, number);
  std::snprintf(row.unit.data(), row.unit.size(), "kW");
  row.value = number * 0.25;
  row.high = 9500.5F;
  const auto part = [](int value) { return static_cast<std::uint16_t>(value); };
  row.taken = {2024, part(1 + number % 12), 0, part(1 + number % 28), part(number % 24), part(number % 60), 7, 0};
  return row;
}

// What a load must bring: the sums of keys and values.
struct Sums {
  std::uint64_t keys = 0;
  double values = 0;
  void add(std::uint32_t key, double value) {
    keys += key;
    values += value;
  }
};

Sums expected_sums() {
  Sums sums;
  for (int i = 0; i < kRows; ++i) sums.add(sample(i).id, sample(i).value);
  return sums;
}

void expect(bool holds, const std::string &what) {
  if (!holds) throw std::runtime_error(what);
}

std::vector<std::string> insert_statements() {
  std::vector<std::string> statements;
  for (int i = 0; i < kRows; ++i) {
    const Sample row = sample(i);
    char text[256];
    std::snprintf(text, sizeof text, "INSERT INTO bench_samples VALUES(%u,%u,%d,'%s','%s',%f,%f,'%d-%d-%d %d:%d:%d')",
                  row.id, row.source, row.samples, row.name.data(), row.unit.data(), row.value,
                  static_cast<double>(row.high), row.taken.wYear, row.taken.wMonth, row.taken.wDay, row.taken.wHour,
                  row.taken.wMinute, row.taken.wSecond);
    statements.emplace_back(text);
  }
  return statements;
}

SYSTEMTIME time_of(const char *text) {
  SYSTEMTIME time{};
  std::sscanf(text, "%hu-%hu-%hu %hu:%hu:%hu", &time.wYear, &time.wMonth, &time.wDay, &time.wHour, &time.wMinute,
              &time.wSecond);
  return time;
}

void write_file(const fs::path &path, const std::string &text) {
  std::ofstream file(path);
  file << text;
  file.close();
  expect(!file.fail(), "cannot write " + path.string());
}

// One way into a store: what is measured, and a check that belongs to no measurement.
class Peer {
 public:
  virtual ~Peer() = default;
  virtual const char *name() const = 0;
  virtual std::string configuration() const = 0;
  virtual void save(const std::vector<std::string> &inserts) = 0;
  virtual Sums load() = 0;
  virtual int count() = 0;
};

class SqlitePeer : public Peer {
 public:
  explicit SqlitePeer(fs::path file) : file_(std::move(file)) {
    fs::remove(file_);
    sqlite3 *database = nullptr;
    const int result = sqlite3_open(file_.c_str(), &database);
    const std::unique_ptr<sqlite3, Close> owner(database);
    expect(result == SQLITE_OK && sqlite3_exec(database, kSqliteTables, nullptr, nullptr, nullptr) == SQLITE_OK,
           "cannot make " + file_.string());
  }
  const char *name() const override { return "SQLite"; }
  std::string configuration() const override { return "MainDBType=1\nMainDBName=" + file_.filename().string() + "\n"; }

  void save(const std::vector<std::string> &inserts) override {
    const auto database = open();
    run(database.get(), "BEGIN IMMEDIATE");
    run(database.get(), kDelete);
    for (const std::string &insert : inserts) run(database.get(), insert);
    run(database.get(), "COMMIT");
  }

  Sums load() override {
    const auto database = open();
    const auto statement = prepare(database.get(), kQuery);
    std::vector<Sample> rows;
    while (sqlite3_step(statement.get()) == SQLITE_ROW) {
      sqlite3_stmt *row = statement.get();
      Sample &to = rows.emplace_back();
      to.id = static_cast<std::uint32_t>(sqlite3_column_int64(row, 0));
      to.source = static_cast<std::uint32_t>(sqlite3_column_int64(row, 1));
      to.samples = sqlite3_column_int(row, 2);
      std::snprintf(to.name.data(), to.name.size(), "%s", text(row, 3));
      std::snprintf(to.unit.data(), to.unit.size(), "%s", text(row, 4));
      to.value = sqlite3_column_double(row, 5);
      to.high = static_cast<float>(sqlite3_column_double(row, 6));
      to.taken = time_of(text(row, 7));
    }
    Sums sums;
    for (const Sample &row : rows) sums.add(row.id, row.value);
    return sums;
  }

  int count() override {
    const auto database = open();
    const auto statement = prepare(database.get(), kCount);
    return sqlite3_step(statement.get()) == SQLITE_ROW ? sqlite3_column_int(statement.get(), 0) : -1;
  }

 private:
  struct Close {
    void operator()(sqlite3 *database) const { sqlite3_close(database); }
  };
  struct Finish {
    void operator()(sqlite3_stmt *statement) const { sqlite3_finalize(statement); }
  };

  std::unique_ptr<sqlite3, Close> open() const {
    sqlite3 *database = nullptr;
    const int result = sqlite3_open_v2(file_.c_str(), &database, SQLITE_OPEN_READWRITE, nullptr);
    std::unique_ptr<sqlite3, Close> owner(database);
    expect(result == SQLITE_OK, "cannot open " + file_.string());
    return owner;
  }
  static std::unique_ptr<sqlite3_stmt, Finish> prepare(sqlite3 *database, const std::string &sql) {
    sqlite3_stmt *statement = nullptr;
    expect(sqlite3_prepare_v2(database, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK, sqlite3_errmsg(database));
    return std::unique_ptr<sqlite3_stmt, Finish>(statement);
  }
  static void run(sqlite3 *database, const std::string &sql) {
    expect(sqlite3_step(prepare(database, sql).get()) == SQLITE_DONE, sqlite3_errmsg(database));
  }
  static const char *text(sqlite3_stmt *row, int column) {
    return reinterpret_cast<const char *>(sqlite3_column_text(row, column));
  }

  fs::path file_;
};

class PostgresPeer : public Peer {
 public:
  explicit PostgresPeer(std::string port) : port_(std::move(port)) {
    const auto connection = open();
    run(connection.get(), "SET client_min_messages = warning");
    run(connection.get(), kPostgresTables);
  }
  const char *name() const override { return "PostgreSQL"; }
  std::string configuration() const override {
    return "MainDBType=7\nMainDBName=127.0.0.1:" + port_ + "\nMainDBUser=bench\nMainDBInitDB=bench\n";
  }

  void save(const std::vector<std::string> &inserts) override {
    const auto connection = open();
    run(connection.get(), "BEGIN ISOLATION LEVEL SERIALIZABLE");
    run(connection.get(), kDelete);
    for (const std::string &insert : inserts) run(connection.get(), insert.c_str());
    run(connection.get(), "COMMIT");
  }

  Sums load() override {
    const auto connection = open();
    const auto result = run(connection.get(), kQuery);
    const int count = PQntuples(result.get());
    std::vector<Sample> rows(static_cast<std::size_t>(count));
    Sums sums;
    for (int i = 0; i < count; ++i) {
      const auto text = [&](int column) { return PQgetvalue(result.get(), i, column); };
      Sample &to = rows[static_cast<std::size_t>(i)];
      to.id = static_cast<std::uint32_t>(std::strtoll(text(0), nullptr, 10));
      to.source = static_cast<std::uint32_t>(std::strtoll(text(1), nullptr, 10));
      to.samples = static_cast<std::int32_t>(std::strtoll(text(2), nullptr, 10));
      std::snprintf(to.name.data(), to.name.size(), "%s", text(3));
      std::snprintf(to.unit.data(), to.unit.size(), "%s", text(4));
      to.value = std::strtod(text(5), nullptr);
      to.high = std::strtof(text(6), nullptr);
      to.taken = time_of(text(7));
      sums.add(to.id, to.value);
    }
    return sums;
  }

  int count() override { return std::atoi(PQgetvalue(run(open().get(), kCount).get(), 0, 0)); }

 private:
  struct Close {
    void operator()(PGconn *connection) const { PQfinish(connection); }
    void operator()(PGresult *result) const { PQclear(result); }
  };

  std::unique_ptr<PGconn, Close> open() const {
    std::unique_ptr<PGconn, Close> connection(
        PQconnectdb(("host=127.0.0.1 user=bench dbname=bench port=" + port_).c_str()));
    expect(PQstatus(connection.get()) == CONNECTION_OK, PQerrorMessage(connection.get()));
    return connection;
  }
  static std::unique_ptr<PGresult, Close> run(PGconn *connection, const char *sql) {
    std::unique_ptr<PGresult, Close> result(PQexec(connection, sql));
    const ExecStatusType status = PQresultStatus(result.get());
    expect(status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK, PQerrorMessage(connection));
    return result;
  }

  std::string port_;
};

double seconds_of(const std::function<void()> &work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> seconds) {
  std::sort(seconds.begin(), seconds.end());
  return seconds[seconds.size() / 2];
}

// The library's side, on the store that the configuration names.
class Image {
 public:
  explicit Image(const fs::path &folder) {
    expect(manager_.RtdbManagerInit(false, (folder / "bench.schema").c_str()), "the library does not start");
    expect(manager_.GetDataBaseFromName(database_, "bench") == 1 && database_.AttachShareMemory() == 1, "no database");
    expect(database_.GetDBTableFromName(table_, "samples") == 1, "no table");
  }

  void fill() {
    (void)table_.DeleteAllRecord();
    std::vector<char> record(static_cast<std::size_t>(table_.GetTableSize()));
    for (int i = 0; i < kRows; ++i) {
      const Sample row = sample(i);
      char *to = record.data();
      const auto put = [&to](const void *from, std::size_t size) {
        std::memcpy(to, from, size);
        to += size;
      };
      put(&row.id, sizeof row.id);
      put(&row.source, sizeof row.source);
      put(&row.samples, sizeof row.samples);
      put(row.name.data(), row.name.size());
      put(row.unit.data(), row.unit.size());
      put(&row.value, sizeof row.value);
      put(&row.high, sizeof row.high);
      put(&row.taken, sizeof row.taken);
      expect(table_.Insert(record.data(), 0) == i, "a record is not inserted");
    }
  }

  void save() { expect(database_.SaveData(0), "the library does not save"); }
  void load() { expect(manager_.LoadAllCustomizedDB(0) == 1, "the library does not load"); }

  Sums sums() {
    constexpr std::size_t kValueOffset = 36;
    Sums sums;
    for (int position = table_.GetFirstPosition(); position != -1;) {
      const char *record = table_.GetNextPosition(position);
      std::uint32_t key = 0;
      double value = 0;
      std::memcpy(&key, record, sizeof key);
      std::memcpy(&value, record + kValueOffset, sizeof value);
      sums.add(key, value);
    }
    return sums;
  }

 private:
  CRtdbManager manager_;
  CRtDataBase database_;
  CRtTable table_;
};

void print_row(const char *store, const char *operation, const char *path, double seconds, double straight) {
  std::printf("%-11s %-9s %-9s %10.1f %10.0f   %5.2f\n", store, operation, path, seconds * 1000, kRows / seconds,
              straight / seconds);
}

void measure(Peer &peer, const fs::path &folder) {
  write_file(folder / "conf/fix_Rtdb.ini",
             "[Quillanest]\nDataInFile=0\nRtdbDataPath=data/\n[RtdbMedia]\nBackDBType=-1\n" + peer.configuration());
  Image image(folder);
  image.fill();
  const std::vector<std::string> inserts = insert_statements();
  const Sums expected = expected_sums();
  const auto expect_sums = [&](const Sums &sums) {
    expect(sums.keys == expected.keys && sums.values == expected.values, "a load brought something else");
  };
  const auto expect_rows = [&] { expect(peer.count() == kRows, "rows are missing in the store"); };

  std::array<std::vector<double>, 4> seconds;
  for (int i = 0; i < kRepetitions; ++i) {
    seconds[0].push_back(seconds_of([&] { image.save(); }));
    expect_rows();
    seconds[1].push_back(seconds_of([&] { peer.save(inserts); }));
    expect_rows();
    seconds[2].push_back(seconds_of([&] { image.load(); }));
    expect_sums(image.sums());
    Sums sums;
    seconds[3].push_back(seconds_of([&] { sums = peer.load(); }));
    expect_sums(sums);
  }
  const double straight_save = median(seconds[1]);
  const double straight_load = median(seconds[3]);
  print_row(peer.name(), "save", "library", median(seconds[0]), straight_save);
  print_row(peer.name(), "save", "straight", straight_save, straight_save);
  print_row(peer.name(), "load", "library", median(seconds[2]), straight_load);
  print_row(peer.name(), "load", "straight", straight_load, straight_load);
}

}  // namespace

int main(int argc, char **argv) {
  if (argc < 2 || argc > 3) {
    std::fprintf(stderr, "usage: store_bench FOLDER [PORT]\n");
    return 2;
  }
  try {
    const fs::path folder = fs::absolute(argv[1]);
    fs::create_directories(folder / "conf");
    fs::create_directories(folder / "data");
    write_file(folder / "bench.schema",
               schema_of({{"system", 0, {{10, "notes", 4, {"ID UINT 4"}}}}, {"bench", 1, {kSamples}}}));
    setenv("QUILLANEST_ROOT", folder.c_str(), 1);
    std::printf("%d rows of 8 columns, median of %d runs\n\n", kRows, kRepetitions);
    std::printf("%-11s %-9s %-9s %10s %10s   %s\n", "store", "operation", "path", "ms", "rows/s", "of straight");
    SqlitePeer sqlite(folder / "data/bench.db");
    measure(sqlite, folder);
    if (argc == 3) {
      PostgresPeer postgres(argv[2]);
      measure(postgres, folder);
    }
    return 0;
  } catch (const std::exception &failure) {
    std::fflush(stdout);
    std::fprintf(stderr, "store_bench: %s\n", failure.what());
    return 1;
  }
}
