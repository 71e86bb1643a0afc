// Servers through ODBC (unixODBC's manager).
//
// Every attempt to connect runs on a thread of its own with its own handles: FreeTDS 1.3 ignores the login time-out
// with protocol 5.0 and would wait for a silent server for ever. An attempt that is not back in time is abandoned and
// cleans up after itself when the driver lets it; while a few attempts at one source hang, no further one is made.
#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <sql.h>
#include <sqlext.h>
#include <stdlib.h>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "quillanest/platform/dataaccess/ComError.h"
#include "quillanest/platform/dataaccess/Engines.h"

namespace quillanest {
namespace {

constexpr SQLULEN kLoginSeconds = 2;
constexpr std::chrono::milliseconds kPatience{2100};
constexpr SQLULEN kStatementSeconds = 30;
constexpr int kMostAbandoned = 3;
constexpr std::chrono::seconds kPause{60};
constexpr auto kConnectFailed = static_cast<std::int32_t>(0x80004005);
constexpr auto kStatementFailed = static_cast<std::int32_t>(0x80040E14);

bool succeeded(SQLRETURN result) { return result == SQL_SUCCESS || result == SQL_SUCCESS_WITH_INFO; }

SQLCHAR *sql_text(const std::string &text) {
  return reinterpret_cast<SQLCHAR *>(const_cast<char *>(text.c_str()));  // the interface lacks const
}

// Attributes are numbers in the shape of addresses.
SQLPOINTER attribute(SQLULEN value) { return reinterpret_cast<SQLPOINTER>(value); }

template <SQLSMALLINT Type>
class Handle {
 public:
  Handle() = default;
  explicit Handle(SQLHANDLE parent) {
    if (!succeeded(SQLAllocHandle(Type, parent, &handle_))) handle_ = nullptr;
  }
  Handle(Handle &&other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  Handle &operator=(Handle &&other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }
  Handle(const Handle &) = delete;
  Handle &operator=(const Handle &) = delete;
  ~Handle() {
    if (handle_ != nullptr) SQLFreeHandle(Type, handle_);
  }

  [[nodiscard]] SQLHANDLE get() const noexcept { return handle_; }
  explicit operator bool() const noexcept { return handle_ != nullptr; }

 private:
  SQLHANDLE handle_ = nullptr;
};

// The message of the last failure on a handle.
std::string diagnosis(SQLSMALLINT type, SQLHANDLE handle) {
  std::array<SQLCHAR, 6> state{};
  std::array<SQLCHAR, 512> text{};
  SQLINTEGER native = 0;
  SQLSMALLINT length = 0;
  if (!succeeded(SQLGetDiagRec(type, handle, 1, state.data(), &native, text.data(), text.size(), &length))) return {};
  return reinterpret_cast<const char *>(text.data());
}

// An environment and a connection in it that is connected or not.
struct Link {
  Handle<SQL_HANDLE_ENV> environment;
  Handle<SQL_HANDLE_DBC> connection;
  bool connected = false;

  Link() = default;
  Link(Link &&other) noexcept
      : environment(std::move(other.environment)),
        connection(std::move(other.connection)),
        connected(std::exchange(other.connected, false)) {}
  Link(const Link &) = delete;
  Link &operator=(const Link &) = delete;
  Link &operator=(Link &&) = delete;
  ~Link() {
    if (connected) SQLDisconnect(connection.get());
  }
};

// Runs on the attempt's own thread. A link that is not connected is a failure.
Link connect(const std::string &text) {
  Link link;
  link.environment = Handle<SQL_HANDLE_ENV>(SQL_NULL_HANDLE);
  if (!link.environment) return link;
  SQLSetEnvAttr(link.environment.get(), SQL_ATTR_ODBC_VERSION, attribute(SQL_OV_ODBC3), 0);
  link.connection = Handle<SQL_HANDLE_DBC>(link.environment.get());
  if (!link.connection) return link;
  const SQLHANDLE handle = link.connection.get();
  SQLSetConnectAttr(handle, SQL_ATTR_LOGIN_TIMEOUT, attribute(kLoginSeconds), 0);
  SQLSetConnectAttr(handle, SQL_ATTR_ACCESS_MODE, attribute(SQL_MODE_READ_WRITE), 0);
  link.connected =
      succeeded(SQLDriverConnect(handle, nullptr, sql_text(text), SQL_NTS, nullptr, 0, nullptr, SQL_DRIVER_NOPROMPT));
  // Before the connect some drivers forget it; with success and a remark it is set all the same.
  if (link.connected) SQLSetConnectAttr(handle, SQL_ATTR_TXN_ISOLATION, attribute(SQL_TXN_SERIALIZABLE), 0);
  return link;
}

// What an attempt's thread and the caller that waits for it share.
struct Attempt {
  std::mutex mutex;
  std::condition_variable done;
  std::optional<Link> link;
  bool abandoned = false;
};

// Attempts that hang, by source. A source is known by a digest, so that no password stays behind.
class AbandonedAttempts {
 public:
  using Source = std::size_t;

