// The record lines of a schema file, checked one by one.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "quillanest/kernel/SchemaLines.h"
#include "quillanest/kernel/SchemaModel.h"
#include "quillanest/shm/ValueBytes.h"

namespace quillanest {

inline constexpr std::array<std::string_view, 14> kKeys{
    "#Name=", "Describe=", "ID=",  "Type=",     "TableCount=", "#DBID=", "NAME=",
    "CNAME=", "INDEX=",    "MAX=", "FIELDNUM=", "TABLEID=",    "TYPE=",  "SIZE="};
inline constexpr std::string_view kLineBlanks = " \t\n\v\f\r";

inline std::vector<std::string_view> type_words() {
  std::vector<std::string_view> words;
  for (const FieldTypeInfo &type : kFieldTypes) {
    if (!type.keyword.empty()) words.push_back(type.keyword);
  }
  return words;
}

inline std::string_view first_word(std::string_view text) {
  text = text.substr(std::min(text.find_first_not_of(kLineBlanks), text.size()));
  return text.substr(0, text.find_first_of(kLineBlanks));
}

inline bool is_known(const std::vector<std::uint32_t> &ids, std::uint32_t id) {
  return std::find(ids.begin(), ids.end(), id) != ids.end();
}

// Threads: one object belongs to one thread. Each take() gets a line with its number in the file.
class RecordChecker {
 public:
  explicit RecordChecker(Findings &findings) : findings_(findings) {}

  void take(Section section, std::string_view line, int number) {
    number_ = number;
    if (section == Section::kDatabase) take_database(DatabaseLine(line), line);
    if (section == Section::kTable) take_table(TableLine(line), line);
    if (section == Section::kField) take_field(FieldLine(line), line);
  }

  // What the lines say together.
  void finish() { check_model(model_, findings_); }

 private:
  template <class... Pieces>
  void mistake(const char *code, int column, const Pieces &...pieces) {
    findings_.report_mistake(code, number_, column, pieces...);
  }
  template <class... Pieces>
  void report_doubt(const char *code, int column, const Pieces &...pieces) {
    findings_.report_finding(Severity::kWarning, number_, column, code, pieces...);
  }

  // What is missing in a line, and why it probably is.
  bool check_form(const RecordLine &line, std::string_view text) {
    if (line.missing().empty()) return true;
    const auto at = std::min(static_cast<std::size_t>(line.column()) - 1, text.size());
    const std::string_view word = first_word(text.substr(at));
    const std::string_view key = word.substr(0, word.find('=') + 1);
    const std::string_view near = nearest_word(key, kKeys);
    if (!word.empty() && key.empty()) {
      mistake("schema.form", line.column(), Quoted{line.missing()},
              " is missing here, probably because of a blank in the text before");
    } else if (!near.empty() && near != key) {
      mistake("schema.form", line.column(), Quoted{line.missing()}, " is missing here; did you mean ", near, "?");
    } else {
      mistake("schema.form", line.column(), Quoted{line.missing()},
              " is missing here, or its value is; the keys have a fixed order");
    }
    return false;
  }

  void check_name(const LineText &name, std::size_t most) {
    if (name.text.size() <= most) return;
    mistake("schema.name_length", name.column, "the text has ", name.text.size(), " characters, of which ", most,
            " fit: it is ignored, and that of the line before counts");
  }

