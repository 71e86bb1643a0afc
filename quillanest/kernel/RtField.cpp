#include "quillanest/kernel/RtField.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

#include "quillanest/base/Neutral.h"
#include "quillanest/kernel/ValueText.h"
#include "quillanest/platform/NamedRegion.h"
#include "quillanest/settings/PasswordCipher.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/FieldType.h"
#include "quillanest/shm/TextAt.h"

namespace {

void copy_attr(_field_attr &to, const _field_attr &from) {
  if (&to == &from) return;
  quillanest::copy_block_text(to, from, offsetof(_field_attr, FieldName));
  quillanest::copy_block_text(to, from, offsetof(_field_attr, FieldCName));
  quillanest::copy_block_text(to, from, offsetof(_field_attr, DefaultValue));
  to.DataBaseID = from.DataBaseID;
  to.TableID = from.TableID;
  to.FieldID = from.FieldID;
  to.IndexInTable = from.IndexInTable;
  to.FieldType = from.FieldType;
  to.FieldTypeSize = from.FieldTypeSize;
  to.FieldSize = from.FieldSize;
  to.FieldOffset = from.FieldOffset;
}

void copy_with_terminator(char *to, std::string_view text) {
  quillanest::copy_text({quillanest::as_bytes(to), quillanest::room_at(to, text.size() + 1)}, text);
}

// The bytes that may be read for a number or time: those up to the end of a segment, else as many as the caller
// guarantees.
std::span<std::byte> value_bytes(char *address) {
  const std::span<std::byte> bytes = quillanest::NamedRegion::bytes_from(address);
  return bytes.empty() ? std::span(quillanest::as_bytes(address), sizeof(SYSTEMTIME)) : bytes;
}

}  // namespace

CRtField::CRtField() : attr_{} {
  attr_.DataBaseID = quillanest::kNoID;
  attr_.TableID = quillanest::kNoID;
  attr_.FieldID = quillanest::kNoID;
}

CRtField::CRtField(const CRtField &other) : attr_{} { copy_attr(attr_, other.attr_); }

CRtField &CRtField::operator=(const CRtField &other) {
  copy_attr(attr_, other.attr_);
  return *this;
}

CRtField &CRtField::operator=(const _field_attr &other) {
  copy_attr(attr_, other);
  return *this;
}

void CRtField::SetDataBaseID(unsigned int id) { attr_.DataBaseID = id; }
unsigned int CRtField::GetDataBaseID() const { return attr_.DataBaseID; }
void CRtField::SetTableID(unsigned int id) { attr_.TableID = id; }
unsigned int CRtField::GetTableID() const { return attr_.TableID; }
void CRtField::SetFieldID(unsigned int id) { attr_.FieldID = id; }
unsigned int CRtField::GetFieldID() const { return attr_.FieldID; }
void CRtField::SetIndexInTable(int index) { attr_.IndexInTable = index; }
int CRtField::GetIndexInTable() const { return attr_.IndexInTable; }
void CRtField::SetFieldType(int type) { attr_.FieldType = type; }
int CRtField::GetFieldType() const { return attr_.FieldType; }
void CRtField::SetFieldTypeSize(int size) { attr_.FieldTypeSize = size; }
int CRtField::GetFieldTypeSize() const { return attr_.FieldTypeSize; }
void CRtField::SetFieldSize(int size) { attr_.FieldSize = size; }
int CRtField::GetFieldSize() const { return attr_.FieldSize; }
void CRtField::SetFieldOffset(int offset) { attr_.FieldOffset = offset; }
int CRtField::GetFieldOffset() const { return attr_.FieldOffset; }

void CRtField::SetFieldName(const char *name) {
  (void)quillanest::set_block_text(attr_, offsetof(_field_attr, FieldName), RTDB_NAME_SIZE, name);
}
char *CRtField::GetFieldName() { return attr_.FieldName; }

void CRtField::SetFieldCName(const char *name) {
  (void)quillanest::set_block_text(attr_, offsetof(_field_attr, FieldCName), RTDB_CNAME_SIZE, name);
}
char *CRtField::GetFieldCName() { return attr_.FieldCName; }

void CRtField::SetDefaultValue(const char *text) {
  (void)quillanest::set_block_text(attr_, offsetof(_field_attr, DefaultValue), RTDB_DEFAULT_SIZE, text);
}
char *CRtField::GetDefaultValue() { return attr_.DefaultValue; }

const char *CRtField::GetTypeStr() const { return quillanest::field_type(attr_.FieldType).c_name; }

void CRtField::GetDisplayText(int nType, char *pValue, char *pszText) {
  if (pszText == nullptr) return;
  if (pValue == nullptr) return copy_with_terminator(pszText, {});
  if (quillanest::kind_of(nType) == quillanest::Kind::kText)
    return copy_with_terminator(pszText, quillanest::text_at(pValue));
  if (quillanest::kind_of(nType) == quillanest::Kind::kPassword) {
    const std::string enciphered = quillanest::neutral_on_failure(std::string(), [&] {
      return quillanest::TzDes::SimpleEncrypt(std::string(quillanest::text_at(pValue)).c_str());
    });
    return copy_with_terminator(pszText, enciphered);
  }
  std::array<char, quillanest::kNumberTextMax> text;
  const std::size_t length = quillanest::format_value(nType, value_bytes(pValue), text.data());
  copy_with_terminator(pszText, {text.data(), length});
}
