// Building the catalogue: databases, tables and fields, before and while they are laid out.
#include <algorithm>
#include <memory>

#include "quillanest/base/Neutral.h"
#include "quillanest/kernel/ManagerView.h"
#include "quillanest/kernel/Parts.h"
#include "quillanest/shm/HeldMutex.h"

using quillanest::ManagerView;

namespace {

// The first database of the catalogue with that ID; null if there is no such database.
CRtDataBase *catalogue_database(CRtdbManager &manager, unsigned int id) {
  for (const std::shared_ptr<CRtDataBase> &database : quillanest::Parts::catalogue(manager)) {
    if (database != nullptr && database->GetDBID() == id) return database.get();
  }
  return nullptr;
}

}  // namespace

int CRtdbManager::AddDataBase(CRtDataBase *database) {
  if (database == nullptr || database == &system_) return 0;  // the manager's own object has an owner
  return quillanest::neutral_on_failure(0, [&] {
    // Allocates everything before the object changes owner, so that after a failure it still belongs to the caller.
    const auto holder = std::make_shared<std::unique_ptr<CRtDataBase>>();
    const quillanest::HeldMutex lock("mdb");
    if (!lock.is_open()) return 0;
    const auto slots = catalogue_.begin() + std::clamp(GetDataBaseMaxNum(), 0, RTDB_DATABASE_MAX);
    const auto free = std::find(catalogue_.begin(), slots, nullptr);
    if (free == slots) return 0;
    const auto same =
        std::find_if(catalogue_.begin(), catalogue_.end(), [&](const auto &entry) { return entry.get() == database; });
    if (same != catalogue_.end()) {
      *free = *same;  // an object in two slots still has one owner
    } else {
      holder->reset(database);
      *free = std::shared_ptr<CRtDataBase>(holder, database);
    }
    return 1;
  });
}

int CRtdbManager::AddTable(const CRtTable &table) {
  CRtDataBase *database = catalogue_database(*this, table.GetDataBaseID());
  if (database == nullptr) return 0;
  return quillanest::neutral_on_failure(0, [&] { return database->InitAddTable(table.GetIndexInDB(), table); });
}

int CRtdbManager::AddField(const CRtField &field) {
  CRtDataBase *database = catalogue_database(*this, field.GetDataBaseID());
  if (database == nullptr || field.GetIndexInTable() < 0) return 0;
  return quillanest::neutral_on_failure(0, [&] { return database->InitAddField(field); });
}

int CRtdbManager::CreateDBMem() {
  const quillanest::Directory entries = ManagerView::directory(*this, std::min(GetDataBaseMaxNum(), RTDB_DATABASE_MAX));
  if (!entries) return 0;
  for (int slot = 0; slot < entries.slots; ++slot) {
    CRtDataBase *database = catalogue_[static_cast<std::size_t>(slot)].get();
    if (database == nullptr) continue;
    database->manager_ = this;
    // By design [SameIDSharesSegment]: a second database of one ID is laid out over the first one.
    if (database->CreateMem() == 0) return 0;
    entries.records[slot] = database->attr_;
    quillanest::store_shared(entries.flags[slot], 1);
  }
  SetRtdbStatus(RTDB_STATUS_LAID_OUT);
  return 1;
}
