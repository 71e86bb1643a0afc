#include "quillanest/persist/ExactWriter.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "quillanest/kernel/ValueText.h"
#include "quillanest/persist/DataLines.h"
#include "quillanest/persist/Exact.h"
#include "quillanest/persist/FileOutput.h"
#include "quillanest/persist/Misfits.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/FieldType.h"

namespace quillanest {
namespace {

// Writes records whose values come back exactly, as far as they can: each line is read again before it counts.
class ExactWriter {
 public:
  ExactWriter(const TableView &view, FileReplacement &file, const PasswordCipher &cipher, char separator,
              std::string_view path)
      : fields_(view.all_fields()),
        output_(file),
        cipher_(cipher),
        separator_(separator),
        misfits_(path, true),
        read_(view.record_bytes()) {}

  // A name that the header would not give back.
  void write_header(CRtTable &table, const TableView &view, bool use_caption_names) {
    line_.clear();
    for (const _field_attr &field : fields_) {
      line_ +=
          block_text(field, use_caption_names ? offsetof(_field_attr, FieldCName) : offsetof(_field_attr, FieldName));
      end_column(field);
    }
    const std::string read = line_.substr(0, line_.size() - kLineEnd.size()) + '\n';
    const Header header = map_columns(table, view, {read, separator_}, use_caption_names, FirstColumn::kIsKey);
    report_columns(misfits_, view, header);
    output_.append(line_);
  }

  void write_record(std::span<std::byte> record) {
    line_.clear();
    for (const _field_attr &field : fields_) {
      append_value(field, field_bytes(record, field));
      end_column(field);
    }
    check(record);
    output_.append(line_);
  }

  // False if a value would not come back.
  [[nodiscard]] bool finish() {
    output_.flush();
    return misfits_.allow_all();
  }

 private:
  static constexpr std::size_t kLongestLine = 4093;  // of which a reader gets all, with its line end

  void append_value(const _field_attr &field, std::span<const std::byte> value) {
    const std::int32_t type = read_once(field.FieldType);
    switch (kind_of(type)) {
      case Kind::kText:
        line_ += text_in(value);
        return;
      case Kind::kPassword:
        line_ += cipher_.encrypt(text_in(value));
        return;
      case Kind::kCharacter:
      case Kind::kInteger:
      case Kind::kReal:
      case Kind::kTime:
      case Kind::kNone: {
        char text[kNumberTextMax];
        line_.append(text, format_exactly(type, value, text));
      }
    }
  }

  void end_column(const _field_attr &field) {
    if (&field == &fields_.back()) {
      line_ += kLineEnd;
    } else {
      line_ += separator_;
    }
  }

  // Reads the line as a load does.
  void check(std::span<std::byte> record) {
    const auto key = load_part<std::uint32_t>(record);
    if (line_.front() < '1' || line_.front() > '9' || key <= last_) {
      refuse(key, "its key is 0, is written with a sign, or is not larger than the one before");
    }
    last_ = key;
    const std::string_view text = std::string_view(line_).substr(0, line_.size() - 1);  // with one byte as its line end
    if (line_.size() > kLongestLine || text.find('\n') != std::string_view::npos ||
        text.substr(0, text.size() - 1).find('\r') != std::string_view::npos) {
      return refuse(key, "a text has a line end in it, or the line is longer than 4093 bytes");
    }
    std::fill(read_.begin(), read_.end(), std::byte{0});
    Columns columns(text, separator_);
    for (const _field_attr &field : fields_) {
      const std::string_view column = columns.next();
      const std::span<std::byte> value = field_bytes(read_, field);
      const char *wrong = store_column(field, value, column, cipher_, FullText::kHasNoEnd);
      const bool is_last = &field == &fields_.back();
      if (wrong != nullptr || columns.is_last() != is_last ||
          !is_same_value(field, value, field_bytes(record, field))) {
        misfits_.report_misfit("text.not_exact", 0, "the record with the ID ", key, ", column ",
                               Quoted{block_text(field, offsetof(_field_attr, FieldName))},
                               ": the value would not come back, so the table is not saved");
        return;
      }
    }
  }

  void refuse(std::uint32_t key, std::string_view why) noexcept {
    misfits_.report_misfit("text.not_exact", 0, "the record with the ID ", key, " would not come back: ", why);
  }

  const std::span<const _field_attr> fields_;
  FileOutput output_;
  const PasswordCipher &cipher_;
  char separator_;
  Misfits misfits_;
  std::string line_;
  std::vector<std::byte> read_;  // a record as a load would read it
  std::uint32_t last_ = 0;
};

}  // namespace

// Works on a copy of the records, so that what is compared is what was written.
bool write_exactly(CRtTable &table, const TableView &view, FileReplacement &file, const PasswordCipher &cipher,
                   const FileForm &form, const std::string &path, ModifiedMarks &marks) {
  ExactWriter writer(view, file, cipher, form.separator, path);
  writer.write_header(table, view, form.use_caption_names);
  RecordCopy records(view, 0);
  const bool copied = with_records_held(view, path, [&] {
    for (std::int32_t i = 0; i < view.count(); ++i) {
      marks.remember(i);
      marks.clear(view.record(i));
    }
    records = RecordCopy::of(view);
  });
  for (std::int32_t i = 0; i < records.count(); ++i) writer.write_record(records.record(i));
  return copied && writer.finish();
}

}  // namespace quillanest
