// Load, save and commit of the kernel's classes, each by the store that the configuration selects.
#include <memory>
#include <string>
#include <string_view>

#include "quillanest/base/Neutral.h"
#include "quillanest/base/Report.h"
#include "quillanest/kernel/DatabaseView.h"
#include "quillanest/kernel/RtdbManager.h"
#include "quillanest/persist/DataFile.h"
#include "quillanest/persist/StoreNames.h"
#include "quillanest/persist/TableStore.h"
#include "quillanest/persist/Walks.h"
#include "quillanest/platform/FileSizeSignal.h"
#include "quillanest/settings/Configuration.h"
#include "quillanest/shm/TextAt.h"

using quillanest::configured_store;
using quillanest::CRtdbDataFile;
using quillanest::is_strict_image;
using quillanest::open_store;
using quillanest::StoreKind;
using quillanest::TableStore;
using quillanest::text_at;

namespace {

// The result of a load or save, false if the system lacks memory or another resource. A store that reaches the limit on
// file sizes fails as on a full disk.
template <class Work>
bool guarded(Work work) {
  quillanest::Operation operation;
  const quillanest::FileSizeSignalBlock block;
  return operation.explain(quillanest::neutral_on_failure(false, work), "store.failed", {},
                           "the load or save fails for a reason that is not known");
}

// Returns work(store) with the store that a configuration file selects. Members of the manager use its own file, those
// of databases and tables use the image's: the two differ if another manager has built the image.
template <class Work>
bool in_store(CRtdbManager &manager, std::string_view configuration_file, Work work) {
  return guarded([&] { return work(*open_store(manager, configured_store(configuration_file))); });
}

// Returns work(database, table), with the database mapped during the call. False if there is no such table.
template <class Work>
bool with_table(CRtdbManager &manager, unsigned int database_id, unsigned int table_id, Work work) {
  CRtDataBase database;
  CRtTable table;
  if (manager.GetDataBaseFromID(database, database_id) == 0 || database.AttachShareMemory() == 0) return false;
  if (database.GetDBTableFromID(table, table_id) == 0) return false;
  return guarded([&] { return work(database, table); });
}

}  // namespace

int CRtdbManager::LoadSystemDB() {
  if (!in_store(*this, attr_.SysIniFile, [](TableStore &store) { return store.LoadSystem(); })) return 0;
  SetRtdbStatus(RTDB_STATUS_LOADED);
  return 1;
}

int CRtdbManager::LoadAllCustomizedDB(int projectID) {
  if (!in_store(*this, attr_.SysIniFile, [&](TableStore &store) { return store.LoadAllCustomized(projectID); }))
    return 0;
  SetRtdbStatus(RTDB_STATUS_LOADED);
  return 1;
}

bool CRtdbManager::SaveData(int projectID) {
  return in_store(*this, attr_.SysIniFile, [&](TableStore &store) { return store.SaveAll(projectID); });
}

int CRtdbManager::SaveDataTo(bool bToFile) {
  const StoreKind kind = bToFile ? StoreKind::kText : StoreKind::kRelational;
  return guarded([&] { return open_store(*this, kind)->SaveAll(0); }) ? 1 : 0;
}

bool CRtdbManager::LoadSomeData(unsigned int databaseID, unsigned int tableID, const char *path, bool bUseCName,
                                char separator) {
  return with_table(*this, databaseID, tableID, [&](CRtDataBase &, CRtTable &table) {
    const CRtdbDataFile store(*this);  // an unreadable configuration fails the load, also without a file
    return path == nullptr || quillanest::LoadSomeDataFile(table, std::string(text_at(path)), bUseCName, separator);
  });
}

bool CRtdbManager::LoadTableData(unsigned int databaseID, unsigned int tableID, const char *path) {
  return with_table(*this, databaseID, tableID, [&](CRtDataBase &database, CRtTable &table) {
    CRtdbDataFile store(*this);
    if (path == nullptr) return store.LoadTable(database, table, 0);
    return store.LoadTableFrom(table, std::string(text_at(path)));
  });
}

bool CRtdbManager::CommitProject() {
  const quillanest::Operation operation;
  bool committed = true;
  const bool walked = quillanest::for_each_database(*this, [&](CRtDataBase &database) {
    const bool mapped = database.AttachShareMemory() != 0;
    committed = mapped && database.CommitProject() && committed;
    if (mapped) (void)database.DetachShareMemory();
  });
  return walked && (committed || !is_strict_image(this));
}

bool CRtDataBase::SaveData(int projectID) {
  if (manager_ == nullptr || !quillanest::DatabaseView::is_mapped(*this)) return false;
  return in_store(*manager_, text_at(manager_->GetSysIniFile()),
                  [&](TableStore &store) { return store.SaveDataBase(*this, projectID); });
}

bool CRtDataBase::CommitProject() {
  const quillanest::Operation operation;
  const bool committed =
      quillanest::for_each_filled_table(*this, [](CRtTable &table) { return table.CommitProject(); });
  return committed || !is_strict_image(manager_);
}

bool CRtTable::SaveData(int projectID) {
  CRtdbManager *manager = IsInShareMemory() ? database_->GetRtdbManager() : nullptr;
  if (manager == nullptr) return false;
  return in_store(*manager, text_at(manager->GetSysIniFile()),
                  [&](TableStore &store) { return store.SaveTable(*database_, *this, projectID); });
}
