// Finding records by key, position and text.
#include <algorithm>
#include <cstring>

#include "quillanest/kernel/RtTable.h"
#include "quillanest/kernel/Views.h"
#include "quillanest/platform/AsciiCase.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/TextAt.h"

using quillanest::dense_position;
using quillanest::find_key;
using quillanest::KeyPlace;
using quillanest::TableView;

namespace quillanest {

namespace {

// Positions that may hold the key, both included: in front of them stand smaller keys only, behind them larger ones.
struct Range {
  std::int64_t low;
  std::int64_t high;
};

// `key_at`: the key at a position.
template <class KeyAt>
KeyPlace halve(const KeyAt &key_at, std::uint32_t key, Range range) noexcept {
  auto low = static_cast<std::int32_t>(range.low);
  auto high = static_cast<std::int32_t>(range.high);
  while (low <= high) {
    const std::int32_t middle = low + (high - low) / 2;
    const std::uint32_t found = key_at(middle);
    if (found == key) return {true, middle};
    if (key < found) {
      high = middle - 1;
    } else {
      low = middle + 1;
    }
  }
  return {false, low};
}

KeyPlace halve(KeyArea area, std::uint32_t key, Range range) noexcept {
  return halve([area](std::int32_t position) { return area.key_at(position); }, key, range);
}

// Records that are shorter than a key.
KeyPlace halve_short(KeyArea area, std::uint32_t key, Range range) noexcept {
  return halve([area](std::int64_t position) { return area.key_of(area.records + position * area.record_size); }, key,
               range);
}

// Up to here the records lie in the processor's caches, and what costs time is guessing wrong which way to go.
constexpr std::int32_t kFewRecords = 2048;

// Halving that compares only and never branches, down to the last record whose key is not larger. Each look depends on
// the one before by an address alone: no multiplication stands between them.
KeyPlace halve_few(KeyArea area, std::uint32_t key, std::int32_t count) noexcept {
  const std::byte *low = area.records;
  for (auto left = static_cast<std::uint32_t>(count); left > 1;) {
    const std::uint32_t half = left / 2;
    const std::byte *const middle = low + half * area.record_size;
    low = load<std::uint32_t>(middle) <= key ? middle : low;
    left -= half;
  }
  const auto found = load<std::uint32_t>(low);
  // A segment has less than 2^31 bytes.
  const auto position = static_cast<std::int32_t>(static_cast<std::uint32_t>(low - area.records) /
                                                  static_cast<std::uint32_t>(area.record_size));
  return {found == key, found < key ? position + 1 : position};
}

// Estimates that are worth a cache miss: each one's error is about the square root of the one's before.
constexpr int kEstimates = 2;

// So many records are then looked at one by one, which the processor fetches ahead, before the steps grow.
constexpr int kSteps = 64;

// Draws the upper end of the range to the key, which is expected a little above the lower end.
Range close_above(KeyArea area, std::uint32_t key, Range range) noexcept {
  const std::int64_t start = range.low;
  for (std::int64_t at = start, step = 1; at <= range.high; at += step) {
    if (area.key_at(at) >= key) return {range.low, at};
    range.low = at + 1;
    if (at - start >= kSteps) step *= 2;
  }
  return range;
}

// The same for a key that is expected a little below the upper end.
Range close_below(KeyArea area, std::uint32_t key, Range range) noexcept {
  const std::int64_t start = range.high;
  for (std::int64_t at = start, step = 1; at >= range.low; at -= step) {
    if (area.key_at(at) <= key) return {at, range.high};
    range.high = at - 1;
    if (start - at >= kSteps) step *= 2;
  }
  return range;
}

// The range around the place where the key, which is not above the last one, would stand if keys were spread evenly.
Range estimate(KeyArea area, std::uint32_t key, std::int32_t count) noexcept {
  const std::uint32_t first = area.key_at(0);
  const std::uint32_t last = area.key_at(count - 1);
  Range range{0, std::int64_t{count} - 1};
  if (key < first) return {0, -1};
  if (first >= last) return range;
  const double records_per_key = static_cast<double>(count - 1) / static_cast<double>(last - first);
  double place = static_cast<double>(key - first) * records_per_key;
  bool above = true;  // where the key stands, seen from the last estimate
  for (int i = 0; i < kEstimates && range.low <= range.high; ++i) {
    const std::int64_t at = std::clamp(static_cast<std::int64_t>(place), range.low, range.high);
    const std::uint32_t found = area.key_at(at);
    if (found == key) return {at, at};
    above = found < key;
    (above ? range.low : range.high) = above ? at + 1 : at - 1;
    const double distance = (static_cast<double>(key) - static_cast<double>(found)) * records_per_key;
    place = static_cast<double>(at) + distance;
  }
  return above ? close_above(area, key, range) : close_below(area, key, range);
}

}  // namespace

// Of records without bytes no more are counted than the segment has bytes.
std::int32_t TableView::cut_to_room(std::int32_t stated) const noexcept {
  if (stated < 0) return 0;
  const std::int64_t most = record_size > 0 ? room() / record_size : static_cast<std::int64_t>(segment.size());
  return static_cast<std::int32_t>(std::min<std::int64_t>(stated, most));
}

KeyPlace search_key(KeyArea area, std::uint32_t key, std::int32_t count, bool ascending) noexcept {
  if (count <= 0) return {false, 0};
  const Range whole{0, std::int64_t{count} - 1};
  if (!area.has_whole_keys()) return halve_short(area, key, whole);
  if (!ascending) return halve(area, key, whole);
  if (area.key_at(count - 1) < key) return {false, count};  // a record that is appended
  const KeyPlace place =
      count <= kFewRecords ? halve_few(area, key, count) : halve(area, key, estimate(area, key, count));
  return !place.found || area.is_only_one(key, place.position, count) ? place : halve(area, key, whole);
}

namespace {

// The record with a key that has no dense_position(). With a view of its own, so that its caller, which most accesses
// run through, has nothing to keep across a call.
char *search_record(const CRtTable &table, std::uint32_t key) noexcept {
  const TableView view = TableView::of(table);
  if (!view) return nullptr;
  const KeyPlace place = search_key(view.keys(), key, view.count(), view.has_order());
  return place.found ? as_chars(view.record(place.position)) : nullptr;
}

}  // namespace

}  // namespace quillanest

