// Reading a table's text file, and merging partial-update files.
#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "quillanest/base/Report.h"
#include "quillanest/kernel/RtdbManager.h"
#include "quillanest/kernel/VersionFields.h"
#include "quillanest/persist/DataFile.h"
#include "quillanest/persist/StoreNames.h"
#include "quillanest/platform/TextFile.h"
#include "quillanest/settings/PasswordCipher.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/FieldType.h"
#include "quillanest/shm/LineReader.h"
#include "quillanest/shm/ValueBytes.h"

namespace quillanest {
namespace {

constexpr std::size_t kLineMax = 4095;

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

// The field of each column of a header, null for a column without a field.
std::vector<const _field_attr *> map_columns(const CRtTable &table, const TableView &view, Columns header,
                                             bool use_caption_names, FirstColumn first) {
  std::vector<const _field_attr *> fields;
  const int most = view.field_num;
  while (static_cast<int>(fields.size()) < most) {
    const std::string name(header.next());
    const bool is_key = fields.empty() && first == FirstColumn::kIsKey && !header.is_last();
    const int index = is_key ? 0 : table.FindFieldFromName(name.c_str(), use_caption_names);
    fields.push_back(index >= 0 ? view.field(index) : nullptr);
    if (header.is_last()) break;
  }
  return fields;
}

// The size of a field in a record, in bytes.
std::size_t size_of(const _field_attr &field) {
  return static_cast<std::size_t>(std::max(read_once(field.FieldSize), 0));
}

// Stores a PASSWD text: clears the field and copies as much of the clear password as fits.
void store_password(const _field_attr &field, std::span<std::byte> value, std::string_view text,
                    const PasswordCipher &cipher) {
  const std::span<std::byte> whole = value.first(std::min(value.size(), size_of(field)));
  std::fill(whole.begin(), whole.end(), std::byte{0});
  const std::string clear = cipher.decrypt(text);
  std::memcpy(whole.data(), clear.data(), std::min(whole.size(), clear.size()));
}

void store_column(const _field_attr &field, std::span<std::byte> value, std::string_view text,
                  const PasswordCipher &cipher) {
  if (value.empty()) return;
  const std::int32_t type = read_once(field.FieldType);
  switch (kind_of(type)) {
    case Kind::kCharacter:
      return store_part(value, text.empty() ? '\0' : text.front());
    case Kind::kText:
      // By design [FullWidthString]: a text as long as the field fills it, and its terminator falls on the byte after
      // the field.
      return copy_text(value, text.substr(0, size_of(field)));
    case Kind::kPassword:
      return store_password(field, value, text, cipher);
    case Kind::kInteger:
    case Kind::kReal:
    case Kind::kTime:
    case Kind::kNone:
      (void)store_value_of_text(type, value, text);
  }
}

// Whether the bytes of a file are lines of text. In another encoding, or with line ends of another kind, they would
// load as an empty table, and the next save would replace them. Lines before the header may begin with a zero byte; no
// other byte may be one. The header has no CR except in its line end. A file of remarks alone needs no line end.
bool is_text_of_lines(std::string_view text, bool has_zeros) {
  const auto is_skipped = [&](std::size_t at) { return at < text.size() && (text[at] == '#' || text[at] == '\0'); };
  const auto line_after = [&](std::size_t at) { return std::min(text.find('\n', at), text.size() - 1) + 1; };
  const bool has_line_ends = text.find('\n') != std::string_view::npos;
  std::size_t header = 0;
  while (is_skipped(header)) header = line_after(header);
  if (header == text.size()) return !has_zeros && (has_line_ends || text.find('\r') == std::string_view::npos);
  std::string_view first = text.substr(header, text.find('\n', header) - header);
  if (first.ends_with('\r')) first.remove_suffix(1);
  if (first.find('\r') != std::string_view::npos) return false;
  return has_line_ends && (!has_zeros || text.find('\0', header) == std::string_view::npos);
}

// A remark, or a line that begins with a zero byte.
bool is_skipped_before_header(std::string_view line) { return line.empty() || line.front() == '#'; }

bool is_record_line(std::string_view line) { return !line.empty() && line.front() >= '1' && line.front() <= '9'; }

// Fills a record slot from a line; fields without a column keep their bytes.
void fill_record(const TableView &view, std::byte *record, Columns line, const std::vector<const _field_attr *> &fields,
                 const PasswordCipher &cipher) {
  for (const _field_attr *field : fields) {
    const std::string_view text = line.next();
    if (field != nullptr) store_column(*field, view.value(record, *field), text, cipher);
    if (line.is_last()) return;
  }
}

// Fills the record slots from the remaining lines, up to the table's capacity, and notes whether the keys ascend.
// Returns the number of slots filled.
std::int32_t fill_records(const TableView &view, LineReader &lines, char separator,
                          const std::vector<const _field_attr *> &fields, const PasswordCipher &cipher) {
  const std::int32_t capacity = view.capacity();
  std::int32_t count = 0;
  KeyOrder order(view);
  std::string_view line;
  while (!lines.at_end() && count < capacity && lines.next(line)) {
    if (!is_record_line(line)) continue;
    fill_record(view, view.record(count), {line, separator}, fields, cipher);
    order.add(view.key_at(count));
    ++count;
  }
  order.complete();
  return count;
}

// Whether the keys of all records ascend.
bool keys_ascend(const TableView &view) {
  const std::int32_t count = view.count();
  for (std::int32_t i = 1; i < count; ++i) {
    if (view.key_at(i) < view.key_at(i - 1)) return false;
  }
  return true;
}

// Merges one line into the record that its first column selects.
void merge_line(const CRtTable &table, const TableView &view, Columns line,
                const std::vector<const _field_attr *> &fields, const _field_attr *modified,
                const PasswordCipher &cipher) {
  const _field_attr *const first = view.field(0);
  if (first == nullptr || fields.empty() || fields.front() == nullptr) return;
  const std::string key(line.next());
  const auto key_index = static_cast<int>(fields.front() - first);
  char *found = table.FindRecordbyStringField(key_index, key.c_str());
  if (found == nullptr) return;
  std::byte *record = as_bytes(static_cast<void *>(found));
  for (std::size_t column = 1; column < fields.size() && !line.is_last(); ++column) {
    const std::string_view text = line.next();
    const _field_attr *field = fields[column];
    if (field == nullptr) continue;
    store_column(*field, view.value(record, *field), text, cipher);
    if (modified != nullptr) set_version_value(view, record, *modified, 1);
  }
}

// The configuration file of the manager that a table belongs to; empty without one.
std::string configuration_of(const CRtTable &table) {
  CRtdbManager *manager = TableView::database(table)->GetRtdbManager();
  return manager == nullptr ? std::string() : configuration_file_of(*manager);
}

// The header line of a file and the lines after it.
struct DataLines {
  LineReader lines;
  std::string_view header;
};

// Opens the lines of a file. The header is the first line for which is_remark(line) is false, or the last remark if the
// file ends with it and it has no line end. Nothing if the bytes are not lines of text or there is no header.
template <class IsRemark>
std::optional<DataLines> lines_of(FileText &file, IsRemark is_remark) {
  const std::span<char> text = without_byte_order_mark(file.chars());
  DataLines data{LineReader(text, kLineMax), {}};
  if (!is_text_of_lines({text.data(), text.size()}, data.lines.has_zeros())) return std::nullopt;
  do {
    if (!data.lines.next(data.header)) return std::nullopt;
  } while (is_remark(data.header) && !data.lines.at_end());
  return data;
}

bool report_no_lines(std::string_view path) noexcept {
  report_error("text.form", {path},
               "the file is not lines of text after a header line: an encoding other than one byte a character, zero "
               "bytes, line ends other than LF and CR LF, or nothing at all");
  return false;
}

// What a header loses: columns without a field, and fields without a column, whose values are 0 from now on.
void warn_about_columns(const TableView &view, const std::vector<const _field_attr *> &fields,
                        std::string_view path) noexcept {
  const auto unknown = std::count(fields.begin(), fields.end(), nullptr);
  if (unknown > 0) {
    report_warning("text.unknown_column", {path, 1}, unknown,
                   " columns of the header are not fields of the table: the next save drops them");
  }
  for (const _field_attr &field : view.all_fields()) {
    const auto is_it = [&](const _field_attr *mapped) { return mapped == &field; };
    if (std::any_of(fields.begin(), fields.end(), is_it)) continue;
    report_warning("text.missing_column", {path, 1}, "no column is called ",
                   Quoted{block_text(field, offsetof(_field_attr, FieldName))},
                   ": its values keep the bytes of before");
  }
}

// Lines that a full table does not take.
void warn_about_rest(LineReader &lines, std::int32_t count, std::string_view path) noexcept {
  std::int64_t left = 0;
  std::string_view line;
  while (!lines.at_end() && lines.next(line)) left += is_record_line(line) ? 1 : 0;
  if (left == 0) return;
  report_warning("text.capacity", {path}, "the table is full with ", count, " records, and ", left,
                 " more are in the file: the next save loses them");
}

}  // namespace

bool CRtdbDataFile::LoadTable(CRtDataBase &database, CRtTable &table, int) {
  const std::optional<std::string> path = path_of(database, table);
  return path && LoadTableFrom(table, *path);
}

bool CRtdbDataFile::LoadTableFrom(CRtTable &table, const std::string &path) {
  std::optional<FileText> file = read_file(path);
  if (!file) {
    report_note("text.missing", {path}, "there is no data file; the table keeps the records that it has");
    return true;
  }
  const TableView view = TableView::of(table);
  if (!view) return report_not_attached(path);
  std::optional<DataLines> data = lines_of(*file, is_skipped_before_header);
  if (!data) return report_no_lines(path);
  // By design [CommentsOnlyEmpties]: comments whose last line has no line end leave an empty table.
  std::vector<const _field_attr *> fields;
  if (!is_skipped_before_header(data->header)) {
    fields = map_columns(table, view, {data->header, separator_}, use_caption_names_, FirstColumn::kIsKey);
  }

  const PasswordCipher cipher = PasswordCipher::from_configuration(configuration_file_of(manager()));
  warn_about_columns(view, fields, path);
  const std::int32_t count = fill_records(view, data->lines, separator_, fields, cipher);
  warn_about_rest(data->lines, count, path);
  view.set_count(count);
  if (count > 0) store_shared(view.attr->IDExclusive, view.key_at(count - 1) + 1);
  return true;
}

bool LoadSomeDataFile(CRtTable &table, const std::string &path, bool use_caption_names, char separator) {
  std::optional<FileText> file = read_file(path);
  if (!file) {
    report_note("text.missing", {path}, "there is no file to merge; the table keeps the values that it has");
    return true;
  }
  const TableView view = TableView::of(table);
  if (!view) return report_not_attached(path);
  std::optional<DataLines> data = lines_of(*file, [](std::string_view line) { return line.starts_with('#'); });
  if (!data) return report_no_lines(path);
  const std::vector<const _field_attr *> fields =
      map_columns(table, view, {data->header, separator}, use_caption_names, FirstColumn::kByName);

  const PasswordCipher cipher = PasswordCipher::from_configuration(configuration_of(table));
  const _field_attr *modified = find_version_fields(view).modified;
  std::string_view line;
  while (!data->lines.at_end() && data->lines.next(line)) {
    merge_line(table, view, {line, separator}, fields, modified, cipher);
  }
  view.note_order(keys_ascend(view));  // a column may have changed keys
  return true;
}

}  // namespace quillanest
