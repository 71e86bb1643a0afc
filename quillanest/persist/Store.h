// What the text store and the relational store have in common: settings, names and walks.
#pragma once

#include <cstddef>
#include <string>

#include "quillanest/base/Neutral.h"
#include "quillanest/kernel/DatabaseView.h"
#include "quillanest/kernel/RtdbManager.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/TextAt.h"

namespace quillanest {

// The configuration file and the data path of a manager.
inline std::string configuration_file_of(CRtdbManager &manager) {
  return std::string(text_at(manager.GetSysIniFile()));
}
inline std::string data_path_of(CRtdbManager &manager) { return std::string(text_at(manager.GetDataPath())); }

// A text of the database's descriptor in force: the segment's when mapped.
inline std::string database_text(CRtDataBase &database, std::size_t offset) {
  const auto *mapped = attr_at<_db_attr>(DatabaseView::segment(database), 0);
  if (mapped != nullptr) return std::string(block_text(*mapped, offset));
  char *text = offset == offsetof(_db_attr, DBName) ? database.GetDBName() : database.GetDBCName();
  return std::string(text_in({as_bytes(text), sizeof(_db_attr) - offset}));
}

// The name of a table in the relational store.
inline std::string store_table_name(CRtDataBase &database, CRtTable &table) {
  std::string name = database_text(database, offsetof(_db_attr, DBName));
  name += '_';
  return name += block_text(*table.GetTableInfo(), offsetof(_table_attr, TableName));
}

// Whether a table's slot was filled by a line of the schema. An empty slot holds no records and has no place in a
// store.
inline bool is_filled(CRtTable &table) {
  const _table_attr &attr = *table.GetTableInfo();
  return attr.IndexInDB >= 0 || attr.TableID != kNoID;
}

// Calls work(table) for every table in slot order and combines the results by "and", without stopping at a failure. A
// table for which the system lacks memory or another resource has failed.
template <class Work>
bool for_each_table(CRtDataBase &database, Work work) {
  bool result = true;
  CRtTable table;
  int position = database.GetFirstTablePostion();
  while (database.GetNextTable(table, position)) {
    if (!is_filled(table)) continue;
    result = neutral_on_failure(false, [&] { return work(table); }) && result;
  }
  return result;
}

// Calls work(database) for every database of the directory, delivered unmapped. False when there is none.
template <class Work>
bool for_each_database(CRtdbManager &manager, Work work) {
  int position = -1;
  if (manager.GetFirstDataBasePostion(position) == 0) return false;
  CRtDataBase database;
  while (manager.GetNext(database, position) != 0) work(database);
  return true;
}

}  // namespace quillanest
