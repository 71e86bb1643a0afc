// What one call needs of a mapped database or an attached table, checked against the segment once.
//
// Descriptors are bytes in memory that clients may change at any moment, so nothing read from them is trusted and no
// number is read twice: every address that leaves these two structs lies inside the segment, with the bytes that are
// said to lie there.
// Lifetime: a view is made per call and used before the database object changes.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

#include "quillanest/kernel/RtDataBase.h"
#include "quillanest/kernel/RtTable.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/ImageLayout.h"
#include "quillanest/shm/SegmentAccess.h"
#include "quillanest/shm/TextAt.h"

namespace quillanest {

// Descriptors are found by offset; one that would not be aligned or not lie in the segment is not there.
template <class Attr>
Attr *attr_at(std::span<std::byte> segment, std::int64_t offset) {
  const auto size = static_cast<std::int64_t>(segment.size());
  if (offset < 0 || offset > size - static_cast<std::int64_t>(sizeof(Attr)) ||
      offset % std::int64_t{alignof(Attr)} != 0) {
    return nullptr;
  }
  return reinterpret_cast<Attr *>(segment.data() + offset);
}

// The address where an array of descriptors begins, which may be empty and then ends with the segment.
template <class Attr>
Attr *attrs_at(std::span<std::byte> segment, std::int64_t offset) {
  const bool inside = offset >= 0 && !segment.empty() && offset <= static_cast<std::int64_t>(segment.size());
  return inside && offset % std::int64_t{alignof(Attr)} == 0 ? reinterpret_cast<Attr *>(segment.data() + offset)
                                                             : nullptr;
}

struct DatabaseView {
  // The segment while the object is mapped, else empty. A flag without a view, as a copy of a mapped object has it,
  // counts as not mapped.
  static std::span<std::byte> segment(const CRtDataBase &database) noexcept {
    if (database.mapped_ == 0) return {};
    return SegmentAccess::bytes(database.segment_);
  }

  // The notes of the process about the segment, which the object must have mapped.
  static std::atomic<std::uint64_t> *notes(const CRtDataBase &database) noexcept {
    return SegmentAccess::notes(database.segment_);
  }

  static bool is_mapped(const CRtDataBase &database) noexcept { return segment(database).size() >= sizeof(_db_attr); }

  // The table descriptor in a slot, by the object's own table offset.
  static _table_attr *table(const CRtDataBase &database, int slot) noexcept {
    return attr_at<_table_attr>(segment(database),
                                database.attr_.TableOffset + std::int64_t{slot} * std::int64_t{sizeof(_table_attr)});
  }
};

// The keys of a record area: what a search needs, small enough for registers.
struct KeyArea {
  const std::byte *records;
  std::int64_t record_size;

  // False for records shorter than a key, of which only key_of() may be asked.
  [[nodiscard]] bool has_whole_keys() const noexcept { return record_size >= std::int64_t{sizeof(std::uint32_t)}; }

  [[nodiscard]] std::uint32_t key_at(std::int64_t position) const noexcept {
    return load<std::uint32_t>(records + position * record_size);
  }

  // The key of the record that begins with `bytes`. One shorter than a key has zeros in place of the missing bytes.
  [[nodiscard]] std::uint32_t key_of(const std::byte *bytes) const noexcept {
    return load_part<std::uint32_t>({bytes, static_cast<std::size_t>(record_size)});
  }

  // Whether no neighbour of the record at `position`, one of the first `count`, has its key.
  [[nodiscard]] bool is_only_one(std::uint32_t key, std::int64_t position, std::int64_t count) const noexcept {
    return (position == 0 || key_at(position - 1) != key) && (position + 1 == count || key_at(position + 1) != key);
  }
};

struct TableView {
  std::span<std::byte> segment;
  _table_attr *attr = nullptr;  // in the segment
  std::byte *records = nullptr;
  std::int64_t record_size = 0;
  std::int64_t field_offset = 0;                // of the table's first field descriptor
  std::int32_t field_num = 0;                   // the stated number of fields
  std::atomic<std::uint64_t> *notes = nullptr;  // of the process about the segment: a bit per slot, see has_order()
  std::int32_t slot = 0;

  // False for a table that is not attached; nothing else may be asked of it.
  explicit operator bool() const noexcept { return records != nullptr; }

  static TableView of(const CRtTable &table) noexcept {
    TableView view;
    view.attr = descriptor(table);
    if (view.attr == nullptr) return view;
    view.segment = DatabaseView::segment(*table.database_);
    view.notes = DatabaseView::notes(*table.database_);
    view.slot = table.attr_.IndexInDB;
    // Read into the view once. Not with read_once(): what a caller does not use is not loaded at all then.
    const std::int64_t offset = view.attr->DataOffset;
    view.record_size = view.attr->TableSize;
    view.field_offset = view.attr->FieldOffset;
    view.field_num = view.attr->TableFieldNum;
    if (offset < 0 || offset > static_cast<std::int64_t>(view.segment.size()) || view.record_size < 0) return view;
    view.records = view.segment.data() + offset;
    return view;
  }

