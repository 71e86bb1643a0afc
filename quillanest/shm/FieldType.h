// The type table: what a field type code means.
//
// The codes are part of the image, which is why the table lies beside its layout. Code that depends on the type of a
// field switches over its kind without a default, so that the compiler finds every place that does not handle a new
// kind. A new width of an existing kind is one row here.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "quillanest/shm/ImageLayout.h"

namespace quillanest {

enum FieldType : std::int32_t {
  kChar = RTDB_TYPE_CHAR,
  kUchar = RTDB_TYPE_UCHAR,
  kShort = RTDB_TYPE_SHORT,
  kUshort = RTDB_TYPE_USHORT,
  kInt = RTDB_TYPE_INT,
  kUint = RTDB_TYPE_UINT,
  kLong = RTDB_TYPE_LONG,
  kUlong = RTDB_TYPE_ULONG,
  kFloat = RTDB_TYPE_FLOAT,
  kDouble = RTDB_TYPE_DOUBLE,
  kString = RTDB_TYPE_STRING,
  kTime = RTDB_TYPE_TIME,
  kPasswd = RTDB_TYPE_PASSWD,
};

enum class Kind : std::uint8_t {
  kNone,       // codes that are not a type
  kCharacter,  // one byte, shown as a character
  kInteger,
  kReal,
  kText,      // in a buffer of the field's size
  kPassword,  // the same, enciphered wherever it leaves the image
  kTime,
};

struct FieldTypeInfo {
  std::int32_t code;
  std::string_view keyword;    // the schema's name of the type; empty for codes that no keyword gives
  char c_name[16];             // the name in generated headers, padded with blanks to 10 characters
  std::int32_t element_width;  // bytes of one element; a TIME counts its 16-bit members
  Kind kind;
  std::uint8_t bytes;  // of a number or time; 0 for what has no width of its own
  bool is_signed;      // of an integer
};

// By code. By design [TypeNameTable]: in headers codes 9 to 13 have the names of other types.
inline constexpr std::array<FieldTypeInfo, 16> kFieldTypes{{
    {0, "", " ", 0, Kind::kNone, 0, false},
    {kChar, "CHAR", "CHAR      ", 1, Kind::kCharacter, 1, true},
    {kUchar, "UCHAR", "UCHAR     ", 1, Kind::kCharacter, 1, false},
    {kShort, "SHORT", "SHORT     ", 2, Kind::kInteger, 2, true},
    {kUshort, "USHORT", "USHORT    ", 2, Kind::kInteger, 2, false},
    {kInt, "INT", "INT       ", 4, Kind::kInteger, 4, true},
    {kUint, "UINT", "UINT      ", 4, Kind::kInteger, 4, false},
    {7, "", "UINT      ", 0, Kind::kNone, 0, false},
    {8, "", "UINT      ", 0, Kind::kNone, 0, false},
    {kLong, "LONG", "FLOAT     ", 4, Kind::kInteger, 4, true},
    {kUlong, "ULONG", "DOUBLE    ", 4, Kind::kInteger, 4, false},
    {kFloat, "FLOAT", "CHAR      ", 4, Kind::kReal, 4, true},
    {kDouble, "DOUBLE", "SYSTEMTIME", 8, Kind::kReal, 8, true},
    {kString, "STRING", "PASSWD    ", 1, Kind::kText, 0, false},
    {kTime, "TIME", "SYSTEMTIME", 2, Kind::kTime, sizeof(SYSTEMTIME), false},
    {kPasswd, "PASSWD", "PASSWD    ", 1, Kind::kPassword, 0, false},
}};

// The entry of a code; that of code 0 for any other number.
[[nodiscard]] constexpr const FieldTypeInfo &field_type(std::int32_t code) {
  const auto index = static_cast<std::uint32_t>(code);
  return kFieldTypes[index < kFieldTypes.size() ? index : 0];
}

[[nodiscard]] constexpr Kind kind_of(std::int32_t code) { return field_type(code).kind; }

// The entry of a schema keyword, compared without regard to case; null if there is no such keyword.
[[nodiscard]] const FieldTypeInfo *field_type_of_keyword(std::string_view keyword);

// True for a type whose value is a text in a buffer of the field's size.
[[nodiscard]] constexpr bool is_text_type(std::int32_t code) { return code == kString || code == kPasswd; }

}  // namespace quillanest
