#include "quillanest/persist/Passwords.h"

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

}  // namespace quillanest
