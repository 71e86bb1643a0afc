// What the stores take from a manager and from descriptors: settings and names.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "quillanest/base/Neutral.h"
#include "quillanest/base/Report.h"
#include "quillanest/kernel/DatabaseView.h"
#include "quillanest/kernel/RtdbManager.h"
#include "quillanest/settings/Configuration.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/TextAt.h"
#include "quillanest/sql/Refusals.h"

namespace quillanest {

// The configuration file and the data path of a manager.
inline std::string configuration_file_of(CRtdbManager &manager) {
  return std::string(text_at(manager.GetSysIniFile()));
}
inline std::string data_path_of(CRtdbManager &manager) { return std::string(text_at(manager.GetDataPath())); }

// Whether the strict mode is configured for an image: not without a manager, and yes if that cannot be read.
inline bool is_strict_image(CRtdbManager *manager) {
  return manager != nullptr && neutral_on_failure(true, [&] { return is_strict(configuration_file_of(*manager)); });
}

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

// A save in the strict mode replaces what was there before by what was loaded and changed, never by less.
inline bool report_not_loaded(std::string_view place) noexcept {
  report_error("store.not_loaded", {place},
               "no load has filled the table since the start, so a save would lose what the store has");
  return false;
}

// The rows of a table that a store refuses: the first ones, and then how many there are.
inline void report_refused(Severity severity, std::string_view store_table, const Refusals &refused,
                           std::int32_t records) noexcept {
  for (const Refusals::Refusal &row : refused.first()) {
    report_as(severity, "store.row", {store_table}, "the record with the ID ", row.tag,
              " is not saved: ", row.reason.view());
  }
  if (refused.count() <= Refusals::kKept) return;
  report_as(severity, "store.rows", {store_table}, refused.count(), " of ", records, " records are not saved");
}

// The name of a table in the relational store.
inline std::string store_table_name(CRtDataBase &database, CRtTable &table) {
  std::string name = database_text(database, offsetof(_db_attr, DBName));
  name += '_';
  return name += block_text(*table.GetTableInfo(), offsetof(_table_attr, TableName));
}

}  // namespace quillanest
