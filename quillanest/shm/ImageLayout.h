// The byte layout of the image: a binary contract with every program that reads it.
//
// A program that finds fields by name needs none of it: start with kernel/RtTable.h.
//
// Two kinds of segment. The manager segment: head, attributes, the directory of databases and its presence flags.
// A database segment: the database, its table slots, the field slots of all tables, the record areas. All offsets are
// relative to the start of the segment that holds them. Integers are little-endian; nothing is padded or aligned beyond
// what the sizes give. docs/image-layout.md shows the same as tables.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "quillanest/platform/SystemTime.h"

static_assert(std::endian::native == std::endian::little, "the image is little-endian");

// Widths of the texts, in bytes; a text of full width has no terminator of its own.
inline constexpr int RTDB_NAME_SIZE = 24;
inline constexpr int RTDB_CNAME_SIZE = 40;
inline constexpr int RTDB_DEFAULT_SIZE = 32;
inline constexpr int RTDB_PATH_SIZE = 96;
inline constexpr int RTDB_USER_SIZE = 16;
inline constexpr int RTDB_HOST_SIZE = 24;

// Values of _field_attr::FieldType; docs/schema-file.md has the stored values. 7 and 8 are not types.
inline constexpr std::int32_t RTDB_TYPE_CHAR = 1;
inline constexpr std::int32_t RTDB_TYPE_UCHAR = 2;
inline constexpr std::int32_t RTDB_TYPE_SHORT = 3;
inline constexpr std::int32_t RTDB_TYPE_USHORT = 4;
inline constexpr std::int32_t RTDB_TYPE_INT = 5;
inline constexpr std::int32_t RTDB_TYPE_UINT = 6;
inline constexpr std::int32_t RTDB_TYPE_LONG = 9;
inline constexpr std::int32_t RTDB_TYPE_ULONG = 10;
inline constexpr std::int32_t RTDB_TYPE_FLOAT = 11;
inline constexpr std::int32_t RTDB_TYPE_DOUBLE = 12;
inline constexpr std::int32_t RTDB_TYPE_STRING = 13;
inline constexpr std::int32_t RTDB_TYPE_TIME = 14;
inline constexpr std::int32_t RTDB_TYPE_PASSWD = 15;

// Database slots of the manager segment.
inline constexpr int RTDB_DATABASE_MAX = 10;

// Values of _rtdb_attr::RtdbStatus.
inline constexpr std::int32_t RTDB_STATUS_BUILDING = 0;  // descriptors not yet valid
inline constexpr std::int32_t RTDB_STATUS_LAID_OUT = 1;  // descriptors valid, no data
inline constexpr std::int32_t RTDB_STATUS_LOADED = 2;    // data loaded

// Offset 0 of the manager segment.
struct _rtdb_head {
  std::int32_t DbInfoOffset;       // of the _db_attr array
  std::int32_t DbInfoIndexOffset;  // of the presence flags, one int32 per slot
  std::int32_t EndOffset;          // just past the flags
  std::int32_t Reserved[2];        // zero
};

// After the head: the attributes of the whole image.
struct _rtdb_attr {
  char SysIniFile[RTDB_PATH_SIZE];   // full path of the configuration file
  char DataPath[RTDB_PATH_SIZE];     // data folder
  char HostName[RTDB_HOST_SIZE];     // name of the machine
  std::int32_t DataBaseMaxNum;       // database slots
  std::int32_t RtdbStatus;           // RTDB_STATUS_...
  std::uint32_t SysUserID;           // ID of the logged-in user, 0 if there is none
  char SysUserName[RTDB_USER_SIZE];  // name of the logged-in user
  std::uint32_t Rights[4];           // 128 right bits
  SYSTEMTIME LoginUseTime;           // local time of the last login
};

// One database: at offset 0 of its own segment, and in the directory.
struct _db_attr {
  char DBName[RTDB_NAME_SIZE];
  char DBCName[RTDB_CNAME_SIZE];
  std::uint32_t DBID;       // also the configured key of the segment
  std::uint32_t DBType;     // carried, never interpreted
  std::int32_t DBTableNum;  // table slots
  std::int32_t DBFieldNum;  // field slots of all tables
  std::int32_t DBSize;      // size of the segment in bytes
  std::int32_t TableOffset;
  std::int32_t FieldOffset;
  std::int32_t DataOffset;
};

// One table slot.
struct _table_attr {
  char TableName[RTDB_NAME_SIZE];
  char TableCName[RTDB_CNAME_SIZE];
  std::uint32_t DataBaseID;
  std::uint32_t TableID;
  std::int32_t IndexInDB;       // slot
  std::int32_t TableSize;       // bytes of one record
  std::int32_t RecordMaxCount;  // capacity in records
  std::int32_t TableFieldNum;   // field slots
  std::int32_t FieldOffset;     // of the first _field_attr, in the segment
  std::int32_t DataOffset;      // of the record area, in the segment
  std::int32_t RecordCount;     // records in use
  std::uint32_t IDExclusive;    // next key to hand out
};

