// One face for everything that holds a table of records: the kernel, its limits and its peers.
//
// A store is made from an image, the table in it and that table's keys. It offers
//   find(key)               whether the key is there
//   update(record)          overwrites the record with the record's key
//   insert(record)          adds a record with a new key
//   erase(key)              removes a record
//   sum()                   adds up one DOUBLE of all records
//   done()                  whether every edit so far did what it should
// and kMovesRecords: whether an edit in the middle moves the records after it.
#pragma once

#include <cstdint>
#include <cstring>
#include <map>
#include <pthread.h>
#include <unordered_map>
#include <utility>
#include <vector>

#include "bench/Image.h"
#include "bench/Limits.h"

namespace bench {

using KeyList = std::vector<std::uint32_t>;

inline std::uint32_t key_of(const Record &record) {
  std::uint32_t key = 0;
  std::memcpy(&key, record.data(), sizeof key);
  return key;
}

inline double value_at(const char *record) {
  double value = 0;
  std::memcpy(&value, record + kValueOffset, sizeof value);
  return value;
}

class KernelTable {
 public:
  static constexpr bool kMovesRecords = true;

  KernelTable(Image &image, TableId id, const KeyList &) : table_(image.table(id)) {}

  bool find(std::uint32_t key) { return table_.FindIDExclusive(key) != nullptr; }
  void update(Record &record) { done_ &= table_.Update(record.data(), -1, 0) >= 0; }
  void insert(Record &record) { done_ &= table_.Insert(record.data(), 0) >= 0; }
  void erase(std::uint32_t key) { done_ &= table_.Delete(key, -1, 0) == 1; }
  double sum() {
    double sum = 0;
    for (int position = table_.GetFirstPosition(); position != -1;) sum += value_at(table_.GetNextPosition(position));
    return sum;
  }
  [[nodiscard]] bool done() const { return done_; }

 protected:
  CRtTable &table_;
  bool done_ = true;
};

// The kernel's other form of a search.
class KernelPositions : public KernelTable {
 public:
  using KernelTable::KernelTable;
  bool find(std::uint32_t key) {
    int position = 0;
    return table_.FindIDExclusive(key, position) == 1;
  }
};

// The limit: the bytes of the kernel's own table under hand-written code and a mutex that is at hand or found by name.
template <auto kSearch, class Mutex = SharedMutex>
class PackedTable {
 public:
  static constexpr bool kMovesRecords = true;

  PackedTable(Image &image, TableId id, const KeyList &)
      : records_(image.table(id).GetDataAddress()), count_(image.table(id).GetTableInfo()->RecordCount) {}

  bool find(std::uint32_t key) { return kSearch(records_, count_, key).found; }
  void update(Record &record) {
    const HeldSharedMutex held(mutex_);
    const Place place = kSearch(records_, count_, key_of(record));
    if (place.found) std::memcpy(at(place.position), record.data(), kRecordSize);
    done_ &= place.found;
  }
  void insert(Record &record) {
    const HeldSharedMutex held(mutex_);
    const Place place = kSearch(records_, count_, key_of(record));
    char *slot = at(place.position);
    if (place.position < count_) std::memmove(slot + kRecordSize, slot, bytes_from(place.position));
    std::memcpy(slot, record.data(), kRecordSize);
    ++count_;
    done_ &= !place.found;
  }
  void erase(std::uint32_t key) {
    const HeldSharedMutex held(mutex_);
    const Place place = kSearch(records_, count_, key);
    done_ &= place.found;
    if (!place.found) return;
    --count_;
    char *slot = at(place.position);
    if (place.position < count_) std::memmove(slot, slot + kRecordSize, bytes_from(place.position));
    std::memset(at(count_), 0, kRecordSize);
  }
  double sum() {
    double sum = 0;
    const char *end = at(count_);
    for (const char *record = records_; record != end; record += kRecordSize) sum += value_at(record);
    return sum;
  }
  [[nodiscard]] bool done() const { return done_; }

 private:
  [[nodiscard]] char *at(int position) const { return records_ + static_cast<std::size_t>(position) * kRecordSize; }
  [[nodiscard]] std::size_t bytes_from(int position) const {
    return static_cast<std::size_t>(count_ - position) * kRecordSize;
  }

  char *records_;
  std::int32_t &count_;
  Mutex mutex_;
  bool done_ = true;
};

// A container of the standard library under the same mutex.
template <class Map>
class MapTable {
 public:
  static constexpr bool kMovesRecords = false;

  MapTable(Image &, TableId, const KeyList &keys) {
    for (const std::uint32_t key : keys) records_.emplace(key, record_of(key));
  }

  bool find(std::uint32_t key) { return records_.find(key) != records_.end(); }
  void update(Record &record) {
    const HeldSharedMutex held(mutex_);
    const auto found = records_.find(key_of(record));
    done_ &= found != records_.end();
    if (found != records_.end()) found->second = record;
  }
  void insert(Record &record) {
    const HeldSharedMutex held(mutex_);
    done_ &= records_.emplace(key_of(record), record).second;
  }
  void erase(std::uint32_t key) {
    const HeldSharedMutex held(mutex_);
    done_ &= records_.erase(key) == 1;
  }
  double sum() {
    double sum = 0;
    for (const auto &[key, record] : records_) sum += value_at(record.data());
    return sum;
  }
  [[nodiscard]] bool done() const { return done_; }

 private:
  Map records_;
  SharedMutex mutex_;
  bool done_ = true;
};

using OrderedTable = MapTable<std::map<std::uint32_t, Record>>;
using HashedTable = MapTable<std::unordered_map<std::uint32_t, Record>>;

}  // namespace bench
