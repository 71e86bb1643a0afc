// Descriptor, ownership and whole-table operations of CRtTable.
#include "quillanest/kernel/RtTable.h"

#include "quillanest/kernel/VersionFields.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/TextAt.h"
#include "quillanest/shm/ValueBytes.h"

using quillanest::as_bytes;
using quillanest::TableView;

namespace {

void copy_attr(_table_attr &to, const _table_attr &from) {
  if (&to == &from) return;
  quillanest::copy_block_text(to, from, offsetof(_table_attr, TableName));
  quillanest::copy_block_text(to, from, offsetof(_table_attr, TableCName));
  to.DataBaseID = from.DataBaseID;
  to.TableID = from.TableID;
  to.IndexInDB = from.IndexInDB;
  to.TableSize = from.TableSize;
  to.RecordMaxCount = from.RecordMaxCount;
  to.TableFieldNum = from.TableFieldNum;
  to.FieldOffset = from.FieldOffset;
  to.DataOffset = from.DataOffset;
  to.RecordCount = quillanest::load_shared(from.RecordCount);
  to.IDExclusive = quillanest::load_shared(from.IDExclusive);
}

}  // namespace

CRtTable::CRtTable() : attr_{} {
  attr_.DataBaseID = quillanest::kNoID;
  attr_.TableID = quillanest::kNoID;
  attr_.IndexInDB = -1;
  attr_.IDExclusive = 1;
}

CRtTable::~CRtTable() = default;

CRtTable::CRtTable(const CRtTable &other) : attr_{}, database_(other.database_) { copy_attr(attr_, other.attr_); }

CRtTable &CRtTable::operator=(const CRtTable &other) {
  copy_attr(attr_, other.attr_);
  database_ = other.database_;
  return *this;
}

CRtTable &CRtTable::operator=(const _table_attr &other) {
  copy_attr(attr_, other);
  return *this;
}

void CRtTable::SetDataBase(CRtDataBase *database) { database_ = database; }

bool CRtTable::IsInShareMemory() const { return TableView::descriptor(*this) != nullptr; }

char *CRtTable::GetTableName() { return TableView::attr_of(*this).TableName; }
void CRtTable::SetTableName(const char *name) {
  (void)quillanest::set_block_text(TableView::attr_of(*this), offsetof(_table_attr, TableName), RTDB_NAME_SIZE, name);
}
char *CRtTable::GetTableCName() { return TableView::attr_of(*this).TableCName; }
void CRtTable::SetTableCName(const char *name) {
  (void)quillanest::set_block_text(TableView::attr_of(*this), offsetof(_table_attr, TableCName), RTDB_CNAME_SIZE, name);
}
unsigned int CRtTable::GetDataBaseID() const { return TableView::attr_of(*this).DataBaseID; }
void CRtTable::SetDataBaseID(unsigned int id) { TableView::attr_of(*this).DataBaseID = id; }
unsigned int CRtTable::GetTableID() const { return TableView::attr_of(*this).TableID; }
void CRtTable::SetTableID(unsigned int id) { TableView::attr_of(*this).TableID = id; }
int CRtTable::GetIndexInDB() const { return TableView::attr_of(*this).IndexInDB; }
void CRtTable::SetIndexInDB(int index) { TableView::attr_of(*this).IndexInDB = index; }
int CRtTable::GetTableSize() const { return TableView::attr_of(*this).TableSize; }
void CRtTable::SetTableSize(int size) { TableView::attr_of(*this).TableSize = size; }
int CRtTable::GetRecordCount() const { return quillanest::load_shared(TableView::attr_of(*this).RecordCount); }
void CRtTable::SetRecordCount(int count) {
  const TableView view = TableView::of(*this);
  const std::int32_t before = view ? view.count() : 0;
  quillanest::store_shared(TableView::attr_of(*this).RecordCount, count);
  if (view && count > before) view.check_order(view.record(before), 0, (count - before) * view.record_size);
}
int CRtTable::GetRecordMaxCount() const { return quillanest::load_shared(TableView::attr_of(*this).RecordMaxCount); }
void CRtTable::SetRecordMaxCount(int count) {
  quillanest::store_shared(TableView::attr_of(*this).RecordMaxCount, count);
}
int CRtTable::GetTableFieldNum() const { return TableView::attr_of(*this).TableFieldNum; }
void CRtTable::SetTableFieldNum(int count) { TableView::attr_of(*this).TableFieldNum = count; }

unsigned int CRtTable::GetIDExclusive() {
  _table_attr &attr = TableView::attr_of(*this);
  const std::uint32_t next = quillanest::load_shared(attr.IDExclusive);
  quillanest::store_shared(attr.IDExclusive, next + 1);
  return next;
}

void CRtTable::SetIDExclusive(unsigned int id) { quillanest::store_shared(TableView::attr_of(*this).IDExclusive, id); }

void CRtTable::SetFieldOffset(int offset) { TableView::attr_of(*this).FieldOffset = offset; }
void CRtTable::SetDataOffset(int offset) { TableView::attr_of(*this).DataOffset = offset; }

_table_attr *CRtTable::GetTableInfo() { return &TableView::attr_of(*this); }

_field_attr *CRtTable::GetFieldAddress() const {
  const TableView view = TableView::of(*this);
  return view ? view.fields() : nullptr;
}

char *CRtTable::GetDataAddress() const {
  const TableView view = TableView::of(*this);
  return view ? quillanest::as_chars(view.records) : nullptr;
}

int CRtTable::DeleteAllRecord() {
  const TableView view = TableView::of(*this);
  if (!view) return 0;
  for (_table_attr *attr : {view.attr, &attr_}) {
    quillanest::store_shared(attr->RecordCount, 0);
    quillanest::store_shared(attr->IDExclusive, std::uint32_t{1});
  }
  view.note_order(true);
  return 1;
}

bool CRtTable::IsModified() const {
  const TableView view = TableView::of(*this);
  if (!view) return false;
  const _field_attr *modified = find_version_fields(view).modified;
  if (modified == nullptr) return false;
  const std::int32_t count = view.count();
  for (std::int32_t i = 0; i < count; ++i) {
    if (version_value(view, view.record(i), *modified) == 1) return true;
  }
  return false;
}

void CRtTable::InitRecordDefault(char *record) const {
  const TableView view = TableView::of(*this);
  if (!view || record == nullptr) return;
  set_defaults(view, {as_bytes(record), quillanest::room_at(record, view.record_bytes())});
}
