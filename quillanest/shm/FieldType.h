// The type table: what a field type code means. Every other room asks it.
//
// The codes are part of the image, which is why the table lies beside its layout.
#pragma once

#include <cstdint>
#include <string_view>

namespace quillanest {

enum FieldType : std::int32_t {
  kChar = 1,
  kUchar = 2,
  kShort = 3,
  kUshort = 4,
  kInt = 5,
  kUint = 6,
  kLong = 9,
  kUlong = 10,
  kFloat = 11,
  kDouble = 12,
  kString = 13,
  kTime = 14,
  kPasswd = 15,
};

struct FieldTypeInfo {
  std::int32_t code;
  std::string_view keyword;    // the schema's name of the type
  std::int32_t element_width;  // bytes of one element; a TIME counts its 16-bit members
};

// The entry of a schema keyword, compared without regard to case; null when there is none.
[[nodiscard]] const FieldTypeInfo *field_type_of_keyword(std::string_view keyword);

// True for a type whose value is a text in a buffer of the field's size.
constexpr bool is_text_type(std::int32_t code) { return code == kString || code == kPasswd; }

}  // namespace quillanest
