// Up to two connections side by side: the main database and its backup, which receives the same statements.
//
// Writers send every statement to all open slots; readers use one slot, the main one if it could be opened. Settings
// come from a section of the configuration file and are read by each Open() that starts from the closed state.
// Errors of the data-access layer are caught in the operation that met them; docs/relational-store.md has the list.
// Lifetime: an object is built for one public call. Threads: one object belongs to one thread.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "quillanest/sql/Connection.h"
#include "quillanest/sql/Dialects.h"
#include "quillanest/sql/RowSet.h"

namespace quillanest {

inline constexpr int SLOT_MAIN = 0;
inline constexpr int SLOT_BACKUP = 1;
inline constexpr int TARGET_BOTH = 3;

// A statement, and whether its texts hold no quotes and no backslashes.
struct Statement {
  std::string text;
  bool is_plain = true;
};

class CDbConnection {
 public:
  // The data source of a slot by the type and the name that the configuration gives; nothing if the slot cannot be
  // used. Without a function the name is the data source.
  using DataSource = std::function<std::optional<std::string>(int type, const std::string &name)>;

  CDbConnection() = default;
  ~CDbConnection();
  CDbConnection(const CDbConnection &) = delete;
  CDbConnection &operator=(const CDbConnection &) = delete;

  // What the connection string of a slot names as its data source; nothing if the slot cannot be used.
  [[nodiscard]] std::optional<std::string> GetDataSource(int slot, const DataSource &data_source = {}) const;

  void SetIniFile(const char *path);
  void SetSection(const char *section);
  void ReadConfig();

  // Opens the slots that the configuration names, only the first that can be opened with `firstOnly`, and returns the
  // mask of open slots (bit 0 main, bit 1 backup). With a slot open already it returns at once.
  int Open(bool firstOnly, const DataSource &data_source = {});
  // Closes every slot; always true.
  bool Close();

  // Runs a statement on every slot that is open and in `targets`. The number of rows that the last of them changed, as
  // a signed 16-bit number; 0 if none ran it; -1 if one failed, and the slots after it did not run it.
  int Execute(const char *statement, int targets);

  // Runs a query on the current slot and keeps its rows, at most `most_rows` of them, before the first of which nothing
  // has to be moved.
  bool OpenRecordset(const char *query, std::size_t most_rows = kAllRows);
  // Rows of the kept query; 0 without one.
  [[nodiscard]] int GetRecordCount() const;
  void MoveFirst();
  void MoveNext();
  // True past the last row and without a current slot; false if there is a slot but no row set to ask.
  [[nodiscard]] bool IsEOF() const;
  // The value of a column in the current row; NULL without a slot, a row or a column of that name.
  [[nodiscard]] Variant GetFieldValue(const char *column) const;

  // The provider code of the current slot, -1 without one.
  [[nodiscard]] int GetCurrentType() const;
  [[nodiscard]] int GetCurrentSlot() const { return current_slot_; }

  // The row set and row that the reader is at, for readers that look columns up once; null without a row.
  [[nodiscard]] const RowSet *rows() const;
  [[nodiscard]] std::size_t row() const { return row_; }

  // What Execute does, with the whole count of the last slot; nothing if a slot failed.
  std::optional<std::int64_t> run(const char *statement, int targets);

  // Runs a statement whose result is not needed on every open slot, at the latest before the next operation.
  void run_deferred(const Statement &statement);

  // How the open slots take a backslash in a text: as itself, as the beginning of an escape, or some this way and some
  // that way. Asks each slot once.
  struct Backslashes {
    bool plain = false;
    bool escapes = false;
  };
  [[nodiscard]] Backslashes backslashes();

  // From now on nothing is waited for twice: as long as its connection string stays the same, a slot that could not be
  // opened is not tried again, and a store that was found locked refuses at once.
  void wait_once() noexcept { waits_once_ = true; }

  // A transaction on every open slot. begin is false if a slot refuses, and none is begun then. commit is false if
  // a slot could not keep its changes; that slot and those after it are rolled back.
  [[nodiscard]] bool begin_transaction();
  [[nodiscard]] bool commit_transaction();
  void rollback_transaction() noexcept;

 private:
  struct Slot {
    int type = -1;
    std::string name;
    std::string user;
    std::string password;
    std::string init_db;
    std::string conn_group;
    std::string conn_key;
    std::string tried;    // the connection string of the last attempt to open it
    bool failed = false;  // that attempt
    std::unique_ptr<Connection> connection;
    std::unique_ptr<Connection> locked;  // closed, but kept for the next Open when nothing is waited for twice
    std::optional<bool> reads_escapes;   // of the connection, once asked
    std::optional<RowSet> rows;
  };

  [[nodiscard]] std::optional<std::string> connection_string(int slot_number, const DataSource &data_source) const;
  bool open_slot(int slot_number, const DataSource &data_source);
  [[nodiscard]] Slot *current();
  [[nodiscard]] const Slot *current() const;

  std::string ini_file_;
  std::string section_;
  int open_mask_ = 0;
  int current_slot_ = -1;
  std::array<Slot, 2> slots_;
  std::size_t row_ = 0;
  bool waits_once_ = false;
};

}  // namespace quillanest
