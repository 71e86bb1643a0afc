#include "quillanest/sql/Connection.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>

#include "quillanest/sql/ComError.h"
#include "quillanest/sql/Engines.h"
#include "quillanest/sql/Provider.h"

namespace quillanest {
namespace {

std::string_view values_of(std::string_view statement) {
  const std::size_t at = statement.find(" VALUES(");
  return at == std::string_view::npos ? std::string_view() : statement.substr(at);
}

// Appends values as literals of SQL.
class Literals {
 public:
  Literals(const InsertForm &form, std::string &statement) : form_(form), statement_(statement) {}

  void operator()(std::monostate) { statement_ += "NULL"; }
  void operator()(bool truth) { statement_ += truth ? '1' : '0'; }
  void operator()(std::int64_t number) { statement_ += std::to_string(number); }
  void operator()(double number) {
    if (!std::isfinite(number)) return (*this)(name_of_number(number));
    std::array<char, 32> text;
    statement_.append(text.data(), std::to_chars(text.data(), text.data() + text.size(), number).ptr);
  }
  void operator()(const SYSTEMTIME &time) {
    std::array<char, 32> text;
    const int size = std::snprintf(text.data(), text.size(), "%04d-%02d-%02d %02d:%02d:%02d", time.wYear, time.wMonth,
                                   time.wDay, time.wHour, time.wMinute, time.wSecond);
    statement_.append(form_.date_start).append(text.data(), static_cast<std::size_t>(size)).append(form_.date_end);
  }
  void operator()(std::string_view text) {
    statement_ += '\'';
    for (const char c : text) {
      const bool is_special = c == '\'' || c == '\\';
      is_plain_ = is_plain_ && !is_special;
      statement_.append(c == '\'' || (c == '\\' && form_.escapes_backslashes) ? 2 : 1, c);
    }
    statement_ += '\'';
  }

  // Whether no text holds a quote or a backslash.
  [[nodiscard]] bool is_plain() const noexcept { return is_plain_; }

 private:
  const InsertForm &form_;
  std::string &statement_;
  bool is_plain_ = true;
};

}  // namespace

std::string_view name_of_number(double number) noexcept {
  if (std::isnan(number)) return "NaN";
  return number < 0 ? "-Infinity" : "Infinity";
}

std::unique_ptr<Connection> Connection::open(const std::string &connection_string) {
  constexpr auto kNotFound = static_cast<std::int32_t>(0x800A0E7A);
  const EngineCall call = engine_call(connection_string);
  switch (call.engine) {
    case EngineKind::kSqlite:
      return open_sqlite(call.target);
    case EngineKind::kOdbc:
      return open_odbc(call.target);
    case EngineKind::kNone:
      break;
  }
  throw _com_error(kNotFound, "no provider or no data source");
}

bool Connection::execute_or_note(const std::string &statement, std::int64_t tag) {
  try {
    (void)execute(statement);
    return true;
  } catch (const _com_error &error) {
    refusals_.add(tag, reason_of(error.ErrorMessage(), values_of(statement)));
    return false;
  }
}

std::string Connection::insert_start(const InsertForm &form) {
  const char quote = name_quote();
  std::string start = "INSERT INTO " + form.table;
  char before = '(';
  for (const std::string &column : form.columns) {
    start += before;
    start += quote;
    for (const char c : column) start.append(c == quote ? 2 : 1, c);
    start += quote;
    before = ',';
  }
  return start += ") VALUES(";
}

void Connection::begin_inserts(const InsertForm &form) {
  form_ = form;
  start_ = insert_start(form);
}

void Connection::insert_row(std::span<const Variant> values, std::int64_t tag) {
  std::string statement = start_;
  Literals literals(form_, statement);
  for (const Variant &value : values) {
    std::visit([&](const auto &content) { literals(content); }, value);
    statement += ',';
  }
  statement.back() = ')';
  if (literals.is_plain()) return execute_deferred(statement, tag);
  (void)execute_or_note(statement, tag);
}

}  // namespace quillanest
