// Loads and saves of a text file of 1,000,000 records.
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <libpq-fe.h>
#include <memory>
#include <spawn.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "bench/Benches.h"
#include "bench/TextFormats.h"

extern char **environ;

namespace bench {
namespace {

namespace fs = std::filesystem;
using benchmark::State;

constexpr int kRepetitions = 5;  // fewer than of the quick operations
constexpr const char *kLoad = "load text";
constexpr const char *kSave = "save text";
constexpr const char *kSqliteColumns =
    "id INTEGER PRIMARY KEY, source INTEGER, samples INTEGER, state INTEGER, value REAL, high REAL, name TEXT, "
    "taken TEXT";
constexpr const char *kPostgresColumns =
    "id bigint PRIMARY KEY, source integer, samples integer, state integer, value double precision, "
    "high double precision, name text, taken timestamp";

// The records, the file, and what the limits write into. Made when the first measurement needs it.
class Texts {
 public:
  explicit Texts(Image &image) : image_(image) {}

  void prepare() {
    if (!records_.empty()) return;
    for (int i = 0; i < kTextRecords; ++i) records_.push_back(text_record(i));
    room_.resize(records_.size() * 100);
    const std::size_t size = format_text(records_, room_.data());
    write_file(image_.text_file(), {room_.data(), size});
    loaded_.resize(records_.size());
    load_kernel();
    std::memcpy(loaded_.data(), image_.text_table().GetDataAddress(), records_.size() * kTextRecordSize);
    expect_loaded();
    save_kernel();
    const FileBytes saved = read_whole(image_.text_file());
    expect(saved.size == size && std::memcmp(saved.bytes.get(), room_.data(), size) == 0, "a save wrote another file");
  }

  void load_kernel() {
    expect(image_.manager().LoadTableData(kTextDatabase, kTextTable, nullptr), "the library does not load");
    expect(image_.text_table().GetRecordCount() == kTextRecords, "records are missing after a load");
  }
  void save_kernel() { expect(image_.text_table().SaveData(0), "the library does not save"); }

  void set_strict(bool strict) { image_.configure(strict); }

  void find() { expect(find_separators(file()) == records_.size() * 8 + 8, "separators are missing"); }
  void parse() { expect(parse_text(file(), loaded_) == records_.size(), "records are not parsed"); }
  void scan() { expect(scan_text(file(), loaded_) == records_.size(), "records are not scanned"); }

