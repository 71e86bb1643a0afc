// Finding a database's tables, and its record functions by table ID.
#include "quillanest/kernel/DatabaseView.h"
#include "quillanest/kernel/Matches.h"
#include "quillanest/kernel/Parts.h"
#include "quillanest/shm/Bytes.h"

using quillanest::DatabaseView;
using quillanest::Parts;

namespace {

auto name_is(const char *name) { return quillanest::text_is<_table_attr>(offsetof(_table_attr, TableName), name); }
auto cname_is(const char *name) { return quillanest::text_is<_table_attr>(offsetof(_table_attr, TableCName), name); }
auto table_id_is(unsigned int id) { return quillanest::id_is(&_table_attr::TableID, id); }

// The descriptor in a slot: the image's if mapped, else that of the catalogue under construction, in which an unfilled
// slot has a fresh one. Null if there is no such slot.
const _table_attr *slot_attr(const CRtDataBase &database, int slot) {
  if (slot < 0 || slot >= Parts::attr(database).DBTableNum) return nullptr;
  if (DatabaseView::is_mapped(database)) return DatabaseView::table(database, slot);
  const auto *tables = Parts::tables(database);
  if (tables == nullptr) return nullptr;
  static const CRtTable fresh;
  const auto found = tables->find(slot);
  return &Parts::attr(found != tables->end() ? found->second : fresh);
}

// Fills the caller's table from a slot that exists and binds it to the database.
void fill_table(CRtDataBase &database, CRtTable &table, int slot) {
  table = *slot_attr(database, slot);
  Parts::bind(table, &database);
}

template <class Matches>
int find_table(CRtDataBase &database, CRtTable &table, Matches matches) {
  for (int slot = 0; slot < Parts::attr(database).DBTableNum; ++slot) {
    const _table_attr *attr = slot_attr(database, slot);
    if (attr == nullptr) return 0;
    if (!matches(*attr)) continue;
    fill_table(database, table, slot);
    return 1;
  }
  return 0;
}

// The first matching descriptor in the image, among as many slots as the segment's descriptor states; null if not
// mapped.
template <class Matches>
const _table_attr *find_in_image(const CRtDataBase &database, Matches matches) {
  if (!DatabaseView::is_mapped(database)) return nullptr;
  const int count = DatabaseView::attr(database).DBTableNum;
  for (int slot = 0; slot < count; ++slot) {
    const _table_attr *attr = DatabaseView::table(database, slot);
    if (attr == nullptr || matches(*attr)) return attr;
  }
  return nullptr;
}

// Where a table's record area starts; null if that is outside the segment.
char *data_address(const CRtDataBase &database, const _table_attr *table) {
  const std::span<std::byte> segment = DatabaseView::segment(database);
  if (table == nullptr) return nullptr;
  const std::int64_t offset = quillanest::read_once(table->DataOffset);
  return offset >= 0 && offset <= static_cast<std::int64_t>(segment.size())
             ? quillanest::as_chars(segment.data() + offset)
             : nullptr;
}

}  // namespace

int CRtDataBase::GetDBTableFromName(CRtTable &table, const char *name) {
  return name == nullptr ? 0 : find_table(*this, table, name_is(name));
}

int CRtDataBase::GetDBTableFromCName(CRtTable &table, const char *name) {
  return name == nullptr ? 0 : find_table(*this, table, cname_is(name));
}

int CRtDataBase::GetDBTableFromID(CRtTable &table, unsigned int id) {
  return find_table(*this, table, table_id_is(id));
}

int CRtDataBase::GetDBTableFromIndex(CRtTable &table, int slot) {
  if (slot_attr(*this, slot) == nullptr) return 0;
  fill_table(*this, table, slot);
  return 1;
}

int CRtDataBase::IfHasTable() const { return DatabaseView::attr(*this).DBTableNum > 0 ? 1 : 0; }

int CRtDataBase::GetFirstTablePostion() const { return attr_.DBTableNum >= 1 ? 0 : -1; }

bool CRtDataBase::GetNextTable(CRtTable &table, int &position) {
  if (DatabaseView::is_mapped(*this) && GetTableAddress() == nullptr) return false;
  if (GetDBTableFromIndex(table, position) == 0) {
    position = -1;
    return false;
  }
  ++position;
  return true;
}

int CRtDataBase::GetTableFieldData(unsigned int tableID, int fieldIndex, unsigned int recordID, char *buffer) {
  CRtTable table;
  return GetDBTableFromID(table, tableID) != 0 ? table.GetFieldData(recordID, fieldIndex, buffer) : 0;
}

int CRtDataBase::SetTableFieldData(unsigned int tableID, int fieldIndex, unsigned int recordID, const char *value) {
  CRtTable table;
  return GetDBTableFromID(table, tableID) != 0 ? table.SetFieldData(recordID, fieldIndex, value) : 0;
}

char *CRtDataBase::GetTableRecordAt(unsigned int tableID, int position) {
  CRtTable table;
  return GetDBTableFromID(table, tableID) != 0 ? table.GetAt(position) : nullptr;
}

char *CRtDataBase::GetTableRecord(unsigned int tableID, unsigned int recordID) {
  CRtTable table;
  return GetDBTableFromID(table, tableID) != 0 ? table.FindIDExclusive(recordID) : nullptr;
}

int CRtDataBase::SetTableRecord(unsigned int tableID, const char *record, int projectID) {
  CRtTable table;
  return GetDBTableFromID(table, tableID) != 0 && table.Update(record, -1, projectID) >= 0 ? 1 : 0;
}

char *CRtDataBase::GetTableDataAddress(unsigned int tableID) const {
  return data_address(*this, find_in_image(*this, table_id_is(tableID)));
}

char *CRtDataBase::GetTableDataAddress(const char *tableName) const {
  return tableName == nullptr ? nullptr : data_address(*this, find_in_image(*this, name_is(tableName)));
}

char *CRtDataBase::GetTableDataAddressAt(int slot) const {
  if (!DatabaseView::is_mapped(*this) || slot < 0 || slot >= DatabaseView::attr(*this).DBTableNum) return nullptr;
  return data_address(*this, DatabaseView::table(*this, slot));
}

int CRtDataBase::GetTableRecordCount(unsigned int tableID) const {
  const _table_attr *table = find_in_image(*this, table_id_is(tableID));
  return table == nullptr ? 0 : quillanest::load_shared(table->RecordCount);
}
