#include "quillanest/sql/OdbcRows.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "quillanest/platform/Odbc.h"

namespace quillanest {
namespace {

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
  SYSTEMTIME date{};
  (void)make_date({stamp.year, stamp.month, stamp.day, stamp.hour, stamp.minute, stamp.second}, date);
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
  explicit RowReader(const OdbcHandle &statement) : statement_(statement), buffer_(4096) {}

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
    check(SQLGetData(statement_.get(), number, c_type, &value, sizeof value, &length));
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

  // A text that is longer than the buffer comes in parts.
  Variant text(SQLUSMALLINT number, bool decimal) {
    std::size_t size = 0;
    for (;;) {
      SQLLEN length = 0;
      const SQLRETURN result = SQLGetData(statement_.get(), number, SQL_C_CHAR, buffer_.data() + size,
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
    if (!succeeded(result)) statement_.raise();
  }

  const OdbcHandle &statement_;
  std::vector<char> buffer_;
};

// Reads the rows of a query many at a time, unless a value is longer than most.
class BlockReader {
 public:
  explicit BlockReader(const OdbcHandle &statement) : statement_(statement) {}
  BlockReader(const BlockReader &) = delete;
  BlockReader &operator=(const BlockReader &) = delete;
  ~BlockReader() { SQLFreeStmt(statement_.get(), SQL_UNBIND); }

  // Adds all rows. False, perhaps with some rows added, if the values must be read one by one.
  bool read_into(RowSet &rows, const std::vector<Column> &columns, std::size_t most_rows) {
    if (!bind(columns)) return false;
    SQLRETURN result = SQLFetch(statement_.get());
    for (; succeeded(result); result = SQLFetch(statement_.get())) {
      for (std::size_t row = 0; row < fetched_; ++row) {
        if (rows.row_count() >= most_rows) return true;
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
    std::size_t width;  // values are that far apart
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
    if (!succeeded(SQLSetStmtAttr(statement_.get(), SQL_ATTR_ROW_ARRAY_SIZE, odbc_attribute(kRows), 0)) ||
        !succeeded(SQLSetStmtAttr(statement_.get(), SQL_ATTR_ROWS_FETCHED_PTR, &fetched_, 0)) ||
        !succeeded(SQLSetStmtAttr(statement_.get(), SQL_ATTR_ROW_STATUS_PTR, states_.data(), 0))) {
      return false;
    }
    blocks_.reserve(columns.size());
    for (const Column &column : columns) {
      const Form form = form_of(column.type);
      const auto [code, width] = c_type(form);
      Block &block = blocks_.emplace_back(Block{form, column.type, width, {}, {}});
      block.values.resize(width * kRows);
      block.lengths.resize(kRows);
      if (!succeeded(SQLBindCol(statement_.get(), static_cast<SQLUSMALLINT>(blocks_.size()), code, block.values.data(),
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

  const OdbcHandle &statement_;
  SQLULEN fetched_ = 0;
  std::array<SQLUSMALLINT, kRows> states_{};
  std::vector<Block> blocks_;
};

std::vector<Column> describe(const OdbcHandle &statement) {
  SQLSMALLINT count = 0;
  if (!succeeded(SQLNumResultCols(statement.get(), &count))) statement.raise();
  std::vector<Column> columns;
  for (SQLSMALLINT i = 1; i <= count; ++i) {
    std::array<SQLCHAR, 256> name{};
    SQLSMALLINT length = 0;
    SQLSMALLINT type = 0;
    SQLULEN size = 0;
    SQLSMALLINT digits = 0;
    SQLSMALLINT nullable = 0;
    const SQLRETURN result = SQLDescribeCol(statement.get(), static_cast<SQLUSMALLINT>(i), name.data(), name.size(),
                                            &length, &type, &size, &digits, &nullable);
    if (!succeeded(result)) statement.raise();
    columns.push_back({reinterpret_cast<const char *>(name.data()), type});
  }
  return columns;
}

RowSet rows_of(const std::vector<Column> &columns) {
  std::vector<std::string> names;
  names.reserve(columns.size());
  for (const Column &column : columns) names.push_back(column.name);
  return RowSet(std::move(names));
}

}  // namespace

std::optional<RowSet> read_rows_in_blocks(const OdbcHandle &statement, std::size_t most_rows) {
  const std::vector<Column> columns = describe(statement);
  RowSet rows = rows_of(columns);
  if (!BlockReader(statement).read_into(rows, columns, most_rows)) return std::nullopt;
  return rows;
}

RowSet read_rows_one_by_one(const OdbcHandle &statement, std::size_t most_rows) {
  const std::vector<Column> columns = describe(statement);
  RowSet rows = rows_of(columns);
  RowReader reader(statement);
  SQLRETURN result = SQL_SUCCESS;
  while (rows.row_count() < most_rows && succeeded(result = SQLFetch(statement.get()))) {
    SQLUSMALLINT number = 0;
    for (const Column &column : columns) rows.add(reader.read(++number, column.type));
  }
  if (result != SQL_NO_DATA && !succeeded(result)) statement.raise();
  return rows;
}

}  // namespace quillanest
