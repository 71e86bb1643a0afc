// What every client program needs around the library: opening databases and tables by name, reading and writing the
// fields of a record, and the lock to hold while editing. The library reports failures by return values; here they
// become exceptions with a message for people.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "quillanest/Quillanest.h"

namespace plant {

class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Finds a database and maps it. `database` must outlive the tables taken from it, and must not be mapped already.
inline void open_database(CRtdbManager &manager, const char *name, CRtDataBase &database) {
  if (manager.GetDataBaseFromName(database, name) != 1) throw Failure(std::string("no database named ") + name);
  if (database.AttachShareMemory() != 1) throw Failure(std::string("cannot map the database ") + name);
}

// A view on a table of a mapped database.
inline CRtTable open_table(CRtDataBase &database, const char *name) {
  CRtTable table;
  if (database.GetDBTableFromName(table, name) == 1) return table;
  throw Failure(std::string("the database ") + database.GetDBName() + " has no table named " + name);
}

// Calls visit(database) for every database, mapped for the time of the call.
template <class Visit>
void for_each_database(CRtdbManager &manager, Visit visit) {
  CRtDataBase database;
  int position = 0;
  if (manager.GetFirstDataBasePostion(position) != 1) throw Failure("there is no database");
  while (manager.GetNext(database, position) == 1) {
    if (database.AttachShareMemory() != 1)
      throw Failure(std::string("cannot map the database ") + database.GetDBName());
    visit(database);
    database.DetachShareMemory();
  }
}

// Calls visit("database.table", table) for every table of every database.
template <class Visit>
void for_each_table(CRtdbManager &manager, Visit visit) {
  for_each_database(manager, [&](CRtDataBase &database) {
    CRtTable table;
    for (int slot = database.GetFirstTablePostion(); database.GetNextTable(table, slot);) {
      visit(std::string(database.GetDBName()) + "." + table.GetTableName(), table);
    }
  });
}

// Holds the named mutex of a database: one editor at a time, in any thread. The library takes the same mutex in every
// Insert, Update and Delete; holding it around "find, change, write back" makes the three steps one.
class DatabaseLock {
 public:
  explicit DatabaseLock(CRtDataBase &database) : mutex_(database.GetDBName()) {
    const int result = mutex_.Wait(-1);
    // 0x80: the former owner died while it held the mutex, which is ours now.
    if (result != 0 && result != 0x80) throw Failure(std::string("cannot lock the database ") + database.GetDBName());
  }
  ~DatabaseLock() { mutex_.Release(); }
  DatabaseLock(const DatabaseLock &) = delete;
  DatabaseLock &operator=(const DatabaseLock &) = delete;

 private:
  CMutexEx mutex_;
};

// A copy of one record, or a new one: as many bytes as the table's records have.
inline std::vector<char> record_buffer(const CRtTable &table) {
  return std::vector<char>(static_cast<std::size_t>(table.GetTableSize()));
}

// The schema's type code of each C++ type used here.
template <class T>
inline constexpr int kTypeCode = 0;
template <>
inline constexpr int kTypeCode<std::uint16_t> = RTDB_TYPE_USHORT;
template <>
inline constexpr int kTypeCode<std::int32_t> = RTDB_TYPE_INT;
template <>
inline constexpr int kTypeCode<std::uint32_t> = RTDB_TYPE_UINT;
template <>
inline constexpr int kTypeCode<float> = RTDB_TYPE_FLOAT;
template <>
inline constexpr int kTypeCode<double> = RTDB_TYPE_DOUBLE;
template <>
inline constexpr int kTypeCode<SYSTEMTIME> = RTDB_TYPE_TIME;
inline constexpr int kStringTypeCode = RTDB_TYPE_STRING;

inline CRtField find_field(CRtTable &table, const char *name, int type) {
  CRtField field;
  if (table.GetFieldFromName(field, name) == 1 && field.GetFieldType() == type) return field;
  throw Failure(std::string("the table ") + table.GetTableName() + " has no field " + name + " of the expected type");
}

// One number or time in every record of a table. Its offset comes from the table's field directory, so the schema may
// gain or move fields. Records are packed without padding, which is why values are copied and never pointed to.
template <class T>
class Field {
 public:
  Field(CRtTable &table, const char *name) {
    const CRtField field = find_field(table, name, kTypeCode<T>);
    offset_ = static_cast<std::size_t>(field.GetFieldOffset());
  }

  T get(const char *record) const {
    T value;
    std::memcpy(&value, record + offset_, sizeof value);
    return value;
  }
  void set(char *record, T value) const { std::memcpy(record + offset_, &value, sizeof value); }

 private:
  std::size_t offset_;
};

// The same for a text: zero-terminated, in a fixed number of bytes.
class TextField {
 public:
  TextField(CRtTable &table, const char *name) {
    const CRtField field = find_field(table, name, kStringTypeCode);
    offset_ = static_cast<std::size_t>(field.GetFieldOffset());
    size_ = static_cast<std::size_t>(field.GetFieldSize());
  }

  std::string get(const char *record) const {
    const char *text = record + offset_;
    return {text, std::find(text, text + size_, '\0')};
  }
  void set(char *record, const std::string &text) const {
    if (text.size() >= size_) throw Failure("longer than its field: " + text);
    std::memset(record + offset_, 0, size_);
    std::memcpy(record + offset_, text.data(), text.size());
  }

 private:
  std::size_t offset_;
  std::size_t size_;
};

class Stopwatch {
 public:
  double milliseconds() const {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start_).count();
  }

 private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace plant
