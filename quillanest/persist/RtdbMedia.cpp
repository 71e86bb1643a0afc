#include "quillanest/persist/RtdbMedia.h"

#include <array>

#include "quillanest/kernel/RtdbManager.h"
#include "quillanest/kernel/ValueText.h"
#include "quillanest/kernel/Views.h"
#include "quillanest/persist/Store.h"
#include "quillanest/shm/FieldType.h"

namespace quillanest {
namespace {

// Forms the value texts of one record, which stamps its empty times with the present.
void form_values(const TableView &view, std::byte *record) {
  std::array<char, kNumberTextMax> text;
  for (int i = 0; i < view.attr->TableFieldNum; ++i) {
    const _field_attr *field = view.field(i);
    if (field == nullptr) return;
    if (field->FieldType == kTime) (void)format_value(kTime, view.value(record, *field), text.data());
  }
}

}  // namespace

CRtdbMedia::CRtdbMedia(CRtdbManager *) {}

bool CRtdbMedia::SaveTable(CRtDataBase &, CRtTable &table, int projectID) {
  const TableView view = TableView::of(table);
  if (!view) return false;
  const VersionFields fields = find_version_fields(view);
  const bool all = projectID == 0 || fields.project == nullptr;
  const std::int32_t count = view.count();
  for (std::int32_t i = 0; i < count; ++i) {
    std::byte *record = view.record(i);
    const bool modified =
        fields.modified != nullptr && view.key_of(record) != 0 && version_value(view, record, *fields.modified) != 0;
    if (!all && !modified) continue;
    if (fields.modified != nullptr) set_version_value(view, record, *fields.modified, 0);
    form_values(view, record);
  }
  return true;
}

bool CRtdbMedia::SaveDataBase(CRtDataBase &database, int projectID) {
  return for_each_table(database, [&](CRtTable &table) { return SaveTable(database, table, projectID); });
}

bool CRtdbMedia::SaveAll(CRtdbManager &manager, int projectID) {
  return for_each_database(manager, [&](CRtDataBase &database) {
    if (database.AttachShareMemory() == 0) return;
    (void)SaveDataBase(database, projectID);
    (void)database.DetachShareMemory();
  });
}

bool CRtdbMedia::LoadTable(CRtDataBase &, CRtTable &, int) { return false; }

bool CRtdbMedia::LoadDataBase(CRtDataBase &database, int projectID) {
  return for_each_table(database, [&](CRtTable &table) { return LoadTable(database, table, projectID); });
}

bool CRtdbMedia::LoadAllCustomized(CRtdbManager &manager, int projectID) {
  bool result = true;
  const bool walked = for_each_database(manager, [&](CRtDataBase &database) {
    if (database.GetDBID() == kSystemDatabaseID || database.AttachShareMemory() == 0) return;
    result = LoadDataBase(database, projectID) && result;
    (void)database.DetachShareMemory();
  });
  return walked && result;
}

bool CRtdbMedia::LoadSystem(CRtdbManager &manager) { return LoadDataBase(*manager.GetSystemDB(), 0); }

}  // namespace quillanest
