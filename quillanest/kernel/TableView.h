// What one call needs of an attached table, checked against the segment once.
//
// As with DatabaseView.h, nothing that a descriptor says is trusted: every address lies inside the segment.
// Lifetime: a view is made per call and used before the database object changes.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "quillanest/kernel/DatabaseView.h"
#include "quillanest/kernel/RtTable.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/ImageLayout.h"
#include "quillanest/shm/TextAt.h"

namespace quillanest {

// The keys of a record area: all that a search needs, small enough for registers.
struct KeyArea {
  const std::byte *records;
  std::int64_t record_size;

  // False for records shorter than a key, for which only key_of() may be called.
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
  std::atomic<std::uint64_t> *notes = nullptr;  // of the process about the segment: bits per slot, see has_order()
  std::int32_t slot = 0;

  // False for a table that is not attached; no other member may be used then.
  explicit operator bool() const noexcept { return records != nullptr; }

  static TableView of(const CRtTable &table) noexcept {
    TableView view;
    view.attr = descriptor(table);
    if (view.attr == nullptr) return view;
    view.segment = DatabaseView::segment(*table.database_);
    view.notes = DatabaseView::notes(*table.database_);
    view.slot = table.attr_.IndexInDB;
    // Plain loads, because the compiler drops those whose value is not used; the fence keeps it from repeating the
    // others.
    const std::int64_t offset = view.attr->DataOffset;
    view.record_size = view.attr->TableSize;
    view.field_offset = view.attr->FieldOffset;
    view.field_num = view.attr->TableFieldNum;
    std::atomic_signal_fence(std::memory_order_acquire);
    if (offset < 0 || offset > static_cast<std::int64_t>(view.segment.size()) || view.record_size < 0) return view;
    view.records = view.segment.data() + offset;
    return view;
  }

  // The descriptor in the image; null if the table is not attached. A segment that holds one holds the descriptor of
  // its database, too.
  static_assert(sizeof(_table_attr) >= sizeof(_db_attr));
  static _table_attr *descriptor(const CRtTable &table) noexcept {
    if (table.database_ == nullptr) return nullptr;
    return DatabaseView::table(*table.database_, table.attr_.IndexInDB);
  }

  // The descriptor in force: the image's while the table is attached, else the object's own.
  static _table_attr &attr_of(CRtTable &table) noexcept {
    _table_attr *shared = descriptor(table);
    return shared != nullptr ? *shared : table.attr_;
  }
  static const _table_attr &attr_of(const CRtTable &table) noexcept {
    const _table_attr *shared = descriptor(table);
    return shared != nullptr ? *shared : table.attr_;
  }

  static CRtDataBase *database(const CRtTable &table) noexcept { return table.database_; }

  // Bytes from the first record to the end of the segment.
  [[nodiscard]] std::int64_t room() const noexcept { return segment.data() + segment.size() - records; }

  // True if `count` records lie inside the segment.
  [[nodiscard]] bool holds(std::int64_t count) const noexcept { return count >= 0 && count * record_size <= room(); }

  // Records in use and capacity, 0 or more and cut to what the segment holds.
  [[nodiscard]] std::int32_t count() const noexcept { return cut(load_shared(attr->RecordCount)); }
  [[nodiscard]] std::int32_t capacity() const noexcept { return cut(load_shared(attr->RecordMaxCount)); }

  void set_count(std::int32_t count) const noexcept { store_shared(attr->RecordCount, count); }

  [[nodiscard]] std::byte *record(std::int64_t position) const noexcept { return records + position * record_size; }

  [[nodiscard]] std::size_t record_bytes() const noexcept { return static_cast<std::size_t>(record_size); }

  // Whether the keys ascend, as far as the library knows: it notes an area that a load, or a counter that was set too
  // low, left out of order. Slots from kLastNote on share a bit, which is never cleared.
  static constexpr std::int32_t kLastNote = 63;
  [[nodiscard]] std::uint64_t order_note() const noexcept { return std::uint64_t{1} << std::clamp(slot, 0, kLastNote); }
  [[nodiscard]] bool has_order() const noexcept {
    const std::uint64_t noted = notes->load(std::memory_order_relaxed);
    return noted == 0 || (noted & order_note()) == 0;
  }
  void note_order(bool ascends) const noexcept {
    if (!ascends) notes->fetch_or(order_note(), std::memory_order_relaxed);
    if (ascends && slot < kLastNote && !has_order()) notes->fetch_and(~order_note(), std::memory_order_relaxed);
  }

