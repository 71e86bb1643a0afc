// Load and save of the kernel's classes: which store serves a call, and the walk over databases and tables.
#include <string>
#include <string_view>

#include "quillanest/base/Neutral.h"
#include "quillanest/kernel/DatabaseView.h"
#include "quillanest/kernel/RtdbManager.h"
#include "quillanest/persist/DataFile.h"
#include "quillanest/persist/RtdbMedia.h"
#include "quillanest/persist/Store.h"
#include "quillanest/platform/FileSizeSignal.h"
#include "quillanest/settings/Configuration.h"
#include "quillanest/shm/TextAt.h"

using quillanest::CRtdbDataFile;
using quillanest::CRtdbMedia;

namespace {

// Whether the configuration selects text data files, read at every call.
bool data_in_file(std::string_view configuration_file) {
  return quillanest::profile_int(std::string(configuration_file), quillanest::kConfigurationSection, "DataInFile", 0) !=
         0;
}

// The result of a load or save, false when the system lacks memory or another resource. Beyond the limit of a file's
// size a store fails as on a full disk.
template <class Work>
bool guarded(Work work) {
  const quillanest::FileSizeSignalBlock block;
  return quillanest::neutral_on_failure(false, work);
}

}  // namespace

int CRtdbManager::LoadSystemDB() {
  const bool loaded = guarded([&] {
    return data_in_file(attr_.SysIniFile) ? CRtdbDataFile(this).LoadSystem(this) : CRtdbMedia(this).LoadSystem(*this);
  });
  if (!loaded) return 0;
  SetRtdbStatus(RTDB_STATUS_LOADED);
  return 1;
}

int CRtdbManager::LoadAllCustomizedDB(int projectID) {
  const bool loaded = guarded([&] {
    if (data_in_file(attr_.SysIniFile)) return CRtdbDataFile(this).LoadAllCustomized(this, projectID);
    return CRtdbMedia(this).LoadAllCustomized(*this, projectID);
  });
  if (!loaded) return 0;
  SetRtdbStatus(RTDB_STATUS_LOADED);
  return 1;
}

bool CRtdbManager::SaveData(int projectID) {
  return guarded([&] {
    if (data_in_file(attr_.SysIniFile)) return CRtdbDataFile(this).SaveAll(this, projectID);
    return CRtdbMedia(this).SaveAll(*this, projectID);
  });
}

int CRtdbManager::SaveDataTo(bool bToFile) {
  const bool saved =
      guarded([&] { return bToFile ? CRtdbDataFile(this).SaveAll(this, 0) : CRtdbMedia(this).SaveAll(*this, 0); });
  return saved ? 1 : 0;
}

// Calls load(store, database, table) with the table mapped for the time of the call.
template <class Load>
bool CRtdbManager::load_text(unsigned int databaseID, unsigned int tableID, Load load) {
  CRtDataBase database;
  CRtTable table;
  if (GetDataBaseFromID(database, databaseID) == 0 || database.AttachShareMemory() == 0) return false;
  if (database.GetDBTableFromID(table, tableID) == 0) return false;
  return guarded([&] {
    CRtdbDataFile store(this);
    return load(store, database, table);
  });
}

bool CRtdbManager::LoadSomeData(unsigned int databaseID, unsigned int tableID, const char *path, bool bUseCName,
                                char separator) {
  return load_text(databaseID, tableID, [&](CRtdbDataFile &, CRtDataBase &database, CRtTable &table) {
    return quillanest::LoadSomeDataFile(&database, &table, path, bUseCName, separator);
  });
}

bool CRtdbManager::LoadTableData(unsigned int databaseID, unsigned int tableID, const char *path) {
  return load_text(databaseID, tableID, [&](CRtdbDataFile &store, CRtDataBase &database, CRtTable &table) {
    return store.LoadTable(&database, &table, path, 0);
  });
}

bool CRtdbManager::CommitProject() {
  return quillanest::for_each_database(*this, [](CRtDataBase &database) {
    if (database.AttachShareMemory() == 0) return;
    (void)database.CommitProject();
    (void)database.DetachShareMemory();
  });
}

bool CRtDataBase::SaveData(int projectID) {
  if (manager_ == nullptr || !quillanest::DatabaseView::is_mapped(*this)) return false;
  return guarded([&] {
    if (data_in_file(quillanest::text_at(manager_->GetSysIniFile()))) {
      return CRtdbDataFile(manager_).SaveDataBase(this, projectID);
    }
    return CRtdbMedia(manager_).SaveDataBase(*this, projectID);
  });
}

bool CRtDataBase::CommitProject() {
  (void)quillanest::for_each_table(*this, [](CRtTable &table) { return table.CommitProject(); });
  return true;
}

bool CRtTable::SaveData(int projectID) {
  CRtdbManager *manager = IsInShareMemory() ? database_->GetRtdbManager() : nullptr;
  if (manager == nullptr) return false;
  return guarded([&] {
    if (data_in_file(quillanest::text_at(manager->GetSysIniFile()))) {
      return CRtdbDataFile(manager).SaveTable(database_, this, projectID);
    }
    return CRtdbMedia(manager).SaveTable(*database_, *this, projectID);
  });
}
