// What the stores take from a manager and from descriptors: settings and names.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "quillanest/base/Report.h"
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

// A text of the database's descriptor: the segment's if the database is mapped, else the object's own.
inline std::string database_text(CRtDataBase &database, std::size_t offset) {
  const auto *mapped = attr_at<_db_attr>(DatabaseView::segment(database), 0);
  if (mapped != nullptr) return std::string(block_text(*mapped, offset));
  char *text = offset == offsetof(_db_attr, DBName) ? database.GetDBName() : database.GetDBCName();
  return std::string(text_in({as_bytes(text), sizeof(_db_attr) - offset}));
}

// "database.table", the place of events.
inline std::string place_of(CRtDataBase &database, CRtTable &table) {
  std::string name = database_text(database, offsetof(_db_attr, DBName));
  name += '.';
  return name += block_text(*table.GetTableInfo(), offsetof(_table_attr, TableName));
}

// What a store cannot begin with; false.
inline bool report_not_attached(std::string_view place) noexcept {
  report_error("store.detached", {place}, "the table has no descriptors in a mapped image");
  return false;
}
inline bool report_cut_password(std::string_view place) noexcept {
  report_error("store.password", {place},
               "a password was cut when it was loaded without its key, and saving the rest would lose it");
  return false;
}

// The name of a table in the relational store.
inline std::string store_table_name(CRtDataBase &database, CRtTable &table) {
  std::string name = database_text(database, offsetof(_db_attr, DBName));
  name += '_';
  return name += block_text(*table.GetTableInfo(), offsetof(_table_attr, TableName));
}

}  // namespace quillanest