  // The descriptor in the image; null when the table is not attached. A segment that holds one holds the descriptor of
  // its database, too.
  static_assert(sizeof(_table_attr) >= sizeof(_db_attr));
  static _table_attr *descriptor(const CRtTable &table) noexcept {
    if (table.database_ == nullptr) return nullptr;
    return DatabaseView::table(*table.database_, table.attr_.IndexInDB);
  }

  static CRtDataBase *database(const CRtTable &table) noexcept { return table.database_; }

  // Bytes from the first record to the end of the segment.
  [[nodiscard]] std::int64_t room() const noexcept { return segment.data() + segment.size() - records; }

  // True when `count` records lie inside the segment.
  [[nodiscard]] bool holds(std::int64_t count) const noexcept { return count >= 0 && count * record_size <= room(); }

  // Records in use and capacity, 0 or more and cut to what the segment holds.
  [[nodiscard]] std::int32_t count() const noexcept { return cut(load_shared(attr->RecordCount)); }
  [[nodiscard]] std::int32_t capacity() const noexcept { return cut(load_shared(attr->RecordMaxCount)); }

  void set_count(std::int32_t count) const noexcept { store_shared(attr->RecordCount, count); }

  [[nodiscard]] std::byte *record(std::int64_t position) const noexcept { return records + position * record_size; }

  [[nodiscard]] std::size_t record_bytes() const noexcept { return static_cast<std::size_t>(record_size); }

  // Whether the keys ascend, as far as the library knows: an area that a load or a counter set too low left out of
  // order is noted. Slots from kLastNote on share a bit, which is never taken back.
  static constexpr std::int32_t kLastNote = 63;
  [[nodiscard]] std::uint64_t order_note() const noexcept { return std::uint64_t{1} << std::min(slot, kLastNote); }
  [[nodiscard]] bool has_order() const noexcept { return (notes->load(std::memory_order_relaxed) & order_note()) == 0; }
  void note_order(bool ascends) const noexcept {
    if (!ascends) notes->fetch_or(order_note(), std::memory_order_relaxed);
    if (ascends && slot < kLastNote && !has_order()) notes->fetch_and(~order_note(), std::memory_order_relaxed);
  }

  // The record in use at a position, or null.
  [[nodiscard]] std::byte *at(std::int32_t position) const noexcept {
    return position >= 0 && position < count() ? record(position) : nullptr;
  }

  [[nodiscard]] KeyArea keys() const noexcept { return {records, record_size}; }
  [[nodiscard]] std::uint32_t key_of(const std::byte *bytes) const noexcept { return keys().key_of(bytes); }
  [[nodiscard]] std::uint32_t key_at(std::int32_t position) const noexcept { return key_of(record(position)); }

  // Whether a caller's buffer holds a whole record of the table, which must be attached.
  [[nodiscard]] bool is_record(const char *buffer) const {
    return records != nullptr && buffer != nullptr && room_at(buffer, record_bytes()) == record_bytes();
  }

  void set_key(std::byte *bytes, std::uint32_t key) const noexcept { store_part({bytes, record_bytes()}, key); }

  // The descriptor at a position that callers give without a check against the table's number of fields: it may be one
  // of the database's other tables. Null where no descriptor lies, whose place and size would mean anything.
  [[nodiscard]] _field_attr *field_unchecked(int index) const noexcept {
    const auto &database = *attr_at<_db_attr>(segment, 0);
    const std::int64_t first = read_once(database.FieldOffset);
    const std::int64_t offset = field_offset + index * std::int64_t{sizeof(_field_attr)};
    const bool is_field = offset >= first && (offset - first) % std::int64_t{sizeof(_field_attr)} == 0 &&
                          offset <= read_once(database.DataOffset) - std::int64_t{sizeof(_field_attr)};
    return is_field ? field(index) : nullptr;
  }

  // The descriptor at a position behind the table's first one; null outside the segment.
  [[nodiscard]] _field_attr *field(std::int64_t index) const noexcept {
    return attr_at<_field_attr>(segment, field_offset + index * std::int64_t{sizeof(_field_attr)});
  }

  // The address of the first field descriptor, also when the table has none; null outside the segment.
  [[nodiscard]] _field_attr *fields() const noexcept { return attrs_at<_field_attr>(segment, field_offset); }

