// The lines of a data file and the values in them, for loads and merges.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "quillanest/base/Report.h"
#include "quillanest/kernel/RtTable.h"
#include "quillanest/kernel/TableView.h"
#include "quillanest/persist/Misfits.h"
#include "quillanest/platform/TextFile.h"
#include "quillanest/settings/PasswordCipher.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/FieldType.h"
#include "quillanest/shm/LineReader.h"
#include "quillanest/shm/ValueBytes.h"

namespace quillanest {

// Takes the columns of a line from left to right.
class Columns {
 public:
  Columns(std::string_view line, char separator) : rest_(line), separator_(separator) {}

  // Returns the next column's text; is_last() is then true if no separator follows it.
  // By design [LastColumnLosesOne]: the last column loses its last character, which is the line end in all lines but
  // one that ends with the file.
  std::string_view next() {
    const std::size_t end = rest_.find(separator_);
    last_ = end == std::string_view::npos;
    if (last_) return rest_.substr(0, rest_.empty() ? 0 : rest_.size() - 1);
    const std::string_view text = rest_.substr(0, end);
    rest_.remove_prefix(end + 1);
    return text;
  }

  [[nodiscard]] bool is_last() const noexcept { return last_; }

 private:
  std::string_view rest_;
  char separator_;
  bool last_ = false;
};

enum class FirstColumn { kIsKey, kByName };

// The columns of a header.
struct Header {
  std::vector<const _field_attr *> fields;  // of each column; null for one that is not a field
  int columns = 0;                          // in the file; those after the table's number of fields have no entry
};
[[nodiscard]] Header map_columns(const CRtTable &table, const TableView &view, Columns header, bool use_caption_names,
                                 FirstColumn first);

// How a text is stored that is as long as its field.
enum class FullText {
  // By design [FullWidthString]: a text as long as the field fills it, and its terminator falls on the byte after the
  // field.
  kEndsAfterField,
  kHasNoEnd
};

// store_column() of characters, texts and passwords.
[[nodiscard]] const char *store_characters(const _field_attr &field, std::span<std::byte> value, std::string_view text,
                                           const PasswordCipher &cipher, FullText full);

// Stores a column's text in a field, whose bytes `value` starts with. Null if the text is such a value as a whole, else
// what is wrong with it.
[[nodiscard]] inline const char *store_column(const _field_attr &field, std::span<std::byte> value,
                                              std::string_view text, const PasswordCipher &cipher, FullText full) {
  const std::int32_t type = read_once(field.FieldType);
  switch (kind_of(type)) {
    case Kind::kInteger:
    case Kind::kReal:
      if (store_whole_value(type, value, text)) [[likely]]
        return nullptr;
      return "the text is not a number that the field holds";
    case Kind::kTime:
      return store_whole_value(type, value, text) ? nullptr : "the text is not a date and time";
    case Kind::kCharacter:
    case Kind::kText:
    case Kind::kPassword:
      return value.empty() ? nullptr : store_characters(field, value, text, cipher, full);
    case Kind::kNone:
      return nullptr;
  }
  return nullptr;
}

// The lines of a file after its header.
struct DataLines {
  LineReader lines;
  std::string_view header;
  int number = 0;  // of the line that was fetched last, from 1

  bool next(std::string_view &line) {
    if (lines.at_end() || !lines.next(line)) return false;
    ++number;
    return true;
  }
  // Whether the line that was fetched last is only a part of one.
  [[nodiscard]] bool is_part(std::string_view line) const noexcept { return !line.ends_with('\n') && !lines.at_end(); }
};

// Opens the lines of a file. The header is the first line for which is_remark(line) is false, or the last remark if the
// file ends with it and it has no line end. Nothing, with the reason reported, if the bytes are not lines of text or
// there is no header; and, if `is_strict`, if they begin with a byte order mark.
[[nodiscard]] std::optional<DataLines> lines_of(FileText &file, std::string_view path, bool is_strict,
                                                bool (*is_remark)(std::string_view line));

// A value of a column that does not fit.
void report_value(Misfits &misfits, const _field_attr &field, int line, const char *what) noexcept;
// Columns of the header that are not fields, and fields without a column; those of a merge.
void report_columns(Misfits &misfits, const TableView &view, const Header &header) noexcept;
void report_merged_columns(Misfits &misfits, const Header &header) noexcept;

}  // namespace quillanest
