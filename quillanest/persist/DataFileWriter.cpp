// Writing a table's text file.
#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "quillanest/base/Neutral.h"
#include "quillanest/base/Report.h"
#include "quillanest/kernel/RtdbManager.h"
#include "quillanest/kernel/ValueText.h"
#include "quillanest/kernel/VersionFields.h"
#include "quillanest/persist/DataFile.h"
#include "quillanest/persist/ExactWriter.h"
#include "quillanest/persist/FileOutput.h"
#include "quillanest/persist/ModifiedMarks.h"
#include "quillanest/persist/Passwords.h"
#include "quillanest/persist/StoreNames.h"
#include "quillanest/platform/Process.h"
#include "quillanest/platform/TextFile.h"
#include "quillanest/settings/PasswordCipher.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/FieldType.h"

namespace quillanest {
namespace {

class TableWriter {
 public:
  TableWriter(const TableView &view, FileReplacement &file, const PasswordCipher &cipher, char separator)
      : view_(view), output_(file), cipher_(cipher), separator_(separator) {
    for (const _field_attr &field : view.all_fields()) fields_.push_back(&field);
  }

  void write_header(std::size_t name_offset) {
    for (const _field_attr *field : fields_) {
      output_.append(block_text(*field, name_offset));
      end_column(field);
    }
  }

  // By design [ModifiedClearedPerColumn]: the mark is cleared after every column, so "bModified" is always written as 0
  // unless it is the first column.
  void write_record(std::byte *record, const ModifiedMarks &marks) {
    for (const _field_attr *field : fields_) {
      write_value(*field, view_.value(record, *field));
      end_column(field);
      marks.clear(record);
    }
  }

  void finish() { output_.flush(); }

 private:
  void write_value(const _field_attr &field, std::span<std::byte> value) {
    const std::int32_t type = read_once(field.FieldType);
    switch (kind_of(type)) {
      case Kind::kText:
        return output_.append_value(text_in(value));
      case Kind::kPassword:
        return output_.append_value(cipher_.encrypt(text_in(value)));
      case Kind::kCharacter:
      case Kind::kInteger:
      case Kind::kReal:
      case Kind::kTime:
      case Kind::kNone:
        return output_.use(format_value(type, value, output_.number_room()));
    }
  }

  void end_column(const _field_attr *field) {
    output_.append(field == fields_.back() ? kLineEnd : std::string_view(&separator_, 1));
  }

  const TableView &view_;
  FileOutput output_;
  const PasswordCipher &cipher_;
  char separator_;
  std::vector<const _field_attr *> fields_;
};

NewFile new_file_for(const TableView &view) {
  const std::span<const _field_attr> fields = view.all_fields();
  const bool has_password = std::any_of(fields.begin(), fields.end(), [](const _field_attr &field) {
    return kind_of(read_once(field.FieldType)) == Kind::kPassword;
  });
  return has_password ? NewFile::kSecret : NewFile::kByUmask;
}

bool write_all(const TableView &view, TableWriter writer, bool use_caption_names, ModifiedMarks &marks) {
  writer.write_header(use_caption_names ? offsetof(_field_attr, FieldCName) : offsetof(_field_attr, FieldName));
  const std::int32_t count = view.count();
  for (std::int32_t i = 0; i < count; ++i) {
    marks.remember(i);
    writer.write_record(view.record(i), marks);
  }
  writer.finish();
  return true;
}

}  // namespace

bool CRtdbDataFile::SaveTable(CRtDataBase &database, CRtTable &table, int) {
  const TableView view = TableView::of(table);
  const std::string place = place_of(database, table);
  if (!view) return report_not_attached(place);
  const std::optional<std::string> path = path_of(database, table);
  if (!path) return false;
  // Before the new file is opened: the key is read from files, and the new file might take the last file descriptor.
  const std::string configuration = configuration_file_of(manager());
  const PasswordCipher cipher = PasswordCipher::from_configuration(configuration);
  if (!allow_passwords(view, configuration, place, strict())) return false;
  if (!passwords_are_whole(view, cipher)) return report_cut_password(place);
  if (strict() && !view.was_loaded()) return report_not_loaded(place);
  return write_table(table, view, cipher, *path);
}

bool CRtdbDataFile::write_table(CRtTable &table, const TableView &view, const PasswordCipher &cipher,
                                const std::string &path) {
  FileReplacement file(path, new_file_for(view));
  if (!file.is_open()) {
    report_error("text.create", {path}, "the file cannot be written: ", std::string_view(last_system_error()));
    return false;
  }

  ModifiedMarks marks(view, find_version_fields(view).modified);
  bool is_exact = true;
  const bool saved = neutral_on_failure(false, [&] {
    is_exact = strict() ? write_exactly(table, view, file, cipher, {separator_, use_caption_names_}, path, marks)
                        : write_all(view, {view, file, cipher, separator_}, use_caption_names_, marks);
    return is_exact && file.commit();
  });
  if (saved) return true;
  if (is_exact) {
    report_error("text.write", {path}, "the file could not be written whole and to the disk; the former one is kept");
  }
  marks.restore();
  return false;
}

}  // namespace quillanest