  static AbandonedAttempts &instance() {
    static AbandonedAttempts &table = *std::make_unique<AbandonedAttempts>().release();  // attempts may outlive main
    return table;
  }

  // Whether another attempt may be made: while only a few hang, and otherwise once a minute.
  [[nodiscard]] bool allows(Source source) {
    const std::lock_guard lock(mutex_);
    const auto found = attempts_.find(source);
    if (found == attempts_.end() || found->second.hanging < kMostAbandoned || found->second.answers) return true;
    const auto now = std::chrono::steady_clock::now();
    if (now - found->second.last < kPause) return false;
    found->second.last = now;
    return true;
  }

  // Counts an attempt that its caller has given up, until end() is called for it.
  void begin(Source source) {
    const std::lock_guard lock(mutex_);
    Attempts &attempts = attempts_[source];
    ++attempts.hanging;
    attempts.answers = false;
    attempts.last = std::chrono::steady_clock::now();
  }

  // The source has answered: older attempts that still hang hold no other up.
  void answered(Source source) noexcept {
    const std::lock_guard lock(mutex_);
    const auto found = attempts_.find(source);
    if (found != attempts_.end()) found->second.answers = true;
  }

  void end(Source source) noexcept {
    const std::lock_guard lock(mutex_);
    const auto found = attempts_.find(source);
    if (found != attempts_.end() && --found->second.hanging == 0) attempts_.erase(found);
  }

 private:
  struct Attempts {
    int hanging = 0;
    bool answers = false;
    std::chrono::steady_clock::time_point last;
  };

  std::mutex mutex_;
  std::map<Source, Attempts> attempts_;
};

// Runs on the attempt's own thread, which nobody may be waiting for any more.
void run_attempt(const std::shared_ptr<Attempt> &attempt, const std::string &text) {
  Link link = connect(text);
  {
    const std::lock_guard lock(attempt->mutex);
    if (attempt->abandoned) {
      AbandonedAttempts::instance().end(std::hash<std::string>{}(text));
    } else {
      attempt->link.emplace(std::move(link));
    }
  }
  attempt->done.notify_one();
}

// psqlodbc 13.02 would otherwise take the encoding of texts from the process locale.
void settle_text_encoding() {
  static const int settled = setenv("PGCLIENTENCODING", "UTF8", 0);  // one that the user has set stays
  (void)settled;
}

// Connects within the time; nothing when the server is silent for longer.
std::optional<Link> connect_in_time(const std::string &text) {
  const AbandonedAttempts::Source source = std::hash<std::string>{}(text);
  const auto attempt = std::make_shared<Attempt>();
  if (!AbandonedAttempts::instance().allows(source)) return std::nullopt;
  settle_text_encoding();
  std::thread([attempt, text] { run_attempt(attempt, text); }).detach();
  std::unique_lock lock(attempt->mutex);
  if (attempt->done.wait_for(lock, kPatience, [&] { return attempt->link.has_value(); })) {
    if (attempt->link->connected) AbandonedAttempts::instance().answered(source);
    return std::move(attempt->link);
  }
  AbandonedAttempts::instance().begin(source);
  attempt->abandoned = true;
  return std::nullopt;
}

// How a column is fetched.
enum class Form { kInteger, kNumber, kBool, kDate, kText };

Form form_of(SQLSMALLINT type) {
  switch (type) {
    case SQL_TINYINT:
    case SQL_SMALLINT:
    case SQL_INTEGER:
    case SQL_BIGINT:
      return Form::kInteger;
    case SQL_REAL:
    case SQL_FLOAT:
    case SQL_DOUBLE:
      return Form::kNumber;
    case SQL_BIT:
      return Form::kBool;
    case SQL_TYPE_DATE:
    case SQL_TYPE_TIMESTAMP:
    case SQL_DATE:
    case SQL_TIMESTAMP:
      return Form::kDate;
    default:
      return Form::kText;  // exact decimal numbers too: no binary form holds them all
  }
}

bool is_decimal(SQLSMALLINT type) { return type == SQL_NUMERIC || type == SQL_DECIMAL; }

struct Column {
  std::string name;
  SQLSMALLINT type;
};

SYSTEMTIME date_of(const SQL_TIMESTAMP_STRUCT &stamp) {
  std::array<char, 64> written;
  const int size = std::snprintf(written.data(), written.size(), "%d-%d-%d %d:%d:%d", stamp.year, stamp.month,
                                 stamp.day, stamp.hour, stamp.minute, stamp.second);
  SYSTEMTIME date{};
  (void)parse_date({written.data(), static_cast<std::size_t>(size)}, date);
  return date;
}

// psqlodbc 13.02 writes exact decimals with the process locale's decimal comma.
std::string_view with_points(char *decimal, std::size_t size) {
  std::replace(decimal, decimal + size, ',', '.');
  return {decimal, size};
}

// Reads the values of the current row. A value may be read only once.
class RowReader {
 public:
  explicit RowReader(SQLHANDLE statement) : statement_(statement), buffer_(4096) {}

