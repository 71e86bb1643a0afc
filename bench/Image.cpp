#include "bench/Image.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>

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
    "ID TYPE=UINT SIZE=4",     "source TYPE=INT SIZE=4",   "samples TYPE=INT SIZE=4",  "state TYPE=INT SIZE=4",
    "grade TYPE=INT SIZE=4",   "zone TYPE=INT SIZE=4",     "value TYPE=DOUBLE SIZE=8", "low TYPE=DOUBLE SIZE=8",
    "high TYPE=DOUBLE SIZE=8", "name TYPE=STRING SIZE=32", "taken TYPE=TIME SIZE=16",  "bModified TYPE=INT SIZE=4"};
constexpr std::array<const char *, 8> kTextFields{
    "ID TYPE=UINT SIZE=4",      "source TYPE=INT SIZE=4",  "samples TYPE=INT SIZE=4",  "state TYPE=INT SIZE=4",
    "value TYPE=DOUBLE SIZE=8", "high TYPE=DOUBLE SIZE=8", "name TYPE=STRING SIZE=16", "taken TYPE=TIME SIZE=16"};

void add_table(std::ostream &out, unsigned int database, std::size_t slot, const std::string &name, int capacity,
               std::size_t fields) {
  out << "#DBID=" << database << " NAME=" << name << " CNAME=" << name << " ID=" << slot + 1 << " INDEX=" << slot
      << " MAX=" << capacity << " FIELDNUM=" << fields << '\n';
}

template <class Fields>
void add_fields(std::ostream &out, unsigned int database, std::size_t table_slot, const Fields &fields) {
  for (std::size_t i = 0; i < fields.size(); ++i) {
    const std::string field = fields[i];
    const std::string name = field.substr(0, field.find(' '));
    out << "#DBID=" << database << " TABLEID=" << table_slot + 1 << " NAME=" << name << " CNAME=" << name
        << " ID=" << i + 1 << " INDEX=" << i << field.substr(name.size()) << '\n';
  }
}

std::string schema() {
  std::ostringstream out;
  out << "#Database_Start\n#Name=system Describe=System ID=1 Type=0 TableCount=1\n"
      << "#Name=tables Describe=Tables ID=2 Type=1 TableCount=" << kTables.size() << '\n'
      << "#Name=texts Describe=Texts ID=" << kTextDatabase << " Type=1 TableCount=1\n#Database_Finish\n#Table_Start\n";
  add_table(out, 1, 0, "notes", 4, 1);
  for (std::size_t i = 0; i < kTables.size(); ++i) {
    add_table(out, 2, i, "table" + std::to_string(i), kTables[i].size + kSpareSlots, kRecordFields.size());
  }
  add_table(out, kTextDatabase, 0, "samples", kTextRecords, kTextFields.size());
  out << "#Table_Finish\n#Field_Start\n";
  add_fields(out, 1, 0, std::array{kRecordFields.front()});
  for (std::size_t i = 0; i < kTables.size(); ++i) add_fields(out, 2, i, kRecordFields);
  add_fields(out, kTextDatabase, 0, kTextFields);
  out << "#Field_Finish\n";
  return out.str();
}

// The folder with everything that a start needs in it.
fs::path prepared(const fs::path &folder) {
  fs::create_directories(folder / "conf");
  fs::create_directories(folder / "data");
  write_file(folder / "conf/fix_Rtdb.ini", "[Quillanest]\nDataInFile=1\nRtdbDataPath=data/\n");
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