int CRtTable::FindRecordIndex(unsigned int key) const {
  const TableView view = TableView::of(*this);
  if (!view) return -1;
  const KeyPlace place = find_key(view, key);
  return place.found ? place.position : -1;
}

int CRtTable::FindIDExclusive(unsigned int key, int &position) const {
  position = -1;
  const TableView view = TableView::of(*this);
  if (!view) return 0;
  const KeyPlace place = find_key(view, key);
  position = place.position;
  return place.found ? 1 : 0;
}

char *CRtTable::FindIDExclusive(unsigned int key) const {
  // By design [KeyZeroNamesNothing]: key 0 is not searched here, although the overload with a buffer finds it.
  if (key == 0) return nullptr;
  const TableView view = TableView::of(*this);
  if (!view) return nullptr;
  const std::int32_t position = dense_position(view, key);
  return position >= 0 ? quillanest::as_chars(view.record(position)) : quillanest::search_record(*this, key);
}

int CRtTable::FindIDExclusive(unsigned int key, char *buffer) const {
  const TableView view = TableView::of(*this);
  if (!view || buffer == nullptr) return 0;
  const KeyPlace place = find_key(view, key);
  if (!place.found || quillanest::room_at(buffer, view.record_bytes()) < view.record_bytes()) return 0;
  std::memmove(buffer, view.record(place.position), view.record_bytes());
  return 1;
}

char *CRtTable::GetAt(int position) const {
  const TableView view = TableView::of(*this);
  if (!view) return nullptr;
  std::byte *record = view.at(position);
  return record != nullptr ? quillanest::as_chars(record) : nullptr;
}

char *CRtTable::GetRecordAddr(unsigned int key, int hint) const {
  const TableView view = TableView::of(*this);
  // By design [HintPastEnd]: a hint that is not below the count is an error, even when the key is elsewhere.
  if (!view || hint >= view.count() || (hint < 0 && key == 0)) return nullptr;
  const KeyPlace place = find_key_near(view, key, hint);
  return place.found ? quillanest::as_chars(view.record(place.position)) : nullptr;
}

char *CRtTable::FindRecordbyStringField(int fieldIndex, const char *text) const {
  const TableView view = TableView::of(*this);
  if (!view || fieldIndex < 0 || text == nullptr) return nullptr;
  const _field_attr *field = view.field_unchecked(fieldIndex);
  if (field == nullptr) return nullptr;
  const std::string_view wanted = quillanest::text_at(text);
  const std::int32_t count = view.count();
  for (std::int32_t i = 0; i < count; ++i) {
    std::byte *record = view.record(i);
    // Longer texts than the wanted one need not be read to their end.
    const std::span<std::byte> value = view.value(record, *field);
    const std::string_view stored = quillanest::text_in(value.first(std::min(value.size(), wanted.size() + 1)));
    if (quillanest::equal_ignoring_case(stored, wanted)) return quillanest::as_chars(record);
  }
  return nullptr;
}

int CRtTable::GetFirstPosition() const { return IsInShareMemory() && !IsEmpty() ? 0 : -1; }

char *CRtTable::GetNextPosition(int &position) const {
  const TableView view = TableView::of(*this);
  const std::int32_t count = view ? view.count() : 0;
  if (position < 0 || position >= count) {
    position = -1;
    return nullptr;
  }
  std::byte *record = view.record(position);
  // By design [RecordsEndWithLast]: the last record comes together with the end mark.
  position = position == count - 1 ? -1 : position + 1;
  return quillanest::as_chars(record);
}

bool CRtTable::IsEmpty() const { return GetRecordCount() < 1; }
