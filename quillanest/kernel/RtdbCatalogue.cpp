// Building the catalogue: databases, tables and fields, before and while they are laid out.
#include <algorithm>
#include <memory>

#include "quillanest/kernel/Directory.h"
#include "quillanest/kernel/RtdbManager.h"
#include "quillanest/shm/MutexEx.h"

int CRtdbManager::AddDataBase(CRtDataBase *database) {
  if (database == nullptr) return 0;
  CMutexEx mutex;
  if (!mutex.Create("mdb")) return 0;
  (void)mutex.Wait(-1);
  const auto slots = catalogue_.begin() + std::clamp(GetDataBaseMaxNum(), 0, RTDB_DATABASE_MAX);
  const auto free = std::find(catalogue_.begin(), slots, nullptr);
  const auto same =
      std::find_if(catalogue_.begin(), catalogue_.end(), [&](const auto &entry) { return entry.get() == database; });
  const bool has_room = free != slots;
  if (has_room) {
    // One object in two slots has one owner all the same.
    *free = same != catalogue_.end() ? *same : std::shared_ptr<CRtDataBase>(database);
  }
  (void)mutex.Release();
  return has_room ? 1 : 0;
}

CRtDataBase *CRtdbManager::catalogue_database(unsigned int id) const {
  for (const std::shared_ptr<CRtDataBase> &database : catalogue_) {
    if (database != nullptr && database->GetDBID() == id) return database.get();
  }
  return nullptr;
}

int CRtdbManager::AddTable(const CRtTable &table) {
  CRtDataBase *database = catalogue_database(table.GetDataBaseID());
  return database == nullptr ? 0 : database->InitAddTable(table.GetIndexInDB(), table);
}

int CRtdbManager::AddField(const CRtField &field) {
  CRtDataBase *database = catalogue_database(field.GetDataBaseID());
  return database == nullptr || field.GetIndexInTable() < 0 ? 0 : database->InitAddField(field);
}

int CRtdbManager::CreateDBMem() {
  const Directory entries = directory(std::min(GetDataBaseMaxNum(), RTDB_DATABASE_MAX));
  if (!entries) return 0;
  for (int slot = 0; slot < entries.slots; ++slot) {
    CRtDataBase *database = catalogue_[static_cast<std::size_t>(slot)].get();
    if (database == nullptr) continue;
    // Two databases of one ID would share a segment.
    if (catalogue_database(database->GetDBID()) != database) return 0;
    database->manager_ = this;
    if (database->CreateMem() == 0) return 0;
    quillanest::store_shared(entries.flags[slot], 1);
    entries.records[slot] = database->attr_;
  }
  SetRtdbStatus(RTDB_STATUS_LAID_OUT);
  return 1;
}
