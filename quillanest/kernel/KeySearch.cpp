#include "quillanest/kernel/KeySearch.h"

#include <algorithm>

#include "quillanest/shm/Bytes.h"

namespace quillanest {

namespace {

// Positions that may hold the key, both included: all keys before them are smaller, all keys after them larger.
struct Range {
  std::int64_t low;
  std::int64_t high;
};

// Finds a key by halving; `key_at(position)` returns the key at a position.
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

// The same for records that are shorter than a key.
KeyPlace halve_short(KeyArea area, std::uint32_t key, Range range) noexcept {
  return halve([area](std::int64_t position) { return area.key_of(area.records + position * area.record_size); }, key,
               range);
}

// Up to this number the records lie in the processor's caches, and mispredicted branches cost most of the time.
constexpr std::int32_t kFewRecords = 2048;

// Halving without branches, down to the last record whose key is not larger. Each step depends on the one before only
// by an address, without a multiplication.
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

// Estimates that are worth a cache miss: the error of each is about the square root of the error before.
constexpr int kEstimates = 2;

// The number of records that are then looked at one by one, which the processor fetches ahead, before the steps grow.
constexpr int kSteps = 64;

// Lowers the upper end of the range to the key, which is expected a little above the lower end.
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

// The range around the place where the key, which is not above the last one, would be if keys were spread evenly.
Range estimate(KeyArea area, std::uint32_t key, std::int32_t count) noexcept {
  const std::uint32_t first = area.key_at(0);
  const std::uint32_t last = area.key_at(count - 1);
  Range range{0, std::int64_t{count} - 1};
  if (key < first) return {0, -1};
  if (first >= last) return range;
  const double records_per_key = static_cast<double>(count - 1) / static_cast<double>(last - first);
  double place = static_cast<double>(key - first) * records_per_key;
  bool above = true;  // whether the key is above the last estimate
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

}  // namespace quillanest
