// The rows of a query, fetched whole to the client.
//
// Lifetime: owns all values; texts among the values that it returns point into it. Threads: one object belongs to one
// thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "quillanest/sql/Variant.h"

namespace quillanest {

class RowSet {
 public:
  explicit RowSet(std::vector<std::string> columns);

  // Filling: values are added from left to right, row by row.
  void add(const Variant &value);
  [[nodiscard]] std::size_t column_count() const noexcept { return columns_.size(); }
  [[nodiscard]] const std::vector<std::string> &columns() const noexcept { return columns_; }

  [[nodiscard]] std::size_t row_count() const noexcept {
    return columns_.empty() ? 0 : cells_.size() / columns_.size();
  }
  // The column of that name, compared without regard to case; -1 if there is none.
  [[nodiscard]] int column(std::string_view name) const noexcept;
  // A value; `row` and `column` must exist.
  [[nodiscard]] Variant value(std::size_t row, int column) const;

 private:
  // All texts are in one block, so a row set of any size costs three allocations that grow.
  struct Cell {
    enum class Kind : std::uint8_t { kNull, kBool, kInteger, kNumber, kDate, kText } kind = Kind::kNull;
    std::uint32_t length = 0;
    union {
      std::int64_t integer = 0;
      double number;
    };
  };

  std::vector<std::string> columns_;
  std::vector<Cell> cells_;
  std::vector<SYSTEMTIME> dates_;
  std::string texts_;
};

}  // namespace quillanest
