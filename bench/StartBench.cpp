// Start-ups of an image of 10 databases, 200 tables, 4,000 fields and 1 GB.
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

#include "bench/Benches.h"
#include "tests/support/SchemaText.h"

namespace bench {
namespace {

namespace fs = std::filesystem;
using benchmark::State;

constexpr int kDatabases = 10;
constexpr int kTablesEach = 20;
constexpr int kFieldsEach = 20;
constexpr int kRecordBytes = 4 + (kFieldsEach - 1) * 8;
constexpr std::size_t kImageBytes = std::size_t{1} << 30;
constexpr int kCapacity = static_cast<int>(kImageBytes / (kDatabases * kTablesEach * kRecordBytes));

std::string schema() {
  std::vector<std::string> fields{"field0 UINT 4 0"};
  for (int i = 1; i < kFieldsEach; ++i) fields.push_back("field" + std::to_string(i) + " DOUBLE 8 0");
  std::vector<TableSpec> tables;
  for (int i = 1; i <= kTablesEach; ++i) tables.push_back({i, "table" + std::to_string(i), kCapacity, fields});
  std::vector<DatabaseSpec> databases{{"system", 1, tables}};
  for (int i = 2; i <= kDatabases; ++i) databases.push_back({"area" + std::to_string(i), 1, tables});
  return schema_of(databases);
}

std::int64_t processor_nanoseconds() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

void start_image(State &state, const std::string &command) {
  for (auto _ : state) {
    const std::unique_ptr<FILE, int (*)(FILE *)> output(popen(command.c_str(), "r"), pclose);
    double nanoseconds = 0;
    expect(output != nullptr && std::fscanf(output.get(), "%lf", &nanoseconds) == 1, "a start-up failed");
    state.SetIterationTime(nanoseconds * 1e-9);
  }
}

void read_schema_file(State &state, const fs::path &path) {
  std::vector<char> bytes(fs::file_size(path));
  for (auto _ : state) {
    const int file = open(path.c_str(), O_RDONLY);
    expect(read(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), "the schema is not read");
    close(file);
    benchmark::ClobberMemory();
  }
}

void map_image(State &state) {
  for (auto _ : state) {
    const int file = memfd_create("bench", MFD_CLOEXEC);
    expect(file >= 0 && ftruncate(file, static_cast<off_t>(kImageBytes)) == 0, "no memory file");
    void *address = mmap(nullptr, kImageBytes, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    expect(address != MAP_FAILED, "no mapping");
    state.PauseTiming();
    munmap(address, kImageBytes);
    close(file);
    state.ResumeTiming();
  }
}

}  // namespace

int measure_start(const fs::path &folder) {
  setenv("QUILLANEST_ROOT", folder.c_str(), 1);
  CRtdbManager manager;
  const std::int64_t before = processor_nanoseconds();
  const bool started = manager.RtdbManagerInit(false, (folder / "start.schema").c_str());
  const std::int64_t after = processor_nanoseconds();
  CRtDataBase last;
  expect(started && manager.GetDataBaseFromID(last, kDatabases) == 1 && last.AttachShareMemory() == 1, "no image");
  expect(last.GetDBTableNum() == kTablesEach && last.GetDBFieldNum() == kTablesEach * kFieldsEach, "another image");
  std::printf("%lld\n", static_cast<long long>(after - before));
  return 0;
}

void register_starts(const std::string &program, const fs::path &folder) {
  fs::create_directories(folder / "conf");
  fs::create_directories(folder / "data");
  write_file(folder / "conf/fix_Rtdb.ini", "[Quillanest]\nDataInFile=1\nRtdbDataPath=data/\n");
  const fs::path schema_file = folder / "start.schema";
  write_file(schema_file, schema());
  const std::string operation = "start-up 1 GB, 200 tables";
  const std::string command = "exec '" + program + "' --start-up '" + folder.string() + "'";
  benchmark::RegisterBenchmark(name_of(operation, "kernel").c_str(), [command](State &state) {
    start_image(state, command);
  })->UseManualTime();
  benchmark::RegisterBenchmark(name_of(operation, "limit, schema bytes").c_str(),
                               [schema_file](State &state) { read_schema_file(state, schema_file); });
  benchmark::RegisterBenchmark(name_of(operation, "limit, mapping").c_str(), map_image);
}

}  // namespace bench
