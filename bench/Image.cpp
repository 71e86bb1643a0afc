#include "bench/Image.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <stdexcept>

#include "tests/support/SchemaText.h"

namespace bench {
namespace {

namespace fs = std::filesystem;

constexpr std::array<TableId, 12> kTables{{{Keys::kDense, Use::kSearched, 1'000},
                                           {Keys::kDense, Use::kSearched, 100'000},
                                           {Keys::kDense, Use::kSearched, 1'000'000},
                                           {Keys::kSparse, Use::kSearched, 1'000},
                                           {Keys::kSparse, Use::kSearched, 100'000},
                                           {Keys::kSparse, Use::kSearched, 1'000'000},
                                           {Keys::kDense, Use::kEdited, 1'000},
                                           {Keys::kDense, Use::kEdited, 100'000},
                                           {Keys::kDense, Use::kEdited, 1'000'000},
                                           {Keys::kEven, Use::kEdited, 1'000},
                                           {Keys::kEven, Use::kEdited, 100'000},
                                           {Keys::kEven, Use::kEdited, 1'000'000}}};

// Names, types and widths of fields.
constexpr std::array<const char *, 12> kRecordFields{
    "ID UINT 4",      "source INT 4", "samples INT 4", "state INT 4",    "grade INT 4",   "zone INT 4",
    "value DOUBLE 8", "low DOUBLE 8", "high DOUBLE 8", "name STRING 32", "taken TIME 16", "bModified INT 4"};
constexpr std::array<const char *, 8> kTextFields{"ID UINT 4",      "source INT 4",  "samples INT 4",  "state INT 4",
                                                  "value DOUBLE 8", "high DOUBLE 8", "name STRING 16", "taken TIME 16"};

std::string schema() {
  const std::vector<std::string> record_fields(kRecordFields.begin(), kRecordFields.end());
  DatabaseSpec tables{"tables", 1};
  for (std::size_t i = 0; i < kTables.size(); ++i) {
    tables.tables.push_back(
        {static_cast<int>(i) + 1, "table" + std::to_string(i), kTables[i].size + kSpareSlots, record_fields});
  }
  const std::vector<std::string> text_fields(kTextFields.begin(), kTextFields.end());
  return schema_of({{"system", 0, {{1, "notes", 4, {kRecordFields.front()}}}},
                    tables,
                    {"texts", 1, {{1, "samples", kTextRecords, text_fields}}}});
}

void write_configuration(const fs::path &folder, bool strict) {
  write_file(folder / "conf/fix_Rtdb.ini",
             std::string("[Quillanest]\nDataInFile=1\nRtdbDataPath=data/\n") + (strict ? "Strict=1\n" : ""));
}

// The folder with everything that a start needs in it.
fs::path prepared(const fs::path &folder) {
  fs::create_directories(folder / "conf");
  fs::create_directories(folder / "data");
  write_configuration(folder, false);
  write_file(folder / "tables.schema", schema());
  setenv("QUILLANEST_ROOT", folder.c_str(), 1);
  return folder;
}

std::vector<std::uint32_t> random_keys(int count) {
  std::mt19937 random(4711);
  std::uniform_int_distribution<std::uint32_t> any(1);
  std::vector<std::uint32_t> keys;
  while (keys.size() < static_cast<std::size_t>(count)) {
    while (keys.size() < static_cast<std::size_t>(count)) keys.push_back(any(random));
    std::sort(keys.begin(), keys.end());
    keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
  }
  return keys;
}

std::vector<std::uint32_t> keys_in_steps(int count, std::uint32_t step) {
  std::vector<std::uint32_t> keys;
  for (std::uint32_t i = 1; i <= static_cast<std::uint32_t>(count); ++i) keys.push_back(i * step);
  return keys;
}

}  // namespace

void expect(bool holds, const std::string &what) {
  if (!holds) throw std::runtime_error(what);
}

void write_file(const fs::path &path, const std::string &text) {
  std::ofstream file(path, std::ios::binary);
  file << text;
  file.close();
  expect(!file.fail(), "cannot write " + path.string());
}

void set_key(Record &record, std::uint32_t key) { std::memcpy(record.data(), &key, sizeof key); }

Record record_of(std::uint32_t key) {
  Record record{};
  set_key(record, key);
  const double value = key * kValueStep;
  std::memcpy(record.data() + kValueOffset, &value, sizeof value);
  std::snprintf(record.data() + 48, 32, "sample %u", key);
  return record;
}

void Image::configure(bool strict) { write_configuration(folder_, strict); }

Image::Image(const fs::path &folder) : folder_(prepared(folder)) {
  expect(manager_.RtdbManagerInit(false, (folder_ / "tables.schema").c_str()), "the library does not start");
  expect(manager_.GetDataBaseFromName(tables_database_, "tables") == 1, "no database of tables");
  expect(manager_.GetDataBaseFromName(text_database_, "texts") == 1, "no database of texts");
  expect(tables_database_.AttachShareMemory() == 1 && text_database_.AttachShareMemory() == 1, "no segments");
  expect(text_database_.GetDBTableFromName(text_table_, "samples") == 1, "no table of texts");
  expect(text_table_.GetTableSize() == static_cast<int>(kTextRecordSize), "texts have other records");
}

const std::vector<std::uint32_t> &Image::keys(TableId id) {
  std::vector<std::uint32_t> &keys = keys_[id];
  if (!keys.empty()) return keys;
  keys = id.keys == Keys::kSparse ? random_keys(id.size) : keys_in_steps(id.size, id.keys == Keys::kEven ? 2 : 1);
  return keys;
}

CRtTable &Image::table(TableId id) {
  const auto known = tables_.find(id);
  if (known != tables_.end()) return known->second;
  CRtTable &table = tables_[id];
  const auto slot = static_cast<int>(std::find(kTables.begin(), kTables.end(), id) - kTables.begin());
  expect(tables_database_.GetDBTableFromIndex(table, slot) == 1, "no such table");
  expect(table.GetTableSize() == static_cast<int>(kRecordSize), "tables have other records");
  for (const std::uint32_t key : keys(id)) {
    Record record = record_of(key);
    expect(table.Insert(record.data(), 0) >= 0, "a record is not inserted");
  }
  return table;
}

}  // namespace bench
