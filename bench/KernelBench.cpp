// The speed of the kernel beside the same work written by hand on the same packed bytes (its limit) and beside peers.
//
//   search dense N, search sparse N   one record of N by its key, in random order, all hits; dense keys are 1 to N,
//                                     sparse ones random. kernel: FindIDExclusive(key); kernel, position: the form that
//                                     gives the position
//   search sparse N, no hit           keys that are not there
//   update N                          Update: a whole record of N, in random order
//   append N                          Insert after N records
//   delete last N                     Delete of the last of N records
//   insert, delete in the middle N    Insert and Delete of a record with as many records after it as before it
//   scan N                            GetFirstPosition and GetNextPosition over N records, adding up one DOUBLE
//   load text                         LoadTableData of a file of 1,000,000 records of 8 fields
//   save text                         SaveData of the same table, with its fsync. kernel, with a handler: of events, of
//                                     which there are none; kernel, strict: with Strict=1
//   start-up 1 GB, 200 tables         RtdbManagerInit of an image of 10 databases and 4,000 fields, no data files
//
// Records of tables have 100 bytes. Limits:
//   halving    plain binary search; without branches: the same with computed steps
//   distance   the record at position key - first key, else halving: what dense keys allow
//   slope      the position in proportion to the keys, corrected once, then a walk, else halving: for sparse keys
//   edits      a robust recursive process-shared mutex at hand, one of these searches, and the move and copy of bytes
//   loop       over the records' bytes
//   texts      reading the file and finding every separator; a loop with std::from_chars. Formatting with std::to_chars
//              into memory and one write, with and without fsync
//   start-up   reading the bytes of the schema file; making and mapping 1 GB of memory that is never touched
// Peers: SQLite in memory with prepared statements and LMDB on a memory file, every edit a transaction of its own;
// std::unordered_map and std::map, edits under the same mutex. Texts: the C library's functions, the tool sqlite3 with
// a database in memory, and COPY of a PostgreSQL server, unlogged and with its file in the server's reach.
//
// Searches, edits, scans and loads show processor time; what a server or a disk takes part in shows the time of day.
//
//   kernel_bench FOLDER [PORT] [--benchmark_...]
//
// FOLDER is scratch. PORT is that of a PostgreSQL server on 127.0.0.1 with a superuser and a database called bench and
// no password; without it PostgreSQL is left out.
#include <benchmark/benchmark.h>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string_view>

#include "bench/Benches.h"

namespace {

namespace fs = std::filesystem;

int run(const fs::path &folder, const std::string &postgres_port) {
  bench::Image image(folder / "tables");
  bench::register_tables(image);
  bench::register_texts(image, postgres_port);
  bench::register_starts(fs::canonical("/proc/self/exe"), folder / "start");
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}

}  // namespace

int main(int argc, char **argv) {
  try {
    if (argc == 3 && std::string_view(argv[1]) == "--start-up") return bench::measure_start(argv[2]);
    benchmark::Initialize(&argc, argv);
    if (argc < 2 || argc > 3) {
      std::fprintf(stderr, "usage: kernel_bench FOLDER [PORT] [--benchmark_...]\n");
      return 2;
    }
    return run(fs::absolute(argv[1]), argc == 3 ? argv[2] : "");
  } catch (const std::exception &failure) {
    std::fflush(stdout);
    std::fprintf(stderr, "kernel_bench: %s\n", failure.what());
    return 1;
  }
}
