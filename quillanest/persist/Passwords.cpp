#include "quillanest/persist/Passwords.h"

#include <algorithm>

#include "quillanest/base/Report.h"
#include "quillanest/shm/FieldType.h"

namespace quillanest {
namespace {

bool is_cut(const TableView &view, std::byte *record, const _field_attr &field, const PasswordCipher &cipher) {
  const std::string_view text = text_in(view.value(record, field));
  // A text that leaves room for its terminator and one more character was not cut.
  return static_cast<std::int64_t>(text.size()) + 1 >= read_once(field.FieldSize) && cipher.is_foreign(text);
}

}  // namespace

bool passwords_are_whole(const TableView &view, const PasswordCipher &cipher) {
  const std::int32_t count = view.count();
  for (const _field_attr &field : view.all_fields()) {
    if (kind_of(read_once(field.FieldType)) != Kind::kPassword) continue;
    for (std::int32_t position = 0; position < count; ++position) {
      if (is_cut(view, view.record(position), field, cipher)) return false;
    }
  }
  return true;
}

bool allow_passwords(const TableView &view, const std::string &configuration_file, std::string_view place,
                     bool is_strict) {
  const std::span<const _field_attr> fields = view.all_fields();
  const bool has_passwords = std::any_of(fields.begin(), fields.end(), [](const _field_attr &field) {
    return kind_of(read_once(field.FieldType)) == Kind::kPassword;
  });
  if (!has_passwords) return true;
  switch (key_of_passwords(configuration_file)) {
    case PasswordKey::kUsable:
      return true;
    case PasswordKey::kNotNamed:
      if (is_strict) report_error("password.key", {place}, "there are passwords, and no key file is named");
      return !is_strict;
    case PasswordKey::kMissing:
      report_as(is_strict ? Severity::kError : Severity::kWarning, "password.key", {place},
                "the key file that PasswdKeyFile names is missing, empty or may not be read");
      return !is_strict;
    case PasswordKey::kOpen:
      report_as(is_strict ? Severity::kError : Severity::kWarning, "password.key", {place},
                "the key file that PasswdKeyFile names is not this user's alone: chmod 600 and chown mend it");
      return !is_strict;
  }
  return false;
}

}  // namespace quillanest
