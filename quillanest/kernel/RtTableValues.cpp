// Single values of records, by key, by position and from text.
#include <algorithm>
#include <cstring>

#include "quillanest/kernel/KeySearch.h"
#include "quillanest/kernel/RtTable.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/FieldType.h"
#include "quillanest/shm/TextAt.h"
#include "quillanest/shm/ValueBytes.h"

using quillanest::as_bytes;
using quillanest::find_key;
using quillanest::Kind;
using quillanest::TableView;

namespace {

// The number of a field's bytes that lie in `value`.
std::size_t field_bytes(std::span<std::byte> value, const _field_attr &field) {
  return std::min(value.size(), static_cast<std::size_t>(std::max(quillanest::read_once(field.FieldSize), 0)));
}

// By design [TextCopyUnbounded]: a text is copied up to its terminator regardless of the field's size, and runs on into
// what follows, at most to the end of the segment.
void read_value(const TableView &view, std::byte *record, const _field_attr &field, char *buffer) {
  const std::span<std::byte> value = view.value(record, field);
  if (quillanest::is_text_type(quillanest::read_once(field.FieldType))) {
    const std::string_view text = quillanest::text_in(value);
    quillanest::copy_text({as_bytes(buffer), quillanest::room_at(buffer, text.size() + 1)}, text);
  } else if (const std::size_t size = quillanest::room_at(buffer, field_bytes(value, field)); size > 0) {
    std::memmove(buffer, value.data(), size);
  }
}

// The offset of a value in its record.
std::int64_t offset_in(const std::byte *record, std::span<const std::byte> value) {
  return value.empty() ? 0 : value.data() - record;
}

void write_value(const TableView &view, std::byte *record, const _field_attr &field, const char *buffer) {
  const std::span<std::byte> value = view.value(record, field);
  std::size_t size = 0;
  if (quillanest::is_text_type(quillanest::read_once(field.FieldType))) {
    const std::string_view text = quillanest::text_at(buffer);
    size = text.size() + 1;
    quillanest::copy_text(value, text);
  } else {
    size = quillanest::room_at(buffer, field_bytes(value, field));
    if (size > 0) std::memmove(value.data(), buffer, size);
  }
  view.check_order(record, offset_in(record, value), static_cast<std::int64_t>(size));
}

// Stores a text in a field and cuts the caller's text to what was stored. False for a field too small for one.
bool store_text(std::span<std::byte> value, const _field_attr &field, char *text) {
  const std::int32_t field_size = quillanest::read_once(field.FieldSize);
  if (field_size < 1) return false;
  const auto size = static_cast<std::size_t>(field_size);
  std::string_view stored = quillanest::text_at(text);
  if (stored.size() >= size) {
    // By design [CallerTextCut]: a text that is too long is cut in the caller's buffer.
    text[size - 1] = '\0';
    stored = stored.substr(0, size - 1);
  }
  quillanest::copy_text(value, stored);
  return true;
}

bool store_field_text(std::span<std::byte> value, const _field_attr &field, char *text) {
  const std::int32_t type = quillanest::read_once(field.FieldType);
  switch (quillanest::kind_of(type)) {
    case Kind::kCharacter:
      quillanest::store_part(value, *text);
      return true;
    case Kind::kText:
    case Kind::kPassword:
      return store_text(value, field, text);
    case Kind::kTime: {
      SYSTEMTIME time{};
      quillanest::read_time(quillanest::text_at(text), {as_bytes(static_cast<void *>(&time)), sizeof time});
      quillanest::store_part(value, time);
      return true;
    }
    case Kind::kInteger:
    case Kind::kReal:
    case Kind::kNone:
      return quillanest::store_value_of_text(type, value, quillanest::text_at(text));
  }
  return false;
}

}  // namespace

int CRtTable::GetFieldData(unsigned int key, int fieldIndex, char *buffer) const {
  const TableView view = TableView::of(*this);
  if (buffer == nullptr || !view || key == 0 || fieldIndex >= view.field_num) return 0;
  const _field_attr *field = view.field_unchecked(fieldIndex);
  const quillanest::KeyPlace place = find_key(view, key);
  if (field == nullptr || !place.found) return 0;
  read_value(view, view.record(place.position), *field, buffer);
  return 1;
}

int CRtTable::SetFieldData(unsigned int key, int fieldIndex, const char *value) {
  const TableView view = TableView::of(*this);
  // By design [SetFieldDataIndex]: the index may be as high as TableFieldNum, unlike in GetFieldData.
  if (value == nullptr || !view || fieldIndex > view.field_num) return 0;
  const quillanest::KeyPlace place = find_key(view, key);
  if (!place.found) return 0;
  // If no descriptor lies there, nothing is written.
  const _field_attr *field = view.field_unchecked(fieldIndex);
  if (field != nullptr) write_value(view, view.record(place.position), *field, value);
  return 1;
}

int CRtTable::GetFieldDataAt(int position, int fieldIndex, char *buffer) const {
  const TableView view = TableView::of(*this);
  if (buffer == nullptr || !view) return 0;
  std::byte *record = view.at(position);
  const _field_attr *field = GetFieldFromIndex(fieldIndex);
  if (record == nullptr || field == nullptr) return 0;
  read_value(view, record, *field, buffer);
  return 1;
}

int CRtTable::SetFieldDataAt(int position, int fieldIndex, const char *value) {
  const TableView view = TableView::of(*this);
  if (value == nullptr || !view) return 0;
  std::byte *record = view.at(position);
  const _field_attr *field = GetFieldFromIndex(fieldIndex);
  if (record == nullptr || field == nullptr) return 0;
  write_value(view, record, *field, value);
  return 1;
}

int CRtTable::SetColumnValueAt(int fieldIndex, const char *value, int first, int end) {
  const TableView view = TableView::of(*this);
  if (!view || value == nullptr) return 0;
  // By design [EndPositionExclusive]: a negative end means the last position, which is left unchanged.
  if (end < 0) end = view.count() - 1;
  if (first >= end) return 1;
  const _field_attr *field = view.field_unchecked(fieldIndex);
  if (field == nullptr || view.at(first) == nullptr) return 0;
  end = std::min(end, view.capacity());  // slots after the area belong to another table
  for (int i = first; i < end; ++i) {
    const std::span<std::byte> place = view.value(view.record(i), *field);
    const std::size_t size = quillanest::room_at(value, field_bytes(place, *field));
    if (size > 0) std::memmove(place.data(), value, size);
    view.check_order(view.record(i), offset_in(view.record(i), place), static_cast<std::int64_t>(size));
  }
  return 1;
}

int CRtTable::SetFieldByText(int position, int fieldIndex, char *text) {
  const TableView view = TableView::of(*this);
  if (text == nullptr || !view) return 0;
  std::byte *record = view.at(position);
  const _field_attr *field = GetFieldFromIndex(fieldIndex);
  if (record == nullptr || field == nullptr) return 0;
  const std::span<std::byte> value = view.value(record, *field);
  const bool stored = store_field_text(value, *field, text);
  // A number has its type's width, a text its own length; the larger of the two is used.
  const std::size_t size = std::max(sizeof(SYSTEMTIME), quillanest::text_at(text).size() + 1);
  view.check_order(record, offset_in(record, value), static_cast<std::int64_t>(size));
  return stored ? 1 : 0;
}
