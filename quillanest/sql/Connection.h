// One connection to a relational store, the same for every engine.
//
// The connection string is a provider's: "Provider=...;User ID=...;Password=...;Data Source=...", or an ODBC one with
// "Driver=...". Engines: SQLite's own interface for files, ODBC for servers.
// Errors are raised as _com_error, whose text never holds the connection string or a password.
// Threads: one object belongs to one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "quillanest/sql/ComError.h"
#include "quillanest/sql/Refusals.h"
#include "quillanest/sql/RowSet.h"

namespace quillanest {

// No limit on the rows of a query.
inline constexpr std::size_t kAllRows = std::numeric_limits<std::size_t>::max();

// Where rows are inserted, and how values are written there.
struct InsertForm {
  std::string table;
  std::vector<std::string> columns;   // by the names that the store gives them
  std::string_view date_start = "'";  // texts that last, as those of a Dialect do
  std::string_view date_end = "'";
  bool escapes_backslashes = false;  // a backslash in a text is written twice
};

// "NaN", "Infinity" or "-Infinity" for a number that is not finite.
[[nodiscard]] std::string_view name_of_number(double number) noexcept;

class Connection {
 public:
  virtual ~Connection() = default;
  Connection(const Connection &) = delete;
  Connection &operator=(const Connection &) = delete;

  // Opens what the string names: read and write, serializable, at most some two seconds for a server that is silent.
  [[nodiscard]] static std::unique_ptr<Connection> open(const std::string &connection_string);

  // Runs a statement without result rows and returns the number of rows it changed. A statement that fails inside a
  // transaction undoes itself and nothing else.
  virtual std::int64_t execute(const std::string &statement) = 0;

  // Queues a statement whose result is not needed. It runs before the next operation at the latest; one that fails
  // changes nothing and is added to refusals() with its tag. Its texts hold no quotes and no backslashes, because it
  // may travel together with others.
  virtual void execute_deferred(const std::string &statement, std::int64_t tag) {
    (void)execute_or_note(statement, tag);
  }

  // The inserts and deferred statements that failed since the object was cleared.
  [[nodiscard]] Refusals &refusals() noexcept { return refusals_; }

  // Rows of values, one for each column of the form, which stays in force until the next one. Texts and numbers are
  // stored exactly, as far as the column can hold them; a number that is not finite goes as the text "NaN", "Infinity"
  // or "-Infinity". A row may be queued and is noted as with execute_deferred(). Raise _com_error if the form is not
  // that of a table.
  virtual void begin_inserts(const InsertForm &form);
  virtual void insert_row(std::span<const Variant> values, std::int64_t tag);

  // Runs a query and fetches its rows, at most `most_rows` of them: an SQL view may have rows without end.
  [[nodiscard]] virtual RowSet query(const std::string &statement, std::size_t most_rows) = 0;

  // Whether the store was found locked by another process and has been waited for. Until a statement succeeds, a
  // statement on the locked store fails at once.
  [[nodiscard]] virtual bool is_locked() const noexcept { return false; }

  // Between begin() and commit() no other connection sees a change, and the end of the program or of the server undoes
  // all changes.
  virtual void begin() = 0;
  virtual void commit() = 0;
  // Undoes the changes since begin(); does nothing without a transaction.
  virtual void rollback() noexcept = 0;

 protected:
  Connection() = default;

  // Runs a statement; false if it fails, which is noted among the refusals.
  bool execute_or_note(const std::string &statement, std::int64_t tag);

  // The character before and after a name in a statement.
  [[nodiscard]] virtual char name_quote() { return '"'; }

  // "INSERT INTO table(columns) VALUES(".
  [[nodiscard]] std::string insert_start(const InsertForm &form);

  Refusals refusals_;

 private:
  InsertForm form_;
  std::string start_;  // of the inserts
};

}  // namespace quillanest
