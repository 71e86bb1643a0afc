// CRtTable: the handle of one table: its descriptor, its fields and its records.
//
//   std::vector<char> record(static_cast<std::size_t>(pumps.GetTableSize()));
//   pumps.InitRecordDefault(record.data());                     // the default values of the schema
//   const int position = pumps.Insert(record.data(), 0);        // key 0: the table issues the next key
//   char *found = pumps.FindIDExclusive(7);                     // the record with key 7 in the image, or null
//   for (int at = pumps.GetFirstPosition(); at != -1;) use(pumps.GetNextPosition(at));  // all records in key order
//   pumps.Delete(7, -1, 0);
//
// While the catalogue is built a CRtTable is the table itself. Once its database is mapped it is a cheap handle, made
// on the stack: a copy of the descriptor and a pointer to the database object. Such a table is called attached.
// Every operation of an attached table reads and writes the image directly.
//
// Lifetime: a table must not outlive its database object, and works on records only while that object is mapped.
// Addresses that it returns point into the image, stay valid while the database stays mapped, and mean another record
// after an insert or delete before them.
//
// Threads: an object is used by one thread at a time; any number of objects may work on one table. Insert, Update and
// Delete take the database's named mutex. Everything else takes no lock: a program with several editing threads holds
// that mutex, a CMutexEx with the database's name, around its edits and around reads that must not see a half-done
// shift. docs/concurrency.md has the details.
//
// Positions are 0-based places in the record area, which is ordered by the record's key: the unsigned 32-bit number in
// its first 4 bytes. Key 0 names no record.
#pragma once

#include <map>
#include <memory>

#include "quillanest/System.h"
#include "quillanest/kernel/RtField.h"
#include "quillanest/shm/ImageLayout.h"

class CRtDataBase;

namespace quillanest {
struct Parts;
struct TableView;
}  // namespace quillanest

// Values of the field "iEditStatus"; 0 means never set.
inline constexpr int EDIT_STATUS_COMMITTED = 1;
inline constexpr int EDIT_STATUS_INSERTED = 2;
inline constexpr int EDIT_STATUS_UPDATED = 3;
inline constexpr int EDIT_STATUS_DELETED = 4;

class QUILLANEST_API CRtTable {
 public:
  // Not attached. Names empty, IDs 0xFFFFFFFF, IndexInDB -1, IDExclusive 1, everything else 0.
  CRtTable();
  ~CRtTable();

  // Takes over descriptor and database, never the private field array of a catalogue under construction.
  CRtTable(const CRtTable &other);
  CRtTable &operator=(const CRtTable &other);
  // Takes over the descriptor; database and field array stay.
  CRtTable &operator=(const _table_attr &other);

  // --- Descriptor ---------------------------------------------------------------------------------------------------
  // Getters read and setters write the descriptor in force: the image's if attached, else this object's own. Names of
  // more than 24, caption names of more than 40 characters are ignored. The getters of texts return an address inside
  // the descriptor.
  char *GetTableName();
  void SetTableName(const char *name);
  char *GetTableCName();
  void SetTableCName(const char *name);
  unsigned int GetDataBaseID() const;
  void SetDataBaseID(unsigned int id);
  unsigned int GetTableID() const;
  void SetTableID(unsigned int id);
  int GetIndexInDB() const;
  void SetIndexInDB(int index);
  int GetTableSize() const;  // bytes of one record
  void SetTableSize(int size);
  int GetRecordCount() const;
  void SetRecordCount(int count);
  int GetRecordMaxCount() const;  // capacity in records
  void SetRecordMaxCount(int count);
  int GetTableFieldNum() const;
  void SetTableFieldNum(int count);
  // The next key to hand out, which it counts up. Hold the database's mutex if others edit.
  unsigned int GetIDExclusive();
  void SetIDExclusive(unsigned int id);