  // Whether a load has filled the table, or found nothing to fill it with, since the image was built. Slots from 1023
  // on share a bit. The bits follow those of the order.
  static constexpr std::int32_t kLastLoadNote = 1023;
  [[nodiscard]] bool was_loaded() const noexcept {
    return (load_note().load(std::memory_order_relaxed) >> (load_bit() % 64) & 1U) != 0;
  }
  void note_loaded() const noexcept {
    load_note().fetch_or(std::uint64_t{1} << (load_bit() % 64), std::memory_order_relaxed);
  }

  // Call it after a write of `size` bytes at `offset` of the record at `start`. If the write covers keys, of this
  // record or of those after it, and they are out of order now, that is noted.
  void check_order(const std::byte *start, std::int64_t offset, std::int64_t size) const noexcept {
    if (offset < std::int64_t{sizeof(std::uint32_t)} || offset + size > record_size) {
      check_keys(*this, start, offset + size);
    }
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

  // The descriptor at a position that is not checked against the table's number of fields: it may belong to another
  // table of the database. Null if no descriptor lies there, because its place and size would be arbitrary.
  [[nodiscard]] _field_attr *field_unchecked(int index) const noexcept {
    const auto &database = *attr_at<_db_attr>(segment, 0);
    const std::int64_t first = read_once(database.FieldOffset);
    const std::int64_t offset = field_offset + index * std::int64_t{sizeof(_field_attr)};
    const bool is_field = offset >= first && (offset - first) % std::int64_t{sizeof(_field_attr)} == 0 &&
                          offset <= read_once(database.DataOffset) - std::int64_t{sizeof(_field_attr)};
    return is_field ? field(index) : nullptr;
  }

  // The descriptor `index` positions after the table's first one; null outside the segment.
  [[nodiscard]] _field_attr *field(std::int64_t index) const noexcept {
    return attr_at<_field_attr>(segment, field_offset + index * std::int64_t{sizeof(_field_attr)});
  }

  // The address of the first field descriptor, also if the table has none; null outside the segment.
  [[nodiscard]] _field_attr *fields() const noexcept { return attrs_at<_field_attr>(segment, field_offset); }

  // The table's field descriptors, as many as its number of fields says, cut to what the segment holds.
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
    return cut_to_room(stated, record_size > 0 ? room() : std::ssize(segment), record_size);
  }

  // The bytes of a field of a record, from its first one to the end of the segment; empty outside.
  [[nodiscard]] std::span<std::byte> value(std::byte *record_start, const _field_attr &field) const noexcept {
    const std::int64_t start = record_start - segment.data() + std::int64_t{read_once(field.FieldOffset)};
    if (start < 0 || start >= static_cast<std::int64_t>(segment.size())) return {};
    return segment.subspan(static_cast<std::size_t>(start));
  }

 private:
  // Static functions that take copies: a view whose address is never passed stays in registers, which halves the time
  // of a scan.
  [[nodiscard]] static std::int32_t cut_to_room(std::int32_t stated, std::int64_t bytes, std::int64_t size) noexcept;
  static void check_keys(TableView view, const std::byte *start, std::int64_t bytes) noexcept;

  [[nodiscard]] std::int32_t load_bit() const noexcept { return std::clamp(slot, 0, kLastLoadNote); }
  [[nodiscard]] std::atomic<std::uint64_t> &load_note() const noexcept { return notes[1 + load_bit() / 64]; }
};

// The name of the mutex of a table's database: the database's name in the segment, which ends with the descriptor at
// the latest.
[[nodiscard]] inline std::string_view mutex_name(const TableView &view) {
  return block_text(*attr_at<_db_attr>(view.segment, 0), offsetof(_db_attr, DBName));
}

// Notes in its destructor whether the keys that a load put into the area ascend. A load that an exception ends leaves
// new records beside old ones, so its keys count as out of order.
class KeyOrder {
 public:
  explicit KeyOrder(const TableView &view) noexcept : view_(view) {}
  ~KeyOrder() { view_.note_order(complete_ && ascends_); }
  KeyOrder(const KeyOrder &) = delete;
  KeyOrder &operator=(const KeyOrder &) = delete;

  void add(std::uint32_t key) noexcept {
    ascends_ = ascends_ && key >= last_;
    last_ = key;
  }
  // All keys are there; `ascends` speaks for those that were not added.
  void complete(bool ascends = true) noexcept {
    ascends_ = ascends_ && ascends;
    complete_ = true;
  }

 private:
  const TableView &view_;
  bool ascends_ = true;
  bool complete_ = false;
  std::uint32_t last_ = 0;
};

// Fills the fields that have a default value in a record of the table, which ends with `record`.
void set_defaults(const TableView &view, std::span<std::byte> record) noexcept;

}  // namespace quillanest
