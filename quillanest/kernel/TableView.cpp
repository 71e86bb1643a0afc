#include "quillanest/kernel/TableView.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

#include "quillanest/shm/ValueBytes.h"

namespace quillanest {

// The number of the `stated` records of `size` bytes that fit into `bytes`. Records of no size count as one byte each.
std::int32_t TableView::cut_to_room(std::int32_t stated, std::int64_t bytes, std::int64_t size) noexcept {
  if (stated < 0) return 0;
  return static_cast<std::int32_t>(std::min<std::int64_t>(stated, size > 0 ? bytes / size : bytes));
}

// Checks the keys of the records from the one at `start` to the one that holds the last of `bytes`, and of a neighbour
// on each side.
void TableView::check_keys(TableView view, const std::byte *start, std::int64_t bytes) noexcept {
  if (view.record_size <= 0) return;
  const std::int64_t position = (start - view.records) / view.record_size;
  const std::int64_t more = std::max<std::int64_t>(bytes, 0) / view.record_size;
  const std::int64_t last = std::min<std::int64_t>(position + more + 1, view.count() - std::int64_t{1});
  for (std::int64_t i = std::max<std::int64_t>(position, 1); i <= last; ++i) {
    if (view.key_of(view.record(i)) < view.key_of(view.record(i - 1))) return view.note_order(false);
  }
}

void set_defaults(const TableView &view, std::span<std::byte> record) noexcept {
  for (const _field_attr &field : view.all_fields()) {
    const std::int32_t offset = read_once(field.FieldOffset);
    if (offset < 0 || static_cast<std::size_t>(offset) >= record.size()) continue;
    // A copy, because a number is looked at more than once while it is read.
    std::array<char, RTDB_DEFAULT_SIZE> value{};
    std::copy(std::begin(field.DefaultValue), std::end(field.DefaultValue), value.begin());
    const std::string_view text = text_in({as_bytes(static_cast<const void *>(value.data())), value.size()});
    store_default(read_once(field.FieldType), record.subspan(static_cast<std::size_t>(offset)), text);
  }
}

}  // namespace quillanest
