// The directory: finding databases and tables, and keeping directory records in step.
#include "quillanest/kernel/DatabaseView.h"
#include "quillanest/kernel/ManagerView.h"
#include "quillanest/kernel/Matches.h"
#include "quillanest/kernel/Parts.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/TextAt.h"

using quillanest::DatabaseView;
using quillanest::Directory;
using quillanest::id_is;
using quillanest::ManagerView;
using quillanest::Parts;
using quillanest::text_is;

namespace {

// The descriptor in the segment of a database object, which must be mapped.
const _db_attr &mapped_attr(const CRtDataBase &database) {
  return *quillanest::attr_at<_db_attr>(DatabaseView::segment(database), 0);
}

// The first present database whose own segment matches. The target is detached afterwards.
// By design [MappedTarget]: a target that is passed in mapped keeps its mapping for the first comparison.
template <class Matches>
int find_database(CRtdbManager &manager, CRtDataBase &database, Matches matches) {
  const Directory entries = ManagerView::directory(manager);
  if (!entries) return 0;
  for (int slot = entries.next_present(0); slot >= 0; slot = entries.next_present(slot + 1)) {
    database = entries.records[slot];
    if (database.AttachShareMemory() == 0) continue;
    const bool found = matches(mapped_attr(database));
    if (found) Parts::manager(database) = &manager;
    (void)database.DetachShareMemory();
    if (found) return 1;
  }
  return 0;
}

// Overwrites the first directory record that matches; 1, or 0 if there is no such record.
template <class Matches>
int update_directory(CRtdbManager &manager, const _db_attr *attr, Matches matches) {
  const Directory entries = ManagerView::directory(manager);
  if (!entries || attr == nullptr || quillanest::room_at(attr, sizeof *attr) < sizeof *attr) return 0;
  for (int slot = entries.next_present(0); slot >= 0; slot = entries.next_present(slot + 1)) {
    if (!matches(entries.records[slot])) continue;
    entries.records[slot] = *attr;
    return 1;
  }
  return 0;
}

}  // namespace

int CRtdbManager::GetDataBaseFromName(CRtDataBase &database, const char *name) {
  if (name == nullptr) return 0;
  return find_database(*this, database, text_is<_db_attr>(offsetof(_db_attr, DBName), name));
}

int CRtdbManager::GetDataBaseFromCName(CRtDataBase &database, const char *name) {
  if (name == nullptr) return 0;
  return find_database(*this, database, text_is<_db_attr>(offsetof(_db_attr, DBCName), name));
}

int CRtdbManager::GetDataBaseFromID(CRtDataBase &database, unsigned int id) {
  return find_database(*this, database, id_is(&_db_attr::DBID, id));
}

int CRtdbManager::GetFirstDataBasePostion(int &position) {
  position = -1;
  const Directory entries = ManagerView::directory(*this);
  if (entries) position = entries.next_present(0);
  return position >= 0 ? 1 : 0;
}

int CRtdbManager::GetNext(CRtDataBase &database, int &position) {
  if (position < 0) return 0;
  const Directory entries = ManagerView::directory(*this);
  if (!entries) return 0;
  for (int slot = entries.next_present(position); slot >= 0; slot = entries.next_present(slot + 1)) {
    position = slot + 1;
    database = entries.records[slot];
    if (database.AttachShareMemory() == 0) continue;
    database.manager_ = this;
    (void)database.DetachShareMemory();
    return 1;
  }
  position = -1;
  return 0;
}

int CRtdbManager::FindTable(unsigned int tableID, CRtDataBase &database, CRtTable &table) {
  const Directory entries = ManagerView::directory(*this);
  if (!entries) return 0;
  for (int slot = entries.next_present(0); slot >= 0; slot = entries.next_present(slot + 1)) {
    database = entries.records[slot];
    if (database.AttachShareMemory() == 0) continue;
    if (database.GetDBTableFromID(table, tableID) != 0) {
      database.manager_ = this;
      return 1;
    }
    (void)database.DetachShareMemory();
  }
  return 0;
}

int CRtdbManager::UpdateDBInfo(const char *name, const _db_attr *attr) {
  if (name == nullptr) return 0;
  return update_directory(*this, attr, text_is<_db_attr>(offsetof(_db_attr, DBName), name));
}

int CRtdbManager::UpdateDBInfo(unsigned int id, const _db_attr *attr) {
  return update_directory(*this, attr, id_is(&_db_attr::DBID, id));
}

int CRtdbManager::GetSystemTable(CRtTable &table, unsigned int tableID) {
  return DatabaseView::is_mapped(system_) ? system_.GetDBTableFromID(table, tableID) : 0;
}

int CRtdbManager::GetSystemTable(CRtTable &table, const char *name) {
  return DatabaseView::is_mapped(system_) ? system_.GetDBTableFromName(table, name) : 0;
}

bool CRtdbManager::IsSysTableModified() { return system_.IsModified(); }
