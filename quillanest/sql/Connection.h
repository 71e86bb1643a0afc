// One connection to a relational store, the same for every engine.
//
// The connection string is a provider's: "Provider=...;User ID=...;Password=...;Data Source=...", or an ODBC one with
// "Driver=...". Engines: SQLite's own interface for files, ODBC for servers.
// Errors are raised as _com_error, whose text never holds the connection string.
// Threads: one object belongs to one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>

#include "quillanest/sql/ComError.h"
#include "quillanest/sql/RowSet.h"

namespace quillanest {

// No limit on the rows of a query.
inline constexpr std::size_t kAllRows = std::numeric_limits<std::size_t>::max();

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
  // changes nothing. Its texts hold no quotes and no backslashes, because it may travel together with others.
  virtual void execute_deferred(const std::string &statement) {
    try {
      (void)execute(statement);
    } catch (const _com_error &) {
      // Its result is not needed.
    }
  }

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
};

}  // namespace quillanest
