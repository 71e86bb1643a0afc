// Searches by key in tables of thousands of records, compared with a search in a sorted vector.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "tests/model/Input.h"
#include "tests/model/Support.h"

namespace {

using quillanest::model::Input;
using quillanest::model::LastingImage;
using quillanest::model::require;

constexpr unsigned int kKeysOnly = 10;
constexpr unsigned int kUnaligned = 11;
constexpr std::size_t kMostRecords = 3000;

const std::vector<TableSpec> kTables{{kKeysOnly, "Keys", kMostRecords, {"ID UINT 4"}},
                                     {kUnaligned, "Unaligned", kMostRecords, {"ID UINT 4", "Text STRING 11"}}};

// Keys in runs of even distances; a distance of 0 repeats a key, and one that wraps around starts again below.
std::vector<std::uint32_t> keys_of(Input &input) {
  std::vector<std::uint32_t> keys;
  std::uint32_t key = input.flag() ? 0 : input.number<std::uint32_t>();
  while (!input.empty() && keys.size() < kMostRecords) {
    const std::size_t shape = input.choice(8);
    std::size_t length = 1 + input.choice(256);
    std::uint32_t distance = 1;
    if (shape == 1) distance = input.number<std::uint8_t>();
    if (shape == 2) distance = input.number<std::uint16_t>();
    if (shape == 3) distance = input.number<std::uint32_t>();
    if (shape >= 4) length = shape;
    for (; length > 0 && keys.size() < kMostRecords; --length) keys.push_back(key += distance);
  }
  return keys;
}

void fill(CRtTable &table, const std::vector<std::uint32_t> &keys) {
  (void)table.DeleteAllRecord();  // or an area that was out of order once is halved for good
  const auto record_size = static_cast<std::size_t>(table.GetTableSize());
  char *record = table.GetDataAddress();
  for (const std::uint32_t key : keys) {
    put(record, 0, key);
    record += record_size;
  }
  table.SetRecordCount(static_cast<int>(keys.size()));
}

// What holds for every table: what is found has the key.
void check_found(const CRtTable &table, std::uint32_t key) {
  int place = -2;
  const int found = table.FindIDExclusive(key, place);
  require(place >= 0 && place <= table.GetRecordCount(), "a place lies in the table or after its end");
  require(found == 0 || value_at<std::uint32_t>(table.GetAt(place), 0) == key, "what is found has the key");
  require(table.FindRecordIndex(key) == (found == 1 ? place : -1), "both searches find the same");
  const char *record = table.FindIDExclusive(key);
  require(record == (found == 1 && key != 0 ? table.GetAt(place) : nullptr), "a record is found at its place");
}

void check_sorted(const CRtTable &table, const std::vector<std::uint32_t> &keys, std::uint32_t key) {
  int place = -2;
  const int found = table.FindIDExclusive(key, place);
  const auto expected = std::lower_bound(keys.begin(), keys.end(), key);
  require((found == 1) == (expected != keys.end() && *expected == key), "a key is found when it is there");
  require(place == expected - keys.begin(), "a key has its place in the order");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  static LastingImage image(kTables);
  Input input(bytes, size);
  CRtTable table = image.table(input.flag() ? kKeysOnly : kUnaligned);
  std::vector<std::uint32_t> probes(1 + input.choice(16));
  for (std::uint32_t &probe : probes) probe = input.number<std::uint32_t>();
  std::vector<std::uint32_t> keys = keys_of(input);
  fill(table, keys);

  // Each number of the input is looked for itself, and as a position with the keys around the one that is there.
  const auto check = [&](auto check_key) {
    for (const std::uint32_t probe : probes) {
      check_key(probe);
      if (keys.empty()) continue;
      const std::uint32_t key = keys[probe % keys.size()];
      for (const std::uint32_t near : {key - 1, key, key + 1}) check_key(near);
    }
  };
  check([&](std::uint32_t key) { check_found(table, key); });
  std::sort(keys.begin(), keys.end());
  keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
  fill(table, keys);
  check([&](std::uint32_t key) { check_sorted(table, keys, key); });
  require(image.is_guard_whole(), "another database stays as it is");
  return 0;
}
