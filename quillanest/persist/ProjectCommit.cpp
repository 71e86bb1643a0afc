// Committing the projects of a table, and the write-through of single records.
#include <string>

#include "quillanest/base/Neutral.h"
#include "quillanest/base/Report.h"
#include "quillanest/kernel/RtdbManager.h"
#include "quillanest/kernel/VersionFields.h"
#include "quillanest/persist/RtdbMedia.h"
#include "quillanest/persist/StoreNames.h"
#include "quillanest/shm/Bytes.h"

using quillanest::as_bytes;
using quillanest::CRtdbMedia;
using quillanest::neutral_on_failure;
using quillanest::place_of;
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

// Deletes the records that are marked as deleted, from the last one on, so that none of the others moves to a position
// that is still to come.
void delete_marked(CRtTable &table, const TableView &view, const _field_attr &status) {
  for (std::int32_t position = view.count() - 1; position >= 0; --position) {
    const bool is_deleted = version_value(view, view.record(position), status) == EDIT_STATUS_DELETED;
    if (is_deleted) (void)table.Delete(0, position, 0);
  }
}

// A record that is marked as deleted takes along the one at the mirrored position, unless it lies in the middle.
void warn_of_mirror(CRtTable &table, const TableView &view, const _field_attr &status) {
  const std::int32_t count = view.count();
  std::int32_t marked = 0;
  std::int32_t apart = 0;
  for (std::int32_t i = 0; i < count; ++i) {
    if (version_value(view, view.record(i), status) != EDIT_STATUS_DELETED) continue;
    ++marked;
    apart += i == count - 1 - i ? 0 : 1;
  }
  if (apart == 0) return;
  quillanest::report_warning("commit.mirror", {place_of(*TableView::database(table), table)}, "of ", marked,
                             " records that are marked as deleted, ", apart,
                             " are not at their mirrored positions: other records are deleted instead");
}

}  // namespace

bool CRtTable::CommitProject() {
  const TableView view = TableView::of(*this);
  if (!view) return true;
  const VersionFields fields = find_version_fields(view);
  if (fields.project == nullptr || fields.edit_status == nullptr) return true;
  const quillanest::Operation operation;
  const bool strict = quillanest::is_strict_image(database_->GetRtdbManager());
  if (strict) {
    delete_marked(*this, view, *fields.edit_status);
  } else {
    warn_of_mirror(*this, view, *fields.edit_status);
  }
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
  const bool saved = SaveData(0);
  return saved || !strict;
}

namespace {

// The result of an operation on single rows: in the strict mode it does not say that a row was removed.
bool report_write_through(bool result, CRtdbManager *manager, std::string_view store_table) {
  const bool claimed = result && !quillanest::is_strict_image(manager);
  quillanest::report_as(claimed ? quillanest::Severity::kWarning : quillanest::Severity::kError, "store.write_through",
                        {store_table}, "no store is changed: single rows go to a connection that is never opened");
  return claimed;
}

}  // namespace

// By design [WriteThrough]: the statements run on a connection that is never opened, so none reaches a store. An INSERT
// then changes no row, which is a failure; a DELETE changes none, which is not.
bool CRtTable::InsertRecordToDb(char *record) {
  const TableView view = TableView::of(*this);
  if (!view.is_record(record) || database_->GetRtdbManager() == nullptr) return false;
  const quillanest::Operation operation;
  return neutral_on_failure(false, [&] {
    CRtdbManager *manager = database_->GetRtdbManager();
    CRtdbMedia store(*manager);
    const std::string name = store_table_name(*database_, *this);
    const bool inserted =
        store.InsertRecord(name, {as_bytes(record), view.record_bytes()}, quillanest::fields_of(view));
    return report_write_through(inserted, manager, name);
  });
}

bool CRtTable::UpdateRecordToDb(char *record) {
  const TableView view = TableView::of(*this);
  if (!view.is_record(record) || database_->GetRtdbManager() == nullptr) return false;
  const quillanest::Operation operation;
  const std::span<std::byte> bytes(as_bytes(record), view.record_bytes());
  return neutral_on_failure(false, [&] {
    std::string condition = "ID = " + std::to_string(static_cast<std::int32_t>(view.key_of(bytes.data())));
    if (const _field_attr *field = find_version_fields(view).project; field != nullptr) {
      condition += " AND iProjectID = " + std::to_string(project_of(bytes, *field));
    }
    CRtdbManager *manager = database_->GetRtdbManager();
    CRtdbMedia store(*manager);
    const std::string name = store_table_name(*database_, *this);
    const bool updated =
        store.DeleteRows(name, condition) && store.InsertRecord(name, bytes, quillanest::fields_of(view));
    return report_write_through(updated, manager, name);
  });
}

bool CRtTable::RemoveRecordInDb(int key, int projectID) {
  if (database_ == nullptr || database_->GetRtdbManager() == nullptr) return false;
  const quillanest::Operation operation;
  return neutral_on_failure(false, [&] {
    std::string condition = "ID = " + std::to_string(key);
    if (FindFieldFromName(quillanest::kProjectField.data(), false) >= 0) {
      condition += " AND iProjectID = " + std::to_string(projectID);
    }
    CRtdbManager *manager = database_->GetRtdbManager();
    CRtdbMedia store(*manager);
    const std::string name = store_table_name(*database_, *this);
    return report_write_through(store.DeleteRows(name, condition), manager, name);
  });
}
