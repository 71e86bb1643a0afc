#include "quillanest/persist/DataLines.h"

#include <algorithm>
#include <cstring>

#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/FieldType.h"

namespace quillanest {
namespace {

constexpr std::size_t kLineMax = 4095;

// The size of a field in a record, in bytes.
std::size_t size_of(const _field_attr &field) {
  return static_cast<std::size_t>(std::max(read_once(field.FieldSize), 0));
}

constexpr const char *kTooLong = "the text is longer than the field and is cut";

// Stores a PASSWD text: clears the field and copies as much of the clear password as fits.
const char *store_password(const _field_attr &field, std::span<std::byte> value, std::string_view text,
                           const PasswordCipher &cipher) {
  const std::span<std::byte> whole = value.first(std::min(value.size(), size_of(field)));
  std::fill(whole.begin(), whole.end(), std::byte{0});
  const std::string clear = cipher.decrypt(text);
  std::memcpy(whole.data(), clear.data(), std::min(whole.size(), clear.size()));
  if (cipher.is_foreign(clear)) return "the password was enciphered with a key that is not at hand";
  return clear.size() > whole.size() ? kTooLong : nullptr;
}

const char *store_text(const _field_attr &field, std::span<std::byte> value, std::string_view text, FullText full) {
  const std::size_t size = size_of(field);
  const std::string_view fitting = text.substr(0, size);
  copy_text(full == FullText::kHasNoEnd ? value.first(std::min(value.size(), size)) : value, fitting);
  return fitting.size() < text.size() ? kTooLong : nullptr;
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

}  // namespace

Header map_columns(const CRtTable &table, const TableView &view, Columns header, bool use_caption_names,
                   FirstColumn first) {
  Header mapped;
  const int most = view.field_num;
  do {
    const std::string name(header.next());
    if (++mapped.columns > most) continue;
    const bool is_key = mapped.columns == 1 && first == FirstColumn::kIsKey && !header.is_last();
    const int index = is_key ? 0 : table.FindFieldFromName(name.c_str(), use_caption_names);
    mapped.fields.push_back(index >= 0 ? view.field(index) : nullptr);
  } while (!header.is_last());
  return mapped;
}

const char *store_characters(const _field_attr &field, std::span<std::byte> value, std::string_view text,
                             const PasswordCipher &cipher, FullText full) {
  switch (kind_of(read_once(field.FieldType))) {
    case Kind::kCharacter:
      store_part(value, text.empty() ? '\0' : text.front());
      return text.size() > 1 ? "there is more than one character" : nullptr;
    case Kind::kText:
      return store_text(field, value, text, full);
    case Kind::kPassword:
      return store_password(field, value, text, cipher);
    case Kind::kInteger:
    case Kind::kReal:
    case Kind::kTime:
    case Kind::kNone:
      return nullptr;
  }
  return nullptr;
}

std::optional<DataLines> lines_of(FileText &file, std::string_view path, bool is_strict,
                                  bool (*is_remark)(std::string_view line)) {
  const std::span<char> text = without_byte_order_mark(file.chars());
  if (is_strict && text.size() < file.chars().size()) {
    report_error("text.form", {path}, "the file begins with a byte order mark: save it as UTF-8 without one");
    return std::nullopt;
  }
  DataLines data{LineReader(text, kLineMax), {}};
  bool has_header = is_text_of_lines({text.data(), text.size()}, data.lines.has_zeros());
  do {
    has_header = has_header && data.next(data.header);
  } while (has_header && is_remark(data.header) && !data.lines.at_end());
  if (has_header) return data;
  report_error("text.form", {path},
               "the file is not lines of text after a header line: an encoding other than one byte a character, zero "
               "bytes, line ends other than LF and CR LF, or nothing at all");
  return std::nullopt;
}

void report_value(Misfits &misfits, const _field_attr &field, int line, const char *what) noexcept {
  misfits.report_misfit("text.value", line, "column ", Quoted{block_text(field, offsetof(_field_attr, FieldName))},
                        ": ", std::string_view(what));
}

void report_columns(Misfits &misfits, const TableView &view, const Header &header) noexcept {
  const std::vector<const _field_attr *> &fields = header.fields;
  const auto unknown =
      std::count(fields.begin(), fields.end(), nullptr) + header.columns - static_cast<int>(fields.size());
  if (unknown > 0) {
    misfits.report_misfit("text.unknown_column", 1, unknown,
                          " columns of the header are not fields of the table: the next save drops them");
  }
  for (const _field_attr &field : view.all_fields()) {
    const auto columns = std::count(fields.begin(), fields.end(), &field);
    if (columns == 1) continue;
    const Quoted name{block_text(field, offsetof(_field_attr, FieldName))};
    if (columns == 0) {
      misfits.report_misfit("text.missing_column", 1, "no column is called ", name,
                            ": its values keep the bytes of before");
    } else {
      misfits.report_misfit("text.unknown_column", 1, columns, " columns are called ", name,
                            ", of which the last one counts");
    }
  }
}

void report_merged_columns(Misfits &misfits, const Header &header) noexcept {
  const std::vector<const _field_attr *> &fields = header.fields;
  const auto unknown =
      std::count(fields.begin(), fields.end(), nullptr) + header.columns - static_cast<int>(fields.size());
  if (unknown > 0) {
    misfits.report_misfit(
        "merge.column", 1, unknown, " columns of the header are not fields of the table, and are not merged",
        fields.empty() || fields.front() == nullptr ? ": the first one, so no line selects a record" : "");
  }
}

}  // namespace quillanest
