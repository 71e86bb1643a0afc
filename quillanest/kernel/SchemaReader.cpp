#include "quillanest/kernel/SchemaReader.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "quillanest/base/Report.h"
#include "quillanest/kernel/Parts.h"
#include "quillanest/kernel/SchemaLines.h"
#include "quillanest/platform/TextFile.h"
#include "quillanest/shm/FieldType.h"
#include "quillanest/shm/LineReader.h"
#include "quillanest/shm/TextAt.h"

namespace quillanest {
namespace {

class SchemaReader {
 public:
  SchemaReader(CRtdbManager &manager, std::string_view path) : manager_(manager), path_(path) {}

  // Takes one line that begins with '#'; false, with a reason reported, if it is rejected.
  [[nodiscard]] bool take(std::string_view line, int number) {
    number_ = number;
    switch (sections_.of(line)) {
      case Section::kDatabase:
        return take_database(line);
      case Section::kTable:
        return take_table(line);
      case Section::kField:
        return take_field(line);
      case Section::kNone:
        return true;
    }
    return true;
  }

 private:
  [[nodiscard]] bool take_database(std::string_view text) {
    found_ = nullptr;
    const DatabaseLine line(text);
    auto database = std::make_unique<CRtDataBase>();
    database->SetDBName(name(line.name, RTDB_NAME_SIZE));
    database->SetDBCName(name(line.caption, RTDB_CNAME_SIZE));
    database->SetDBID(line.id);
    database->SetDBType(line.type);
    database->SetDBTableNum(line.tables);
    if (!is_complete(line.line)) return false;
    if (database->CreateTableMemory() == 0) {
      return refuse("schema.table_count", line.line.last_column(), "TableCount=", database->GetDBTableNum(),
                    " is negative, or more than a segment of 2 GB holds");
    }
    if (manager_.AddDataBase(database.get()) == 0) {
      if (has_reported_error()) return false;  // a mutex that the system refuses
      return refuse("schema.databases", 1, "there are more than ", manager_.GetDataBaseMaxNum(), " databases");
    }
    (void)database.release();  // the manager owns it
    return true;
  }

  [[nodiscard]] bool take_table(std::string_view text) {
    found_ = nullptr;
    const TableLine line(text);
    const std::uint32_t database = line.database;
    table_.SetTableName(name(line.name, RTDB_NAME_SIZE));
    table_.SetTableCName(name(line.caption, RTDB_CNAME_SIZE));
    table_.SetDataBaseID(database);  // after the caption name, whose terminator may fall on it
    table_.SetTableID(line.id);
    table_.SetIndexInDB(line.index);
    table_.SetRecordMaxCount(line.capacity);
    table_.SetTableFieldNum(line.fields);
    table_.SetRecordCount(0);
    if (!is_complete(line.line)) return false;
    if (manager_.AddTable(table_) != 0) return true;
    const CRtDataBase *owner = find_database(database);
    if (owner == nullptr) return refuse("schema.database_id", 1, "no database has the ID ", database);
    const int slots = owner->GetDBTableNum();
    const int slot = table_.GetIndexInDB();
    if (slot < 0 || slot >= slots) {
      return refuse("schema.table_index", 1, "INDEX=", slot, " is not one of the ", slots,
                    " table slots of its database, which count from 0");
    }
    return refuse("schema.field_count", 1, "FIELDNUM=", table_.GetTableFieldNum(), " is negative");
  }

  [[nodiscard]] bool take_field(std::string_view text) {
    const FieldLine line(text);
    const std::uint32_t database = line.database;
    const std::uint32_t table = line.table;
    field_.SetFieldName(name(line.name, RTDB_NAME_SIZE));
    field_.SetFieldCName(name(line.caption, RTDB_CNAME_SIZE));
    field_.SetDataBaseID(database);  // after the caption name, whose terminator may fall on it
    field_.SetTableID(table);
    field_.SetFieldID(line.id);
    field_.SetIndexInTable(line.index);
    field_.SetFieldSize(line.size);
    if (line.default_text) field_.SetDefaultValue(terminated(*line.default_text));
    const FieldTypeInfo *type = field_type_of_keyword(line.type.text);
    if (!is_complete(line.line)) return false;
    if (type == nullptr) {
      return refuse("schema.type", line.type.column, "unknown type ", Quoted{line.type.text});
    }
    field_.SetFieldType(type->code);
    field_.SetFieldTypeSize(type->element_width);
    warn_about(*type, database, table);
    if (manager_.AddField(field_) != 0) return true;
    if (find_database(database) == nullptr) return refuse("schema.database_id", 1, "no database has the ID ", database);
    if (field_.GetIndexInTable() < 0) {
      return refuse("schema.field_index", 1, "INDEX=", field_.GetIndexInTable(), " is negative");
    }
    return refuse("schema.table_id", 1, "no table of the database ", database, " has the ID ", table);
  }

