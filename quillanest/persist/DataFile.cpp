// Configuration, paths and walks of the text store.
#include "quillanest/persist/DataFile.h"

#include <algorithm>
#include <string_view>

#include "quillanest/base/Report.h"
#include "quillanest/kernel/RtdbManager.h"
#include "quillanest/persist/StoreNames.h"
#include "quillanest/persist/Walks.h"
#include "quillanest/platform/Path.h"
#include "quillanest/settings/Configuration.h"
#include "quillanest/settings/DataFolders.h"
#include "quillanest/shm/Bytes.h"

namespace quillanest {

CRtdbDataFile::CRtdbDataFile(CRtdbManager &manager) : TableStore(manager) {
  constexpr std::size_t kExtensionMax = 5;
  const std::string file = configuration_file_of(manager);
  // Exactly 1: any other number leaves caption names off.
  use_caption_names_ = profile_int(file, kConfigurationSection, "UseCName", 0) == 1;
  const std::string extension = profile_text(file, kConfigurationSection, "DataFileExt", ".txt");
  // A zero byte ends it, as it ends every path, or the temporary file would have the name of the data file.
  extension_ = extension.substr(0, std::min(kExtensionMax, extension.find('\0')));
}

// The file of a table; nothing if the database has no folder, or the name would lead out of it.
std::optional<std::string> CRtdbDataFile::path_of(CRtDataBase &database, CRtTable &table) const {
  const DataFolders folders(configuration_file_of(manager()), data_path_of(manager()));
  const std::optional<std::string> folder =
      database.GetDBID() == kSystemDatabaseID ? folders.system_folder() : folders.baseline_folder();
  if (!folder) {
    report_error("text.folder", {}, "the folder that BaselineFolder names does not exist");
    return std::nullopt;
  }
  const std::size_t db_name = use_caption_names_ ? offsetof(_db_attr, DBCName) : offsetof(_db_attr, DBName);
  const std::size_t table_name =
      use_caption_names_ ? offsetof(_table_attr, TableCName) : offsetof(_table_attr, TableName);
  std::string name = database_text(database, db_name);
  name += '_';
  name += block_text(*table.GetTableInfo(), table_name);
  if (!is_file_name(name)) {
    report_error("text.name", {name}, "the name of the table's file would lead out of the data folder");
    return std::nullopt;
  }
  return *folder + name + extension_;
}

bool CRtdbDataFile::LoadAllCustomized(int project) {
  bool loaded = true;
  const bool walked = for_each_database(manager(), [&](CRtDataBase &database) {
    // By design [SystemViewLeftOpen]: the system database stays mapped; the directory's next step unmaps it.
    if (database.AttachShareMemory() == 0 || database.GetDBID() == kSystemDatabaseID) return;
    loaded = LoadDataBase(database, project) && loaded;
    (void)database.DetachShareMemory();
  });
  return walked && (loaded || !strict());
}

}  // namespace quillanest
