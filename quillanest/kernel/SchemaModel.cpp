#include "quillanest/kernel/SchemaModel.h"

#include <algorithm>
#include <limits>
#include <numeric>

#include "quillanest/base/Text.h"
#include "quillanest/shm/ImageLayout.h"

namespace quillanest {
namespace {

constexpr std::int64_t kLargestSegment = std::numeric_limits<std::int32_t>::max();
constexpr std::uint32_t kManagerID = 333;
constexpr std::uint32_t kUsersTable = 104;
constexpr std::uint32_t kRightsTable = 106;
constexpr std::int64_t kUserSize = 92;
constexpr std::int64_t kRightsSize = 36;

std::string lower_case(std::string text) {
  for (char &c : text) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return text;
}

std::int64_t record_size(const TableEntry &table) {
  std::int64_t size = 0;
  for (const auto &[index, field] : table.fields) size += std::max(field.size, 0);
  return size;
}

// Fields that no line gives, and names that two have: one of them is never found by its name.
void check_fields(const TableEntry &table, Findings &findings) {
  std::map<std::string, int> lines;  // by name
  for (const auto &[index, field] : table.fields) {
    const auto [other, is_new] = lines.emplace(lower_case(field.name), field.line);
    if (is_new) continue;
    findings.report_mistake("schema.name_twice", field.line, 0, "the field ", Quoted{field.name},
                            " has the name of the one in line ", other->second, ": they share a column");
  }
  for (int index = 0; table.has_all_lines && index < table.field_count &&
                      table.fields.size() < static_cast<std::size_t>(table.field_count);
       ++index) {
    if (table.fields.contains(index)) continue;
    findings.report_mistake("schema.field_missing", table.line, 0, "FIELDNUM=", table.field_count,
                            ", and no line gives the field of INDEX=", index);
    break;  // a FIELDNUM that is far too large is one mistake
  }
  const auto key = table.fields.find(0);
  if (key == table.fields.end()) return;
  const bool is_key = key->second.type->kind == Kind::kInteger && key->second.size == sizeof(std::uint32_t);
  if (!is_key) {
    findings.report_finding(Severity::kWarning, key->second.line, 0, "schema.key",
                            "the first field is the key of a record: an integer type with SIZE=4");
  }
}

void check_users(const DatabaseEntry &database, Findings &findings) {
  for (const auto &[index, table] : database.tables) {
    const std::int64_t size = record_size(table);
    if (!table.has_all_lines) continue;
    if (table.id == kUsersTable && size != kUserSize) {
      findings.report_finding(Severity::kWarning, table.line, 0, "login.users", "records of the users' table 104 have ",
                              size, " bytes instead of 92: no user can log in");
    }
    if (table.id == kRightsTable && size < kRightsSize) {
      findings.report_finding(Severity::kWarning, table.line, 0, "login.rights",
                              "records of the rights' table 106 have ", size,
                              " bytes, which is less than 36: no user can log in");
    }
  }
}

void check_size(const DatabaseEntry &database, Findings &findings) {
  std::int64_t size = std::int64_t{sizeof(_db_attr)} + database.table_count * std::int64_t{sizeof(_table_attr)};
  if (size > kLargestSegment) {
    findings.report_mistake("layout.size", database.line, 0, "TableCount=", database.table_count,
                            ": the segment of the database would have more than 2 GB");
    return;
  }
  for (const auto &[index, table] : database.tables) {
    size += std::max(table.field_count, 0) * std::int64_t{sizeof(_field_attr)};
    const std::int64_t record = record_size(table);
    // What is too large already need not be multiplied.
    size += record > kLargestSegment ? record : record * std::max(table.capacity, 0);
    if (size <= kLargestSegment) continue;
    findings.report_mistake("layout.size", table.line, 0, "with this table the segment of the database ",
                            Quoted{database.name}, " would have more than 2 GB");
    return;
  }
}

void check_database(const DatabaseEntry &database, Findings &findings) {
  if (database.table_count == 0) {
    findings.report_mistake("layout.no_tables", database.line, 0, "TableCount=0: a database needs a table slot");
  }
  if (database.id == kManagerID) {
    findings.report_mistake("schema.manager_key", database.line, 0,
                            "the ID 333 is the key of the manager's own segment, unless FileKey_Manager is another");
  }
  std::map<std::string, int> lines;  // of tables, by name
  for (const auto &[index, table] : database.tables) {
    check_fields(table, findings);
    const auto [other, is_new] = lines.emplace(lower_case(table.name), table.line);
    if (is_new) continue;
    findings.report_mistake("schema.name_twice", table.line, 0, "the table ", Quoted{table.name},
                            " has the name of the one in line ", other->second);
  }
  const auto filled = static_cast<int>(database.known_tables.size());  // or meant to be
  if (filled < database.table_count) {
    findings.report_finding(Severity::kNote, database.line, 0, "schema.table_slots",
                            "TableCount=", database.table_count, ", and ", filled, " table slots are filled");
  }
  check_size(database, findings);
  if (database.id == kSystemDatabaseID) check_users(database, findings);
}

// Data files and store tables are called "database_table", so two tables may share one.
void check_shared_stores(const SchemaModel &model, Findings &findings) {
  std::map<std::string, std::pair<int, std::uint32_t>> lines;  // of tables, with the ID of their database
  for (const DatabaseEntry &database : model.databases) {
    for (const auto &[index, table] : database.tables) {
      const std::string name = lower_case(database.name + "_" + table.name);
      const auto [other, is_new] = lines.emplace(name, std::pair{table.line, database.id});
      if (is_new || other->second.second == database.id) continue;  // within a database the names are the mistake
      findings.report_mistake("schema.shared_store", table.line, 0, "the data file and the store's table ",
                              Quoted{name}, " are also those of the table in line ", other->second.first);
    }
  }
}

// How many characters to insert, delete or replace make one word of the other.
std::size_t distance_between(std::string_view left, std::string_view right) {
  std::vector<std::size_t> row(right.size() + 1);
  std::iota(row.begin(), row.end(), 0);
  for (std::size_t i = 0; i < left.size(); ++i) {
    std::size_t corner = row[0]++;
    for (std::size_t j = 0; j < right.size(); ++j) {
      const bool same = equal_ignoring_case(left.substr(i, 1), right.substr(j, 1));
      const std::size_t replaced = corner + (same ? 0 : 1);
      corner = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

}  // namespace

TableEntry *DatabaseEntry::table(std::uint32_t table_id) {
  for (auto &[index, table] : tables) {
    if (table.id == table_id) return &table;
  }
  return nullptr;
}

DatabaseEntry *SchemaModel::database(std::uint32_t id) {
  const auto found = std::find_if(databases.begin(), databases.end(), [&](const auto &each) { return each.id == id; });
  return found == databases.end() ? nullptr : &*found;
}

std::vector<Finding> Findings::sorted() {
  std::stable_sort(found_.begin(), found_.end(), [](const Finding &left, const Finding &right) {
    return left.line != right.line ? left.line < right.line : left.column < right.column;
  });
  return std::move(found_);
}

std::string_view nearest_word(std::string_view word, std::span<const std::string_view> words) {
  constexpr std::size_t kLongest = 24;
  std::size_t best = 3;  // further away is another word
  std::string_view nearest;
  if (word.empty() || word.size() > kLongest) return {};
  for (const std::string_view candidate : words) {
    const std::size_t distance = distance_between(word, candidate);
    if (distance >= best || distance >= candidate.size()) continue;
    best = distance;
    nearest = candidate;
  }
  return nearest;
}

void check_model(SchemaModel &model, Findings &findings) {
  for (const DatabaseEntry &database : model.databases) check_database(database, findings);
  check_shared_stores(model, findings);
  const DatabaseEntry *system = model.database(kSystemDatabaseID);
  const bool is_broken = std::count(model.known_databases.begin(), model.known_databases.end(), kSystemDatabaseID) > 0;
  if (system != nullptr && !equal_ignoring_case(system->name, "system")) {
    findings.report_mistake("start.system", system->line, 0, "the database with the ID 1 is not called \"system\"");
  } else if (system == nullptr && !is_broken) {
    findings.report_mistake("start.system", 0, 0, "no database has the ID 1, that of the system database");
  }
}

}  // namespace quillanest
