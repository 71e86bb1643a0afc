// Descriptor, mapping and whole-database operations of CRtDataBase.
#include "quillanest/kernel/RtDataBase.h"

#include <array>
#include <string_view>

#include "quillanest/kernel/DatabaseView.h"
#include "quillanest/kernel/RtdbManager.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/SegmentAccess.h"
#include "quillanest/shm/TextAt.h"

using quillanest::DatabaseView;
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

_db_attr &CRtDataBase::in_force() {
  return DatabaseView::is_mapped(*this) ? *quillanest::attr_at<_db_attr>(DatabaseView::segment(*this), 0) : attr_;
}

const _db_attr &CRtDataBase::in_force() const {
  return DatabaseView::is_mapped(*this) ? *quillanest::attr_at<_db_attr>(DatabaseView::segment(*this), 0) : attr_;
}

// Copies the segment's descriptor into the directory record that carries the local ID or name. The local descriptor is
// written last by every setter, so that the record is found by what it still holds.
void CRtDataBase::refresh_directory(DirectoryKey key) {
  if (manager_ == nullptr) return;
  if (key == DirectoryKey::kByID) {
    (void)manager_->UpdateDBInfo(attr_.DBID, &in_force());
    return;
  }
  char name[sizeof(_db_attr) + 1] = {};
  quillanest::block_text(attr_, offsetof(_db_attr, DBName)).copy(name, sizeof(_db_attr));
  (void)manager_->UpdateDBInfo(name, &in_force());
}

void CRtDataBase::set_text(std::size_t offset, std::size_t width, const char *text) {
  // A copy: the text may lie in the very descriptor that is written first.
  std::array<char, RTDB_CNAME_SIZE + 1> copy{};
  if (text == nullptr) return;
  const std::string_view measured = quillanest::text_at(text);
  if (measured.size() > width) return;
  measured.copy(copy.data(), width);
  if (DatabaseView::is_mapped(*this)) {
    (void)quillanest::set_block_text(in_force(), offset, width, copy.data());
    refresh_directory(DirectoryKey::kByID);
  }
  (void)quillanest::set_block_text(attr_, offset, width, copy.data());
}

template <class Member>
void CRtDataBase::set_member(Member _db_attr::*member, Member value, DirectoryKey key) {
  if (DatabaseView::is_mapped(*this)) {
    in_force().*member = value;
    refresh_directory(key);
  }
  attr_.*member = value;
}

char *CRtDataBase::GetDBName() { return in_force().DBName; }
void CRtDataBase::SetDBName(const char *name) { set_text(offsetof(_db_attr, DBName), RTDB_NAME_SIZE, name); }
char *CRtDataBase::GetDBCName() { return in_force().DBCName; }
void CRtDataBase::SetDBCName(const char *name) { set_text(offsetof(_db_attr, DBCName), RTDB_CNAME_SIZE, name); }
unsigned int CRtDataBase::GetDBID() const { return in_force().DBID; }
void CRtDataBase::SetDBID(unsigned int id) { set_member(&_db_attr::DBID, id, DirectoryKey::kByName); }
unsigned int CRtDataBase::GetDBType() const { return in_force().DBType; }
void CRtDataBase::SetDBType(unsigned int type) { set_member(&_db_attr::DBType, type); }
int CRtDataBase::GetDBTableNum() const { return in_force().DBTableNum; }
void CRtDataBase::SetDBTableNum(int count) { set_member(&_db_attr::DBTableNum, count); }
int CRtDataBase::GetDBFieldNum() const { return in_force().DBFieldNum; }
void CRtDataBase::SetDBFieldNum(int count) { set_member(&_db_attr::DBFieldNum, count); }
int CRtDataBase::GetDBSize() const { return in_force().DBSize; }
void CRtDataBase::SetDBSize(int size) { set_member(&_db_attr::DBSize, size); }

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
