// A started image with the table Account of the system database, whose records it adds and shows as texts.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "tests/kernel/TableFixture.h"

inline constexpr const char *kFile = "data/system_Account.txt";
inline constexpr const char *kHeader = "ID;Name;Level;Value;Since;bModified;iProjectID;iEditStatus\r\n";

// "key name level" of every record, each followed by ';'.
inline std::string shown(const CRtTable &account) {
  std::string text;
  for (int i = 0; i < account.GetRecordCount(); ++i) {
    const char *record = account.GetAt(i);
    if (record == nullptr) return text + "<no record>";
    text += std::to_string(value_at<std::uint32_t>(record, Account::kKey)) + ' ';
    text += std::string(record + Account::kName, strnlen(record + Account::kName, 8)) + ' ';
    text += std::to_string(peek(record, Account::kLevel)) + ';';
  }
  return text;
}

// The integers at an offset of every record, each followed by ';'.
inline std::string shown(const CRtTable &table, std::size_t offset) {
  std::string text;
  for (int i = 0; i < table.GetRecordCount(); ++i) text += std::to_string(peek(table.GetAt(i), offset)) + ';';
  return text;
}

// Appends a record; the time is 2001-2-3 10:20:30. Returns its address.
inline char *add(CRtTable &account, std::uint32_t key, std::string_view name, std::int32_t level) {
  char *record = account.GetAt(account.Insert(key, 0, 0));
  std::memcpy(record + Account::kName, name.data(), name.size());
  poke(record, Account::kLevel, level);
  put(record, Account::kSince, SYSTEMTIME{2001, 2, 6, 3, 10, 20, 30, 0});
  return record;
}

struct AccountImage : Image {
  // `more` goes to section "Quillanest" of the configuration; `others` are further tables of the system database,
  // `plant_tables` those of a database "plant".
  explicit AccountImage(std::string_view more = {}, std::vector<TableSpec> others = {},
                        const std::vector<TableSpec> &plant_tables = {}, int capacity = 5)
      : Image(schema_of(others, plant_tables, capacity), more), account(table(10)) {}

  // Reads a data file of this text into a table.
  bool load(std::string_view text, unsigned int id = 10, unsigned int database = 1) {
    return manager.LoadTableData(database, id, root.write("load.txt", text).c_str());
  }

  CRtTable account;

 private:
  static std::string schema_of(std::vector<TableSpec> &tables, const std::vector<TableSpec> &plant_tables,
                               int capacity) {
    tables.insert(tables.begin(), account_table(capacity));
    return schema_text(tables, plant_tables);
  }
};