  void take_database(const DatabaseLine &line, std::string_view text) {
    check_name(line.name, RTDB_NAME_SIZE);
    check_name(line.caption, RTDB_CNAME_SIZE);
    const bool is_twice = is_known(model_.known_databases, line.id);
    model_.known_databases.push_back(line.id);
    if (!check_form(line.line, text)) return;
    constexpr std::int64_t kMostTables = 0x7FFFFFFF / std::int64_t{sizeof(_table_attr)};
    if (line.tables < 0 || line.tables >= kMostTables) {
      mistake("schema.table_count", line.line.last_column(), "TableCount=", line.tables,
              " is negative, or more than a segment of 2 GB holds");
    } else if (is_twice) {
      mistake("schema.id_twice", 1, "another database has the ID ", line.id);
    } else if (model_.databases.size() >= static_cast<std::size_t>(RTDB_DATABASE_MAX)) {
      mistake("schema.databases", 1, "there are more than ", RTDB_DATABASE_MAX, " databases");
    } else {
      const auto same = std::find_if(model_.databases.begin(), model_.databases.end(),
                                     [&](const auto &other) { return other.name == line.name.text; });
      if (same != model_.databases.end()) {
        mistake("schema.name_twice", 1, "the database in line ", same->line, " has this name too");
      }
      model_.databases.push_back({number_, std::string(line.name.text), line.id, line.tables, {}, {}});
    }
  }

  void take_table(const TableLine &line, std::string_view text) {
    check_name(line.name, RTDB_NAME_SIZE);
    check_name(line.caption, RTDB_CNAME_SIZE);
    DatabaseEntry *database = model_.database(line.database);
    const bool is_twice = database != nullptr && is_known(database->known_tables, line.id);
    if (database != nullptr) database->known_tables.push_back(line.id);
    if (!check_form(line.line, text)) return;
    if (database == nullptr) {
      model_.lost_tables.push_back(line.id);
      return check_database_id(line.database);
    }
    if (line.fields < 0) mistake("schema.field_count", 1, "FIELDNUM=", line.fields, " is negative");
    if (line.capacity < 0) mistake("layout.table", 1, "the table cannot be laid out: MAX is negative");
    if (is_twice) mistake("schema.id_twice", 1, "another table of the database has the ID ", line.id);
    if (line.index < 0 || line.index >= database->table_count) {
      return mistake("schema.table_index", 1, "INDEX=", line.index, " is not one of the ", database->table_count,
                     " table slots of its database, which count from 0");
    }
    TableEntry entry{number_, std::string(line.name.text), line.id, line.capacity, line.fields, {}};
    if (is_twice || line.fields < 0) entry.has_all_lines = false;
    const auto [other, is_new] = database->tables.emplace(line.index, entry);
    if (!is_new) {
      mistake("schema.table_twice", 1, "INDEX=", line.index, " is also that of the table in line ", other->second.line,
              ", which is lost");
    }
  }

  void check_database_id(std::uint32_t id) {
    if (is_known(model_.known_databases, id)) return;
    model_.known_databases.push_back(id);  // one mistake for all its lines
    mistake("schema.database_id", 1, "no database has the ID ", id);
  }

  void take_field(const FieldLine &line, std::string_view text) {
    check_name(line.name, RTDB_NAME_SIZE);
    check_name(line.caption, RTDB_CNAME_SIZE);
    const FieldTypeInfo *type = field_type_of_keyword(line.type.text);
    if (!check_form(line.line, text)) {
      skip_fields();
      return take_default(line, text, nullptr);
    }
    if (type == nullptr) {
      const std::string_view near = nearest_word(line.type.text, type_words());
      mistake("schema.type", line.type.column, "unknown type ", Quoted{line.type.text},
              near.empty() ? std::string_view() : std::string_view("; did you mean "), near, near.empty() ? "" : "?");
    }
    take_default(line, text, type);
    if (line.size < 0) mistake("layout.table", 1, "the table cannot be laid out: the SIZE of a field is negative");
    if (type != nullptr && line.size >= 0) check_size(line, *type);
    DatabaseEntry *database = model_.database(line.database);
    if (database == nullptr) {
      skip_fields();
      return check_database_id(line.database);
    }
    TableEntry *table = database->table(line.table);
    if (table != nullptr) return add_field(line, type, *table);
    skip_fields();
    // One mistake for all its fields, and none if its own line is the mistake.
    if (is_known(database->known_tables, line.table) || is_known(model_.lost_tables, line.table)) return;
    model_.lost_tables.push_back(line.table);
    mistake("schema.table_id", 1, "no table of the database ", line.database, " has the ID ", line.table);
  }

