#include "quillanest/kernel/SchemaReader.h"

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "quillanest/kernel/RtdbManager.h"
#include "quillanest/platform/TextFile.h"
#include "quillanest/shm/FieldType.h"
#include "quillanest/shm/LineReader.h"
#include "quillanest/shm/NumberText.h"
#include "quillanest/shm/TextAt.h"

namespace quillanest {
namespace {

constexpr std::size_t kLineMax = 1023;

enum class Section { kNone, kDatabase, kTable, kField };

struct Marker {
  std::string_view text;
  Section section;  // kNone ends the current one
};
constexpr std::array<Marker, 6> kMarkers{{{"#Database_Start", Section::kDatabase},
                                          {"#Database_Finish", Section::kNone},
                                          {"#Table_Start", Section::kTable},
                                          {"#Table_Finish", Section::kNone},
                                          {"#Field_Start", Section::kField},
                                          {"#Field_Finish", Section::kNone}}};

// Takes the keys and values of one record line from left to right. A blank in a key matches any run of white space.
class RecordLine {
 public:
  explicit RecordLine(std::string_view line) : rest_(line) {}

  // The run of non-blank characters after `key`.
  [[nodiscard]] std::string text(std::string_view key) {
    take_key(key);
    skip_blanks(rest_);
    const std::size_t size = std::min(rest_.find_first_of(" \t\n\v\f\r"), rest_.size());
    complete_ = complete_ && size > 0;
    std::string value(rest_.substr(0, size));
    rest_.remove_prefix(size);
    return value;
  }

  // The decimal number after `key`.
  [[nodiscard]] std::uint32_t number(std::string_view key) {
    take_key(key);
    const std::optional<std::uint32_t> value = scan_int(rest_);
    complete_ = complete_ && value.has_value();
    return value.value_or(0);
  }

  // The signed decimal number after `key`.
  [[nodiscard]] int integer(std::string_view key) { return static_cast<int>(number(key)); }

  // False after a key or its value was missing.
  [[nodiscard]] bool is_complete() const noexcept { return complete_; }

 private:
  void take_key(std::string_view key) {
    if (key.starts_with(' ')) {
      skip_blanks(rest_);
      key.remove_prefix(1);
    }
    complete_ = complete_ && rest_.starts_with(key);
    rest_.remove_prefix(std::min(key.size(), rest_.size()));
  }

  std::string_view rest_;
  bool complete_ = true;
};

// The default text of a field line, if the line has one.
// By design [DefaultAnywhere]: the word counts anywhere in the line, in a name too; the text starts after the one
// character that follows it.
std::optional<std::string> default_of(std::string_view line) {
  constexpr std::string_view kWord = "Default";
  const std::size_t at = line.find(kWord);
  if (at == std::string_view::npos) return std::nullopt;
  std::string_view text = line.substr(std::min(at + kWord.size() + 1, line.size()));
  while (text.ends_with(' ') || text.ends_with('\n')) text.remove_suffix(1);
  return std::string(text);
}

class SchemaReader {
 public:
  explicit SchemaReader(CRtdbManager &manager) : manager_(manager) {}

  // Takes one line that begins with '#'; false if it is rejected.
  [[nodiscard]] bool take(std::string_view line) {
    mark(line);
    const bool taken = take_record(line);
    current_ = next_;
    return taken;
  }

 private:
  // By design [StartCountsFromNextLine]: a Start marker takes effect with the following line, a Finish marker at once.
  void mark(std::string_view line) {
    for (const Marker &marker : kMarkers) {
      if (!line.starts_with(marker.text)) continue;
      next_ = marker.section;
      if (marker.section == Section::kNone) current_ = Section::kNone;
    }
  }

  [[nodiscard]] bool take_record(std::string_view line) {
    switch (current_) {
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

  [[nodiscard]] bool take_database(std::string_view text) {
    RecordLine line(text);
    auto database = std::make_unique<CRtDataBase>();
    database->SetDBName(line.text("#Name=").c_str());
    database->SetDBCName(line.text(" Describe=").c_str());
    database->SetDBID(line.number(" ID="));
    database->SetDBType(line.number(" Type="));
    database->SetDBTableNum(line.integer(" TableCount="));
    if (!line.is_complete() || database->CreateTableMemory() == 0) return false;
    if (manager_.AddDataBase(database.get()) == 0) return false;
    (void)database.release();  // the manager owns it
    return true;
  }

  [[nodiscard]] bool take_table(std::string_view text) {
    RecordLine line(text);
    const std::uint32_t database = line.number("#DBID=");
    table_.SetTableName(line.text(" NAME=").c_str());
    table_.SetTableCName(line.text(" CNAME=").c_str());
    table_.SetDataBaseID(database);  // after the caption name, whose terminator may fall on it
    table_.SetTableID(line.number(" ID="));
    table_.SetIndexInDB(line.integer(" INDEX="));
    table_.SetRecordMaxCount(line.integer(" MAX="));
    table_.SetTableFieldNum(line.integer(" FIELDNUM="));
    table_.SetRecordCount(0);
    return line.is_complete() && manager_.AddTable(table_) != 0;
  }

  [[nodiscard]] bool take_field(std::string_view text) {
    RecordLine line(text);
    const std::uint32_t database = line.number("#DBID=");
    const std::uint32_t table = line.number(" TABLEID=");
    field_.SetFieldName(line.text(" NAME=").c_str());
    field_.SetFieldCName(line.text(" CNAME=").c_str());
    field_.SetDataBaseID(database);  // after the caption name, whose terminator may fall on it
    field_.SetTableID(table);
    field_.SetFieldID(line.number(" ID="));
    field_.SetIndexInTable(line.integer(" INDEX="));
    const std::string keyword = line.text(" TYPE=");
    field_.SetFieldSize(line.integer(" SIZE="));
    if (const std::optional<std::string> value = default_of(text)) field_.SetDefaultValue(value->c_str());
    const FieldTypeInfo *type = field_type_of_keyword(keyword);
    if (!line.is_complete() || type == nullptr) return false;
    field_.SetFieldType(type->code);
    field_.SetFieldTypeSize(type->element_width);
    return manager_.AddField(field_) != 0;
  }

  CRtdbManager &manager_;
  // By design [ValuesInherited]: one table and one field object take all lines, so that what a line does not set, a
  // default value or a name that is too long, stays as the line before set it.
  CRtTable table_;
  CRtField field_;
  Section current_ = Section::kNone;
  Section next_ = Section::kNone;
};

}  // namespace

bool read_schema(const char *path, CRtdbManager &manager) {
  if (path == nullptr || *path == '\0') return false;
  std::optional<FileText> file = read_file(std::string(text_at(path)));
  if (!file) return false;
  LineReader lines(without_byte_order_mark(file->chars()), kLineMax);
  SchemaReader schema(manager);
  std::string_view line;
  // By design [LastLineTwice]: the end of the file shows only in a fetch that leaves the line as it was, so the last
  // line of a file that ends with a line end is taken twice.
  do {
    (void)lines.next(line);
    if (line.starts_with('#') && !schema.take(line)) return false;
  } while (!lines.at_end());
  return true;
}

}  // namespace quillanest
