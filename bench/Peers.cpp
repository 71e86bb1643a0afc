#include "bench/Peers.h"

#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <unistd.h>

namespace bench {
namespace {

// What of a record is neither key nor value: the bytes between them and those after them.
constexpr std::size_t kBetween = kValueOffset - sizeof(std::uint32_t);
constexpr std::size_t kBehindValue = kValueOffset + sizeof(double);
using Rest = std::array<char, kBetween + kRecordSize - kBehindValue>;

Rest rest_of(const Record &record) {
  Rest rest;
  std::memcpy(rest.data(), record.data() + sizeof(std::uint32_t), kBetween);
  std::memcpy(rest.data() + kBetween, record.data() + kBehindValue, kRecordSize - kBehindValue);
  return rest;
}

MDB_val bytes_of(const void *address, std::size_t size) { return {size, const_cast<void *>(address)}; }

void expect_lmdb(int result, const char *what) {
  expect(result == MDB_SUCCESS, std::string("LMDB: ") + what + ": " + mdb_strerror(result));
}

}  // namespace

SqliteTable::SqliteTable(Image &, TableId, const KeyList &keys) {
  sqlite3 *database = nullptr;
  const int result = sqlite3_open(":memory:", &database);
  database_.reset(database);
  expect(result == SQLITE_OK, "SQLite does not open");
  execute("CREATE TABLE records (id INTEGER PRIMARY KEY, value REAL, rest BLOB)");
  find_ = prepare("SELECT value FROM records WHERE id = ?1");
  update_ = prepare("UPDATE records SET value = ?2, rest = ?3 WHERE id = ?1");
  insert_ = prepare("INSERT INTO records VALUES (?1, ?2, ?3)");
  erase_ = prepare("DELETE FROM records WHERE id = ?1");
  sum_ = prepare("SELECT value FROM records ORDER BY id");
  execute("BEGIN");
  for (const std::uint32_t key : keys) run(insert_.get(), record_of(key));
  execute("COMMIT");
}

void SqliteTable::execute(const char *sql) {
  expect(sqlite3_exec(database_.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK, sqlite3_errmsg(database_.get()));
}

SqliteTable::Statement SqliteTable::prepare(const char *sql) {
  sqlite3_stmt *statement = nullptr;
  const int result = sqlite3_prepare_v3(database_.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  expect(result == SQLITE_OK, sqlite3_errmsg(database_.get()));
  return Statement(statement);
}

void SqliteTable::run(sqlite3_stmt *statement, const Record &record) {
  const Rest rest = rest_of(record);
  sqlite3_bind_int64(statement, 1, key_of(record));
  sqlite3_bind_double(statement, 2, value_at(record.data()));
  sqlite3_bind_blob(statement, 3, rest.data(), static_cast<int>(rest.size()), SQLITE_STATIC);
  done_ &= sqlite3_step(statement) == SQLITE_DONE && sqlite3_changes(database_.get()) == 1;
  sqlite3_reset(statement);
}

void SqliteTable::erase(std::uint32_t key) {
  sqlite3_bind_int64(erase_.get(), 1, key);
  done_ &= sqlite3_step(erase_.get()) == SQLITE_DONE && sqlite3_changes(database_.get()) == 1;
  sqlite3_reset(erase_.get());
}

bool SqliteTable::find(std::uint32_t key) {
  sqlite3_bind_int64(find_.get(), 1, key);
  const bool found = sqlite3_step(find_.get()) == SQLITE_ROW;
  if (found) (void)sqlite3_column_double(find_.get(), 0);
  sqlite3_reset(find_.get());
  return found;
}

double SqliteTable::sum() {
  double sum = 0;
  while (sqlite3_step(sum_.get()) == SQLITE_ROW) sum += sqlite3_column_double(sum_.get(), 0);
  sqlite3_reset(sum_.get());
  return sum;
}

LmdbTable::LmdbTable(Image &image, TableId, const KeyList &keys) {
  MDB_env *environment = nullptr;
  expect_lmdb(mdb_env_create(&environment), "create");
  environment_.reset(environment);
  expect_lmdb(mdb_env_set_mapsize(environment, std::size_t{1} << 30), "map size");
  const bool memory = access("/dev/shm", W_OK) == 0;
  std::string path = memory ? "/dev/shm/bench-XXXXXX" : (image.folder() / "bench-XXXXXX").string();
  const int file = mkstemp(path.data());
  expect(file >= 0, "no file for LMDB");
  close(file);
  const unsigned int flags = MDB_NOSUBDIR | MDB_WRITEMAP | MDB_NOSYNC | MDB_NOMETASYNC | MDB_NORDAHEAD;
  const int opened = mdb_env_open(environment, path.c_str(), flags, 0600);
  // The environment keeps both files; nothing of them outlives it.
  unlink(path.c_str());
  unlink((path + "-lock").c_str());
  expect_lmdb(opened, "open");
  open();
  fill(keys);
}

LmdbTable::Transaction LmdbTable::begin(unsigned int flags) {
  MDB_txn *transaction = nullptr;
  expect_lmdb(mdb_txn_begin(environment_.get(), nullptr, flags, &transaction), "begin");
  return Transaction(transaction);
}

void LmdbTable::open() {
  Transaction transaction = begin(0);
  expect_lmdb(mdb_dbi_open(transaction.get(), nullptr, MDB_INTEGERKEY | MDB_CREATE, &records_), "open records");
  expect_lmdb(mdb_txn_commit(transaction.release()), "commit");
}

void LmdbTable::fill(const KeyList &keys) {
  Transaction transaction = begin(0);
  for (const std::uint32_t id : keys) {
    const Record record = record_of(id);
    MDB_val key = bytes_of(&id, sizeof id);
    MDB_val value = bytes_of(record.data(), record.size());
    expect_lmdb(mdb_put(transaction.get(), records_, &key, &value, MDB_APPEND), "put");
  }
  expect_lmdb(mdb_txn_commit(transaction.release()), "commit");
}

MDB_txn *LmdbTable::reader() {
  if (!reader_) reader_ = begin(MDB_RDONLY);
  return reader_.get();
}

bool LmdbTable::find(std::uint32_t key) {
  MDB_val wanted = bytes_of(&key, sizeof key);
  MDB_val record;
  return mdb_get(reader(), records_, &wanted, &record) == MDB_SUCCESS;
}

void LmdbTable::put(Record &record, unsigned int flags) {
  const std::uint32_t id = key_of(record);
  MDB_val key = bytes_of(&id, sizeof id);
  MDB_val value = bytes_of(record.data(), record.size());
  Transaction transaction = begin(0);
  done_ &= mdb_put(transaction.get(), records_, &key, &value, flags) == MDB_SUCCESS;
  done_ &= mdb_txn_commit(transaction.release()) == MDB_SUCCESS;
}

void LmdbTable::erase(std::uint32_t key) {
  MDB_val wanted = bytes_of(&key, sizeof key);
  Transaction transaction = begin(0);
  done_ &= mdb_del(transaction.get(), records_, &wanted, nullptr) == MDB_SUCCESS;
  done_ &= mdb_txn_commit(transaction.release()) == MDB_SUCCESS;
}

double LmdbTable::sum() {
  MDB_cursor *opened = nullptr;
  expect_lmdb(mdb_cursor_open(reader(), records_, &opened), "cursor");
  const std::unique_ptr<MDB_cursor, Close> cursor(opened);
  double sum = 0;
  MDB_val key;
  MDB_val record;
  while (mdb_cursor_get(cursor.get(), &key, &record, MDB_NEXT) == MDB_SUCCESS) {
    sum += value_at(static_cast<const char *>(record.mv_data));
  }
  return sum;
}

}  // namespace bench
