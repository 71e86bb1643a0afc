// Servers through ODBC (unixODBC's manager).
#include <algorithm>
#include <array>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <sql.h>
#include <sqlext.h>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "quillanest/platform/dataaccess/ComError.h"
#include "quillanest/platform/dataaccess/Engines.h"
#include "quillanest/platform/posix/OdbcLink.h"
#include "quillanest/platform/posix/OdbcRows.h"

namespace quillanest {
namespace {

constexpr SQLULEN kStatementSeconds = 30;
constexpr auto kConnectFailed = static_cast<std::int32_t>(0x80004005);
constexpr std::size_t kStatementsPerMessage = 50;
constexpr std::size_t kMessagesPerSavepoint = 4;

class OdbcConnection : public Connection {
 public:
  explicit OdbcConnection(OdbcLink link) : link_(std::move(link)), server_(server_name()) {}
  ~OdbcConnection() override { rollback(); }
  OdbcConnection(const OdbcConnection &) = delete;
  OdbcConnection &operator=(const OdbcConnection &) = delete;

  std::int64_t execute(const std::string &text) override {
    if (!in_transaction_) return run(text);
    flush();
    return run_undoable(text);
  }

  void execute_unseen(const std::string &text) override {
    if (!in_transaction_ || !needs_savepoints()) return Connection::execute_unseen(text);
    pending_.push_back(text);
    if (pending_.size() >= kStatementsPerMessage) flush();
  }

  RowSet query(const std::string &text, std::size_t most_rows) override {
    flush();
    if (std::optional<RowSet> rows = read_rows_in_blocks(run_query(text), most_rows)) return std::move(*rows);
    return read_rows_one_by_one(run_query(text), most_rows);
  }

  void begin() override { set_autocommit(SQL_AUTOCOMMIT_OFF); }

  void commit() override {
    flush();
    if (lost_) throw _com_error(kStatementFailed, "the transaction was undone");
    // A conflict between transactions may show only here.
    const SQLRETURN result = SQLEndTran(SQL_HANDLE_DBC, link_.connection.get(), SQL_COMMIT);
    const std::string text = succeeded(result) ? std::string() : link_.connection.diagnosis();
    if (!succeeded(result)) {
      rollback();
      throw _com_error(kStatementFailed, text);
    }
    leave_transaction();  // whose rows are in the store by now: what fails from here on is no failure of the commit
  }

  void rollback() noexcept override {
    if (!in_transaction_) return;
    pending_.clear();
    const bool undone =
        succeeded(SQLEndTran(SQL_HANDLE_DBC, link_.connection.get(), SQL_ROLLBACK)) || undo_by_statement();
    in_transaction_ = false;
    // psqlodbc 13.02 commits what is open when autocommit is switched on; the end of the connection undoes it.
    if (undone) leave_transaction();
  }

 private:
  void leave_transaction() noexcept {
    SQLSetConnectAttr(link_.connection.get(), SQL_ATTR_AUTOCOMMIT, odbc_attribute(SQL_AUTOCOMMIT_ON), 0);
    in_transaction_ = false;
  }

  bool undo_by_statement() noexcept {
    try {
      (void)run("ROLLBACK");
      return true;
    } catch (const std::exception &) {
      return false;
    }
  }

  // Runs a statement of a transaction. One that fails undoes itself.
  std::int64_t run_undoable(const std::string &text) {
    if (lost_) throw _com_error(kStatementFailed, "the transaction was undone");
    try {
      if (needs_savepoints()) prepare_undo();
      const std::int64_t changed = run(text);
      if (needs_savepoints()) kept_.push_back(text);
      return changed;
    } catch (const _com_error &) {
      lost_ = !undo_statement();
      throw;
    }
  }

  // Sends the statements that wait, in one message; when one of them fails, all of them once more, one by one.
  void flush() {
    const std::vector<std::string> statements = std::exchange(pending_, {});
    if (statements.size() > 1 && !lost_) {
      std::string message;
      for (const std::string &statement : statements) message += statement + "\n;";
      try {
        (void)run_undoable(message);
        return;
      } catch (const _com_error &) {
        // One by one, then.
      }
    }
    for (const std::string &statement : statements) {
      try {
        (void)run_undoable(statement);
      } catch (const _com_error &) {
        // It has undone itself, or the transaction is lost, which the commit tells.
      }
    }
  }

