// Descriptor, mapping and whole-database operations of CRtDataBase.
#include "quillanest/kernel/RtDataBase.h"

#include <array>
#include <string_view>

#include "quillanest/kernel/DatabaseView.h"
#include "quillanest/kernel/Parts.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/SegmentAccess.h"
#include "quillanest/shm/TextAt.h"

using quillanest::DatabaseView;
using quillanest::Parts;
using quillanest::SegmentAccess;

namespace {

void copy_attr(_db_attr &to, const _db_attr &from) {
  if (&to == &from) return;
  quillanest::copy_block_text(to, from, offsetof(_db_attr, DBName));
  quillanest::copy_block_text(to, from, offsetof(_db_attr, DBCName));
  to.DBID = from.DBID;
  to.DBType = from.DBType;
  to.DBTableNum = from.DBTableNum;
  to.DBFieldNum = from.DBFieldNum;
  to.DBSize = from.DBSize;
  to.TableOffset = from.TableOffset;
  to.FieldOffset = from.FieldOffset;
  to.DataOffset = from.DataOffset;
}

// How the directory record of a database is found.
enum class DirectoryKey { kByID, kByName };

// Copies the segment's descriptor into the directory record that has the object's own ID or name. Every setter writes
// the object's own descriptor last, so that the record is found by the former value.
void refresh_directory(CRtDataBase &database, DirectoryKey key) {
  CRtdbManager *manager = database.GetRtdbManager();
  if (manager == nullptr) return;
  const _db_attr &own = Parts::attr(database);
  if (key == DirectoryKey::kByID) {
    (void)manager->UpdateDBInfo(own.DBID, &DatabaseView::attr(database));
    return;
  }
  char name[sizeof(_db_attr) + 1] = {};
  quillanest::block_text(own, offsetof(_db_attr, DBName)).copy(name, sizeof(_db_attr));
  (void)manager->UpdateDBInfo(name, &DatabaseView::attr(database));
}

void set_text(CRtDataBase &database, std::size_t offset, std::size_t width, const char *text) {
  // A copy, because the text may lie in the descriptor that is written first.
  std::array<char, RTDB_CNAME_SIZE + 1> copy{};
  if (text == nullptr) return;
  const std::string_view measured = quillanest::text_at(text);
  if (measured.size() > width) return;
  measured.copy(copy.data(), width);
  if (DatabaseView::is_mapped(database)) {
    (void)quillanest::set_block_text(DatabaseView::attr(database), offset, width, copy.data());
    refresh_directory(database, DirectoryKey::kByID);
  }
  (void)quillanest::set_block_text(Parts::attr(database), offset, width, copy.data());
}

template <class Member>
void set_member(CRtDataBase &database, Member _db_attr::*member, Member value, DirectoryKey key = DirectoryKey::kByID) {
  if (DatabaseView::is_mapped(database)) {
    DatabaseView::attr(database).*member = value;
    refresh_directory(database, key);
  }
  Parts::attr(database).*member = value;
}

}  // namespace

CRtDataBase::CRtDataBase() : attr_{} {
  attr_.DBID = quillanest::kNoID;
  attr_.DBType = quillanest::kNoID;
}

CRtDataBase::~CRtDataBase() = default;

CRtDataBase::CRtDataBase(const CRtDataBase &other) : CRtDataBase() { *this = other; }

CRtDataBase &CRtDataBase::operator=(const CRtDataBase &other) {
  copy_attr(attr_, other.attr_);
  mapped_ = other.mapped_;
  manager_ = other.manager_;
  segment_ = other.segment_;
  return *this;
}

CRtDataBase &CRtDataBase::operator=(const _db_attr &other) {
  copy_attr(attr_, other);
  segment_.SetKey(static_cast<int>(attr_.DBID));
  SegmentAccess::set_size(segment_, attr_.DBSize);
  return *this;
}

int CRtDataBase::AttachShareMemory() {
  if (segment_.Attach() == nullptr) return 0;
  if (SegmentAccess::bytes(segment_).size() < sizeof(_db_attr)) {
    segment_.Detach();
    return 0;
  }
  mapped_ = 1;
  return 1;
}

int CRtDataBase::DetachShareMemory() {
  segment_.Detach();
  mapped_ = 0;
  return 1;
}

int CRtDataBase::IsInShareMemory() const { return mapped_; }

char *CRtDataBase::GetStartAddress() const {
  const std::span<std::byte> bytes = SegmentAccess::bytes(segment_);
  return bytes.empty() ? nullptr : quillanest::as_chars(bytes.data());
}

CRtdbManager *CRtDataBase::GetRtdbManager() const { return manager_; }

_table_attr *CRtDataBase::GetTableAddress() const { return DatabaseView::table(*this, 0); }

_field_attr *CRtDataBase::GetFieldAddress() const {
  return quillanest::attrs_at<_field_attr>(DatabaseView::segment(*this), attr_.FieldOffset);
}

char *CRtDataBase::GetDBName() { return DatabaseView::attr(*this).DBName; }
void CRtDataBase::SetDBName(const char *name) { set_text(*this, offsetof(_db_attr, DBName), RTDB_NAME_SIZE, name); }
char *CRtDataBase::GetDBCName() { return DatabaseView::attr(*this).DBCName; }
void CRtDataBase::SetDBCName(const char *name) { set_text(*this, offsetof(_db_attr, DBCName), RTDB_CNAME_SIZE, name); }
unsigned int CRtDataBase::GetDBID() const { return DatabaseView::attr(*this).DBID; }
void CRtDataBase::SetDBID(unsigned int id) { set_member(*this, &_db_attr::DBID, id, DirectoryKey::kByName); }
unsigned int CRtDataBase::GetDBType() const { return DatabaseView::attr(*this).DBType; }
void CRtDataBase::SetDBType(unsigned int type) { set_member(*this, &_db_attr::DBType, type); }
int CRtDataBase::GetDBTableNum() const { return DatabaseView::attr(*this).DBTableNum; }
void CRtDataBase::SetDBTableNum(int count) { set_member(*this, &_db_attr::DBTableNum, count); }
int CRtDataBase::GetDBFieldNum() const { return DatabaseView::attr(*this).DBFieldNum; }
void CRtDataBase::SetDBFieldNum(int count) { set_member(*this, &_db_attr::DBFieldNum, count); }
int CRtDataBase::GetDBSize() const { return DatabaseView::attr(*this).DBSize; }
void CRtDataBase::SetDBSize(int size) { set_member(*this, &_db_attr::DBSize, size); }

bool CRtDataBase::DeleteAllRecord() {
  CRtTable table;
  int position = GetFirstTablePostion();
  while (GetNextTable(table, position)) (void)table.DeleteAllRecord();
  return true;
}

bool CRtDataBase::IsModified() {
  CRtTable table;
  int position = GetFirstTablePostion();
  while (GetNextTable(table, position)) {
    if (table.IsModified()) return true;
  }
  return false;
}