  Variant read(SQLUSMALLINT number, SQLSMALLINT type) {
    switch (form_of(type)) {
      case Form::kInteger:
        return fixed<std::int64_t>(number, SQL_C_SBIGINT);
      case Form::kNumber:
        return fixed<double>(number, SQL_C_DOUBLE);
      case Form::kBool: {
        const std::optional<unsigned char> bit = fetch<unsigned char>(number, SQL_C_BIT);
        return bit ? Variant(*bit != 0) : Variant();
      }
      case Form::kDate:
        return date(number);
      case Form::kText:
        break;
    }
    return text(number, is_decimal(type));
  }

 private:
  template <class Value>
  std::optional<Value> fetch(SQLUSMALLINT number, SQLSMALLINT c_type) {
    Value value{};
    SQLLEN length = 0;
    check(SQLGetData(statement_, number, c_type, &value, sizeof value, &length));
    if (length == SQL_NULL_DATA) return std::nullopt;
    return value;
  }

  template <class Value>
  Variant fixed(SQLUSMALLINT number, SQLSMALLINT c_type) {
    const std::optional<Value> value = fetch<Value>(number, c_type);
    return value ? Variant(*value) : Variant();
  }

  Variant date(SQLUSMALLINT number) {
    const std::optional<SQL_TIMESTAMP_STRUCT> stamp = fetch<SQL_TIMESTAMP_STRUCT>(number, SQL_C_TYPE_TIMESTAMP);
    return stamp ? Variant(date_of(*stamp)) : Variant();
  }

  // A text comes in as many parts as the buffer makes of it.
  Variant text(SQLUSMALLINT number, bool decimal) {
    std::size_t size = 0;
    for (;;) {
      SQLLEN length = 0;
      const SQLRETURN result = SQLGetData(statement_, number, SQL_C_CHAR, buffer_.data() + size,
                                          static_cast<SQLLEN>(buffer_.size() - size), &length);
      if (result == SQL_NO_DATA) break;
      check(result);
      if (length == SQL_NULL_DATA) return {};
      const std::size_t room = buffer_.size() - size - 1;
      const bool whole = length != SQL_NO_TOTAL && static_cast<std::size_t>(length) <= room;
      size += whole ? static_cast<std::size_t>(length) : room;
      if (whole) break;
      buffer_.resize(buffer_.size() * 2);
    }
    return decimal ? with_points(buffer_.data(), size) : std::string_view(buffer_.data(), size);
  }

  void check(SQLRETURN result) const {
    if (!succeeded(result)) throw _com_error(kStatementFailed, diagnosis(SQL_HANDLE_STMT, statement_));
  }

  SQLHANDLE statement_;
  std::vector<char> buffer_;
};

// Reads the rows of a query many at a time, unless a value is longer than most.
class BlockReader {
 public:
  explicit BlockReader(SQLHANDLE statement) : statement_(statement) {}
  BlockReader(const BlockReader &) = delete;
  BlockReader &operator=(const BlockReader &) = delete;
  ~BlockReader() { SQLFreeStmt(statement_, SQL_UNBIND); }

  // Adds all rows. False, with rows read or not, when the values have to be read one by one.
  bool read_into(RowSet &rows, const std::vector<Column> &columns) {
    if (!bind(columns)) return false;
    SQLRETURN result = SQLFetch(statement_);
    for (; succeeded(result); result = SQLFetch(statement_)) {
      for (std::size_t row = 0; row < fetched_; ++row) {
        if (!add_row(rows, row)) return false;
      }
    }
    return result == SQL_NO_DATA;
  }

