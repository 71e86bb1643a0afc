#include "quillanest/persist/StrictRows.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>

#include "quillanest/base/Text.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/FieldType.h"

namespace quillanest {
namespace {

std::string_view name_of(const _field_attr &field) { return block_text(field, offsetof(_field_attr, FieldName)); }

std::int64_t integer_in(const FieldTypeInfo &type, std::span<const std::byte> value) {
  if (type.bytes == 2) {
    return type.is_signed ? std::int64_t{load_part<std::int16_t>(value)} : load_part<std::uint16_t>(value);
  }
  return type.is_signed ? std::int64_t{load_part<std::int32_t>(value)} : load_part<std::uint32_t>(value);
}

bool is_empty_time(const SYSTEMTIME &time) {
  return time.wYear == 0 && time.wMonth == 0 && time.wDay == 0 && time.wHour == 0 && time.wMinute == 0 &&
         time.wSecond == 0;
}

// The integer that a value is, in whatever form the store delivers it.
std::optional<std::int64_t> whole_number(const Variant &value) {
  if (const auto *number = std::get_if<std::int64_t>(&value)) return *number;
  if (const auto *real = std::get_if<double>(&value)) {
    constexpr double kExact = 9007199254740992.0;  // 2^53
    if (std::trunc(*real) == *real && std::fabs(*real) < kExact) return static_cast<std::int64_t>(*real);
  }
  const auto *text = std::get_if<std::string_view>(&value);
  std::int64_t number = 0;
  if (text == nullptr) return std::nullopt;
  const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), number);
  if (error != std::errc() || end != text->data() + text->size()) return std::nullopt;
  return number;
}

std::optional<double> real_number(const Variant &value) {
  if (const auto *number = std::get_if<std::int64_t>(&value)) return static_cast<double>(*number);
  if (const auto *real = std::get_if<double>(&value)) return *real;
  const auto *text = std::get_if<std::string_view>(&value);
  if (text == nullptr) return std::nullopt;
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  for (const double special : {std::numeric_limits<double>::quiet_NaN(), kInfinity, -kInfinity}) {
    if (equal_ignoring_case(*text, name_of_number(special))) return special;
  }
  double number = 0;
  const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), number);
  if (error != std::errc() || end != text->data() + text->size()) return std::nullopt;
  return number;
}

bool store_integer(const FieldTypeInfo &type, std::span<std::byte> to, std::int64_t number) {
  const std::int64_t range = std::int64_t{1} << (8 * type.bytes);
  if (type.is_signed ? number < -range / 2 || number >= range / 2 : number < 0 || number >= range) return false;
  type.bytes == 2 ? store_part(to, static_cast<std::uint16_t>(number))
                  : store_part(to, static_cast<std::uint32_t>(number));
  return true;
}

bool store_real(const FieldTypeInfo &type, std::span<std::byte> to, double number) {
  if (type.bytes != sizeof(float)) {
    store_part(to, number);
    return true;
  }
  const auto narrow = static_cast<float>(number);
  store_part(to, narrow);
  return std::isfinite(narrow) || !std::isfinite(number);
}

bool store_time(std::span<std::byte> to, const Variant &value) {
  SYSTEMTIME time{};
  if (const auto *date = std::get_if<SYSTEMTIME>(&value)) {
    time = *date;
  } else if (const auto *text = std::get_if<std::string_view>(&value); text == nullptr || !parse_date(*text, time)) {
    return false;
  }
  store_part(to, time);
  return true;
}

bool store_text(std::span<std::byte> to, std::string_view text) {
  if (text.size() > to.size()) return false;
  copy_text(to, text);
  return true;
}

// Stores a value in the bytes of a field, which are zero. Null if it fits, else what is wrong. A NULL is a zero, an
// empty text or an empty time.
const char *store_strictly(const _field_attr &field, std::span<std::byte> to, const Variant &value,
                           const PasswordCipher &cipher) {
  constexpr const char *kNoNumber = "is not a number that the field holds";
  if (std::holds_alternative<std::monostate>(value)) return nullptr;
  const FieldTypeInfo &type = field_type(field.FieldType);
  switch (type.kind) {
    case Kind::kCharacter: {
      const std::optional<std::int64_t> number = whole_number(value);
      if (!number || *number < 0 || *number > 0xFF) return "is not the code of a character";
      store_part(to, static_cast<std::uint8_t>(*number));
      return nullptr;
    }
    case Kind::kInteger: {
      const std::optional<std::int64_t> number = whole_number(value);
      return number && store_integer(type, to, *number) ? nullptr : kNoNumber;
    }
    case Kind::kReal: {
      const std::optional<double> number = real_number(value);
      return number && store_real(type, to, *number) ? nullptr : kNoNumber;
    }
    case Kind::kText:
      return store_text(to, to_text(value)) ? nullptr : "is longer than the field";
    case Kind::kPassword: {
      const std::string clear = cipher.decrypt(to_text(value));
      if (cipher.is_foreign(clear)) return "was enciphered with a key that is not at hand";
      return store_text(to, clear) ? nullptr : "is longer than the field";
    }
    case Kind::kTime:
      return store_time(to, value) ? nullptr : "is not a date and time";
    case Kind::kNone:
      return nullptr;
  }
  return nullptr;
}

