// Committing the projects of a table, and the write-through of single records.
#include <string>

#include "quillanest/base/Neutral.h"
#include "quillanest/kernel/RtdbManager.h"
#include "quillanest/kernel/VersionFields.h"
#include "quillanest/persist/RtdbMedia.h"
#include "quillanest/persist/StoreNames.h"
#include "quillanest/shm/Bytes.h"

using quillanest::as_bytes;
using quillanest::CRtdbMedia;
using quillanest::neutral_on_failure;
using quillanest::store_table_name;
using quillanest::TableView;
using quillanest::VersionFields;

namespace {

// The project number of a record, which may be outside the image.
std::int32_t project_of(std::span<const std::byte> record, const _field_attr &field) {
  const std::int32_t offset = quillanest::read_once(field.FieldOffset);
  const bool inside = offset >= 0 && static_cast<std::size_t>(offset) < record.size();
  return inside ? quillanest::load_part<std::int32_t>(record.subspan(static_cast<std::size_t>(offset))) : 0;
}

}  // namespace

bool CRtTable::CommitProject() {
  const TableView view = TableView::of(*this);
  if (!view) return true;
  const VersionFields fields = find_version_fields(view);
  if (fields.project == nullptr || fields.edit_status == nullptr) return true;
  const std::int32_t count = view.count();
  // By design [CommitCursors]: the position counts down while the record pointer goes up over the slots as they were at
  // the start, so the record that a deletion removes is the one at the position, not the one that carries the status.
  std::byte *record = view.records;
  for (std::int32_t position = count - 1; position >= 0; --position, record += view.record_size) {
    set_version_value(view, record, *fields.project, 0);
    if (version_value(view, record, *fields.edit_status) == EDIT_STATUS_DELETED) {
      (void)Delete(0, position, 0);
    } else {
      set_version_value(view, record, *fields.edit_status, EDIT_STATUS_COMMITTED);
    }
  }
  (void)SaveData(0);
  return true;
}

// By design [WriteThrough]: the statements run on a connection that is never opened, so none reaches a store. An INSERT
// then changes no row, which is a failure; a DELETE changes none, which is not.
bool CRtTable::InsertRecordToDb(char *record) {
  const TableView view = TableView::of(*this);
  if (!view.is_record(record) || database_->GetRtdbManager() == nullptr) return false;
  return neutral_on_failure(false, [&] {
    CRtdbMedia store(*database_->GetRtdbManager());
    return store.InsertRecord(store_table_name(*database_, *this), {as_bytes(record), view.record_bytes()},
                              quillanest::fields_of(view));
  });
}

bool CRtTable::UpdateRecordToDb(char *record) {
  const TableView view = TableView::of(*this);
  if (!view.is_record(record) || database_->GetRtdbManager() == nullptr) return false;
  const std::span<std::byte> bytes(as_bytes(record), view.record_bytes());
  return neutral_on_failure(false, [&] {
    std::string condition = "ID = " + std::to_string(static_cast<std::int32_t>(view.key_of(bytes.data())));
    if (const _field_attr *field = find_version_fields(view).project; field != nullptr) {
      condition += " AND iProjectID = " + std::to_string(project_of(bytes, *field));
    }
    CRtdbMedia store(*database_->GetRtdbManager());
    const std::string name = store_table_name(*database_, *this);
    return store.DeleteRows(name, condition) && store.InsertRecord(name, bytes, quillanest::fields_of(view));
  });
}

bool CRtTable::RemoveRecordInDb(int key, int projectID) {
  if (database_ == nullptr || database_->GetRtdbManager() == nullptr) return false;
  return neutral_on_failure(false, [&] {
    std::string condition = "ID = " + std::to_string(key);
    if (FindFieldFromName(quillanest::kProjectField.data(), false) >= 0) {
      condition += " AND iProjectID = " + std::to_string(projectID);
    }
    CRtdbMedia store(*database_->GetRtdbManager());
    return store.DeleteRows(store_table_name(*database_, *this), condition);
  });
}
