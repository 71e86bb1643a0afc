// CRtDataBase: one database, a group of tables in one segment of the image.
//
//   CRtTable pumps;
//   if (plant.GetDBTableFromName(pumps, "Pump") == 0) return;  // `plant` is mapped
//   for (int position = plant.GetFirstTablePostion(); plant.GetNextTable(pumps, position);) show(pumps);
//   plant.SaveData(0);                                         // every table of this database
//
// An object lives in one of two phases. In the catalogue phase (not mapped) it holds descriptors of its own, from which
// the manager lays the segment out. Mapped, it reads and writes the segment; lookups of the manager deliver such
// objects bound but not mapped, and AttachShareMemory maps them.
//
// Lifetime: tables handed out refer to this object, which must outlive them. The manager must outlive the object.
// Threads: an object is used by one thread at a time; threads that share a database use an object each.
#pragma once

#include <cstddef>
#include <map>
#include <memory>

#include "quillanest/System.h"
#include "quillanest/kernel/RtTable.h"
#include "quillanest/shm/ImageLayout.h"
#include "quillanest/shm/ShareMemory.h"

class CRtdbManager;

namespace quillanest {
struct DatabaseView;
struct Parts;
}  // namespace quillanest

class QUILLANEST_API CRtDataBase {
 public:
  // Not mapped, no manager; texts empty, DBID and DBType 0xFFFFFFFF, every other number 0.
  CRtDataBase();
  ~CRtDataBase();

  // Takes over descriptor, mapped flag, manager and the segment's key and size, never the mapping and never the tables
  // of a catalogue. A copy of a mapped object behaves as not mapped until it is attached.
  CRtDataBase(const CRtDataBase &other);
  CRtDataBase &operator=(const CRtDataBase &other);
  // Binds the object to a descriptor: takes it over and sets the segment's key to DBID and its size to DBSize. Mapped
  // flag, manager and a mapping stay as they are.
  CRtDataBase &operator=(const _db_attr &other);

  // --- Mapping ------------------------------------------------------------------------------------------------------
  // Maps the existing segment under the object's key; 1, also if the object has it mapped already. 0 if there is no
  // such segment or it is too small for a database.
  int AttachShareMemory();
  // Unmaps the segment; always 1.
  int DetachShareMemory();
  // The mapped flag.
  int IsInShareMemory() const;
  // The first byte of the segment, null if not mapped.
  char *GetStartAddress() const;
  CRtdbManager *GetRtdbManager() const;
  // The table and field descriptors in the segment; null if not mapped.
  _table_attr *GetTableAddress() const;
  _field_attr *GetFieldAddress() const;

  // --- Descriptor ---------------------------------------------------------------------------------------------------
  // Getters read the segment's descriptor if mapped and this object's own otherwise. Setters write both and refresh the
  // manager's directory. Names of more than 24, caption names of more than 40 characters are ignored; one of full width
  // puts its terminator into the byte after it (for a caption name, the low byte of the ID).
  char *GetDBName();
  void SetDBName(const char *name);
  char *GetDBCName();
  void SetDBCName(const char *name);
  unsigned int GetDBID() const;
  // On a mapped database the directory then carries the new ID, and lookups no longer reach the segment, whose name was
  // made from the old one.
  void SetDBID(unsigned int id);
  unsigned int GetDBType() const;
  void SetDBType(unsigned int type);
  int GetDBTableNum() const;
  void SetDBTableNum(int count);
  int GetDBFieldNum() const;
  void SetDBFieldNum(int count);
  int GetDBSize() const;  // bytes of the segment
  void SetDBSize(int size);

  // --- Tables -------------------------------------------------------------------------------------------------------
  // Each fills `table` with the first match in slot order, binds it to this object and returns 1; 0 with `table`
  // untouched if there is none. Names compare without regard to ASCII case.
  int GetDBTableFromName(CRtTable &table, const char *name);
  int GetDBTableFromCName(CRtTable &table, const char *name);
  int GetDBTableFromID(CRtTable &table, unsigned int id);
  int GetDBTableFromIndex(CRtTable &table, int slot);

  int IfHasTable() const;
  // Tables in slot order: start at GetFirstTablePostion (-1: no table), then GetNextTable until it is false. It fills
  // `table` from slot `position` and moves on; false, with `position` -1, after the last table.
  int GetFirstTablePostion() const;
  bool GetNextTable(CRtTable &table, int &position);

  // --- Catalogue ----------------------------------------------------------------------------------------------------
  // Gives the object DBTableNum fresh table slots; 0 if they could never be laid out (a negative number, or more than a
  // segment of 2 GB holds).
  int CreateTableMemory();
  // Forgets the table slots; always 1.
  int ReleaseTableMemory();

  // --- Records by table ID ------------------------------------------------------------------------------------------
  // As the CRtTable operation of the same purpose on the table with that ID; 0 or null if there is none.
  int GetTableFieldData(unsigned int tableID, int fieldIndex, unsigned int recordID, char *buffer);
  int SetTableFieldData(unsigned int tableID, int fieldIndex, unsigned int recordID, const char *value);
  char *GetTableRecordAt(unsigned int tableID, int position);
  char *GetTableRecord(unsigned int tableID, unsigned int recordID);
  // Updates the record whose key the buffer carries: 1, or 0 if it is absent.
  int SetTableRecord(unsigned int tableID, const char *record, int projectID);
  // The record area of a table; null if not mapped or without that table.
  char *GetTableDataAddress(unsigned int tableID) const;
  char *GetTableDataAddress(const char *tableName) const;
  char *GetTableDataAddressAt(int slot) const;
  int GetTableRecordCount(unsigned int tableID) const;

  // --- Whole database -----------------------------------------------------------------------------------------------
  // DeleteAllRecord on every table; always true.
  bool DeleteAllRecord();
  // Whether a table has modified records.
  bool IsModified();
  // Saves every table to the store that the configuration selects. False if not mapped, without a manager, or if a
  // table could not be saved.
  bool SaveData(int projectID);
  // CommitProject on every table; always true, but with Strict=1 only if all were saved.
  bool CommitProject();
  // Writes the C header `directory`/NAME.h of this database, which must be mapped for its tables to appear in it;
  // docs/c-headers.md shows it. 1, also if the disk fills up on the way, which leaves a former file as it was; 0, with
  // a message "Fail to create file PATH" (see base/MessageBox.h), if the file cannot be created, and without one for a
  // null or empty directory. No thread may change names, captions and counts during the call; records do not matter.
  int BuildIncludeFile(const char *directory);

 private:
  friend class CRtdbManager;
  friend struct quillanest::DatabaseView;
  friend struct quillanest::Parts;

  int InitAddTable(int slot, const CRtTable &table);
  int InitAddField(const CRtField &field);
  int CreateMem();

  _db_attr attr_;
  int mapped_ = 0;
  CRtdbManager *manager_ = nullptr;
  CShareMemory segment_;
  // Table slots while the catalogue is built; a slot that was not filled has no entry and counts as a fresh CRtTable.
  std::unique_ptr<std::map<int, CRtTable>> tables_;
};