  // The field descriptors that are there: the table's number of fields, cut to what the segment holds.
  [[nodiscard]] std::span<const _field_attr> all_fields() const noexcept {
    const _field_attr *const first = fields();
    if (first == nullptr) return {};
    const std::int64_t most = (static_cast<std::int64_t>(segment.size()) - field_offset) / std::int64_t{sizeof(*first)};
    return {first, static_cast<std::size_t>(std::clamp<std::int64_t>(field_num, 0, most))};
  }
  [[nodiscard]] int field_count() const noexcept { return static_cast<int>(all_fields().size()); }

  // A stated number of records, 0 or more and cut to what the segment holds.
  [[nodiscard]] std::int32_t cut(std::int32_t stated) const noexcept {
    if (record_size > 0 && holds(stated)) [[likely]]
      return stated;
    return cut_to_room(stated);
  }

  // The bytes of a field of a record, from its first one to the end of the segment; empty outside.
  [[nodiscard]] std::span<std::byte> value(std::byte *record_start, const _field_attr &field) const noexcept {
    const std::int64_t start = record_start - segment.data() + std::int64_t{read_once(field.FieldOffset)};
    if (start < 0 || start >= static_cast<std::int64_t>(segment.size())) return {};
    return segment.subspan(static_cast<std::size_t>(start));
  }

 private:
  [[nodiscard]] std::int32_t cut_to_room(std::int32_t stated) const noexcept;
};

// The position of a key in the record area, or the place where it belongs.
struct KeyPlace {
  bool found;
  std::int32_t position;
};

// The place where a key stands when keys follow one another without a gap; -1 when it is not there, when halving might
// meet another record with that key first, and where anything is out of the ordinary. Calls nothing.
[[nodiscard]] inline std::int32_t dense_position(const TableView &view, std::uint32_t key) noexcept {
  const std::int32_t count = load_shared(view.attr->RecordCount);
  const KeyArea area = view.keys();
  if (count <= 0 || !view.holds(count) || !area.has_whole_keys()) return -1;
  const std::uint32_t guess = key - area.key_at(0);
  if (guess >= static_cast<std::uint32_t>(count) || area.key_at(guess) != key || !view.has_order()) return -1;
  return area.is_only_one(key, guess, count) ? static_cast<std::int32_t>(guess) : -1;
}

// The place of a key that has no dense_position() among the first `count` records. `ascending`: whether their keys are.
[[nodiscard]] KeyPlace search_key(KeyArea area, std::uint32_t key, std::int32_t count, bool ascending) noexcept;

// The place of a key.
//
// The answer is that of plain halving, always; an area that is noted as out of order is halved. On the others halving
// costs a cache miss for nearly every one of its steps, so other places are looked at first: the one where the key
// stands when keys follow one another without a gap, then those where it would stand if keys were spread evenly. What
// they find counts only when its neighbours have other keys, because halving could meet another one of several equal
// keys first; a key that is in no place has but one place to be inserted. An area that a client put out of order is
// searched within its bounds and comes to an end.
[[nodiscard]] inline KeyPlace find_key(const TableView &view, std::uint32_t key) noexcept {
  const std::int32_t position = dense_position(view, key);
  return position >= 0 ? KeyPlace{true, position} : search_key(view.keys(), key, view.count(), view.has_order());
}

// The record with that key: at `hint` when it is there, else by search. Not found: the insertion point.
[[nodiscard]] inline KeyPlace find_key_near(const TableView &view, std::uint32_t key, std::int32_t hint) noexcept {
  const std::byte *at_hint = view.at(hint);
  if (at_hint != nullptr && view.key_of(at_hint) == key) return {true, hint};
  return find_key(view, key);
}

// The descriptors of the version fields, null where the table has none.
struct VersionFields {
  const _field_attr *modified = nullptr;     // "bModified"
  const _field_attr *project = nullptr;      // "iProjectID"
  const _field_attr *edit_status = nullptr;  // "iEditStatus"
};
[[nodiscard]] VersionFields find_version_fields(const TableView &view) noexcept;

// Fills the fields that have a default value in a record of the table, which ends with `record`.
void set_defaults(const TableView &view, std::span<std::byte> record) noexcept;

// The names of the version fields.
inline constexpr std::string_view kModifiedField = "bModified";
inline constexpr std::string_view kProjectField = "iProjectID";
inline constexpr std::string_view kEditStatusField = "iEditStatus";

// A version field of one record, read and written as 32 bits whatever its declared type.
[[nodiscard]] inline std::int32_t version_value(const TableView &view, std::byte *record, const _field_attr &field) {
  return load_part<std::int32_t>(view.value(record, field));
}
inline void set_version_value(const TableView &view, std::byte *record, const _field_attr &field, std::int32_t value) {
  store_part(view.value(record, field), value);
}

}  // namespace quillanest
