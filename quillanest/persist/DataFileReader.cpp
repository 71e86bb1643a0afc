// Reading a table's text file.
#include <string>
#include <string_view>

#include "quillanest/base/Report.h"
#include "quillanest/kernel/RtdbManager.h"
#include "quillanest/persist/DataFile.h"
#include "quillanest/persist/DataLines.h"
#include "quillanest/persist/Exact.h"
#include "quillanest/persist/Passwords.h"
#include "quillanest/persist/StoreNames.h"
#include "quillanest/shm/Bytes.h"

namespace quillanest {
namespace {

// A remark, or a line that begins with a zero byte.
bool is_skipped_before_header(std::string_view line) { return line.empty() || line.front() == '#'; }

bool is_record_line(std::string_view line) { return !line.empty() && line.front() >= '1' && line.front() <= '9'; }

bool is_remark_or_blank(std::string_view line) {
  return line.starts_with('#') || line.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

// The table's own records.
class LiveArea {
 public:
  explicit LiveArea(const TableView &view) : view_(view) {}

  // The bytes from a record's first one to the end of the segment.
  [[nodiscard]] std::span<std::byte> record(std::int32_t position) const noexcept {
    return view_.segment.subspan(static_cast<std::size_t>(view_.record(position) - view_.segment.data()));
  }
  [[nodiscard]] std::uint32_t key_at(std::int32_t position) const noexcept { return view_.key_at(position); }

 private:
  const TableView &view_;
};

// Reads the records of one file.
class RecordReader {
 public:
  RecordReader(DataLines &lines, const Header &header, char separator, const PasswordCipher &cipher, Misfits &misfits)
      : lines_(lines), header_(header), separator_(separator), cipher_(cipher), misfits_(misfits) {}

  // Fills the first records of an area from the remaining lines, at most `capacity`. Returns the number of records.
  template <class Area>
  std::int32_t fill(Area &area, std::int32_t capacity, FullText full) {
    std::int32_t count = 0;
    std::uint32_t last = 0;
    std::string_view line;
    while (count < capacity && lines_.next(line)) {
      if (!is_record_line(line)) {
        if (!is_remark_or_blank(line)) misfits_.report_misfit("text.line", lines_.number, kNoKey);
        continue;
      }
      fill_record(area.record(count), line, full);
      const std::uint32_t key = area.key_at(count);
      if (key <= last) [[unlikely]] {
        misfits_.report_misfit("text.order", lines_.number, "the key ", key, " comes after ", last,
                               ": keys have to ascend");
      }
      ascends_ = ascends_ && key >= last;
      last = key;
      ++count;
    }
    report_rest(count);
    return count;
  }

  // Whether the keys of the records do.
  [[nodiscard]] bool ascends() const noexcept { return ascends_; }

 private:
  static constexpr std::string_view kNoKey = "the line does not begin with a digit from 1 to 9, so it is not read";

  // Fields without a column keep their bytes.
  void fill_record(std::span<std::byte> record, std::string_view line, FullText full) {
    Columns columns(line, separator_);
    const std::span<const _field_attr *const> fields(header_.fields);
    std::size_t used = 0;
    while (used < fields.size() && !columns.is_last()) {
      const _field_attr *field = fields[used++];
      const std::string_view text = columns.next();
      if (field != nullptr) store(*field, record, text, full);
    }
    const bool goes_on = !columns.is_last() && header_.columns == static_cast<int>(used);
    if (used < fields.size() || goes_on || !line.ends_with('\n')) [[unlikely]] {
      report_end(line);
    }
  }

  void store(const _field_attr &field, std::span<std::byte> record, std::string_view text, FullText full) {
    const std::int64_t offset = read_once(field.FieldOffset);
    if (offset < 0 || offset >= std::ssize(record)) return;
    const char *wrong = store_column(field, record.subspan(static_cast<std::size_t>(offset)), text, cipher_, full);
    if (wrong != nullptr) [[unlikely]] {
      report_value(misfits_, field, lines_.number, wrong);
    }
  }

  void report_end(std::string_view line) noexcept {
    if (lines_.is_part(line)) {
      misfits_.report_misfit("text.line", lines_.number, "the line is longer than 4094 bytes, and is read in parts");
    } else if (!line.ends_with('\n')) {
      misfits_.report_misfit("text.line_end", lines_.number,
                             "the last line has no line end: the last character of its last value is lost");
    } else {
      misfits_.report_misfit("text.line", lines_.number, "the line does not have the ", header_.columns,
                             " columns of the header");
    }
  }

  // Records that a full table does not take.
  void report_rest(std::int32_t count) noexcept {
    std::int64_t left = 0;
    std::string_view line;
    while (lines_.next(line)) left += is_record_line(line) ? 1 : 0;
    if (left == 0) return;
    misfits_.report_misfit("text.capacity", 0, "the table is full with ", count, " records, and ", left,
                           " more are in the file: the next save loses them");
  }

  DataLines &lines_;
  const Header &header_;
  char separator_;
  const PasswordCipher &cipher_;
  Misfits &misfits_;
  bool ascends_ = true;
};

// A file that is not there leaves the table as it is; one that may not be read does too, but the next save loses it.
bool report_no_file(const TableView &view, const std::string &path, bool is_strict) {
  if (file_size(path)) {
    report_as(is_strict ? Severity::kError : Severity::kWarning, "text.unreadable", {path},
              "the file is not a file, or may not be read: the table keeps the records that it has");
    return !is_strict;
  }
  if (const std::string other = name_in_other_case(path); !other.empty()) {
    report_as(is_strict ? Severity::kError : Severity::kWarning, "text.case", {path},
              "there is no such file, but one is called ", Quoted{other}, ": the next save makes a second one");
    if (is_strict) return false;
  }
  report_note("text.missing", {path}, "there is no data file; the table keeps the records that it has");
  if (view) view.note_loaded();
  return true;
}

bool fill(const TableView &view, RecordReader &reader, Misfits &misfits) {
  KeyOrder order(view);
  LiveArea area(view);
  const std::int32_t count = reader.fill(area, view.capacity(), FullText::kEndsAfterField);
  order.complete(reader.ascends());
  (void)misfits.allow_all();
  view.set_count(count);
  count_on_after(view, count);
  view.note_loaded();
  return true;
}

// Into a copy first: the table keeps its records if a line does not fit.
bool fill_strictly(const TableView &view, RecordReader &reader, Misfits &misfits) {
  const std::int32_t capacity = view.capacity();
  RecordCopy records(view, capacity);
  records.set_count(reader.fill(records, capacity, FullText::kHasNoEnd));
  if (!misfits.allow_all()) return false;
  if (!with_records_held(view, misfits.place(), [&] { records.put_into(view); })) return false;
  view.note_loaded();
  return true;
}

}  // namespace

bool CRtdbDataFile::LoadTable(CRtDataBase &database, CRtTable &table, int) {
  const std::optional<std::string> path = path_of(database, table);
  return path && LoadTableFrom(table, *path);
}

bool CRtdbDataFile::LoadTableFrom(CRtTable &table, const std::string &path) {
  const TableView view = TableView::of(table);
  std::optional<FileText> file = read_file(path);
  if (!file) return report_no_file(view, path, strict());
  if (!view) return report_not_attached(path);
  std::optional<DataLines> lines = lines_of(*file, path, strict(), is_skipped_before_header);
  if (!lines) return false;
  // By design [CommentsOnlyEmpties]: comments whose last line has no line end leave an empty table.
  Header header;
  Misfits misfits(path, strict());
  if (!is_skipped_before_header(lines->header)) {
    header = map_columns(table, view, {lines->header, separator_}, use_caption_names_, FirstColumn::kIsKey);
    report_columns(misfits, view, header);
  }
  const PasswordCipher cipher = PasswordCipher::from_configuration(configuration_file_of(manager()));
  if (!allow_passwords(view, configuration_file_of(manager()), path, strict())) return false;
  RecordReader reader(*lines, header, separator_, cipher, misfits);
  return strict() ? fill_strictly(view, reader, misfits) : fill(view, reader, misfits);
}

}  // namespace quillanest