  // The descriptor in force; never null.
  _table_attr *GetTableInfo();
  // The table's field descriptors in the image, TableFieldNum of them; null if not attached.
  _field_attr *GetFieldAddress() const;
  // The record area in the image; null if not attached.
  char *GetDataAddress() const;

  // --- Fields -------------------------------------------------------------------------------------------------------
  // Names compare without regard to ASCII case; the first match in slot order counts. The forms that fill a CRtField
  // return 1, or 0 with it untouched. The forms that return an address work on attached tables and give null otherwise.
  int GetFieldFromName(CRtField &field, const char *name) const;
  int GetFieldFromCName(CRtField &field, const char *name) const;
  int GetFieldFromID(CRtField &field, unsigned int id) const;
  int GetFieldFromIndex(CRtField &field, int index) const;
  _field_attr *GetFieldFromName(const char *name) const;
  _field_attr *GetFieldFromCName(const char *name) const;
  _field_attr *GetFieldFromID(unsigned int id) const;
  _field_attr *GetFieldFromIndex(int index) const;

  // The slot of the field with that name (caption name if `bCName`), or -1.
  int FindFieldFromName(const char *name, bool bCName) const;

  // Overwrites the descriptor in the slot that the argument's IndexInTable gives, offsets and sizes included: in the
  // image if attached, for every object on it. The new values are not checked; a wrong one garbles the table's records.
  // False if the slot does not exist.
  bool SetField(CRtField field);

  bool IfHasField() const;
  // Fields in slot order: start at GetFirstFieldPostion (-1: no field), then GetNextField until it is false. It copies
  // the field at `position` and moves on; false, with `position` -1, after the last field.
  int GetFirstFieldPostion() const;
  bool GetNextField(CRtField &field, int &position) const;

  // --- Finding records ----------------------------------------------------------------------------------------------
  // All of these give their neutral value (-1, 0, null) on a table that is not attached.

  // The position of the record with that key, or -1.
  int FindRecordIndex(unsigned int key) const;
  // 1 with the record's position, or 0 with the position at which the key would be inserted (-1 if not attached).
  int FindIDExclusive(unsigned int key, int &position) const;
  // The record, or null; always null for key 0.
  char *FindIDExclusive(unsigned int key) const;
  // 1 with the record's TableSize bytes copied to `buffer`, or 0. Key 0 is searched like any other.
  int FindIDExclusive(unsigned int key, char *buffer) const;
  // The record at a position, or null outside 0 to RecordCount - 1.
  char *GetAt(int position) const;
  // The record with that key, looked for at `hint` first. Null if there is none, if the hint is not below RecordCount
  // (such a hint is an error), or if the hint is negative and the key 0.
  char *GetRecordAddr(unsigned int key, int hint) const;
  // The first record, in key order, whose field `fieldIndex`, read as text, equals `text` without regard to case; or
  // null. A linear scan.
  char *FindRecordbyStringField(int fieldIndex, const char *text) const;

  // Records in key order: start at GetFirstPosition (-1: no record), then GetNextPosition until the position is -1.
  // It returns the record at `position` and moves on; the last record comes together with position -1.
  int GetFirstPosition() const;
  char *GetNextPosition(int &position) const;
  bool IsEmpty() const;

  // --- Editing records ----------------------------------------------------------------------------------------------
  // A record buffer holds TableSize bytes. Project 0 edits outside any project; another number stamps the record with
  // that project and an edit status, and a delete then only marks the record. Every edit sets "bModified" to 1.

