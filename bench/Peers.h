// The peers that are databases: SQLite in memory and LMDB on a file in memory. bench/Stores.h has the
// face that both show.
#pragma once

#include <array>
#include <cstdint>
#include <lmdb.h>
#include <memory>
#include <sqlite3.h>

#include "bench/Stores.h"

namespace bench {

// Prepared statements on a table of three columns: the key, the value that scans add up, and the other bytes of the
// record as a blob. Every edit is a transaction of its own.
class SqliteTable {
 public:
  static constexpr bool kMovesRecords = false;

  SqliteTable(Image &image, TableId id, const KeyList &keys);

  bool find(std::uint32_t key);
  void update(Record &record) { run(update_.get(), record); }
  void insert(Record &record) { run(insert_.get(), record); }
  void erase(std::uint32_t key);
  double sum();
  [[nodiscard]] bool done() const { return done_; }

 private:
  struct Close {
    void operator()(sqlite3 *database) const { sqlite3_close(database); }
    void operator()(sqlite3_stmt *statement) const { sqlite3_finalize(statement); }
  };
  using Statement = std::unique_ptr<sqlite3_stmt, Close>;

  void execute(const char *sql);
  Statement prepare(const char *sql);
  void run(sqlite3_stmt *statement, const Record &record);

  std::unique_ptr<sqlite3, Close> database_;
  Statement find_, update_, insert_, erase_, sum_;
  bool done_ = true;
};

// Whole records under integer keys. Searches and scans use one read transaction; every edit is a write transaction of
// its own, and nothing waits for a disk.
class LmdbTable {
 public:
  static constexpr bool kMovesRecords = false;

  LmdbTable(Image &image, TableId id, const KeyList &keys);

  bool find(std::uint32_t key);
  void update(Record &record) { put(record, 0); }
  void insert(Record &record) { put(record, MDB_NOOVERWRITE); }
  void erase(std::uint32_t key);
  double sum();
  [[nodiscard]] bool done() const { return done_; }

 private:
  struct Close {
    void operator()(MDB_env *environment) const { mdb_env_close(environment); }
    void operator()(MDB_txn *transaction) const { mdb_txn_abort(transaction); }
    void operator()(MDB_cursor *cursor) const { mdb_cursor_close(cursor); }
  };
  using Transaction = std::unique_ptr<MDB_txn, Close>;

  void open();
  void fill(const KeyList &keys);
  [[nodiscard]] Transaction begin(unsigned int flags);
  MDB_txn *reader();
  void put(Record &record, unsigned int flags);

  std::unique_ptr<MDB_env, Close> environment_;
  MDB_dbi records_ = 0;
  Transaction reader_;  // begun by the first search or scan
  bool done_ = true;
};

}  // namespace bench
