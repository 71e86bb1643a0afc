// SQLite files through SQLite's own interface.
//
// The file's own journal, rollback or write-ahead as the file is set up, keeps transactions whole: if a program is
// killed, the next open restores the former rows.
//
// The views and triggers of a file are not trusted: they may call harmless functions only, and run no longer than a
// statement may.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <memory>
#include <sqlite3.h>
#include <string>
#include <utility>

#include "quillanest/platform/TextFile.h"
#include "quillanest/sql/ComError.h"
#include "quillanest/sql/Engines.h"

namespace quillanest {
namespace {

constexpr int kBusyMilliseconds = 2000;
constexpr int kStepsPerLook = 10'000;  // steps of SQLite between two looks at the clock; less than a millisecond

bool is_busy(int code) { return (code & 0xFF) == SQLITE_BUSY; }

struct CloseDatabase {
  void operator()(sqlite3 *database) const { sqlite3_close_v2(database); }
};
struct FinishStatement {
  void operator()(sqlite3_stmt *statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, FinishStatement>;

// A date literal between '#', outside quotes, becomes a text.
std::string with_quoted_dates(std::string statement) {
  bool quoted = false;
  for (char &c : statement) {
    if (c == '\'') quoted = !quoted;
    if (c == '#' && !quoted) c = '\'';  // not counted as a quote: the text up to the next '#' holds none
  }
  return statement;
}

bool is_date_column(const char *declared) {
  if (declared == nullptr) return false;
  std::string type = declared;
  std::transform(type.begin(), type.end(), type.begin(),
                 [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c; });
  return type.find("DATE") != std::string::npos || type.find("TIME") != std::string::npos;
}

// For a text or a name that SQLite returns as null because memory is short.
[[noreturn]] void raise_shortage() { throw _com_error(-SQLITE_NOMEM, sqlite3_errstr(SQLITE_NOMEM)); }

Variant column_value(sqlite3_stmt *statement, int column, bool is_date) {
  switch (sqlite3_column_type(statement, column)) {
    case SQLITE_INTEGER:
      return std::int64_t{sqlite3_column_int64(statement, column)};
    case SQLITE_FLOAT:
      return sqlite3_column_double(statement, column);
    case SQLITE_NULL:
      return {};
    default: {
      // Texts are delivered in UTF-8 for every encoding of a file; blobs unchanged.
      const bool is_text = sqlite3_column_type(statement, column) == SQLITE_TEXT;
      const void *bytes = is_text ? sqlite3_column_text(statement, column) : sqlite3_column_blob(statement, column);
      if (is_text && bytes == nullptr) raise_shortage();
      const auto *text = static_cast<const char *>(bytes);
      const std::string_view view(text, static_cast<std::size_t>(sqlite3_column_bytes(statement, column)));
      SYSTEMTIME date{};
      if (is_date && parse_date(view, date)) return date;
      return view;
    }
  }
}

class SqliteConnection : public Connection {
 public:
  SqliteConnection(const std::string &path, std::chrono::milliseconds limit) : limit_(limit) {
    if (!file_size(path)) raise(SQLITE_CANTOPEN);  // some names would open a store that is not a file
    sqlite3 *database = nullptr;
    const int result = sqlite3_open_v2(path.c_str(), &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    database_.reset(database);
    if (result != SQLITE_OK) raise(result);
    // A read-only file opens too, and would fail every save later.
    if (sqlite3_db_readonly(database, "main") != 0) raise(SQLITE_READONLY);
    sqlite3_db_config(database, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(database, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_progress_handler(database, kStepsPerLook, is_late, this);
    look_at_file();
    sqlite3_busy_timeout(database, kBusyMilliseconds);
  }

  std::int64_t execute(const std::string &statement) override {
    check_transaction();
    const int before = sqlite3_total_changes(database_.get());
    run(with_quoted_dates(statement));
    return sqlite3_total_changes(database_.get()) - before;
  }

  RowSet query(const std::string &text, std::size_t most_rows) override {
    const Statement statement = prepare(with_quoted_dates(text));
    const int count = sqlite3_column_count(statement.get());
    std::vector<std::string> names;
    std::vector<bool> dates;
    for (int i = 0; i < count; ++i) {
      const char *name = sqlite3_column_name(statement.get(), i);
      if (name == nullptr) raise_shortage();
      names.emplace_back(name);
      dates.push_back(is_date_column(sqlite3_column_decltype(statement.get(), i)));
    }
    RowSet rows(std::move(names));
    int result = SQLITE_ROW;
    while (rows.row_count() < most_rows && (result = sqlite3_step(statement.get())) == SQLITE_ROW) {
      for (int i = 0; i < count; ++i) rows.add(column_value(statement.get(), i, dates[static_cast<std::size_t>(i)]));
    }
    if (result != SQLITE_DONE && result != SQLITE_ROW) raise(result);
    note_success();
    return rows;
  }

  void begin_inserts(const InsertForm &form) override {
    std::string text = insert_start(form);
    for (std::size_t i = 0; i < form.columns.size(); ++i) text += "?,";
    text.back() = ')';
    insert_ = compile(text);
  }

  // The values are bound: SQLite does not round every decimal number to the nearest double.
  void insert_row(std::span<const Variant> values, std::int64_t tag) override {
    sqlite3_stmt *const statement = insert_.get();
    try {
      check_transaction();
      int column = 0;
      for (const Variant &value : values) bind(statement, ++column, value);
      deadline_ = std::chrono::steady_clock::now() + limit_;
      const int result = sqlite3_step(statement);
      if (result != SQLITE_DONE && result != SQLITE_ROW) raise(result);
      note_success();
    } catch (const _com_error &error) {
      refusals_.add(tag, reason_of(error.ErrorMessage()));
    }
    sqlite3_reset(statement);
  }

  [[nodiscard]] bool is_locked() const noexcept override { return locked_; }

  // Takes the right to write at once, so that a transaction never fails half-way because another process has it.
  void begin() override {
    keep_pages();
    run("BEGIN IMMEDIATE");
    in_transaction_ = true;
  }
  void commit() override {
    insert_.reset();
    run("COMMIT");
    in_transaction_ = false;
  }
  void rollback() noexcept override {
    insert_.reset();
    if (!in_transaction_) return;
    (void)sqlite3_exec(database_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
    in_transaction_ = false;
  }

 private:
  [[noreturn]] void raise(int code) {
    if (is_busy(code)) {
      locked_ = true;
      sqlite3_busy_timeout(database_.get(), 0);
    }
    const char *text = database_ == nullptr ? sqlite3_errstr(code) : sqlite3_errmsg(database_.get());
    throw _com_error(-code, text);
  }

  // The beginning of a transaction is not a success yet: another reader of the file makes only its end fail.
  void note_success() noexcept {
    if (!locked_ || sqlite3_get_autocommit(database_.get()) == 0) return;
    locked_ = false;
    sqlite3_busy_timeout(database_.get(), kBusyMilliseconds);
  }

  static int is_late(void *connection) {
    const auto &self = *static_cast<const SqliteConnection *>(connection);
    return std::chrono::steady_clock::now() > self.deadline_ ? 1 : 0;
  }

  // Reads the file, which shows whether it is a database. A file that is locked at the moment counts as a database.
  void look_at_file() {
    try {
      run("PRAGMA schema_version");
    } catch (const _com_error &) {
      if (!locked_) throw;
      locked_ = false;  // not waited for yet
    }
  }

  // A transaction larger than the cache would otherwise wait for readers of the file at every page, not once at the
  // end. This reads the file, and counts only outside a transaction.
  void keep_pages() {
    if (keeps_pages_) return;
    run("PRAGMA cache_spill = 0");
    keeps_pages_ = true;
  }

  // A full disk, or a trigger that rolls back, undoes the whole transaction; later statements would be kept without the
  // earlier ones.
  void check_transaction() {
    if (in_transaction_ && sqlite3_get_autocommit(database_.get()) != 0) raise(SQLITE_ABORT_ROLLBACK);
  }

  // A value for a parameter, which lasts until the next one.
  void bind(sqlite3_stmt *statement, int column, const Variant &value) {
    int result = SQLITE_OK;
    const auto bind_text = [&](std::string_view text) {
      return sqlite3_bind_text(statement, column, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
    };
    if (const auto *number = std::get_if<std::int64_t>(&value)) {
      result = sqlite3_bind_int64(statement, column, *number);
    } else if (const auto *real = std::get_if<double>(&value)) {
      result = std::isfinite(*real) ? sqlite3_bind_double(statement, column, *real) : bind_text(name_of_number(*real));
    } else if (const auto *text = std::get_if<std::string_view>(&value)) {
      result = bind_text(text->data() == nullptr ? std::string_view("") : *text);
    } else if (const auto *time = std::get_if<SYSTEMTIME>(&value)) {
      result = bind_text(to_text(*time));
    } else if (const auto *truth = std::get_if<bool>(&value)) {
      result = sqlite3_bind_int64(statement, column, *truth ? 1 : 0);
    } else {
      result = sqlite3_bind_null(statement, column);
    }
    if (result != SQLITE_OK) raise(result);
  }

  [[nodiscard]] Statement prepare(const std::string &text) {
    Statement prepared = compile(text);
    if (sqlite3_bind_parameter_count(prepared.get()) > 0) raise(SQLITE_ERROR);  // a "?" that is given no value
    return prepared;
  }

  [[nodiscard]] Statement compile(const std::string &text) {
    deadline_ = std::chrono::steady_clock::now() + limit_;
    sqlite3_stmt *statement = nullptr;
    const char *rest = nullptr;
    const int size = static_cast<int>(text.size() + 1);  // with its terminator, or SQLite would copy the text
    const int result = sqlite3_prepare_v2(database_.get(), text.c_str(), size, &statement, &rest);
    if (result != SQLITE_OK) raise(result);
    Statement prepared(statement);
    // A text with a quote in it can end its statement early and begin another.
    if (std::string_view(rest).find_first_not_of(" \t\r\n;") != std::string_view::npos) raise(SQLITE_ERROR);
    return prepared;
  }

  void run(const std::string &text) {
    const Statement statement = prepare(text);
    int result = sqlite3_step(statement.get());
    while (result == SQLITE_ROW) result = sqlite3_step(statement.get());
    if (result != SQLITE_DONE) raise(result);
    note_success();
  }

  std::chrono::milliseconds limit_;
  std::chrono::steady_clock::time_point deadline_;  // of the statement under way
  std::unique_ptr<sqlite3, CloseDatabase> database_;
  Statement insert_;  // of begin_inserts
  bool in_transaction_ = false;
  bool keeps_pages_ = false;
  bool locked_ = false;
};

}  // namespace

std::unique_ptr<Connection> open_sqlite(const std::string &path, std::chrono::milliseconds limit) {
  return std::make_unique<SqliteConnection>(path, limit);
}

}  // namespace quillanest
