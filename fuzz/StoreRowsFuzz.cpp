// Rows of any columns and values in a file of SQLite are loaded, alone and with a project's; what was loaded is saved
// and loaded once more.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <sqlite3.h>
#include <stdexcept>
#include <string>
#include <string_view>

#include "quillanest/persist/RtdbMedia.h"
#include "tests/model/Input.h"
#include "tests/model/Support.h"

namespace {

using quillanest::model::Input;
using quillanest::model::LastingImage;
using quillanest::model::records_of;
using quillanest::model::require;

constexpr int kCapacity = 8;
constexpr std::size_t kApart = 40;  // from one field to the next; the bytes after a value belong to no field

struct Column {
  const char *name, *type, *store_type;
  std::int32_t size;
};
enum Place : std::size_t {
  kId,
  kChar,
  kUchar,
  kShort,
  kInt,
  kFloat,
  kDouble,
  kText,
  kPass,
  kSince,
  kProject,
  kColumns
};
constexpr std::array<Column, kColumns> kTable{{{"ID", "UINT", "INTEGER", 4},
                                               {"Char", "CHAR", "INTEGER", 1},
                                               {"Uchar", "UCHAR", "INTEGER", 1},
                                               {"Short", "SHORT", "INTEGER", 2},
                                               {"Int", "INT", "INTEGER", 4},
                                               {"Float", "FLOAT", "REAL", 4},
                                               {"Double", "DOUBLE", "REAL", 8},
                                               {"Name", "STRING", "TEXT", 12},
                                               {"Pass", "PASSWD", "TEXT", 16},
                                               {"Since", "TIME", "DATETIME", 16},
                                               {"iProjectID", "INT", "INTEGER", 4}}};
constexpr std::size_t kRecordSize = kColumns * kApart;

std::vector<TableSpec> tables() {
  TableSpec rows{11, "Rows", kCapacity, {}};
  for (const Column &column : kTable) {
    rows.fields.push_back(std::string(column.name) + ' ' + column.type + ' ' + std::to_string(kApart));
  }
  return {{10, "Before", 3, {"ID UINT 4"}}, rows, {12, "After", 3, {"ID UINT 4"}}};
}

struct RowsImage : LastingImage {
  RowsImage() : LastingImage(tables()) {
    for (std::size_t i = 0; i < kColumns; ++i) rows.GetFieldAddress()[i].FieldSize = kTable[i].size;
    const std::string key = root.write("key", "a key");
    std::filesystem::permissions(key, std::filesystem::perms::owner_read);
    configure("");
    (void)sqlite3_open(root.path("data/store.db").c_str(), &store);
    run("PRAGMA synchronous = OFF; PRAGMA journal_mode = MEMORY");
  }
  // `more` goes to section "Quillanest".
  void configure(const std::string &more) const {
    root.configure("DataInFile=0\nRtdbDataPath=data/\n" + more +
                   "[RtdbMedia]\nMainDBType=1\nMainDBName=store.db\nBackDBType=-1\n");
  }
  void run(const std::string &statements) const {
    if (sqlite3_exec(store, statements.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
      throw std::runtime_error("SQL");
  }
  // Loads the table over bytes 'Z'. False also for an error that reaches the client.
  bool load(int project) {
    clear(rows, 'Z');
    try {
      return quillanest::CRtdbMedia(manager).LoadTable(system, rows, project);
    } catch (const _com_error &) {
      return false;
    }
  }
  // The database after its records have gone.
  std::string rest() {
    clear(rows, 'Z');
    rows.SetIDExclusive(1);
    return bytes_at(system.GetStartAddress(), static_cast<std::size_t>(system.GetDBSize()));
  }
  CRtDataBase &system = *manager.GetSystemDB();
  CRtTable rows = table(11);
  sqlite3 *store = nullptr;
};

// The bytes that a column has in a record.
std::string_view value(std::string_view record, std::size_t place) {
  return record.substr(place * kApart, static_cast<std::size_t>(kTable[place].size));
}

// Whether the bytes after the values are those of before, or of a new record.
bool is_apart(std::string_view records, bool may_be_new) {
  for (std::size_t i = 0; i < kCapacity * kColumns; ++i) {
    const std::string_view gap =
        records.substr(i * kApart, kApart).substr(static_cast<std::size_t>(kTable[i % kColumns].size));
    const bool is_known = gap[0] == 'Z' || (may_be_new && gap[0] == '\0');
    if (!is_known || gap.find_first_not_of(gap[0]) != std::string_view::npos) return false;
  }
  return true;
}

void bind_value(sqlite3_stmt *insert, int at, Input &input) {
  const std::size_t kind = input.choice(7);
  if (kind == 0) sqlite3_bind_int(insert, at, static_cast<int>(input.choice(6)));
  if (kind == 1) sqlite3_bind_int64(insert, at, input.flag() ? input.wild() : input.number<std::int64_t>());
  if (kind == 2) sqlite3_bind_double(insert, at, input.number<double>());
  if (kind < 4) return;
  const std::string text = kind == 4 ? std::string(input.number<std::uint16_t>(), 'L') : input.text(60);
  const auto size = static_cast<int>(text.size());
  if (kind == 5) sqlite3_bind_blob(insert, at, text.data(), size, SQLITE_TRANSIENT);
  if (kind != 5) sqlite3_bind_text(insert, at, text.data(), size, SQLITE_TRANSIENT);
}

// A store table of the columns' own types, or with others, with one more or without one; and its rows.
void make_rows(const RowsImage &image, Input &input) {
  constexpr std::array<const char *, 6> kTypes{"", "INTEGER", "REAL", "TEXT", "BLOB", "TIMESTAMP"};
  std::string columns, values;
  for (const Column &column : kTable) {
    const std::size_t how = input.choice(64);
    if (how == 63) continue;
    columns += ',' + std::string(column.name) + ' ' + (how == 62 ? input.pick(kTypes) : column.store_type);
    if (how == 61) columns += std::string(",more") + column.name;
    values += how == 61 ? ",?,1" : ",?";
  }
  image.run("DROP TABLE IF EXISTS system_Rows; CREATE TABLE system_Rows(" + (columns + ",x").substr(1) + "); BEGIN");
  const std::string statement = "INSERT INTO system_Rows VALUES(" + (values + ",0").substr(1) + ')';
  sqlite3_stmt *insert = nullptr;
  (void)sqlite3_prepare_v2(image.store, statement.c_str(), -1, &insert, nullptr);
  for (int row = 0; row < 2 * kCapacity && !input.empty(); ++row) {
    (void)sqlite3_clear_bindings(insert);
    for (int i = 1; i <= sqlite3_bind_parameter_count(insert); ++i) bind_value(insert, i, input);
    (void)sqlite3_step(insert);
    (void)sqlite3_reset(insert);
  }
  sqlite3_finalize(insert);
  image.run("COMMIT");
}

// The part of a record that comes back; empty when the store may leave the row out or change it.
std::string kept(std::string_view record) {
  const auto text = [&](Place place) { return value(record, place).substr(0, value(record, place).find('\0')); };
  const bool comes_back = peek(record.data(), kProject * kApart) == 0 && !text(kText).empty() &&
                          text(kText).find('\'') == std::string_view::npos &&
                          std::isfinite(value_at<float>(record.data(), kFloat * kApart)) &&
                          std::isfinite(value_at<double>(record.data(), kDouble * kApart)) &&
                          value_at<SYSTEMTIME>(record.data(), kSince * kApart).wMonth != 0 &&
                          !quillanest::PasswordCipher::is_text_form(text(kPass));
  if (!comes_back) return {};
  std::string parts(text(kText));
  parts.append(1, '\0').append(text(kPass)).append(1, '\0');
  for (const Place place : {kId, kShort, kInt, kSince}) parts += value(record, place);
  return parts;
}

// Saves what a load has left, with digits for characters, and loads it once more.
void check_return(RowsImage &image) {
  std::vector<std::string> expected;
  const int count = image.rows.GetRecordCount();
  for (int i = 0; i < count; ++i) {
    char *record = image.rows.GetAt(i);
    const bool ascends =
        i == 0 || value_at<std::uint32_t>(record, 0) > value_at<std::uint32_t>(image.rows.GetAt(i - 1), 0);
    if (!ascends) return;  // which row is which is open
    record[kChar * kApart] = record[kUchar * kApart] = '7';
    if (std::string parts = kept({record, kRecordSize}); !parts.empty()) expected.push_back(std::move(parts));
  }
  Input none(nullptr, 0);
  make_rows(image, none);
  image.run("ALTER TABLE system_Rows DROP COLUMN x");
  if (!image.rows.SaveData(0)) return;  // a password that is cut
  require(image.load(0) && image.rows.GetRecordCount() <= count, "what was saved can be loaded");
  auto next = expected.begin();
  for (int i = 0; i < image.rows.GetRecordCount(); ++i) {
    const std::string_view record(image.rows.GetAt(i), kRecordSize);
    require(record[kChar * kApart] == 7 && record[kUchar * kApart] == 7, "digits come back as numbers");
    if (next != expected.end() && kept(record) == *next) ++next;
  }
  require(next == expected.end(), "records come back");
}

// In the strict mode a load that is false has changed nothing, and what one that is true has loaded comes back exactly.
void check_strict(RowsImage &image, Input input) {
  const bool has_more = input.choice(8) == 7;  // the column x
  make_rows(image, input);
  // A table may have no other column.
  if (!has_more) (void)sqlite3_exec(image.store, "ALTER TABLE system_Rows DROP COLUMN x", nullptr, nullptr, nullptr);
  image.configure("Strict=1\nPasswdKeyFile=key\n");
  LastingImage::clear(image.rows, 'Z');
  const auto area = [&] { return bytes_at(image.rows.GetDataAddress(), kCapacity * kRecordSize); };
  const auto load = [&] { return quillanest::CRtdbMedia(image.manager).LoadTable(image.system, image.rows, 0); };
  const std::string before = area();
  if (!load()) {
    require(area() == before && image.rows.GetRecordCount() == 0, "a load that is false changes nothing");
  } else if (image.rows.SaveData(0)) {
    const std::string saved = records_of(image.rows);
    LastingImage::clear(image.rows, 'Z');
    require(load(), "a strict save can be loaded strictly");
    require(records_of(image.rows) == saved, "what a strict save has written comes back exactly");
  } else {
    require(*quillanest::last_failure() != '\0', "a save that is false has a reason");
  }
  image.configure("");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  static RowsImage image;
  static const std::string rest = image.rest();
  Input input(bytes, size);
  make_rows(image, input);
  for (const int project : {5, 0}) {
    (void)image.load(project);
    const int count = image.rows.GetRecordCount();
    require(count >= 0 && count <= kCapacity, "a load stops at the capacity");
    for (int i = 0; i < count; ++i) {
      const std::string_view record(image.rows.GetAt(i), kRecordSize);
      require(value(record, kText).find('\0') != std::string_view::npos, "a text is cut to its field");
    }
    require(is_apart({image.rows.GetDataAddress(), kCapacity * kRecordSize}, project != 0),
            "values stay in their fields");
  }
  check_return(image);
  check_strict(image, Input(bytes, size));
  require(image.rest() == rest, "what lies around the records stays as it is");
  require(image.is_guard_whole(), "another database stays as it is");
  return 0;
}