// One field slot.
struct _field_attr {
  char FieldName[RTDB_NAME_SIZE];
  char FieldCName[RTDB_CNAME_SIZE];
  std::uint32_t DataBaseID;
  std::uint32_t TableID;
  std::uint32_t FieldID;
  std::int32_t IndexInTable;   // slot
  std::int32_t FieldType;      // code
  std::int32_t FieldTypeSize;  // bytes of one element
  std::int32_t FieldSize;      // bytes in every record
  std::int32_t FieldOffset;    // in the record
  char DefaultValue[RTDB_DEFAULT_SIZE];
};

static_assert(sizeof(_rtdb_head) == 20 && sizeof(_rtdb_attr) == 276);
static_assert(sizeof(_db_attr) == 96 && sizeof(_table_attr) == 104 && sizeof(_field_attr) == 128);

static_assert(offsetof(_rtdb_head, DbInfoOffset) == 0 && offsetof(_rtdb_head, DbInfoIndexOffset) == 4);
static_assert(offsetof(_rtdb_head, EndOffset) == 8 && offsetof(_rtdb_head, Reserved) == 12);

static_assert(offsetof(_rtdb_attr, SysIniFile) == 0 && offsetof(_rtdb_attr, DataPath) == 96);
static_assert(offsetof(_rtdb_attr, HostName) == 192 && offsetof(_rtdb_attr, DataBaseMaxNum) == 216);
static_assert(offsetof(_rtdb_attr, RtdbStatus) == 220 && offsetof(_rtdb_attr, SysUserID) == 224);
static_assert(offsetof(_rtdb_attr, SysUserName) == 228 && offsetof(_rtdb_attr, Rights) == 244);
static_assert(offsetof(_rtdb_attr, LoginUseTime) == 260);

static_assert(offsetof(_db_attr, DBName) == 0 && offsetof(_db_attr, DBCName) == 24);
static_assert(offsetof(_db_attr, DBID) == 64 && offsetof(_db_attr, DBType) == 68);
static_assert(offsetof(_db_attr, DBTableNum) == 72 && offsetof(_db_attr, DBFieldNum) == 76);
static_assert(offsetof(_db_attr, DBSize) == 80 && offsetof(_db_attr, TableOffset) == 84);
static_assert(offsetof(_db_attr, FieldOffset) == 88 && offsetof(_db_attr, DataOffset) == 92);

static_assert(offsetof(_table_attr, TableName) == 0 && offsetof(_table_attr, TableCName) == 24);
static_assert(offsetof(_table_attr, DataBaseID) == 64 && offsetof(_table_attr, TableID) == 68);
static_assert(offsetof(_table_attr, IndexInDB) == 72 && offsetof(_table_attr, TableSize) == 76);
static_assert(offsetof(_table_attr, RecordMaxCount) == 80 && offsetof(_table_attr, TableFieldNum) == 84);
static_assert(offsetof(_table_attr, FieldOffset) == 88 && offsetof(_table_attr, DataOffset) == 92);
static_assert(offsetof(_table_attr, RecordCount) == 96 && offsetof(_table_attr, IDExclusive) == 100);

static_assert(offsetof(_field_attr, FieldName) == 0 && offsetof(_field_attr, FieldCName) == 24);
static_assert(offsetof(_field_attr, DataBaseID) == 64 && offsetof(_field_attr, TableID) == 68);
static_assert(offsetof(_field_attr, FieldID) == 72 && offsetof(_field_attr, IndexInTable) == 76);
static_assert(offsetof(_field_attr, FieldType) == 80 && offsetof(_field_attr, FieldTypeSize) == 84);
static_assert(offsetof(_field_attr, FieldSize) == 88 && offsetof(_field_attr, FieldOffset) == 92);
static_assert(offsetof(_field_attr, DefaultValue) == 96);

namespace quillanest {

template <class T>
inline constexpr bool kIsImageStruct = std::is_trivially_copyable_v<T> &&std::is_standard_layout_v<T>;
static_assert(kIsImageStruct<_rtdb_head> && kIsImageStruct<_rtdb_attr> && kIsImageStruct<_db_attr>);
static_assert(kIsImageStruct<_table_attr> && kIsImageStruct<_field_attr>);

// The ID of the system database.
inline constexpr std::uint32_t kSystemDatabaseID = 1;

// An ID or a type that was not set.
inline constexpr std::uint32_t kNoID = 0xFFFFFFFF;

// Where the directory starts, and the size of a manager segment with `slots` database slots.
inline constexpr std::int32_t kDirectoryOffset = sizeof(_rtdb_head) + sizeof(_rtdb_attr);
inline constexpr std::int32_t kBytesPerDatabaseSlot = sizeof(_db_attr) + sizeof(std::int32_t);

constexpr std::int32_t manager_segment_size(std::int32_t slots) {
  return slots * kBytesPerDatabaseSlot + kDirectoryOffset;
}
static_assert(manager_segment_size(RTDB_DATABASE_MAX) == 1296);

}  // namespace quillanest
