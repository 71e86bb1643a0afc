// Up to two connections side by side: the main database and its backup, which receives the same statements.
//
// Writers send every statement to all open slots; readers use one slot, the main one if it could be opened. Settings
// come from a section of the configuration file and are read by each Open() that starts from the closed state.
// Errors of the data-access layer are caught in the operation in which they occur; docs/relational-store.md has the
// list.
// Lifetime: an object is built for one public call. Threads: one object belongs to one thread.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "quillanest/base/Report.h"
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
  // Makes the data source of a slot from its configured type and name; nothing if the slot cannot be used. Without a
  // function the name is the data source.
  using DataSource = std::function<std::optional<std::string>(int type, const std::string &name)>;

  CDbConnection() = default;
  ~CDbConnection();
  CDbConnection(const CDbConnection &) = delete;
  CDbConnection &operator=(const CDbConnection &) = delete;

  // The data source in the connection string of a slot; nothing if the slot cannot be used.
  [[nodiscard]] std::optional<std::string> GetDataSource(int slot, const DataSource &data_source = {}) const;

  // The configuration file and the section of it that ReadConfig reads.
  void SetIniFile(const char *path);
  void SetSection(const char *section);
  void ReadConfig();

  // Opens the configured slots, with `firstOnly` only the first one that can be opened, and returns the mask of open
  // slots (bit 0 main, bit 1 backup). If a slot is already open, it returns at once.
  int Open(bool firstOnly, const DataSource &data_source = {});
  // Closes every slot; always true.
  bool Close();

  // Runs a statement on every slot that is open and in `targets`. Returns the number of rows that the last of them
  // changed, as a signed 16-bit number; 0 if no slot ran it; -1 if a slot failed, and the slots after it did not run
  // it.
  int Execute(const char *statement, int targets);

  // Runs a query on the current slot and keeps at most `most_rows` of its rows; the reader is at the first one. False
  // without a current slot, or if the query fails.
  bool OpenRecordset(const char *query, std::size_t most_rows = kAllRows);
  // The number of rows kept; 0 without a query.
  [[nodiscard]] int GetRecordCount() const;
  void MoveFirst();
  void MoveNext();
  // True after the last row and without a current slot; false if there is a slot but no query.
  [[nodiscard]] bool IsEOF() const;
  // The value of a column in the current row; NULL without a slot, a row or a column of that name.
  [[nodiscard]] Variant GetFieldValue(const char *column) const;

  // The provider code of the current slot, -1 without one.
  [[nodiscard]] int GetCurrentType() const;
  [[nodiscard]] bool is_open() const { return open_mask_ != 0; }
  [[nodiscard]] int GetCurrentSlot() const { return current_slot_; }

  // The row set and the row that the reader is at, for callers that look columns up once; null without a row.
  [[nodiscard]] const RowSet *rows() const;
  [[nodiscard]] std::size_t row() const { return row_; }

  // Does what Execute does and returns the whole count of the last slot; nothing if a slot failed.
  std::optional<std::int64_t> run(const char *statement, int targets);

  // Runs a statement whose result is not needed on every open slot, at the latest before the next operation. One that
  // is refused is noted with its tag.
  void run_deferred(const Statement &statement, std::int64_t tag);
  // The deferred statements that were refused since the transaction began.
  [[nodiscard]] Refusals refusals() const;

  // What the last statement, query or transaction failed with: "main: " or "backup: " and the driver's own first line.
  [[nodiscard]] std::string_view failure() const noexcept { return failure_.view(); }

  // The connection of a slot, null if it is not open; its errors are the caller's. And whether the configuration asks
  // for the slot: by a type other than -1, and other than the type 0 without a name that a missing key means.
  [[nodiscard]] Connection *connection(int slot) noexcept;
  [[nodiscard]] bool is_wanted(int slot) const noexcept;
  // The forms of statements at a slot.
  [[nodiscard]] const Dialect &dialect(int slot) const noexcept;
  // Whether a slot reads a backslash in a text as the start of an escape. The slot must be open.
  [[nodiscard]] bool reads_escapes(int slot);

  // How the open slots read a backslash in a text; both members are true if the slots differ. Each slot is asked once.
  struct Backslashes {
    bool plain = false;    // a slot reads it as a character
    bool escapes = false;  // a slot reads it as the start of an escape
  };
  [[nodiscard]] Backslashes backslashes();

  // From now on each slot is waited for once only: while its connection string stays the same, a slot that could not be
  // opened is not tried again, and a store that was found locked refuses statements at once.
  void wait_once() noexcept { waits_once_ = true; }

  // A transaction on every open slot. begin_transaction returns false if a slot refuses, and no transaction is open
  // then. commit_transaction returns false if a slot could not keep its changes; that slot and those after it are
  // rolled back.
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
    bool failed = false;  // whether that attempt failed
    std::unique_ptr<Connection> connection;
    std::unique_ptr<Connection> locked;  // the former connection to a locked store, for the next Open
    std::optional<bool> reads_escapes;   // of the connection, once asked
    std::optional<RowSet> rows;
  };

  [[nodiscard]] std::string setting(int slot_number, std::string_view key, std::size_t size) const;
  [[nodiscard]] std::optional<std::string> connection_string(int slot_number, const DataSource &data_source) const;
  bool open_slot(int slot_number, const DataSource &data_source);
  void report_failed_open(int slot_number, const _com_error &error) const noexcept;
  void report_no_source(int slot_number) const noexcept;
  void note_failure(int slot_number, const _com_error &error) noexcept;
  [[nodiscard]] Slot *current();
  [[nodiscard]] const Slot *current() const;

  std::string ini_file_;
  std::string section_;
  int open_mask_ = 0;
  int current_slot_ = -1;
  std::array<Slot, 2> slots_;
  std::size_t row_ = 0;
  bool waits_once_ = false;
  bool has_opened_ = false;  // once; what the settings lack is reported the first time
  Refusals refusals_;        // besides those of the connections
  FixedText<300> failure_;
};

// "main" or "backup".
[[nodiscard]] std::string_view slot_name(int slot) noexcept;

}  // namespace quillanest
