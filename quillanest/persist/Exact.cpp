#include "quillanest/persist/Exact.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "quillanest/base/Report.h"
#include "quillanest/platform/SystemTime.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/FieldType.h"

namespace quillanest {
namespace {

bool is_same_real(const FieldTypeInfo &type, std::span<const std::byte> left, std::span<const std::byte> right) {
  if (type.bytes == sizeof(float)) {
    const auto a = load_part<float>(left);
    const auto b = load_part<float>(right);
    return a == b || (std::isnan(a) && std::isnan(b));
  }
  const auto a = load_part<double>(left);
  const auto b = load_part<double>(right);
  return a == b || (std::isnan(a) && std::isnan(b));
}

bool is_same_second(const SYSTEMTIME &left, const SYSTEMTIME &right) {
  return left.wYear == right.wYear && left.wMonth == right.wMonth && left.wDay == right.wDay &&
         left.wHour == right.wHour && left.wMinute == right.wMinute && left.wSecond == right.wSecond;
}

}  // namespace

std::span<std::byte> field_bytes(std::span<std::byte> record, const _field_attr &field) noexcept {
  const std::int64_t offset = read_once(field.FieldOffset);
  const std::int64_t size = std::max(read_once(field.FieldSize), 0);
  if (offset < 0 || offset >= std::ssize(record)) return {};
  return record.subspan(static_cast<std::size_t>(offset),
                        static_cast<std::size_t>(std::min(size, std::ssize(record) - offset)));
}

bool is_same_value(const _field_attr &field, std::span<const std::byte> left,
                   std::span<const std::byte> right) noexcept {
  const FieldTypeInfo &type = field_type(read_once(field.FieldType));
  switch (type.kind) {
    case Kind::kNone:
      return true;
    case Kind::kCharacter:
      return load_part<char>(left) == load_part<char>(right);
    case Kind::kInteger:
      return left.size() == right.size() && std::equal(left.begin(), left.end(), right.begin());
    case Kind::kReal:
      return is_same_real(type, left, right);
    case Kind::kText:
    case Kind::kPassword:
      return text_in(left) == text_in(right);
    case Kind::kTime:
      return is_same_second(load_part<SYSTEMTIME>(left), load_part<SYSTEMTIME>(right));
  }
  return false;
}

void report_no_mutex(std::string_view place) noexcept {
  report_error("system.resource", {place}, "the system has no mutex for the database");
}

RecordCopy RecordCopy::of(const TableView &view) {
  const std::int32_t count = view.count();
  RecordCopy copy(view, count);
  std::memcpy(copy.bytes_.data(), view.records, static_cast<std::size_t>(count) * copy.size_);
  copy.count_ = count;
  return copy;
}

std::uint32_t RecordCopy::key_at(std::int32_t position) noexcept { return load_part<std::uint32_t>(record(position)); }

void RecordCopy::put_into(const TableView &view) {
  std::memcpy(view.records, bytes_.data(), static_cast<std::size_t>(count_) * size_);
  bool ascends = true;
  for (std::int32_t i = 1; i < count_; ++i) ascends = ascends && key_at(i - 1) <= key_at(i);
  view.note_order(ascends);
  view.set_count(count_);
  count_on_after(view, count_);
}

void count_on_after(const TableView &view, std::int32_t count) noexcept {
  if (count > 0) store_shared(view.attr->IDExclusive, view.key_at(count - 1) + 1);
}

}  // namespace quillanest
