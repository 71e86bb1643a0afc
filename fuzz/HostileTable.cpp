// Calls on tables and fields with any arguments.
#include "fuzz/HostileRun.h"

namespace quillanest::fuzz {

void HostileRun::find_records(CRtTable &table) {
  const auto key = static_cast<unsigned int>(any_place());
  int position = any_place();
  switch (input_.choice(9)) {
    case 0:
      (void)table.FindRecordIndex(key);
      break;
    case 1:
      (void)table.FindIDExclusive(key, position);
      break;
    case 2:
      (void)table.FindIDExclusive(key);
      break;
    case 3:
      (void)table.FindIDExclusive(key, any_buffer());
      break;
    case 4:
      (void)table.GetAt(position);
      break;
    case 5:
      (void)table.GetRecordAddr(key, position);
      break;
    case 6:
      (void)table.FindRecordbyStringField(any_place(), any_text());
      break;
    case 7:
      (void)table.GetNextPosition(position);
      break;
    default:
      (void)table.IsEmpty();
      (void)table.GetFirstPosition();
  }
}

void HostileRun::edit_records(CRtTable &table) {
  const auto key = static_cast<unsigned int>(any_place());
  const int hint = any_place();
  const int project = input_.number<std::int8_t>();
  switch (input_.choice(8)) {
    case 0:
    case 1:
      (void)table.Insert(any_record(table), project);
      break;
    case 2:
    case 3:
      (void)table.Insert(key, project, input_.flag() ? 1 : 0);
      break;
    case 4:
      (void)table.Update(any_record(table), hint, project);
      break;
    case 5:
    case 6:
      (void)table.Delete(key, hint, project);
      break;
    default:
      (void)table.SetRecordVersionInfo(hint, project, input_.wild());
  }
}

void HostileRun::use_values(CRtTable &table) {
  const int place = any_place();
  const auto key = static_cast<unsigned int>(place);
  const int index = any_place();
  switch (input_.choice(7)) {
    case 0:
      (void)table.GetFieldData(key, index, any_buffer());
      break;
    case 1:
      (void)table.SetFieldData(key, index, any_buffer());
      break;
    case 2:
      (void)table.GetFieldDataAt(place, index, any_buffer());
      break;
    case 3:
      (void)table.SetFieldDataAt(place, index, any_buffer());
      break;
    case 4:
      (void)table.SetColumnValueAt(index, any_buffer(), place, input_.wild());
      break;
    case 5:
      (void)table.SetFieldByText(place, index, input_.choice(16) == 0 ? nullptr : any_changeable_text());
      break;
    default: {
      // The shown text needs room behind the value, so the value is in a segment.
      char *value = input_.choice(16) == 0 ? nullptr : any_address();
      CRtField::GetDisplayText(static_cast<int>(input_.choice(18)) - 1, value, any_buffer());
    }
  }
}

void HostileRun::find_fields(CRtTable &table) {
  CRtField field = any_field();
  int position = input_.wild();
  switch (input_.choice(9)) {
    case 0:
      (void)table.GetFieldFromName(field, any_text());
      break;
    case 1:
      (void)table.GetFieldFromCName(field, any_text());
      break;
    case 2:
      (void)table.GetFieldFromID(field, any_id());
      break;
    case 3:
      (void)table.GetFieldFromIndex(field, position);
      break;
    case 4:
      (void)table.GetFieldFromName(any_text());
      (void)table.GetFieldFromCName(any_text());
      break;
    case 5:
      (void)table.GetFieldFromID(any_id());
      (void)table.GetFieldFromIndex(position);
      break;
    case 6:
      (void)table.FindFieldFromName(any_text(), input_.flag());
      break;
    case 7:
      (void)table.GetNextField(field, position);
      (void)table.GetFirstFieldPostion();
      (void)table.IfHasField();
      break;
    default:
      (void)field.GetTypeStr();
      (void)table.SetField(field);
  }
}

void HostileRun::set_descriptor(CRtTable &table) {
  switch (input_.choice(10)) {
    case 0:
      return table.SetTableName(any_text());
    case 1:
      return table.SetTableCName(any_text());
    case 2:
      return table.SetDataBaseID(any_id());
    case 3:
      return table.SetTableID(any_id());
    case 4:
      return table.SetIndexInDB(input_.wild());
    case 5:
      return table.SetTableSize(input_.wild());
    case 6:
      return table.SetRecordCount(input_.wild());
    case 7:
      return table.SetRecordMaxCount(input_.wild());
    case 8:
      return table.SetTableFieldNum(input_.wild());
    default:
      return table.SetIDExclusive(static_cast<unsigned int>(input_.wild()));
  }
}

void HostileRun::use_whole_table(CRtTable &table) {
  switch (input_.choice(10)) {
    case 0:
      (void)table.DeleteAllRecord();
      break;
    case 1:
      (void)table.IsModified();
      (void)table.GetIDExclusive();
      break;
    case 2:
      table.InitRecordDefault(any_record(table));
      break;
    case 3:
      if (all_are_cheap()) (void)table.SaveData(input_.wild());
      break;
    case 4:
      if (all_are_cheap()) (void)table.CommitProject();
      break;
    case 5:
      (void)table.InsertRecordToDb(any_record(table));
      break;
    case 6:
      (void)table.UpdateRecordToDb(any_record(table));
      break;
    case 7:
      (void)table.RemoveRecordInDb(input_.wild(), input_.wild());
      break;
    case 8: {
      CRtTable copy(table);
      copy = *table.GetTableInfo();
      table = copy;
      break;
    }
    default:
      (void)table.GetFieldAddress();
      (void)table.GetDataAddress();
      (void)table.GetTableName();
      (void)table.GetTableCName();
  }
}

void HostileRun::call_table(CRtTable &table) {
  switch (input_.choice(8)) {
    case 0:
      return find_records(table);
    case 1:
    case 2:
      return edit_records(table);
    case 3:
    case 4:
      return use_values(table);
    case 5:
      return find_fields(table);
    case 6:
      return set_descriptor(table);
    default:
      return use_whole_table(table);
  }
}

}  // namespace quillanest::fuzz
