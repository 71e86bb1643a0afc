#include "quillanest/shm/FieldType.h"

#include "quillanest/base/Text.h"

namespace quillanest {

namespace {

constexpr bool is_ordered_by_code() {
  for (std::size_t i = 0; i < kFieldTypes.size(); ++i) {
    if (kFieldTypes[i].code != static_cast<std::int32_t>(i)) return false;
  }
  return true;
}
static_assert(is_ordered_by_code());

}  // namespace

const FieldTypeInfo *field_type_of_keyword(std::string_view keyword) {
  for (const FieldTypeInfo &type : kFieldTypes) {
    if (!type.keyword.empty() && equal_ignoring_case(type.keyword, keyword)) return &type;
  }
  return nullptr;
}

}  // namespace quillanest
