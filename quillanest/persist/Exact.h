// Values of records that come back as they were: what strict loads and saves compare, and the copies they work on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "quillanest/kernel/TableView.h"
#include "quillanest/shm/HeldMutex.h"

namespace quillanest {

// The bytes of a field in a record, which end with the field; empty outside the record.
[[nodiscard]] std::span<std::byte> field_bytes(std::span<std::byte> record, const _field_attr &field) noexcept;

// Whether two values of a field are the same to a store: texts up to their terminators, times to the second, and any
// two numbers that are not a number.
[[nodiscard]] bool is_same_value(const _field_attr &field, std::span<const std::byte> left,
                                 std::span<const std::byte> right) noexcept;

void report_no_mutex(std::string_view place) noexcept;

// Records apart from the image.
class RecordCopy {
 public:
  // `capacity` zeroed records of the size of the table's.
  RecordCopy(const TableView &view, std::int32_t capacity)
      : size_(view.record_bytes()), bytes_((static_cast<std::size_t>(capacity) + 1) * size_) {}

  // The records in use.
  [[nodiscard]] static RecordCopy of(const TableView &view);

  [[nodiscard]] std::int32_t count() const noexcept { return count_; }
  void set_count(std::int32_t count) noexcept { count_ = count; }
  [[nodiscard]] std::span<std::byte> record(std::int32_t position) noexcept {
    return std::span(bytes_).subspan(static_cast<std::size_t>(position) * size_, size_);
  }
  [[nodiscard]] std::uint32_t key_at(std::int32_t position) noexcept;

  // Replaces the table's records, which it must have room for.
  void put_into(const TableView &view);

 private:
  std::size_t size_;
  std::vector<std::byte> bytes_;
  std::int32_t count_ = 0;
};

// Runs work() with the database's mutex held, so that no edit comes in between. False, with the reason reported and
// without a call, if the mutex cannot be opened. The work must not report events.
template <class Work>
[[nodiscard]] bool with_records_held(const TableView &view, std::string_view place, Work work) {
  const bool is_open = [&] {
    const HeldMutex lock(mutex_name(view));
    if (lock.is_open()) work();
    return lock.is_open();
  }();
  if (!is_open) report_no_mutex(place);
  return is_open;
}

// Makes the last step of every load: the counter of keys goes on after the last record's.
void count_on_after(const TableView &view, std::int32_t count) noexcept;

}  // namespace quillanest
