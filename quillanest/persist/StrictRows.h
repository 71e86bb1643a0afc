// Records as rows of a relational store whose values come back exactly, for strict loads and saves.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "quillanest/persist/Exact.h"
#include "quillanest/persist/Misfits.h"
#include "quillanest/persist/RtdbMedia.h"
#include "quillanest/sql/RowSet.h"

namespace quillanest {

// The values of a record, one for each field. They refer to the record and to this object until the next call.
class RowValues {
 public:
  RowValues(const FieldList &fields, const PasswordCipher &cipher) : fields_(fields), cipher_(cipher) {}
  [[nodiscard]] std::span<const Variant> of(std::span<std::byte> record);

 private:
  Variant value_of(const _field_attr &field, std::span<std::byte> value);

  const FieldList &fields_;
  const PasswordCipher &cipher_;
  std::deque<std::string> passwords_;
  std::vector<Variant> values_;
};

// The columns of the fields in a row set. Reports fields without a column and columns without a field.
class StrictColumns {
 public:
  StrictColumns(const FieldList &fields, const RowSet &rows, Misfits &misfits);

  // The columns by the names of the store, in the order of the fields. Only if all are there.
  [[nodiscard]] std::vector<std::string> names() const;
  // The column of a field.
  [[nodiscard]] int column(std::size_t field) const { return columns_[field]; }

 private:
  const RowSet &rows_;
  std::vector<int> columns_;
};

// The rows as records, in their order; nothing, with the reasons reported, if columns, values or the order of the keys
// do not fit, or there are more rows than `capacity`.
[[nodiscard]] std::optional<RecordCopy> records_of(const TableView &view, const FieldList &fields, const RowSet &rows,
                                                   std::size_t capacity, const PasswordCipher &cipher,
                                                   std::string_view place);

// The first field in which two records differ; null if all are the same to a store.
[[nodiscard]] const _field_attr *first_difference(const FieldList &fields, std::span<std::byte> left,
                                                  std::span<std::byte> right) noexcept;

}  // namespace quillanest
