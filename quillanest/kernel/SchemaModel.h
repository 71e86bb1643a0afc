// What the checker of schema files keeps of a file, and how it words what it finds.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "quillanest/base/Report.h"
#include "quillanest/kernel/Check.h"
#include "quillanest/shm/FieldType.h"

namespace quillanest {

struct FieldEntry {
  int line = 0;
  std::string name;
  std::uint32_t id = 0;
  const FieldTypeInfo *type = nullptr;
  int size = 0;
};

struct TableEntry {
  int line = 0;
  std::string name;
  std::uint32_t id = 0;
  int capacity = 0;
  int field_count = 0;
  std::map<int, FieldEntry> fields;  // by INDEX
  bool has_all_lines = true;         // none of its fields' lines was refused
};

struct DatabaseEntry {
  int line = 0;
  std::string name;
  std::uint32_t id = 0;
  int table_count = 0;
  std::map<int, TableEntry> tables;         // by INDEX
  std::vector<std::uint32_t> known_tables;  // the IDs of all table lines, those with mistakes too

  [[nodiscard]] TableEntry *table(std::uint32_t table_id);
};

struct SchemaModel {
  std::vector<DatabaseEntry> databases;
  std::vector<std::uint32_t> known_databases;  // the IDs of all database lines, those with mistakes too
  std::vector<std::uint32_t> lost_tables;      // the IDs of table lines without a database, or of tables without a line

  [[nodiscard]] DatabaseEntry *database(std::uint32_t id);
};

class Findings {
 public:
  template <class... Pieces>
  void report_finding(Severity severity, int line, int column, const char *code, const Pieces &...pieces) {
    Sentence sentence;
    (sentence.add(pieces), ...);
    found_.push_back({severity, line, column, code, std::string(sentence.view())});
  }
  template <class... Pieces>
  void report_mistake(const char *code, int line, int column, const Pieces &...pieces) {
    report_finding(Severity::kError, line, column, code, pieces...);
  }

  // By line and column.
  [[nodiscard]] std::vector<Finding> sorted();

 private:
  std::vector<Finding> found_;
};

// The word that a misspelt one was probably meant to be; empty if none is near.
[[nodiscard]] std::string_view nearest_word(std::string_view word, std::span<const std::string_view> words);

// Looks at the whole model: missing fields, names that two have, sizes, the system database.
void check_model(SchemaModel &model, Findings &findings);

}  // namespace quillanest
