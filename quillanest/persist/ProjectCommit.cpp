// Committing the projects of a table, and the write-through of single records.
#include "quillanest/kernel/RtDataBase.h"
#include "quillanest/kernel/RtTable.h"
#include "quillanest/kernel/Views.h"

using quillanest::TableView;
using quillanest::VersionFields;

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

// By design [WriteThrough]: the statements would run on a connection that is never opened, so none reaches a store.
// An INSERT then affects no record, which is a failure; a DELETE affects none, which is not.
bool CRtTable::InsertRecordToDb(char *) { return false; }

bool CRtTable::UpdateRecordToDb(char *) { return false; }

bool CRtTable::RemoveRecordInDb(int, int) { return database_ != nullptr && database_->GetRtdbManager() != nullptr; }
