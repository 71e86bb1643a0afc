// Reading the rows of a query through the current slot.
#include "quillanest/persist/DbConnection.h"
#include "quillanest/sql/ComError.h"

namespace quillanest {

bool CDbConnection::OpenRecordset(const char *query, std::size_t most_rows) {
  Slot *slot = current();
  if (slot == nullptr) return false;
  slot->rows.reset();
  row_ = 0;
  try {
    slot->rows.emplace(slot->connection->query(query, most_rows));
  } catch (const _com_error &error) {
    note_failure(current_slot_, error);
    return false;
  }
  return true;
}

int CDbConnection::GetRecordCount() const {
  const Slot *slot = current();
  return slot == nullptr || !slot->rows ? 0 : static_cast<int>(slot->rows->row_count());
}

void CDbConnection::MoveFirst() { row_ = 0; }

void CDbConnection::MoveNext() {
  if (row_ < static_cast<std::size_t>(GetRecordCount())) ++row_;
}

bool CDbConnection::IsEOF() const {
  const Slot *slot = current();
  if (slot == nullptr) return true;
  // By design [EofUnknownIsFalse]: a reader that cannot be asked has not ended.
  return slot->rows && row_ >= slot->rows->row_count();
}

const RowSet *CDbConnection::rows() const {
  const Slot *slot = current();
  return slot != nullptr && slot->rows && row_ < slot->rows->row_count() ? &*slot->rows : nullptr;
}

Variant CDbConnection::GetFieldValue(const char *column) const {
  const RowSet *set = rows();
  const int index = set == nullptr ? -1 : set->column(column);
  return index < 0 ? Variant() : set->value(row_, index);
}

}  // namespace quillanest