  // What is accepted and loses data all the same.
  void warn_about(const FieldTypeInfo &type, std::uint32_t database, std::uint32_t table) {
    const Place place{path_, number_, 1};
    const int index = field_.GetIndexInTable();
    if (type.bytes != 0 && field_.GetFieldSize() < type.bytes) {
      report_warning("schema.field_size", place, "SIZE=", field_.GetFieldSize(), " is less than the ", type.bytes,
                     " bytes of the type: values run on into the next field");
    }
    const CRtTable *owner = find_table(database, table);
    if (owner == nullptr) return;
    if (index >= Parts::attr(*owner).TableFieldNum) {
      report_warning("schema.field_dropped", place, "INDEX=", index,
                     " is not below FIELDNUM=", Parts::attr(*owner).TableFieldNum,
                     " of the table: the field is dropped, and with the next save its column");
    } else if (Parts::fields(*owner) != nullptr && Parts::fields(*owner)->contains(index)) {
      report_warning("schema.field_twice", place, "INDEX=", index, " was given to another field before, which is lost");
    }
  }

  // The first table of a database with that ID; null if there is no such table. Most fields are of the table of the
  // field before.
  [[nodiscard]] const CRtTable *find_table(std::uint32_t database, std::uint32_t id) {
    if (found_ != nullptr && found_database_ == database && Parts::attr(*found_).TableID == id) return found_;
    found_ = nullptr;
    found_database_ = database;
    const CRtDataBase *owner = find_database(database);
    if (owner == nullptr || Parts::tables(*owner) == nullptr) return nullptr;
    for (const auto &[slot, table] : *Parts::tables(*owner)) {
      if (Parts::attr(table).TableID == id) return found_ = &table;
    }
    return nullptr;
  }

  // A text with a terminator, until the next one.
  [[nodiscard]] const char *terminated(std::string_view text) { return (text_ = text).c_str(); }

  // The text after a key. One that is too long is ignored later, and that of the line before stays.
  [[nodiscard]] const char *name(const LineText &value, std::size_t most) {
    if (value.text.size() > most) {
      report_warning("schema.name_length", {path_, number_, value.column}, "the text has ", value.text.size(),
                     " characters, of which ", most, " fit: it is ignored, and that of the line before counts");
    }
    return terminated(value.text);
  }

  [[nodiscard]] bool is_complete(const RecordLine &line) const noexcept {
    if (line.missing().empty()) return true;
    return refuse("schema.form", line.column(), Quoted{line.missing()},
                  " is missing here, or its value is; the keys have a fixed order");
  }

  template <class... Pieces>
  bool refuse(const char *code, int column, const Pieces &...pieces) const noexcept {
    report_error(code, {path_, number_, column}, pieces...);
    return false;
  }

  [[nodiscard]] const CRtDataBase *find_database(std::uint32_t id) const {
    for (const auto &database : Parts::catalogue(manager_)) {
      if (database != nullptr && database->GetDBID() == id) return database.get();
    }
    return nullptr;
  }

  CRtdbManager &manager_;
  std::string_view path_;
  int number_ = 0;                   // of the line
  const CRtTable *found_ = nullptr;  // by find_table(), until the next table line
  std::uint32_t found_database_ = 0;
  // By design [ValuesInherited]: one table and one field object take all lines, so that what a line does not set, a
  // default value or a name that is too long, stays as the line before set it.
  CRtTable table_;
  CRtField field_;
  Sections sections_;
  std::string text_;  // of terminated()
};

}  // namespace

bool read_schema(const char *path, CRtdbManager &manager) {
  const std::string name(path == nullptr ? std::string_view() : text_at(path));
  if (name.empty()) {
    report_error("schema.path", {}, "no schema file is named");
    return false;
  }
  std::optional<FileText> file = read_file(name);
  if (!file) {
    report_error("schema.missing", {name}, "the schema file does not exist, is not a file or may not be read");
    return false;
  }
  LineReader lines(without_byte_order_mark(file->chars()), kSchemaLineMax);
  SchemaReader schema(manager, name);
  std::string_view line;
  int number = 0;
  // By design [LastLineTwice]: the end of the file shows only in a fetch that leaves the line as it was, so the last
  // line of a file that ends with a line end is taken twice.
  do {
    if (lines.next(line)) ++number;
    if (line.starts_with('#') && !schema.take(line, number)) return false;
  } while (!lines.at_end());
  return true;
}

}  // namespace quillanest
