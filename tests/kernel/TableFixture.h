// A started manager over a root of its own, table views on it, and records as bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "quillanest/Quillanest.h"
#include "tests/support/Records.h"
#include "tests/support/TestRoot.h"

inline constexpr int kManagerKey = 333;

// The image of a schema: tables of the system database, which the manager has mapped, and of "plant", which is bound to
// `plant` and mapped.
struct Image {
  explicit Image(const std::vector<TableSpec> &system, const std::vector<TableSpec> &plant_tables = {})
      : Image(schema_text(system, plant_tables)) {}
  // `more` goes to section "Quillanest" of the configuration.
  explicit Image(const std::string &schema, std::string_view more = {}) : root(more) {
    const std::string path = root.write("schema.txt", schema);
    if (!manager.RtdbManagerInit(false, path.c_str())) throw std::runtime_error("the image does not start");
    if (manager.GetDataBaseFromID(plant, 2) == 1) plant.AttachShareMemory();
  }

  // A view on a table of the system database.
  CRtTable table(unsigned int id) {
    CRtTable view;
    if (manager.GetSystemTable(view, id) != 1) throw std::runtime_error("no such table");
    return view;
  }

  TestRoot root;
  CRtdbManager manager;
  CRtDataBase plant;
};

// Offsets of the values of an Account record, and its size.
struct Account {
  static constexpr std::size_t kKey = 0;
  static constexpr std::size_t kName = 4;
  static constexpr std::size_t kLevel = 12;
  static constexpr std::size_t kSince = 24;
  static constexpr std::size_t kModified = 40;
  static constexpr std::size_t kProject = 44;
  static constexpr std::size_t kStatus = 48;
  static constexpr std::size_t kSize = 52;
};

inline std::string account(std::uint32_t key, std::int32_t level = 0, std::int32_t project = 0,
                           std::int32_t status = 0) {
  std::string record(Account::kSize, '\0');
  put(record.data(), Account::kKey, key);
  put(record.data(), Account::kLevel, level);
  put(record.data(), Account::kProject, project);
  put(record.data(), Account::kStatus, status);
  return record;
}

// The image with the Account table, whose records it fills and reads past the lookups and the edits.
struct Accounts : Image {
  explicit Accounts(int capacity = 5) : Image({account_table(capacity)}), table(Image::table(10)) {}
  Accounts(std::initializer_list<std::uint32_t> keys, std::uint32_t next_key) : Accounts() { fill(keys, next_key); }

  // Puts records with these keys into the area; the level of each is its key.
  void fill(const std::vector<std::uint32_t> &keys, std::uint32_t next_key) {
    for (std::size_t i = 0; i < keys.size(); ++i) {
      const std::string record = account(keys[i], static_cast<std::int32_t>(keys[i]));
      std::memcpy(slot(i), record.data(), record.size());
    }
    table.SetRecordCount(static_cast<int>(keys.size()));
    table.SetIDExclusive(next_key);
  }

  char *slot(std::size_t position) { return table.GetDataAddress() + position * Account::kSize; }
  // The record at a position, null for a negative one; a number of a record; the bytes of the first records.
  char *record(int position) { return position < 0 ? nullptr : slot(static_cast<std::size_t>(position)); }
  std::int32_t number(std::size_t position, std::size_t offset) {
    return value_at<std::int32_t>(slot(position), offset);
  }
  std::string area(std::size_t records = 5) { return bytes_at(slot(0), records * Account::kSize); }
  std::uint32_t next_key() { return table.GetTableInfo()->IDExclusive; }
  std::vector<std::uint32_t> keys() {
    std::vector<std::uint32_t> found;
    for (std::size_t i = 0; i < static_cast<std::size_t>(table.GetRecordCount()); ++i) {
      found.push_back(value_at<std::uint32_t>(slot(i), Account::kKey));
    }
    return found;
  }

  CRtTable table;
};
