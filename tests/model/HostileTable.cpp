// Calls on tables and fields with any arguments.
#include "tests/model/HostileRun.h"

namespace quillanest::model {

void HostileRun::find_records(CRtTable &table) {
  const auto key = static_cast<unsigned int>(any_place());
  int position = any_place();
  input_.make_one_of([&] { (void)table.FindRecordIndex(key); }, [&] { (void)table.FindIDExclusive(key, position); },
                     [&] { (void)table.FindIDExclusive(key); }, [&] { (void)table.FindIDExclusive(key, any_buffer()); },
                     [&] { (void)table.GetAt(position); }, [&] { (void)table.GetRecordAddr(key, position); },
                     [&] { (void)table.FindRecordbyStringField(any_place(), any_text()); },
                     [&] { (void)table.GetNextPosition(position); },
                     [&] {
                       (void)table.IsEmpty();
                       (void)table.GetFirstPosition();
                     });
}

void HostileRun::edit_records(CRtTable &table) {
  const auto key = static_cast<unsigned int>(any_place());
  const int hint = any_place();
  const int project = input_.number<std::int8_t>();
  input_.make_one_of(
      times<2>([&] { (void)table.Insert(any_record(table), project); }),
      times<2>([&] { (void)table.Insert(key, project, input_.flag() ? 1 : 0); }),
      [&] { (void)table.Update(any_record(table), hint, project); },
      times<2>([&] { (void)table.Delete(key, hint, project); }),
      [&] { (void)table.SetRecordVersionInfo(hint, project, input_.wild()); });
}

void HostileRun::use_values(CRtTable &table) {
  const int place = any_place();
  const auto key = static_cast<unsigned int>(place);
  const int index = any_place();
  input_.make_one_of(
      [&] { (void)table.GetFieldData(key, index, any_buffer()); },
      [&] { (void)table.SetFieldData(key, index, any_buffer()); },
      [&] { (void)table.GetFieldDataAt(place, index, any_buffer()); },
      [&] { (void)table.SetFieldDataAt(place, index, any_buffer()); },
      [&] { (void)table.SetColumnValueAt(index, any_buffer(), place, input_.wild()); },
      [&] { (void)table.SetFieldByText(place, index, input_.choice(16) == 0 ? nullptr : any_changeable_text()); },
      [&] {
        // The shown text needs room after the value, so the value is in a segment.
        char *value = input_.choice(16) == 0 ? nullptr : any_address();
        CRtField::GetDisplayText(static_cast<int>(input_.choice(18)) - 1, value, any_buffer());
      });
}

void HostileRun::find_fields(CRtTable &table) {
  CRtField field = any_field();
  int position = input_.wild();
  input_.make_one_of([&] { (void)table.GetFieldFromName(field, any_text()); },
                     [&] { (void)table.GetFieldFromCName(field, any_text()); },
                     [&] { (void)table.GetFieldFromID(field, any_id()); },
                     [&] { (void)table.GetFieldFromIndex(field, position); },
                     [&] {
                       (void)table.GetFieldFromName(any_text());
                       (void)table.GetFieldFromCName(any_text());
                     },
                     [&] {
                       (void)table.GetFieldFromID(any_id());
                       (void)table.GetFieldFromIndex(position);
                     },
                     [&] { (void)table.FindFieldFromName(any_text(), input_.flag()); },
                     [&] {
                       (void)table.GetNextField(field, position);
                       (void)table.GetFirstFieldPostion();
                       (void)table.IfHasField();
                     },
                     [&] {
                       (void)field.GetTypeStr();
                       (void)table.SetField(field);
                     });
}

void HostileRun::set_descriptor(CRtTable &table) {
  input_.make_one_of([&] { table.SetTableName(any_text()); }, [&] { table.SetTableCName(any_text()); },
                     [&] { table.SetDataBaseID(any_id()); }, [&] { table.SetTableID(any_id()); },
                     [&] { table.SetIndexInDB(input_.wild()); }, [&] { table.SetTableSize(input_.wild()); },
                     [&] { table.SetRecordCount(input_.wild()); }, [&] { table.SetRecordMaxCount(input_.wild()); },
                     [&] { table.SetTableFieldNum(input_.wild()); },
                     [&] { table.SetIDExclusive(static_cast<unsigned int>(input_.wild())); });
}

void HostileRun::use_whole_table(CRtTable &table) {
  input_.make_one_of([&] { (void)table.DeleteAllRecord(); },
                     [&] {
                       (void)table.IsModified();
                       (void)table.GetIDExclusive();
                     },
                     [&] { table.InitRecordDefault(any_record(table)); },
                     [&] {
                       if (all_are_cheap()) (void)table.SaveData(input_.wild());
                     },
                     [&] {
                       if (all_are_cheap()) (void)table.CommitProject();
                     },
                     [&] { (void)table.InsertRecordToDb(any_record(table)); },
                     [&] { (void)table.UpdateRecordToDb(any_record(table)); },
                     [&] { (void)table.RemoveRecordInDb(input_.wild(), input_.wild()); },
                     [&] {
                       CRtTable copy(table);
                       copy = *table.GetTableInfo();
                       table = copy;
                     },
                     [&] {
                       (void)table.GetFieldAddress();
                       (void)table.GetDataAddress();
                       (void)table.GetTableName();
                       (void)table.GetTableCName();
                     });
}

void HostileRun::call_table(CRtTable &table) {
  input_.make_one_of([&] { find_records(table); }, times<2>([&] { edit_records(table); }),
                     times<2>([&] { use_values(table); }), [&] { find_fields(table); }, [&] { set_descriptor(table); },
                     [&] { use_whole_table(table); });
}

}  // namespace quillanest::model
