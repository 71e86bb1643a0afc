// CRtField: the descriptor of one field (one column) of a table.
//
//   CRtField field;
//   for (int at = pumps.GetFirstFieldPostion(); pumps.GetNextField(field, at);) {
//     if (field.GetFieldType() != RTDB_TYPE_DOUBLE) continue;
//     double value = 0;
//     std::memcpy(&value, record + field.GetFieldOffset(), sizeof value);  // `record` from CRtTable::FindIDExclusive
//   }
//
// It is exactly the 128 bytes of the image's _field_attr, so it serves while the catalogue is built and as the copy
// that a table's field directory hands out. It owns nothing. Threads: an object is used by one thread at a time;
// GetDisplayText keeps no state and may run on any thread.
#pragma once

#include "quillanest/System.h"
#include "quillanest/shm/ImageLayout.h"

namespace quillanest {
struct Parts;
}

class QUILLANEST_API CRtField {
 public:
  // Texts empty; DataBaseID, TableID and FieldID 0xFFFFFFFF; every other member 0.
  CRtField();
  ~CRtField() = default;

  // Takes over the three texts, each up to and including its terminator, and the eight numbers.
  CRtField(const CRtField &other);
  CRtField &operator=(const CRtField &other);
  CRtField &operator=(const _field_attr &other);

  void SetDataBaseID(unsigned int id);
  unsigned int GetDataBaseID() const;
  void SetTableID(unsigned int id);
  unsigned int GetTableID() const;
  void SetFieldID(unsigned int id);
  unsigned int GetFieldID() const;

  // Slot of the field in its table, 0-based.
  void SetIndexInTable(int index);
  int GetIndexInTable() const;

  // Type code; docs/schema-file.md has the table of types.
  void SetFieldType(int type);
  int GetFieldType() const;

  // Bytes of one element of the type.
  void SetFieldTypeSize(int size);
  int GetFieldTypeSize() const;

  // Bytes the field occupies in every record.
  void SetFieldSize(int size);
  int GetFieldSize() const;

  // Offset of the field inside a record, in bytes.
  void SetFieldOffset(int offset);
  int GetFieldOffset() const;

  // Texts of at most 24, 40 and 32 characters; a longer one is ignored and the former text stays. A text of full width
  // has its terminator in the first byte of the next member (a default value of 32 characters has none). The getters
  // return the address of the member inside this object.
  void SetFieldName(const char *name);
  char *GetFieldName();
  void SetFieldCName(const char *name);
  char *GetFieldCName();
  void SetDefaultValue(const char *text);
  char *GetDefaultValue();

  // The name under which generated C headers declare a member of this type code, padded with blanks to 10 characters.
  // Codes 9 to 13 have the names of other types; 14 gives "SYSTEMTIME", 15 "PASSWD", and a code that has no name the
  // blank entry of code 0. A static text.
  const char *GetTypeStr() const;

  // Writes the text form of the value at `pValue`, read as a value of type code `nType`, and a terminator to `pszText`.
  // Unknown codes give an empty text. The caller guarantees that `pszText` has enough bytes: at most 330 for a number,
  // the length of a text, and 4/3 of the length and 40 bytes for a PASSWD, which is enciphered.
  // A TIME with a day outside 1 to 31 or a month outside 1 to 12 is overwritten in place with the current local time,
  // which is then shown.
  static void GetDisplayText(int nType, char *pValue, char *pszText);

 private:
  friend class CRtTable;
  friend struct quillanest::Parts;

  _field_attr attr_;
};

static_assert(sizeof(CRtField) == sizeof(_field_attr));
