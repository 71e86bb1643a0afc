#include "quillanest/sql/RowSet.h"

#include <algorithm>
#include <utility>

#include "quillanest/base/Text.h"

namespace quillanest {

RowSet::RowSet(std::vector<std::string> columns) : columns_(std::move(columns)) {}

void RowSet::add(const Variant &value) {
  Cell cell;
  if (const auto *truth = std::get_if<bool>(&value)) {
    cell.kind = Cell::Kind::kBool;
    cell.integer = *truth ? 1 : 0;
  } else if (const auto *integer = std::get_if<std::int64_t>(&value)) {
    cell.kind = Cell::Kind::kInteger;
    cell.integer = *integer;
  } else if (const auto *number = std::get_if<double>(&value)) {
    cell.kind = Cell::Kind::kNumber;
    cell.number = *number;
  } else if (const auto *date = std::get_if<SYSTEMTIME>(&value)) {
    cell.kind = Cell::Kind::kDate;
    cell.integer = static_cast<std::int64_t>(dates_.size());
    dates_.push_back(*date);
  } else if (const auto *text = std::get_if<std::string_view>(&value)) {
    cell.kind = Cell::Kind::kText;
    cell.integer = static_cast<std::int64_t>(texts_.size());
    cell.length = static_cast<std::uint32_t>(text->size());
    texts_ += *text;
  }
  cells_.push_back(cell);
}

int RowSet::column(std::string_view name) const noexcept {
  const auto found = std::find_if(columns_.begin(), columns_.end(),
                                  [&](const std::string &own) { return equal_ignoring_case(own, name); });
  return found == columns_.end() ? -1 : static_cast<int>(found - columns_.begin());
}

Variant RowSet::value(std::size_t row, int column) const {
  const Cell &cell = cells_[row * columns_.size() + static_cast<std::size_t>(column)];
  switch (cell.kind) {
    case Cell::Kind::kNull:
      return {};
    case Cell::Kind::kBool:
      return cell.integer != 0;
    case Cell::Kind::kInteger:
      return cell.integer;
    case Cell::Kind::kNumber:
      return cell.number;
    case Cell::Kind::kDate:
      return dates_[static_cast<std::size_t>(cell.integer)];
    case Cell::Kind::kText:
      return std::string_view(texts_).substr(static_cast<std::size_t>(cell.integer), cell.length);
  }
  return {};
}

}  // namespace quillanest
