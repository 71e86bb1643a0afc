// Calls on databases and managers with any arguments.
#include "tests/model/HostileRun.h"

namespace quillanest::model {
namespace {

// The ID of a table object that no lookup has filled.
constexpr unsigned int kNoTable = 0xFFFFFFFF;

}  // namespace

void HostileRun::find_tables(CRtDataBase &database) {
  CRtTable table;
  int position = input_.wild();
  input_.make_one_of([&] { (void)database.GetDBTableFromName(table, any_text()); },
                     [&] { (void)database.GetDBTableFromCName(table, any_text()); },
                     [&] { (void)database.GetDBTableFromID(table, any_id()); },
                     [&] {
                       (void)database.GetNextTable(table, position);
                       (void)database.GetFirstTablePostion();
                       (void)database.IfHasTable();
                     },
                     [&] { (void)database.GetTableFieldData(any_id(), input_.wild(), any_id(), any_buffer()); },
                     [&] { (void)database.SetTableFieldData(any_id(), input_.wild(), any_id(), any_buffer()); },
                     [&] { (void)database.GetTableRecordAt(any_id(), position); },
                     [&] { (void)database.GetTableRecord(any_id(), any_id()); },
                     [&] {
                       (void)database.GetDBTableFromID(table, 10);
                       (void)database.SetTableRecord(10, any_record(table), position);
                     },
                     [&] { (void)database.GetTableDataAddress(any_text()); },
                     [&] {
                       (void)database.GetTableDataAddress(any_id());
                       (void)database.GetTableDataAddressAt(position);
                     },
                     [&] {
                       (void)database.GetTableRecordCount(any_id());
                       (void)database.GetTableAddress();
                       (void)database.GetFieldAddress();
                     });
  if (table.GetTableID() != kNoTable) call_table(table);
}

void HostileRun::set_number(CRtDataBase &database) {
  input_.make_one_of([&] { database.SetDBID(any_id()); }, [&] { database.SetDBType(any_id()); },
                     [&] { database.SetDBTableNum(input_.wild()); }, [&] { database.SetDBFieldNum(input_.wild()); },
                     [&] { database.SetDBSize(input_.wild()); });
}

void HostileRun::set_database(CRtDataBase &database) {
  input_.make_one_of(
      [&] {
        database.SetDBName(input_.pick(kNewNames));
        remember_names();
      },
      [&] {
        database.SetDBCName(input_.pick(kNewCaptions));
        remember_names();
      },
      [&] {
        CRtDataBase other;
        other = value_at<_db_attr>(any_mapped().start, 0);
        (void)other.AttachShareMemory();
        find_tables(other);
      },
      times<5>([&] { set_number(database); }));
}

void HostileRun::use_whole_database(CRtDataBase &database) {
  const std::string folder = surroundings_.root.path(input_.flag() ? "data" : "missing");
  input_.make_one_of([&] { (void)database.DeleteAllRecord(); }, [&] { (void)database.IsModified(); },
                     [&] {
                       if (is_cheap(database)) (void)database.SaveData(input_.wild());
                     },
                     [&] {
                       if (is_cheap(database)) (void)database.CommitProject();
                     },
                     [&] {
                       if (is_cheap(database))
                         (void)database.BuildIncludeFile(input_.choice(8) == 0 ? nullptr : folder.c_str());
                     },
                     [&] {
                       (void)database.GetDBName();
                       (void)database.GetDBCName();
                       (void)database.GetDBID();
                     });
}

void HostileRun::call_database(CRtDataBase &database) {
  input_.make_one_of([&] { set_database(database); }, [&] { use_whole_database(database); },
                     times<2>([&] { find_tables(database); }));
}

void HostileRun::find_databases(CRtdbManager &manager) {
  CRtDataBase database;
  CRtTable table;
  int position = input_.wild();
  input_.make_one_of([&] { (void)manager.GetDataBaseFromName(database, any_text()); },
                     [&] { (void)manager.GetDataBaseFromCName(database, any_text()); },
                     [&] { (void)manager.GetDataBaseFromID(database, any_id()); },
                     [&] { (void)manager.GetFirstDataBasePostion(position); },
                     [&] { (void)manager.GetNext(database, position); },
                     [&] { (void)manager.FindTable(any_id(), database, table); },
                     [&] { (void)manager.GetSystemTable(table, any_text()); },
                     [&] {
                       (void)manager.IsSysTableModified();
                       call_database(*manager.GetSystemDB());
                     });
  if (table.GetTableID() != kNoTable) return call_table(table);
  if (database.AttachShareMemory() == 1) find_tables(database);
}

void HostileRun::use_identity(CRtdbManager &manager) {
  SYSTEMTIME time{};
  input_.make_one_of(
      times<2>([&] { (void)manager.UserLogin(any_text(), any_text()); }), [&] { manager.UserLogout(); },
      [&] { (void)manager.CheckRights(static_cast<unsigned int>(input_.wild())); },
      [&] {
        (void)manager.GetRights(input_.wild());
        manager.SetRights(static_cast<int>(input_.choice(4)), static_cast<unsigned int>(input_.wild()));
      },
      [&] {
        // Not the words of the paths, which the manager has in a place of its own, too.
        const int word = input_.wild();
        const auto value = static_cast<unsigned int>(input_.wild());
        if (word < -61 || word >= -13) manager.SetRights(word, value);
      },
      [&] { manager.SetSysUserName(input_.flag() ? any_text() : manager.GetSysUserName()); },
      [&] {
        manager.GetLoginUseTime(time);
        manager.SetLoginUseTime(time);
        manager.SetSysUserID(any_id());
        (void)manager.GetSysUserID();
      });
}

void HostileRun::change_directory(CRtdbManager &manager) {
  constexpr std::size_t kMostSlots = 200;
  _db_attr attr{};
  std::string(input_.pick(kNewNames)).copy(attr.DBName, sizeof attr.DBName);
  attr.DBID = any_id();
  attr.DBTableNum = input_.wild();
  attr.TableOffset = input_.wild();
  attr.DBSize = input_.wild();
  input_.make_one_of([&] { (void)manager.UpdateDBInfo(any_text(), input_.choice(8) == 0 ? nullptr : &attr); },
                     [&] { (void)manager.UpdateDBInfo(any_id(), &attr); },
                     [&] {
                       auto database = std::make_unique<CRtDataBase>();
                       database->SetDBID(any_id());
                       database->SetDBName(input_.pick(kNewNames));
                       database->SetDBTableNum(static_cast<int>(input_.choice(kMostSlots)));
                       if (input_.flag()) (void)database->CreateTableMemory();
                       if (manager.AddDataBase(database.get()) == 1) (void)database.release();
                     },
                     [&] {
                       CRtTable table;
                       table.SetDataBaseID(any_id());
                       table.SetTableID(any_id());
                       table.SetIndexInDB(input_.number<std::int8_t>());
                       table.SetRecordMaxCount(input_.number<std::int8_t>());
                       table.SetTableFieldNum(static_cast<int>(input_.choice(kMostSlots)));
                       (void)manager.AddTable(table);
                     },
                     [&] { (void)manager.AddField(any_field()); });
}

void HostileRun::load_and_save(CRtdbManager &manager) {
  surroundings_.data.write(input_.text(255));
  const char *path = input_.choice(4) == 0 ? nullptr : surroundings_.data.path();
  const std::string folder = surroundings_.root.path("data");
  if (!all_are_cheap()) return;
  input_.make_one_of(
      [&] { (void)manager.LoadSystemDB(); }, [&] { (void)manager.LoadAllCustomizedDB(input_.wild()); },
      [&] { (void)manager.SaveData(input_.wild()); }, [&] { (void)manager.SaveDataTo(input_.flag()); },
      [&] { (void)manager.LoadSomeData(any_id(), any_id(), path, input_.flag(), input_.number<char>()); },
      times<2>([&] { (void)manager.LoadTableData(any_id(), any_id(), path); }), [&] { (void)manager.CommitProject(); },
      [&] { (void)manager.BuildIncludeFile(folder.c_str()); });
}

void HostileRun::attach(CRtdbManager &manager) {
  input_.make_one_of([&] { manager.DetachShareMemory(); }, [&] { manager.DestroyMemory(); },
                     [&] { (void)manager.RtdbManagerInit(false, surroundings_.schema.path()); },
                     [&] {
                       CRtdbManager copy(manager);
                       (void)copy.AttachShareMemory();
                       find_databases(copy);
                     },
                     [&] {
                       manager.SetRtdbStatus(static_cast<int>(input_.choice(4)) - 1);
                       (void)manager.GetRtdbStatus();
                       (void)manager.GetDataBaseMaxNum();
                     },
                     [&] { (void)manager.AttachShareMemory(); });
}

void HostileRun::call_manager(CRtdbManager &manager) {
  input_.make_one_of(
      times<2>([&] { find_databases(manager); }), [&] { use_identity(manager); }, [&] { change_directory(manager); },
      times<2>([&] { load_and_save(manager); }), times<2>([&] { attach(manager); }));
}

}  // namespace quillanest::model
