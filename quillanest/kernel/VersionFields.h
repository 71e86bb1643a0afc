// The version fields of a table, "bModified", "iProjectID" and "iEditStatus", which a table may lack.
#pragma once

#include <cstdint>
#include <string_view>

#include "quillanest/kernel/TableView.h"
#include "quillanest/shm/Bytes.h"

namespace quillanest {

// The names of the version fields.
inline constexpr std::string_view kModifiedField = "bModified";
inline constexpr std::string_view kProjectField = "iProjectID";
inline constexpr std::string_view kEditStatusField = "iEditStatus";

// The descriptors of the version fields; null for one that the table lacks.
struct VersionFields {
  const _field_attr *modified = nullptr;     // "bModified"
  const _field_attr *project = nullptr;      // "iProjectID"
  const _field_attr *edit_status = nullptr;  // "iEditStatus"
};
[[nodiscard]] VersionFields find_version_fields(const TableView &view) noexcept;

// A version field of one record, read and written as 32 bits regardless of its declared type.
[[nodiscard]] inline std::int32_t version_value(const TableView &view, std::byte *record, const _field_attr &field) {
  return load_part<std::int32_t>(view.value(record, field));
}
inline void set_version_value(const TableView &view, std::byte *record, const _field_attr &field, std::int32_t value) {
  store_part(view.value(record, field), value);
}

// What an edit does to a record, in the numbers of SetRecordVersionInfo.
enum EditAction { kInsertAction = 2, kUpdateAction = 3, kDeleteAction = 4 };

// Marks a record as modified; an edit of a project other than 0 stamps the record with it and with an edit status.
void stamp(const TableView &view, std::byte *record, int project, int action);

}  // namespace quillanest