  // A line that is refused may be that of any field.
  void skip_fields() {
    for (DatabaseEntry &database : model_.databases) {
      for (auto &[index, table] : database.tables) table.has_all_lines = false;
    }
  }

  void add_field(const FieldLine &line, const FieldTypeInfo *type, TableEntry &table) {
    if (line.index < 0) {
      table.has_all_lines = false;
      return mistake("schema.field_index", 1, "INDEX=", line.index, " is negative");
    }
    if (line.index >= table.field_count && table.field_count >= 0) {
      return mistake("schema.field_dropped", 1, "INDEX=", line.index, " is not below FIELDNUM=", table.field_count,
                     " of the table: the field is dropped, and with the next save its column");
    }
    const FieldTypeInfo *known = type == nullptr ? &kFieldTypes[0] : type;
    const FieldEntry entry{number_, std::string(line.name.text), line.id, known, line.size};
    const auto [other, is_new] = table.fields.emplace(line.index, entry);
    if (!is_new) {
      table.has_all_lines = false;
      return mistake("schema.field_twice", 1, "INDEX=", line.index, " is also that of the field in line ",
                     other->second.line, ", which is lost");
    }
    for (const auto &[index, field] : table.fields) {
      if (index == line.index || field.id != line.id) continue;
      return report_doubt("schema.id_twice", 1, "the field in line ", field.line, " has the ID ", line.id, " too");
    }
  }

  void check_size(const FieldLine &line, const FieldTypeInfo &type) {
    const int bytes = type.kind == Kind::kCharacter ? 1 : type.bytes;
    if (bytes > 0 && line.size < bytes) {
      mistake("schema.field_size", 1, "SIZE=", line.size, " is less than the ", bytes,
              " bytes of the type: values run on into the next field");
    } else if (bytes > 0 && line.size > bytes) {
      report_doubt("schema.field_size", 1, "SIZE=", line.size, " is more than the ", bytes, " bytes of the type");
    } else if (bytes == 0 && line.size <= 1) {
      report_doubt("schema.field_size", 1, "SIZE=", line.size, " holds no text and its terminator");
    }
  }

  // A line without a default takes over that of the line before.
  void take_default(const FieldLine &line, std::string_view text, const FieldTypeInfo *type) {
    if (!line.default_text) {
      if (!default_.empty()) {
        report_doubt("schema.default_inherited", 0, "the default ", Quoted{default_}, " of line ", default_line_,
                     " counts here too: write Default= to have none");
      }
      return;
    }
    const std::size_t at = text.find("Default");
    const auto column = static_cast<int>(at) + 1;
    if (line.line.missing().empty() && text.rfind("SIZE=") != std::string_view::npos && at < text.rfind("SIZE=")) {
      default_.clear();  // as was meant
      return mistake("schema.default_in_text", column, "the word Default in a name or caption begins a default");
    }
    if (line.default_text->size() > RTDB_DEFAULT_SIZE) {
      return mistake("schema.default_length", column, "the default has ", line.default_text->size(),
                     " characters, of which ", RTDB_DEFAULT_SIZE, " fit: it is ignored, and that of before counts");
    }
    default_ = *line.default_text;
    default_line_ = number_;
    if (type != nullptr && !default_.empty() && !fits_type(*type, line.size)) {
      report_doubt("schema.default_value", column, "the default is not a value that the field holds");
    }
  }

  [[nodiscard]] bool fits_type(const FieldTypeInfo &type, int size) const {
    std::array<std::byte, sizeof(SYSTEMTIME)> value{};
    switch (type.kind) {
      case Kind::kCharacter:
        return default_.size() == 1;
      case Kind::kText:
      case Kind::kPassword:
        return static_cast<int>(default_.size()) < size;
      case Kind::kInteger:
      case Kind::kReal:
      case Kind::kTime:
      case Kind::kNone:
        return store_whole_value(type.code, value, default_);
    }
    return true;
  }

  Findings &findings_;
  SchemaModel model_;
  int number_ = 0;
  std::string default_;  // in force
  int default_line_ = 0;
};

}  // namespace quillanest
