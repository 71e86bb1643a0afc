#include "quillanest/shm/FieldType.h"

#include <array>

#include "quillanest/platform/AsciiCase.h"

namespace quillanest {
namespace {

constexpr std::array<FieldTypeInfo, 13> kFieldTypes{{
    {kChar, "CHAR", 1},
    {kUchar, "UCHAR", 1},
    {kShort, "SHORT", 2},
    {kUshort, "USHORT", 2},
    {kInt, "INT", 4},
    {kUint, "UINT", 4},
    {kLong, "LONG", 4},
    {kUlong, "ULONG", 4},
    {kFloat, "FLOAT", 4},
    {kDouble, "DOUBLE", 8},
    {kString, "STRING", 1},
    {kTime, "TIME", 2},
    {kPasswd, "PASSWD", 1},
}};

}  // namespace

const FieldTypeInfo *field_type_of_keyword(std::string_view keyword) {
  for (const FieldTypeInfo &type : kFieldTypes) {
    if (equal_ignoring_case(type.keyword, keyword)) return &type;
  }
  return nullptr;
}

}  // namespace quillanest
