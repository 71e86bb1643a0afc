// The private members of the public classes, for the kernel's own sources.
//
// Operations that clients cannot use are free functions in the source that needs them; they reach the members through
// these references.
#pragma once

#include <map>
#include <memory>

#include "quillanest/kernel/RtDataBase.h"
#include "quillanest/kernel/RtField.h"
#include "quillanest/kernel/RtTable.h"
#include "quillanest/kernel/RtdbManager.h"

namespace quillanest {

struct Parts {
  // An object's own copy of its descriptor.
  static _rtdb_attr &attr(CRtdbManager &manager) noexcept { return manager.attr_; }
  static _db_attr &attr(CRtDataBase &database) noexcept { return database.attr_; }
  static const _db_attr &attr(const CRtDataBase &database) noexcept { return database.attr_; }
  static _table_attr &attr(CRtTable &table) noexcept { return table.attr_; }
  static const _table_attr &attr(const CRtTable &table) noexcept { return table.attr_; }
  static const _field_attr &attr(const CRtField &field) noexcept { return field.attr_; }

  static CShareMemory &segment(CRtDataBase &database) noexcept { return database.segment_; }
  static CRtDataBase &system(CRtdbManager &manager) noexcept { return manager.system_; }
  static CRtdbManager *&manager(CRtDataBase &database) noexcept { return database.manager_; }

  // The databases of the manager's catalogue, null in free slots.
  static auto &catalogue(CRtdbManager &manager) noexcept { return manager.catalogue_; }

  // The tables and fields of a catalogue under construction: null once it is laid out.
  static std::map<int, CRtTable> *tables(const CRtDataBase &database) noexcept { return database.tables_.get(); }
  static std::map<int, CRtField> *fields(const CRtTable &table) noexcept { return table.fields_.get(); }

  // Binds a table to the database whose segment it is in.
  static void bind(CRtTable &table, CRtDataBase *database) noexcept { table.database_ = database; }
  static void set_offsets(CRtTable &table, int fields, int data) {
    table.SetFieldOffset(fields);
    table.SetDataOffset(data);
  }
  static void release_fields(CRtTable &table) { (void)table.ReleaseFieldMemory(); }
};

}  // namespace quillanest
