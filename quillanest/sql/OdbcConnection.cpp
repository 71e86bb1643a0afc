// Servers through ODBC (unixODBC's manager).
#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "quillanest/base/Neutral.h"
#include "quillanest/platform/Odbc.h"
#include "quillanest/sql/ComError.h"
#include "quillanest/sql/Dialects.h"
#include "quillanest/sql/Engines.h"
#include "quillanest/sql/OdbcRows.h"
#include "quillanest/sql/OdbcWorker.h"

namespace quillanest {
namespace {

constexpr SQLULEN kStatementSeconds = 30;
constexpr std::size_t kStatementsPerMessage = 50;
constexpr std::size_t kMessagesPerSavepoint = 4;

// Every function from here to the class runs on the connection's thread.

OdbcHandle make_statement(const OdbcLink &link) {
  OdbcHandle statement(OdbcHandle::Kind::kStatement, link.connection);
  if (!statement) link.connection.raise();
  // Ends the wait for a lock: the server keeps this time limit.
  SQLSetStmtAttr(statement.get(), SQL_ATTR_QUERY_TIMEOUT, odbc_attribute(kStatementSeconds), 0);
  return statement;
}

std::int64_t run_statement(const OdbcLink &link, const std::string &text) {
  const OdbcHandle statement = make_statement(link);
  const SQLRETURN result = SQLExecDirect(statement.get(), odbc_text(text), static_cast<SQLINTEGER>(text.size()));
  if (result == SQL_NO_DATA) return 0;  // a statement that matches nothing
  if (!succeeded(result)) statement.raise();
  SQLLEN count = 0;
  SQLRowCount(statement.get(), &count);
  return std::max<SQLLEN>(count, 0);
}

OdbcHandle run_query(const OdbcLink &link, const std::string &text) {
  OdbcHandle statement = make_statement(link);
  if (!succeeded(SQLExecDirect(statement.get(), odbc_text(text), static_cast<SQLINTEGER>(text.size())))) {
    statement.raise();
  }
  return statement;
}

RowSet read_rows(const OdbcLink &link, const std::string &text, std::size_t most_rows) {
  if (std::optional<RowSet> rows = read_rows_in_blocks(run_query(link, text), most_rows)) return std::move(*rows);
  return read_rows_one_by_one(run_query(link, text), most_rows);
}

bool set_autocommit(const OdbcLink &link, SQLULEN value) {
  return succeeded(SQLSetConnectAttr(link.connection.get(), SQL_ATTR_AUTOCOMMIT, odbc_attribute(value), 0));
}

bool end_transaction(const OdbcLink &link, SQLSMALLINT how) {
  return succeeded(SQLEndTran(SQL_HANDLE_DBC, link.connection.get(), how));
}

bool undo_transaction(const OdbcLink &link) {
  if (!end_transaction(link, SQL_ROLLBACK)) (void)run_statement(link, "ROLLBACK");
  (void)set_autocommit(link, SQL_AUTOCOMMIT_ON);
  return true;
}

std::string server_name(const OdbcLink &link) {
  std::array<char, 128> name{};
  SQLSMALLINT length = 0;
  const SQLRETURN result = SQLGetInfo(link.connection.get(), SQL_DBMS_NAME, name.data(), name.size(), &length);
  // What a failed statement does to its transaction depends on the server.
  if (!succeeded(result)) link.connection.raise();
  return name.data();
}

char quote_of_names(const OdbcLink &link) {
  std::array<char, 8> quote{};
  SQLSMALLINT length = 0;
  const SQLRETURN result =
      SQLGetInfo(link.connection.get(), SQL_IDENTIFIER_QUOTE_CHAR, quote.data(), quote.size(), &length);
  return succeeded(result) && quote[0] != '\0' ? quote[0] : '"';
}

class OdbcConnection : public Connection {
 public:
  explicit OdbcConnection(std::unique_ptr<OdbcWorker> worker)
      : worker_(std::move(worker)), undo_(undo_of_server(worker_->run(server_name))) {}
  ~OdbcConnection() override { rollback(); }
  OdbcConnection(const OdbcConnection &) = delete;
  OdbcConnection &operator=(const OdbcConnection &) = delete;

  std::int64_t execute(const std::string &text) override {
    if (!in_transaction_) return run(text);
    flush();
    return run_undoable(text);
  }

  void execute_deferred(const std::string &text, std::int64_t tag) override {
    if (!in_transaction_ || !needs_savepoints()) return Connection::execute_deferred(text, tag);
    pending_.push_back({text, tag});
    if (pending_.size() >= kStatementsPerMessage) flush();
  }

