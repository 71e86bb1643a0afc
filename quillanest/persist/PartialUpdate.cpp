// Merging partial-update files into the records of a table.
#include <algorithm>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "quillanest/base/Report.h"
#include "quillanest/kernel/RtdbManager.h"
#include "quillanest/kernel/VersionFields.h"
#include "quillanest/persist/DataFile.h"
#include "quillanest/persist/DataLines.h"
#include "quillanest/persist/Passwords.h"
#include "quillanest/persist/StoreNames.h"
#include "quillanest/settings/Configuration.h"
#include "quillanest/shm/Bytes.h"

namespace quillanest {
namespace {

// Whether the keys of all records ascend.
bool keys_ascend(const TableView &view) {
  const std::int32_t count = view.count();
  for (std::int32_t i = 1; i < count; ++i) {
    if (view.key_at(i) < view.key_at(i - 1)) return false;
  }
  return true;
}

// The configuration file of the manager that a table belongs to; empty without one.
std::string configuration_of(const CRtTable &table) {
  CRtdbManager *manager = TableView::database(table)->GetRtdbManager();
  return manager == nullptr ? std::string() : configuration_file_of(*manager);
}

// Merges lines into the records that their first columns select.
class Merge {
 public:
  Merge(const CRtTable &table, const TableView &view, const Header &header, char separator,
        const PasswordCipher &cipher, Misfits &misfits)
      : table_(table),
        view_(view),
        header_(header),
        separator_(separator),
        cipher_(cipher),
        misfits_(misfits),
        modified_(find_version_fields(view).modified) {}

  // Stores the columns of a line. With `tries` the values go nowhere, and only what does not fit is reported.
  void take(std::string_view text_of_line, int number, bool tries) {
    Columns line(text_of_line, separator_);
    std::byte *record = find(line);
    if (record == nullptr) {
      if (text_of_line == "\n" || text_of_line.empty()) return;
      return misfits_.report_misfit("merge.record", number, "no record has the text of the first column");
    }
    std::size_t column = 1;
    for (; column < header_.fields.size() && !line.is_last(); ++column) {
      const std::string_view text = line.next();
      const _field_attr *field = header_.fields[column];
      if (field == nullptr) continue;
      const std::span<std::byte> value = view_.value(record, *field);
      const char *wrong = store_column(*field, tries ? trial_for(*field, value) : value, text, cipher_, full_);
      if (wrong != nullptr) report_value(misfits_, *field, number, wrong);
      if (!tries && modified_ != nullptr) set_version_value(view_, record, *modified_, 1);
    }
    if (column < header_.fields.size() || !line.is_last()) {
      misfits_.report_misfit("text.line", number, "the line does not have the ", header_.columns,
                             " columns of the header");
    }
  }

  void set_full(FullText full) noexcept { full_ = full; }

 private:
  // By the text of the first column; null if there is no such record or column.
  std::byte *find(Columns &line) const {
    const _field_attr *const first = view_.field(0);
    if (first == nullptr || header_.fields.empty() || header_.fields.front() == nullptr) return nullptr;
    const std::string key(line.next());
    char *found = table_.FindRecordbyStringField(static_cast<int>(header_.fields.front() - first), key.c_str());
    return found == nullptr ? nullptr : as_bytes(static_cast<void *>(found));
  }

  std::span<std::byte> trial_for(const _field_attr &field, std::span<std::byte> value) {
    const auto size = static_cast<std::size_t>(std::max(read_once(field.FieldSize), 0));
    trial_.assign(std::min(value.size(), size), std::byte{0});
    return trial_;
  }

  const CRtTable &table_;
  const TableView &view_;
  const Header &header_;
  char separator_;
  const PasswordCipher &cipher_;
  Misfits &misfits_;
  const _field_attr *modified_;
  FullText full_ = FullText::kEndsAfterField;
  std::vector<std::byte> trial_;
};

using Lines = std::vector<std::pair<std::string_view, int>>;

// All lines of a file with their numbers.
Lines lines_in(DataLines &data, Misfits &misfits) {
  Lines lines;
  std::string_view line;
  while (data.next(line)) {
    if (!line.ends_with('\n')) {
      misfits.report_misfit("text.line_end", data.number,
                            "the line has no line end: the last character of its last value is lost");
    }
    lines.emplace_back(line, data.number);
  }
  return lines;
}

}  // namespace

bool LoadSomeDataFile(CRtTable &table, const std::string &path, bool use_caption_names, char separator) {
  std::optional<FileText> file = read_file(path);
  if (!file) {
    report_note("text.missing", {path}, "there is no file to merge; the table keeps the values that it has");
    return true;
  }
  const TableView view = TableView::of(table);
  if (!view) return report_not_attached(path);
  const std::string configuration = configuration_of(table);
  const bool strict = is_strict(configuration);
  std::optional<DataLines> data =
      lines_of(*file, path, strict, [](std::string_view line) { return line.starts_with('#'); });
  if (!data) return false;
  const Header header = map_columns(table, view, {data->header, separator}, use_caption_names, FirstColumn::kByName);
  const PasswordCipher cipher = PasswordCipher::from_configuration(configuration);
  if (!allow_passwords(view, configuration, path, strict)) return false;
  Misfits misfits(path, strict);
  report_merged_columns(misfits, header);
  const Lines lines = lines_in(*data, misfits);
  Merge merge(table, view, header, separator, cipher, misfits);
  if (strict) {
    merge.set_full(FullText::kHasNoEnd);
    for (const auto &[line, number] : lines) merge.take(line, number, true);
    if (!misfits.allow_all()) return false;
  }
  for (const auto &[line, number] : lines) merge.take(line, number, false);
  (void)misfits.allow_all();
  view.note_order(keys_ascend(view));  // a column may have changed keys
  return true;
}

}  // namespace quillanest