  std::int64_t run(const std::string &text) const {
    const OdbcHandle statement = make_statement();
    const SQLRETURN result = SQLExecDirect(statement.get(), odbc_text(text), static_cast<SQLINTEGER>(text.size()));
    if (result == SQL_NO_DATA) return 0;  // a statement that matches nothing
    if (!succeeded(result)) statement.raise();
    SQLLEN count = 0;
    SQLRowCount(statement.get(), &count);
    return std::max<SQLLEN>(count, 0);
  }

  // PostgreSQL refuses everything after a failure inside a transaction. The driver's own remedy, a savepoint in front
  // of the statement and in one message with it, fails when the statement does not parse: psqlodbc 13.02 then undoes
  // the whole transaction and goes on in a new one.
  [[nodiscard]] bool needs_savepoints() const { return server_ == "PostgreSQL"; }

  // A savepoint for every statement would cost the server more than most statements do. So there is one for some
  // hundred, and behind a failure those of them that were kept run once more.
  void prepare_undo() {
    if (has_savepoint_ && kept_.size() < kMessagesPerSavepoint) return;
    run(has_savepoint_ ? "RELEASE SAVEPOINT quillanest;SAVEPOINT quillanest" : "SAVEPOINT quillanest");
    has_savepoint_ = true;
    kept_.clear();
  }

  void undo_to_savepoint() {
    run("ROLLBACK TO SAVEPOINT quillanest");
    for (const std::string &statement : kept_) run(statement);
    run("RELEASE SAVEPOINT quillanest;SAVEPOINT quillanest");
    kept_.clear();
  }

  // Back to before the statement that failed. False when the server has undone the transaction instead: what followed
  // would be kept without what came before it.
  bool undo_statement() noexcept {
    try {
      if (needs_savepoints()) {
        undo_to_savepoint();
        return true;
      }
      // Other servers undo the statement by themselves, but some errors end the transaction too.
      if (server_.find("SQL Server") == std::string::npos && server_.find("Adaptive Server") == std::string::npos) {
        return true;
      }
      const RowSet open = query("SELECT @@TRANCOUNT", 1);
      return open.row_count() == 1 && integer_content(open.value(0, 0)) > 0;
    } catch (const std::exception &) {
      return false;
    }
  }

  [[nodiscard]] std::string server_name() const {
    std::array<char, 128> name{};
    SQLSMALLINT length = 0;
    const SQLRETURN result = SQLGetInfo(link_.connection.get(), SQL_DBMS_NAME, name.data(), name.size(), &length);
    // What a failed statement does to its transaction depends on the server.
    if (!succeeded(result)) link_.connection.raise();
    return name.data();
  }

  [[nodiscard]] OdbcHandle run_query(const std::string &text) const {
    OdbcHandle statement = make_statement();
    if (!succeeded(SQLExecDirect(statement.get(), odbc_text(text), static_cast<SQLINTEGER>(text.size())))) {
      statement.raise();
    }
    return statement;
  }

  [[nodiscard]] OdbcHandle make_statement() const {
    OdbcHandle statement(OdbcHandle::Kind::kStatement, link_.connection.get());
    if (!statement) link_.connection.raise();
    // A statement that waits for a lock, or for a server that is gone, fails in the end.
    SQLSetStmtAttr(statement.get(), SQL_ATTR_QUERY_TIMEOUT, odbc_attribute(kStatementSeconds), 0);
    return statement;
  }

  void set_autocommit(SQLULEN value) {
    if (!succeeded(SQLSetConnectAttr(link_.connection.get(), SQL_ATTR_AUTOCOMMIT, odbc_attribute(value), 0))) {
      link_.connection.raise();
    }
    in_transaction_ = value == SQL_AUTOCOMMIT_OFF;
    has_savepoint_ = lost_ = false;
    kept_.clear();
    pending_.clear();
  }

  OdbcLink link_;
  std::string server_;
  bool in_transaction_ = false;
  bool has_savepoint_ = false;
  std::vector<std::string> pending_;  // statements that nobody waits for
  std::vector<std::string> kept_;     // statements that the server has run since the savepoint
  bool lost_ = false;                 // the transaction is not what begin() began any more
};

}  // namespace

std::unique_ptr<Connection> open_odbc(const std::string &connection_string) {
  // The driver's own text could repeat parts of the connection string, so it is not passed on.
  try {
    std::optional<OdbcLink> link = connect_in_time(connection_string);
    if (link && link->connected) return std::make_unique<OdbcConnection>(std::move(*link));
  } catch (const std::system_error &) {
    throw _com_error(kConnectFailed, "no thread to connect with");
  }
  throw _com_error(kConnectFailed, "the server cannot be reached or refuses");
}

}  // namespace quillanest
