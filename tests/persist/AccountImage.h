// A started image with the table Account of the system database, in an installation root of its own.
#pragma once

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "quillanest/Quillanest.h"
#include "tests/support/TestRoot.h"

inline constexpr const char *kFile = "data/system_Account.txt";
inline constexpr const char *kHeader = "ID;Name;Level;Value;Since;bModified;iProjectID;iEditStatus\r\n";

// Offsets in a record of Account, whose size is 52.
inline constexpr int kName = 4;
inline constexpr int kLevel = 12;
inline constexpr int kSince = 24;
inline constexpr int kModified = 40;
inline constexpr int kProject = 44;
inline constexpr int kStatus = 48;

inline std::int32_t peek(const char *record, int offset) {
  std::int32_t value = 0;
  std::memcpy(&value, record + offset, sizeof value);
  return value;
}
inline void poke(char *record, int offset, std::int32_t value) { std::memcpy(record + offset, &value, sizeof value); }

// "key name level" of every record, each followed by ';'.
inline std::string shown(const CRtTable &account) {
  std::string text;
  for (int i = 0; i < account.GetRecordCount(); ++i) {
    const char *record = account.GetAt(i);
    if (record == nullptr) return text + "<no record>";
    text += std::to_string(static_cast<std::uint32_t>(peek(record, 0))) + ' ';
    text += std::string(record + kName, strnlen(record + kName, 8)) + ' ';
    text += std::to_string(peek(record, kLevel)) + ';';
  }
  return text;
}

// The integers at an offset of every record, each followed by ';'.
inline std::string shown(const CRtTable &table, int offset) {
  std::string text;
  for (int i = 0; i < table.GetRecordCount(); ++i) text += std::to_string(peek(table.GetAt(i), offset)) + ';';
  return text;
}

// Appends a record; the time is 2001-2-3 10:20:30. Returns its address.
inline char *add(CRtTable &account, std::uint32_t key, std::string_view name, std::int32_t level) {
  char *record = account.GetAt(account.Insert(key, 0, 0));
  std::memcpy(record + kName, name.data(), name.size());
  poke(record, kLevel, level);
  const SYSTEMTIME time{2001, 2, 6, 3, 10, 20, 30, 0};
  std::memcpy(record + kSince, &time, sizeof time);
  return record;
}

struct AccountImage {
  // `more` goes to section "Quillanest" of the configuration; `others` are further tables of the system database,
  // `plant` those of a database "plant".
  explicit AccountImage(std::string_view more = {}, const std::vector<TableSpec> &others = {},
                        const std::vector<TableSpec> &plant = {}, int capacity = 5)
      : root(more) {
    std::vector<TableSpec> tables{account_table(capacity)};
    tables.insert(tables.end(), others.begin(), others.end());
    const std::string schema = root.write("schema.txt", schema_text(tables, plant));
    if (!manager.RtdbManagerInit(false, schema.c_str())) throw std::runtime_error("no image");
    account = table(10);
  }

  CRtTable table(unsigned int id) {
    CRtTable found;
    if (manager.GetSystemTable(found, id) == 0) throw std::runtime_error("no table");
    return found;
  }
  // Reads a data file of this text into a table.
  bool load(std::string_view text, unsigned int id = 10, unsigned int database = 1) {
    return manager.LoadTableData(database, id, root.write("load.txt", text).c_str());
  }

  TestRoot root;
  CRtdbManager manager;
  CRtTable account;
};