  RowSet query(const std::string &text, std::size_t most_rows) override {
    flush();
    return worker_->run([text, most_rows](const OdbcLink &link) { return read_rows(link, text, most_rows); });
  }

  void begin() override {
    (void)worker_->run([](const OdbcLink &link) {
      if (!set_autocommit(link, SQL_AUTOCOMMIT_OFF)) link.connection.raise();
      return true;
    });
    in_transaction_ = true;
    has_savepoint_ = lost_ = false;
    kept_.clear();
    pending_.clear();
  }

  void commit() override {
    flush();
    if (lost_) throw _com_error(kStatementFailed, "the transaction was undone");
    try {
      (void)worker_->run([](const OdbcLink &link) {
        // A conflict between transactions may show only here.
        if (!end_transaction(link, SQL_COMMIT)) link.connection.raise();
        return set_autocommit(link, SQL_AUTOCOMMIT_ON);  // the rows are stored by now, so its failure is ignored
      });
    } catch (const _com_error &) {
      rollback();
      throw;
    }
    in_transaction_ = false;
  }

  void rollback() noexcept override {
    if (!in_transaction_) return;
    in_transaction_ = false;
    pending_.clear();
    const bool undone = neutral_on_failure(false, [&] {
      try {
        return worker_->run(undo_transaction);
      } catch (const _com_error &) {
        return false;
      }
    });
    if (!undone) {
      // Must not raise. The end of the connection undoes the transaction; until then nothing more may be run, because
      // psqlodbc 13.02 commits an open transaction if autocommit is switched on.
      worker_->refuse();
    }
  }

  // Asks the driver once; a blank stands for no quotes at all.
  char name_quote() override {
    if (!name_quote_) name_quote_ = worker_->run(quote_of_names);
    return *name_quote_;
  }

 private:
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

  // Sends the pending statements in one message. If one of them fails, all of them are sent again, one by one.
  void flush() {
    const std::vector<Pending> statements = std::exchange(pending_, {});
    if (statements.size() > 1 && !lost_) {
      std::string message;
      for (const Pending &statement : statements) message += statement.text + "\n;";
      try {
        (void)run_undoable(message);
        return;
      } catch (const _com_error &) {
        // One by one, then.
      }
    }
    // One that fails has undone itself, or the transaction is lost, which the commit reports.
    for (const Pending &statement : statements) (void)execute_or_note(statement.text, statement.tag);
  }

  struct Pending {
    std::string text;
    std::int64_t tag;
  };

  std::int64_t run(const std::string &text) {
    return worker_->run([text](const OdbcLink &link) { return run_statement(link, text); });
  }

  // PostgreSQL refuses everything after a failure inside a transaction. The driver's own remedy, a savepoint before the
  // statement and in one message with it, fails if the statement does not parse: psqlodbc 13.02 then undoes the whole
  // transaction and goes on in a new one.
  [[nodiscard]] bool needs_savepoints() const { return undo_ == Undo::kBySavepoint; }

  // A savepoint for every statement would cost the server more than most statements do. So there is one for some
  // hundred statements, and after a failure those that had succeeded since the savepoint run again.
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

  // Undoes the statement that failed. False if the server has undone the whole transaction instead: later statements
  // would be kept without the earlier ones. A failure of any kind, out of memory too, counts as false, so that the
  // caller always knows whether the transaction is lost.
  bool undo_statement() noexcept {
    return neutral_on_failure(false, [&] {
      try {
        return try_to_undo();
      } catch (const _com_error &) {
        return false;
      }
    });
  }

  bool try_to_undo() {
    switch (undo_) {
      case Undo::kBySavepoint:
        undo_to_savepoint();
        return true;
      case Undo::kByServerIfItStaysOpen: {
        const RowSet open = query("SELECT @@TRANCOUNT", 1);
        return open.row_count() == 1 && integer_content(open.value(0, 0)) > 0;
      }
      case Undo::kByServer:
        return true;
    }
    return false;
  }

  std::unique_ptr<OdbcWorker> worker_;
  Undo undo_;
  bool in_transaction_ = false;
  bool has_savepoint_ = false;
  std::vector<Pending> pending_;   // deferred statements that are not sent yet
  std::vector<std::string> kept_;  // statements that the server has run since the savepoint
  bool lost_ = false;              // the server has undone the transaction
  std::optional<char> name_quote_;
};

}  // namespace

std::unique_ptr<Connection> open_odbc(const std::string &connection_string) {
  try {
    return std::make_unique<OdbcConnection>(OdbcWorker::connect(connection_string));
  } catch (const std::system_error &) {
    throw _com_error(kConnectFailed, "no thread to connect with");
  }
}

}  // namespace quillanest