void read_row(const FieldList &fields, const StrictColumns &columns, const RowSet &rows, std::size_t row,
              const PasswordCipher &cipher, std::span<std::byte> record, Misfits &misfits) {
  for (std::size_t i = 0; i < fields.size(); ++i) {
    const Variant value = rows.value(row, columns.column(i));
    const char *wrong = store_strictly(fields[i], field_bytes(record, fields[i]), value, cipher);
    if (wrong == nullptr) continue;
    misfits.report_misfit("store.value", 0, "the row with the ID ", load_part<std::uint32_t>(record), ": the value of ",
                          Quoted{name_of(fields[i])}, " ", std::string_view(wrong));
  }
}

}  // namespace

Variant RowValues::value_of(const _field_attr &field, std::span<std::byte> value) {
  const FieldTypeInfo &type = field_type(field.FieldType);
  switch (type.kind) {
    case Kind::kCharacter:
      return std::int64_t{load_part<std::uint8_t>(value)};
    case Kind::kInteger:
      return integer_in(type, value);
    case Kind::kReal:
      return type.bytes == sizeof(float) ? double{load_part<float>(value)} : load_part<double>(value);
    case Kind::kText:
      return text_in(value);
    case Kind::kPassword:
      return std::string_view(passwords_.emplace_back(cipher_.encrypt(text_in(value))));
    case Kind::kTime: {
      const auto time = load_part<SYSTEMTIME>(value);
      return is_empty_time(time) ? Variant() : Variant(time);
    }
    case Kind::kNone:
      return {};
  }
  return {};
}

std::span<const Variant> RowValues::of(std::span<std::byte> record) {
  values_.clear();
  passwords_.clear();
  for (const _field_attr &field : fields_) values_.push_back(value_of(field, field_bytes(record, field)));
  return values_;
}

StrictColumns::StrictColumns(const FieldList &fields, const RowSet &rows, Misfits &misfits) : rows_(rows) {
  for (const _field_attr &field : fields) {
    columns_.push_back(rows.column(name_of(field)));
    if (columns_.back() < 0) {
      misfits.report_misfit("store.column", 0, "the store's table has no column ", Quoted{name_of(field)});
    }
  }
  for (std::size_t i = 0; i < rows.column_count(); ++i) {
    if (std::count(columns_.begin(), columns_.end(), static_cast<int>(i)) == 1) continue;
    misfits.report_misfit("store.column", 0, "the column ", Quoted{rows.columns()[i]},
                          " of the store's table is not that of one field");
  }
}

std::vector<std::string> StrictColumns::names() const {
  std::vector<std::string> names;
  for (const int column : columns_) names.push_back(rows_.columns()[static_cast<std::size_t>(column)]);
  return names;
}

std::optional<RecordCopy> records_of(const TableView &view, const FieldList &fields, const RowSet &rows,
                                     std::size_t capacity, const PasswordCipher &cipher, std::string_view place) {
  Misfits misfits(place, true);
  const StrictColumns columns(fields, rows, misfits);
  if (!misfits.allow_all()) return std::nullopt;
  if (rows.row_count() > capacity) {
    report_error("store.capacity", {place}, "the table has room for ", capacity, " records, and the store has more");
    return std::nullopt;
  }
  RecordCopy records(view, static_cast<std::int32_t>(rows.row_count()));
  std::uint32_t last = 0;
  for (std::size_t row = 0; row < rows.row_count(); ++row) {
    const auto position = static_cast<std::int32_t>(row);
    read_row(fields, columns, rows, row, cipher, records.record(position), misfits);
    const std::uint32_t key = records.key_at(position);
    if (key <= last) {
      misfits.report_misfit("store.order", 0, "a row with the ID ", key, " is not after one with a smaller ID");
    }
    last = key;
  }
  if (!misfits.allow_all()) return std::nullopt;
  records.set_count(static_cast<std::int32_t>(rows.row_count()));
  return records;
}

const _field_attr *first_difference(const FieldList &fields, std::span<std::byte> left,
                                    std::span<std::byte> right) noexcept {
  for (const _field_attr &field : fields) {
    if (!is_same_value(field, field_bytes(left, field), field_bytes(right, field))) return &field;
  }
  return nullptr;
}

}  // namespace quillanest
