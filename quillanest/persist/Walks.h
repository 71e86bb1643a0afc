// Walks over the databases of a manager and the tables of a database.
#pragma once

#include "quillanest/base/Neutral.h"
#include "quillanest/kernel/RtdbManager.h"

namespace quillanest {

// Whether a line of the schema filled the table's slot. An empty slot holds no records and is not stored.
inline bool is_filled(CRtTable &table) {
  const _table_attr &attr = *table.GetTableInfo();
  return attr.IndexInDB >= 0 || attr.TableID != kNoID;
}

// Calls work(table) for every filled table in slot order and combines the results by "and"; a failure does not end the
// walk. A table for which the system lacks memory or another resource has failed.
template <class Work>
bool for_each_filled_table(CRtDataBase &database, Work work) {
  bool result = true;
  CRtTable table;
  int position = database.GetFirstTablePostion();
  while (database.GetNextTable(table, position)) {
    if (!is_filled(table)) continue;
    result = neutral_on_failure(false, [&] { return work(table); }) && result;
  }
  return result;
}

// Calls work(database) for every database of the directory; each is unmapped when work begins. False if the directory
// is empty.
template <class Work>
bool for_each_database(CRtdbManager &manager, Work work) {
  int position = -1;
  if (manager.GetFirstDataBasePostion(position) == 0) return false;
  CRtDataBase database;
  while (manager.GetNext(database, position) != 0) work(database);
  return true;
}

}  // namespace quillanest
