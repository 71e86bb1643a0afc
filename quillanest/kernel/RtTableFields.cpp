// The field directory of CRtTable.
#include "quillanest/kernel/Matches.h"
#include "quillanest/kernel/Parts.h"
#include "quillanest/kernel/TableView.h"
#include "quillanest/shm/Bytes.h"

using quillanest::Parts;
using quillanest::TableView;

namespace {

auto name_is(const char *name) { return quillanest::text_is<_field_attr>(offsetof(_field_attr, FieldName), name); }
auto cname_is(const char *name) { return quillanest::text_is<_field_attr>(offsetof(_field_attr, FieldCName), name); }
auto field_id_is(unsigned int id) { return quillanest::id_is(&_field_attr::FieldID, id); }

// The descriptor in a slot of the field directory: the image's if attached, else that of the catalogue under
// construction. Null if there is no such slot.
const _field_attr *field_slot(const CRtTable &table, int index) {
  const _table_attr &attr = TableView::attr_of(table);
  if (index < 0 || index >= attr.TableFieldNum) return nullptr;
  if (const TableView view = TableView::of(table)) return view.field(index);
  const auto *fields = Parts::fields(table);
  if (fields == nullptr) return nullptr;
  static const CRtField fresh;
  const auto found = fields->find(index);
  return &Parts::attr(found != fields->end() ? found->second : fresh);
}

// The first slot whose descriptor matches, or -1.
template <class Matches>
int find_field(const CRtTable &table, Matches matches) {
  const int count = TableView::attr_of(table).TableFieldNum;
  if (const TableView view = TableView::of(table)) {
    for (int i = 0; i < count; ++i) {
      const _field_attr *field = view.field(i);
      if (field == nullptr) return -1;
      if (matches(*field)) return i;
    }
    return -1;
  }
  if (Parts::fields(table) == nullptr) return -1;
  for (int i = 0; i < count; ++i) {
    const _field_attr *field = field_slot(table, i);
    if (field == nullptr) return -1;
    if (matches(*field)) return i;
  }
  return -1;
}

}  // namespace

int CRtTable::CreateFieldMemory() {
  // Slots cost nothing until they are filled, so any number that an image can hold is fine.
  if (attr_.TableFieldNum < 0) return 0;
  fields_ = std::make_unique<std::map<int, CRtField>>();
  return 1;
}

int CRtTable::ReleaseFieldMemory() {
  fields_.reset();
  return 1;
}

int CRtTable::InitAddField(const CRtField &field) {
  if (IsInShareMemory() || fields_ == nullptr) return -1;
  const int index = field.GetIndexInTable();
  if (index < 0 || index >= attr_.TableFieldNum) return -1;
  (*fields_)[index] = field;
  return index;
}

int CRtTable::GetFieldFromName(CRtField &field, const char *name) const {
  return name == nullptr ? 0 : GetFieldFromIndex(field, find_field(*this, name_is(name)));
}

int CRtTable::GetFieldFromCName(CRtField &field, const char *name) const {
  return name == nullptr ? 0 : GetFieldFromIndex(field, find_field(*this, cname_is(name)));
}

int CRtTable::GetFieldFromID(CRtField &field, unsigned int id) const {
  return GetFieldFromIndex(field, find_field(*this, field_id_is(id)));
}

int CRtTable::GetFieldFromIndex(CRtField &field, int index) const {
  const _field_attr *slot = field_slot(*this, index);
  if (slot == nullptr) return 0;
  field = *slot;
  return 1;
}

_field_attr *CRtTable::GetFieldFromName(const char *name) const {
  return name == nullptr ? nullptr : GetFieldFromIndex(find_field(*this, name_is(name)));
}

_field_attr *CRtTable::GetFieldFromCName(const char *name) const {
  return name == nullptr ? nullptr : GetFieldFromIndex(find_field(*this, cname_is(name)));
}

_field_attr *CRtTable::GetFieldFromID(unsigned int id) const {
  return GetFieldFromIndex(find_field(*this, field_id_is(id)));
}

_field_attr *CRtTable::GetFieldFromIndex(int index) const {
  const TableView view = TableView::of(*this);
  return view && index >= 0 && index < view.field_num ? view.field(index) : nullptr;
}

int CRtTable::FindFieldFromName(const char *name, bool bCName) const {
  if (name == nullptr) return -1;
  return bCName ? find_field(*this, cname_is(name)) : find_field(*this, name_is(name));
}

bool CRtTable::SetField(CRtField field) {
  const int index = field.GetIndexInTable();
  if (index < 0 || index >= TableView::attr_of(*this).TableFieldNum) return false;
  if (const TableView view = TableView::of(*this)) {
    _field_attr *slot = view.field(index);
    if (slot == nullptr) return false;
    *slot = field.attr_;
    return true;
  }
  if (fields_ == nullptr) return false;
  (*fields_)[index] = field;
  return true;
}

bool CRtTable::IfHasField() const { return TableView::attr_of(*this).TableFieldNum > 0; }

int CRtTable::GetFirstFieldPostion() const { return IfHasField() ? 0 : -1; }

bool CRtTable::GetNextField(CRtField &field, int &position) const {
  // By design [FieldsEndLate]: the call after the last field reports the end, unlike records, whose last one does.
  if (GetFieldFromIndex(field, position) == 0) {
    position = -1;
    return false;
  }
  ++position;
  return true;
}