 private:
  static constexpr std::size_t kTextMax = 1024;  // bytes, terminator included; a longer value ends the reading
  static constexpr std::size_t kRows = 128;

  struct Block {
    Form form;
    SQLSMALLINT type;
    std::size_t width;
    std::vector<char> values;
    std::vector<SQLLEN> lengths;
  };

  struct CType {
    SQLSMALLINT code;
    std::size_t width;  // values stand that far apart
  };

  static CType c_type(Form form) {
    switch (form) {
      case Form::kInteger:
        return {SQL_C_SBIGINT, sizeof(std::int64_t)};
      case Form::kNumber:
        return {SQL_C_DOUBLE, sizeof(double)};
      case Form::kBool:
        return {SQL_C_BIT, sizeof(unsigned char)};
      case Form::kDate:
        return {SQL_C_TYPE_TIMESTAMP, sizeof(SQL_TIMESTAMP_STRUCT)};
      case Form::kText:
        break;
    }
    return {SQL_C_CHAR, kTextMax};
  }

  bool bind(const std::vector<Column> &columns) {
    if (!succeeded(SQLSetStmtAttr(statement_, SQL_ATTR_ROW_ARRAY_SIZE, attribute(kRows), 0)) ||
        !succeeded(SQLSetStmtAttr(statement_, SQL_ATTR_ROWS_FETCHED_PTR, &fetched_, 0)) ||
        !succeeded(SQLSetStmtAttr(statement_, SQL_ATTR_ROW_STATUS_PTR, states_.data(), 0))) {
      return false;
    }
    blocks_.reserve(columns.size());
    for (const Column &column : columns) {
      const Form form = form_of(column.type);
      const auto [code, width] = c_type(form);
      Block &block = blocks_.emplace_back(Block{form, column.type, width, {}, {}});
      block.values.resize(width * kRows);
      block.lengths.resize(kRows);
      if (!succeeded(SQLBindCol(statement_, static_cast<SQLUSMALLINT>(blocks_.size()), code, block.values.data(),
                                static_cast<SQLLEN>(width), block.lengths.data()))) {
        return false;
      }
    }
    return true;
  }

  bool add_row(RowSet &rows, std::size_t row) {
    if (states_[row] != SQL_ROW_SUCCESS && states_[row] != SQL_ROW_SUCCESS_WITH_INFO) return false;
    for (Block &block : blocks_) {
      const SQLLEN length = block.lengths[row];
      const bool is_cut = block.form == Form::kText && length != SQL_NULL_DATA &&
                          (length < 0 || static_cast<std::size_t>(length) >= block.width);
      if (is_cut) return false;
      rows.add(length == SQL_NULL_DATA ? Variant() : value(block, row, static_cast<std::size_t>(length)));
    }
    return true;
  }

  template <class Value>
  static Value value_at(const char *bytes) {
    Value value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
  }

  static Variant value(Block &block, std::size_t row, std::size_t length) {
    char *start = block.values.data() + row * block.width;
    switch (block.form) {
      case Form::kInteger:
        return value_at<std::int64_t>(start);
      case Form::kNumber:
        return value_at<double>(start);
      case Form::kBool:
        return value_at<unsigned char>(start) != 0;
      case Form::kDate:
        return date_of(value_at<SQL_TIMESTAMP_STRUCT>(start));
      case Form::kText:
        break;
    }
    return is_decimal(block.type) ? with_points(start, length) : std::string_view(start, length);
  }

  SQLHANDLE statement_;
  SQLULEN fetched_ = 0;
  std::array<SQLUSMALLINT, kRows> states_{};
  std::vector<Block> blocks_;
};

constexpr std::size_t kStatementsPerMessage = 50;
constexpr std::size_t kMessagesPerSavepoint = 4;

class OdbcConnection : public Connection {
 public:
  explicit OdbcConnection(Link link) : link_(std::move(link)), server_(server_name()) {}
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

  RowSet query(const std::string &text) override {
    flush();
    {
      const Handle<SQL_HANDLE_STMT> statement = run_query(text);
      const std::vector<Column> columns = describe(statement.get());
      RowSet rows = rows_of(columns);
      if (BlockReader(statement.get()).read_into(rows, columns)) return rows;
    }
    const Handle<SQL_HANDLE_STMT> statement = run_query(text);
    const std::vector<Column> columns = describe(statement.get());
    RowSet rows = rows_of(columns);
    RowReader reader(statement.get());
    SQLRETURN result = SQLFetch(statement.get());
    for (; succeeded(result); result = SQLFetch(statement.get())) {
      SQLUSMALLINT number = 0;
      for (const Column &column : columns) rows.add(reader.read(++number, column.type));
    }
    if (result != SQL_NO_DATA) raise(SQL_HANDLE_STMT, statement.get());
    return rows;
  }

