#include "quillanest/persist/TableStore.h"

#include <string>

#include "quillanest/persist/DataFile.h"
#include "quillanest/persist/RtdbMedia.h"
#include "quillanest/persist/StoreNames.h"
#include "quillanest/persist/Walks.h"
#include "quillanest/settings/Configuration.h"

namespace quillanest {
namespace {

template <class Store>
std::unique_ptr<TableStore> open(CRtdbManager &manager) {
  return std::make_unique<Store>(manager);
}

constexpr struct {
  StoreKind kind;
  std::unique_ptr<TableStore> (*open)(CRtdbManager &manager);
} kStores[] = {
    {StoreKind::kRelational, open<CRtdbMedia>},
    {StoreKind::kText, open<CRtdbDataFile>},
};

}  // namespace

bool TableStore::SaveDataBase(CRtDataBase &database, int project) {
  return for_each_filled_table(database, [&](CRtTable &table) { return SaveTable(database, table, project); });
}

bool TableStore::LoadDataBase(CRtDataBase &database, int project) {
  return for_each_filled_table(database, [&](CRtTable &table) { return LoadTable(database, table, project); });
}

TableStore::TableStore(CRtdbManager &manager) : manager_(manager), strict_(is_strict(configuration_file_of(manager))) {}

bool TableStore::SaveAll(int project) {
  bool saved = true;
  const bool walked = for_each_database(manager_, [&](CRtDataBase &database) {
    const bool mapped = database.AttachShareMemory() != 0;
    saved = mapped && SaveDataBase(database, project) && saved;
    if (!mapped) return;
    leave_database();
    (void)database.DetachShareMemory();
  });
  return walked && (saved || !strict_);
}

bool TableStore::LoadSystem() { return LoadDataBase(*manager_.GetSystemDB(), 0); }

StoreKind configured_store(std::string_view configuration_file) {
  const int in_files = profile_int(std::string(configuration_file), kConfigurationSection, "DataInFile", 0);
  return in_files != 0 ? StoreKind::kText : StoreKind::kRelational;
}

std::unique_ptr<TableStore> open_store(CRtdbManager &manager, StoreKind kind) {
  for (const auto &store : kStores) {
    if (store.kind == kind) return store.open(manager);
  }
  return nullptr;
}

}  // namespace quillanest