  void format(bool sync) {
    const std::size_t size = format_text(records_, room_.data());
    const int out = open(copy().c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    expect(write(out, room_.data(), size) == static_cast<ssize_t>(size), "the text is not written");
    expect(!sync || fsync(out) == 0, "the text is not on the disk");
    close(out);
  }
  void print(bool sync) {
    std::FILE *out = std::fopen(copy().c_str(), "w");
    expect(out != nullptr, "no file to print to");
    print_text(records_, out);
    expect(std::fflush(out) == 0 && (!sync || fsync(fileno(out)) == 0), "the text is not printed");
    std::fclose(out);
  }

  void expect_loaded() const {
    expect(std::memcmp(loaded_.data(), records_.data(), records_.size() * kTextRecordSize) == 0,
           "a load brought other values");
  }
  [[nodiscard]] fs::path file() const { return image_.text_file(); }
  // A place for files beside the kernel's.
  [[nodiscard]] fs::path copy() const { return image_.folder() / "copy.txt"; }

 private:
  Image &image_;
  std::vector<TextRecord> records_;
  std::vector<TextRecord> loaded_;
  std::vector<char> room_;
};

// Runs the tool sqlite3 on a script; the seconds of processor time it took.
double run_sqlite(const std::string &script) {
  std::string program = "sqlite3";
  std::string quiet = "-batch";
  std::string database = ":memory:";
  std::string commands = ".read \"" + script + "\"";
  char *arguments[] = {program.data(), quiet.data(), database.data(), commands.data(), nullptr};
  pid_t process = 0;
  expect(posix_spawnp(&process, program.c_str(), nullptr, nullptr, arguments, environ) == 0, "no tool sqlite3");
  int status = 0;
  rusage used{};
  expect(wait4(process, &status, 0, &used) == process && status == 0, "sqlite3 failed");
  const auto seconds = [](timeval time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return seconds(used.ru_utime) + seconds(used.ru_stime);
}

void load_with_sqlite(State &state, const Texts &texts) {
  const std::string script = texts.copy().string() + ".sql";
  write_file(script, "CREATE TABLE samples (" + std::string(kSqliteColumns) +
                         ");\n.mode csv\n.separator ; \"\\r\\n\"\n" + ".import --skip 1 " + texts.file().string() +
                         " samples\n");
  for (auto _ : state) state.SetIterationTime(run_sqlite(script));
}

class Postgres {
 public:
  explicit Postgres(const std::string &port)
      : connection_(PQconnectdb(("host=127.0.0.1 user=bench dbname=bench port=" + port).c_str()), PQfinish) {
    expect(PQstatus(connection_.get()) == CONNECTION_OK, PQerrorMessage(connection_.get()));
    run("SET client_min_messages = warning");
    run("DROP TABLE IF EXISTS text_samples");
    run("CREATE UNLOGGED TABLE text_samples (" + std::string(kPostgresColumns) + ")");
  }
  void run(const std::string &sql) {
    const std::unique_ptr<PGresult, void (*)(PGresult *)> result(PQexec(connection_.get(), sql.c_str()), PQclear);
    expect(PQresultStatus(result.get()) == PGRES_COMMAND_OK, PQerrorMessage(connection_.get()));
  }

 private:
  std::unique_ptr<PGconn, void (*)(PGconn *)> connection_;
};

void load_with_postgres(State &state, const Texts &texts, const std::string &port) {
  Postgres postgres(port);
  const std::string copy =
      "COPY text_samples FROM '" + texts.file().string() + "' (FORMAT csv, DELIMITER ';', HEADER true)";
  for (auto _ : state) {
    postgres.run(copy);
    state.PauseTiming();
    postgres.run("TRUNCATE text_samples");
    state.ResumeTiming();
  }
}

benchmark::internal::Benchmark *add(const std::string &operation, const std::string &who,
                                    const std::shared_ptr<Texts> &texts, const std::function<void(State &)> &measure) {
  return benchmark::RegisterBenchmark(name_of(operation, who).c_str(),
                                      [texts, measure](State &state) {
                                        texts->prepare();
                                        measure(state);
                                      })
      ->Unit(benchmark::kMillisecond)
      ->Repetitions(kRepetitions);
}

// A measurement that calls a member again and again.
template <class Work>
std::function<void(State &)> repeat(const std::shared_ptr<Texts> &texts, Work work) {
  return [texts, work](State &state) {
    for (auto _ : state) work(*texts);
  };
}

// A measurement under another configuration or with a handler of events, which counts them: nothing fails here, so
// there is none.
template <class Work>
std::function<void(State &)> with_handler(const std::shared_ptr<Texts> &texts, Work work) {
  return [texts, work](State &state) {
    int events = 0;
    quillanest::set_event_handler([](const quillanest::Event &, void *count) { ++*static_cast<int *>(count); },
                                  &events);
    for (auto _ : state) work(*texts);
    quillanest::set_event_handler(nullptr, nullptr);
    expect(events == 0, "something is reported where nothing fails");
  };
}
template <class Work>
std::function<void(State &)> in_strict_mode(const std::shared_ptr<Texts> &texts, Work work) {
  return [texts, work](State &state) {
    texts->set_strict(true);
    for (auto _ : state) work(*texts);
    texts->set_strict(false);
    texts->save_kernel();  // the file that the others measure with
  };
}

void add_loads(const std::shared_ptr<Texts> &texts, const std::string &postgres_port) {
  add(kLoad, "kernel", texts, repeat(texts, [](Texts &all) { all.load_kernel(); }));
  add(kLoad, "kernel, with a handler", texts, with_handler(texts, [](Texts &all) { all.load_kernel(); }));
  add(kLoad, "kernel, strict", texts, in_strict_mode(texts, [](Texts &all) { all.load_kernel(); }));
  add(kLoad, "limit, read and memchr", texts, repeat(texts, [](Texts &all) { all.find(); }));
  add(kLoad, "limit, from_chars", texts, repeat(texts, [](Texts &all) { all.parse(); }));
  add(kLoad, "fgets, strtol, strtod", texts, repeat(texts, [](Texts &all) { all.scan(); }));
  add(kLoad, "SQLite, .import", texts, [texts](State &state) { load_with_sqlite(state, *texts); })->UseManualTime();
  if (postgres_port.empty()) return;
  add(kLoad, "PostgreSQL, COPY", texts, [texts, postgres_port](State &state) {
    load_with_postgres(state, *texts, postgres_port);
  })->UseRealTime();
}

void add_saves(const std::shared_ptr<Texts> &texts) {
  add(kSave, "kernel", texts, repeat(texts, [](Texts &all) { all.save_kernel(); }))->UseRealTime();
  add(kSave, "kernel, strict", texts, in_strict_mode(texts, [](Texts &all) { all.save_kernel(); }))->UseRealTime();
  add(kSave, "limit, to_chars, fsync", texts, repeat(texts, [](Texts &all) { all.format(true); }))->UseRealTime();
  add(kSave, "limit, to_chars", texts, repeat(texts, [](Texts &all) { all.format(false); }))->UseRealTime();
  add(kSave, "fprintf, fsync", texts, repeat(texts, [](Texts &all) { all.print(true); }))->UseRealTime();
  add(kSave, "fprintf", texts, repeat(texts, [](Texts &all) { all.print(false); }))->UseRealTime();
}

}  // namespace

void register_texts(Image &image, const std::string &postgres_port) {
  const auto texts = std::make_shared<Texts>(image);
  add_loads(texts, postgres_port);
  add_saves(texts);
}

}  // namespace bench