  void begin() override { set_autocommit(SQL_AUTOCOMMIT_OFF); }

  void commit() override {
    flush();
    if (lost_) throw _com_error(kStatementFailed, "the transaction was undone");
    // A conflict between transactions may show only here.
    const SQLRETURN result = SQLEndTran(SQL_HANDLE_DBC, link_.connection.get(), SQL_COMMIT);
    const std::string text = succeeded(result) ? std::string() : diagnosis(SQL_HANDLE_DBC, link_.connection.get());
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
    SQLSetConnectAttr(link_.connection.get(), SQL_ATTR_AUTOCOMMIT, attribute(SQL_AUTOCOMMIT_ON), 0);
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

  [[noreturn]] static void raise(SQLSMALLINT type, SQLHANDLE handle) {
    throw _com_error(kStatementFailed, diagnosis(type, handle));
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
    const Handle<SQL_HANDLE_STMT> statement = make_statement();
    const SQLRETURN result = SQLExecDirect(statement.get(), sql_text(text), static_cast<SQLINTEGER>(text.size()));
    if (result == SQL_NO_DATA) return 0;  // a statement that matches nothing
    if (!succeeded(result)) raise(SQL_HANDLE_STMT, statement.get());
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
      const RowSet open = query("SELECT @@TRANCOUNT");
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
    if (!succeeded(result)) raise(SQL_HANDLE_DBC, link_.connection.get());
    return name.data();
  }

  [[nodiscard]] Handle<SQL_HANDLE_STMT> run_query(const std::string &text) const {
    Handle<SQL_HANDLE_STMT> statement = make_statement();
    if (!succeeded(SQLExecDirect(statement.get(), sql_text(text), static_cast<SQLINTEGER>(text.size())))) {
      raise(SQL_HANDLE_STMT, statement.get());
    }
    return statement;
  }

  static RowSet rows_of(const std::vector<Column> &columns) {
    std::vector<std::string> names;
    names.reserve(columns.size());
    for (const Column &column : columns) names.push_back(column.name);
    return RowSet(std::move(names));
  }

  [[nodiscard]] Handle<SQL_HANDLE_STMT> make_statement() const {
    Handle<SQL_HANDLE_STMT> statement(link_.connection.get());
    if (!statement) raise(SQL_HANDLE_DBC, link_.connection.get());
    // A statement that waits for a lock, or for a server that is gone, fails in the end.
    SQLSetStmtAttr(statement.get(), SQL_ATTR_QUERY_TIMEOUT, attribute(kStatementSeconds), 0);
    return statement;
  }

  void set_autocommit(SQLULEN value) {
    if (!succeeded(SQLSetConnectAttr(link_.connection.get(), SQL_ATTR_AUTOCOMMIT, attribute(value), 0))) {
      raise(SQL_HANDLE_DBC, link_.connection.get());
    }
    in_transaction_ = value == SQL_AUTOCOMMIT_OFF;
    has_savepoint_ = lost_ = false;
    kept_.clear();
    pending_.clear();
  }

  static std::vector<Column> describe(SQLHANDLE statement) {
    SQLSMALLINT count = 0;
    if (!succeeded(SQLNumResultCols(statement, &count))) raise(SQL_HANDLE_STMT, statement);
    std::vector<Column> columns;
    for (SQLSMALLINT i = 1; i <= count; ++i) {
      std::array<SQLCHAR, 256> name{};
      SQLSMALLINT length = 0;
      SQLSMALLINT type = 0;
      SQLULEN size = 0;
      SQLSMALLINT digits = 0;
      SQLSMALLINT nullable = 0;
      const SQLRETURN result = SQLDescribeCol(statement, static_cast<SQLUSMALLINT>(i), name.data(), name.size(),
                                              &length, &type, &size, &digits, &nullable);
      if (!succeeded(result)) raise(SQL_HANDLE_STMT, statement);
      columns.push_back({reinterpret_cast<const char *>(name.data()), type});
    }
    return columns;
  }

  Link link_;
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
    std::optional<Link> link = connect_in_time(connection_string);
    if (link && link->connected) return std::make_unique<OdbcConnection>(std::move(*link));
  } catch (const std::system_error &) {
    throw _com_error(kConnectFailed, "no thread to connect with");
  }
  throw _com_error(kConnectFailed, "the server cannot be reached or refuses");
}

}  // namespace quillanest
