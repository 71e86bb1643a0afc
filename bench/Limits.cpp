#include "bench/Limits.h"

#include <algorithm>
#include <cstring>
#include <sys/mman.h>

namespace bench {
namespace {

std::uint32_t key_at(const char *records, std::int64_t position) {
  std::uint32_t key = 0;
  std::memcpy(&key, records + position * std::int64_t{kRecordSize}, sizeof key);
  return key;
}

Place halve(const char *records, std::int32_t low, std::int32_t high, std::uint32_t key) {
  while (low <= high) {
    const std::int32_t middle = low + (high - low) / 2;
    const std::uint32_t found = key_at(records, middle);
    if (found == key) return {true, middle};
    if (key < found) {
      high = middle - 1;
    } else {
      low = middle + 1;
    }
  }
  return {false, low};
}

// Whether no neighbour of a record has its key, so that halving meets no other one.
bool is_only_one(const char *records, std::int32_t count, std::uint32_t key, std::int64_t position) {
  return (position == 0 || key_at(records, position - 1) != key) &&
         (position + 1 == count || key_at(records, position + 1) != key);
}

// From a position to a key that is near: record by record for a while, then by halving what is left.
Place walk(const char *records, std::int32_t count, std::uint32_t key, std::int32_t position) {
  constexpr int kSteps = 64;
  std::uint32_t found = key_at(records, position);
  for (int i = 0; i < kSteps; ++i) {
    if (found == key) return {true, position};
    if (found < key) {
      if (++position == count) return {false, count};
      found = key_at(records, position);
      if (found > key) return {false, position};
    } else {
      if (position == 0) return {false, 0};
      found = key_at(records, --position);
      if (found < key) return {false, position + 1};
    }
  }
  return found < key ? halve(records, position, count - 1, key) : halve(records, 0, position, key);
}

}  // namespace

Place search_by_halving(const char *records, std::int32_t count, std::uint32_t key) {
  return halve(records, 0, count - 1, key);
}

Place search_by_distance(const char *records, std::int32_t count, std::uint32_t key) {
  const Place place = search_by_bare_distance(records, count, key);
  if (!place.found || is_only_one(records, count, key, place.position)) return place;
  return halve(records, 0, count - 1, key);
}

Place search_by_bare_distance(const char *records, std::int32_t count, std::uint32_t key) {
  if (count == 0) return {false, 0};
  const std::int64_t guess = std::int64_t{key} - std::int64_t{key_at(records, 0)};
  if (guess >= 0 && guess < count && key_at(records, guess) == key) return {true, static_cast<std::int32_t>(guess)};
  if (key > key_at(records, count - 1)) return {false, count};
  return halve(records, 0, count - 1, key);
}

Place search_without_branches(const char *records, std::int32_t count, std::uint32_t key) {
  if (count == 0) return {false, 0};
  std::int64_t low = 0;
  for (std::int64_t length = count; length > 1;) {
    const std::int64_t half = length / 2;
    low = key_at(records, low + half) <= key ? low + half : low;
    length -= half;
  }
  const std::uint32_t found = key_at(records, low);
  return {found == key, static_cast<std::int32_t>(found < key ? low + 1 : low)};
}

Place search_by_slope(const char *records, std::int32_t count, std::uint32_t key) {
  if (count == 0) return {false, 0};
  const std::int64_t first = key_at(records, 0);
  const std::int64_t last = key_at(records, count - 1);
  if (key < first) return {false, 0};
  if (key > last) return {false, count};
  const double slope = last > first ? static_cast<double>(count - 1) / static_cast<double>(last - first) : 0.0;
  auto position = static_cast<std::int64_t>(static_cast<double>(key - first) * slope);
  for (int i = 0; i < 2; ++i) {
    const std::int64_t distance = std::int64_t{key} - std::int64_t{key_at(records, position)};
    position += static_cast<std::int64_t>(static_cast<double>(distance) * slope);
    position = std::clamp<std::int64_t>(position, 0, count - 1);
  }
  const Place place = walk(records, count, key, static_cast<std::int32_t>(position));
  if (!place.found || is_only_one(records, count, key, place.position)) return place;
  return halve(records, 0, count - 1, key);
}

SharedMutex::SharedMutex() {
  void *address = mmap(nullptr, sizeof(pthread_mutex_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  expect(address != MAP_FAILED, "no memory for a mutex");
  mutex_ = static_cast<pthread_mutex_t *>(address);
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
  pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
  expect(pthread_mutex_init(mutex_, &attributes) == 0, "no mutex");
  pthread_mutexattr_destroy(&attributes);
}

SharedMutex::~SharedMutex() {
  pthread_mutex_destroy(mutex_);
  munmap(mutex_, sizeof(pthread_mutex_t));
}

}  // namespace bench
