#include "quillanest/kernel/VersionFields.h"

#include <algorithm>
#include <span>

#include "quillanest/base/Text.h"

namespace quillanest {
namespace {

// The name of a version field, which has 8 letters or more and is shorter than names may be. Every edit looks at the
// fields of its table, so a field's name is read as one number, the same for capital and small letters, and letter by
// letter only if that is the wanted one.
class VersionName {
 public:
  explicit VersionName(std::string_view name) noexcept : name_(name), start_(start_of(name.data())) {}

  [[nodiscard]] bool is_of(const _field_attr &field) const noexcept {
    return start_of(field.FieldName) == start_ && field.FieldName[name_.size()] == '\0' &&
           equal_ignoring_case({field.FieldName, name_.size()}, name_);
  }

 private:
  static std::uint64_t start_of(const char *name) noexcept {
    constexpr std::uint64_t kSmallLetters = 0x2020202020202020;
    return load<std::uint64_t>(as_bytes(static_cast<const void *>(name))) | kSmallLetters;
  }

  std::string_view name_;
  std::uint64_t start_;
};

// By design [UpdateKeepsStatus]: an update changes the status of a committed record only.
void stamp_status(const TableView &view, std::byte *record, const _field_attr &status, int action) {
  if (action == kInsertAction) set_version_value(view, record, status, EDIT_STATUS_INSERTED);
  if (action == kDeleteAction) set_version_value(view, record, status, EDIT_STATUS_DELETED);
  if (action == kUpdateAction && version_value(view, record, status) == EDIT_STATUS_COMMITTED) {
    set_version_value(view, record, status, EDIT_STATUS_UPDATED);
  }
}

}  // namespace

VersionFields find_version_fields(const TableView &view) noexcept {
  const VersionName modified(kModifiedField);
  const VersionName project(kProjectField);
  const VersionName edit_status(kEditStatusField);
  VersionFields fields;
  for (const _field_attr &field : view.all_fields()) {
    if (fields.modified == nullptr && modified.is_of(field)) fields.modified = &field;
    if (fields.project == nullptr && project.is_of(field)) fields.project = &field;
    if (fields.edit_status == nullptr && edit_status.is_of(field)) fields.edit_status = &field;
  }
  return fields;
}

void stamp(const TableView &view, std::byte *record, int project, int action) {
  if (project == 0) {
    const VersionName modified(kModifiedField);
    const std::span<const _field_attr> fields = view.all_fields();
    const auto field =
        std::find_if(fields.begin(), fields.end(), [&](const _field_attr &f) { return modified.is_of(f); });
    if (field != fields.end()) set_version_value(view, record, *field, 1);
    return;
  }
  const VersionFields fields = find_version_fields(view);
  if (fields.modified != nullptr) set_version_value(view, record, *fields.modified, 1);
  if (fields.project != nullptr) set_version_value(view, record, *fields.project, project);
  if (fields.edit_status != nullptr) stamp_status(view, record, *fields.edit_status, action);
}

}  // namespace quillanest