  // Inserts the record in its key's place and returns its position; -2 if the key is there already; -1 if the buffer is
  // null, the table not attached or full, no key is left to issue, or the mutex cannot be opened. A record with key 0
  // gets the next key, which is written into the buffer, and goes to the end.
  int Insert(char *record, int projectID);
  // The same with a record of zeros and that key; with `fillDefaults` not 0 the fields' default values follow, which
  // replace the key too if the key field has one.
  int Insert(unsigned int key, int projectID, int fillDefaults);
  // Overwrites the record whose key the buffer carries, looked for at `hint` first, and returns its position; -1 if the
  // buffer is null, the table not attached, the key absent, or the mutex cannot be opened.
  int Update(const char *record, int hint, int projectID);
  // Removes the record with that key, looked for at `hint` first; key 0 takes the record at `hint`. With a project the
  // record stays, marked EDIT_STATUS_DELETED. 1, or 0 if there is no such record or no mutex.
  int Delete(unsigned int key, int hint, int projectID);
  // Stamps the record at a position as an edit would: action 2 insert, 3 update, 4 delete. 1, or 0 without a record.
  int SetRecordVersionInfo(int position, int projectID, int action);

  // --- Single values ------------------------------------------------------------------------------------------------
  // None of these takes the mutex or stamps the record. STRING and PASSWD values are copied up to their terminator,
  // others as FieldSize bytes. 1, or 0 if the buffer is null, the record absent or there is no such field.
  int GetFieldData(unsigned int key, int fieldIndex, char *buffer) const;
  // Refuses only an index above TableFieldNum; TableFieldNum itself, and negative indexes here and in GetFieldData,
  // mean the field descriptors of the database's other tables that lie there in the image. If there is none, nothing is
  // written and SetFieldData returns 1; GetFieldData returns 0.
  int SetFieldData(unsigned int key, int fieldIndex, const char *value);
  int GetFieldDataAt(int position, int fieldIndex, char *buffer) const;
  int SetFieldDataAt(int position, int fieldIndex, const char *value);
  // Writes FieldSize bytes of `value` into the field of the records from `first` up to but not including `end`; a
  // negative `end` means RecordCount - 1, and slots after the table's record area are left alone. 1, also for an empty
  // range; 0 if the table is not attached, the value null, or `first` of a range not the position of a record.
  int SetColumnValueAt(int fieldIndex, const char *value, int first, int end);
  // Converts the text to the field's type and stores it. A text as long as the field or longer is first shortened in
  // the caller's buffer to the field's size less one. 1, or 0 for a null text, no record, no field or no type.
  int SetFieldByText(int position, int fieldIndex, char *text);

  // --- Whole table --------------------------------------------------------------------------------------------------
  // Forgets all records and starts keys at 1 again; takes no lock. 0 if not attached.
  int DeleteAllRecord();
  // Whether a record holds exactly 1 in field "bModified"; false for a table without that field.
  bool IsModified() const;
  // Fills the fields that have a default value in a buffer of TableSize bytes; nothing if not attached.
  void InitRecordDefault(char *record) const;
  // Saves this table to the store that the configuration selects. False if not attached or not saved.
  bool SaveData(int projectID);
  // Turns the records of all projects into base data and saves the table. Always true, but with Strict=1 only if it was
  // saved; nothing happens to a table without "iProjectID" and "iEditStatus".
  bool CommitProject();

  // Write-through of one record; `record` holds TableSize bytes. Nothing is written, deliberately, because the
  // connection is never opened: InsertRecordToDb and UpdateRecordToDb return false, RemoveRecordInDb returns true if
  // the database has a manager, and with Strict=1 false.
  bool InsertRecordToDb(char *record);
  bool UpdateRecordToDb(char *record);
  bool RemoveRecordInDb(int key, int projectID);

 private:
  friend class CRtDataBase;
  friend struct quillanest::Parts;
  friend struct quillanest::TableView;

  void SetDataBase(CRtDataBase *database);
  bool IsInShareMemory() const;
  void SetFieldOffset(int offset);
  void SetDataOffset(int offset);
  int CreateFieldMemory();
  int ReleaseFieldMemory();
  int InitAddField(const CRtField &field);

  _table_attr attr_;
  // Field slots while the catalogue is built; a slot that was not filled has no entry and counts as a fresh CRtField.
  std::unique_ptr<std::map<int, CRtField>> fields_;
  CRtDataBase *database_ = nullptr;
};
