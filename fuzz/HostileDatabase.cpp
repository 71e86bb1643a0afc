// Calls on databases and managers with any arguments.
#include "fuzz/HostileRun.h"

namespace quillanest::fuzz {

void HostileRun::find_tables(CRtDataBase &database) {
  CRtTable table;
  int position = input_.wild();
  switch (input_.choice(12)) {
    case 0:
      (void)database.GetDBTableFromName(table, any_text());
      break;
    case 1:
      (void)database.GetDBTableFromCName(table, any_text());
      break;
    case 2:
      (void)database.GetDBTableFromID(table, any_id());
      break;
    case 3:
      (void)database.GetNextTable(table, position);
      (void)database.GetFirstTablePostion();
      (void)database.IfHasTable();
      break;
    case 4:
      (void)database.GetTableFieldData(any_id(), input_.wild(), any_id(), any_buffer());
      break;
    case 5:
      (void)database.SetTableFieldData(any_id(), input_.wild(), any_id(), any_buffer());
      break;
    case 6:
      (void)database.GetTableRecordAt(any_id(), position);
      break;
    case 7:
      (void)database.GetTableRecord(any_id(), any_id());
      break;
    case 8:
      (void)database.GetDBTableFromID(table, 10);
      (void)database.SetTableRecord(10, any_record(table), position);
      break;
    case 9:
      (void)database.GetTableDataAddress(any_text());
      break;
    case 10:
      (void)database.GetTableDataAddress(any_id());
      (void)database.GetTableDataAddressAt(position);
      break;
    default:
      (void)database.GetTableRecordCount(any_id());
      (void)database.GetTableAddress();
      (void)database.GetFieldAddress();
  }
  if (table.GetTableID() != 0xFFFFFFFF) call_table(table);
}

void HostileRun::set_number(CRtDataBase &database) {
  switch (input_.choice(5)) {
    case 0:
      return database.SetDBID(any_id());
    case 1:
      return database.SetDBType(any_id());
    case 2:
      return database.SetDBTableNum(input_.wild());
    case 3:
      return database.SetDBFieldNum(input_.wild());
    default:
      return database.SetDBSize(input_.wild());
  }
}

void HostileRun::set_database(CRtDataBase &database) {
  switch (input_.choice(8)) {
    case 0:
      database.SetDBName(input_.pick(kNewNames));
      return remember_names();
    case 1:
      database.SetDBCName(input_.pick(kNewCaptions));
      return remember_names();
    case 2: {
      CRtDataBase other;
      other = value_at<_db_attr>(any_mapped().start, 0);
      (void)other.AttachShareMemory();
      return find_tables(other);
    }
    default:
      return set_number(database);
  }
}

void HostileRun::use_whole_database(CRtDataBase &database) {
  const std::string folder = surroundings_.root.path(input_.flag() ? "data" : "missing");
  switch (input_.choice(6)) {
    case 0:
      (void)database.DeleteAllRecord();
      break;
    case 1:
      (void)database.IsModified();
      break;
    case 2:
      if (is_cheap(database)) (void)database.SaveData(input_.wild());
      break;
    case 3:
      if (is_cheap(database)) (void)database.CommitProject();
      break;
    case 4:
      if (is_cheap(database)) (void)database.BuildIncludeFile(input_.choice(8) == 0 ? nullptr : folder.c_str());
      break;
    default:
      (void)database.GetDBName();
      (void)database.GetDBCName();
      (void)database.GetDBID();
  }
}

void HostileRun::call_database(CRtDataBase &database) {
  switch (input_.choice(4)) {
    case 0:
      return set_database(database);
    case 1:
      return use_whole_database(database);
    default:
      return find_tables(database);
  }
}

void HostileRun::find_databases(CRtdbManager &manager) {
  CRtDataBase database;
  CRtTable table;
  int position = input_.wild();
  switch (input_.choice(8)) {
    case 0:
      (void)manager.GetDataBaseFromName(database, any_text());
      break;
    case 1:
      (void)manager.GetDataBaseFromCName(database, any_text());
      break;
    case 2:
      (void)manager.GetDataBaseFromID(database, any_id());
      break;
    case 3:
      (void)manager.GetFirstDataBasePostion(position);
      break;
    case 4:
      (void)manager.GetNext(database, position);
      break;
    case 5:
      if (manager.FindTable(any_id(), database, table) == 1) call_table(table);
      return;
    case 6:
      if (manager.GetSystemTable(table, any_text()) == 1) call_table(table);
      return;
    default:
      (void)manager.IsSysTableModified();
      return call_database(*manager.GetSystemDB());
  }
  if (database.AttachShareMemory() == 1) find_tables(database);
}

void HostileRun::use_identity(CRtdbManager &manager) {
  SYSTEMTIME time{};
  switch (input_.choice(8)) {
    case 0:
    case 1:
      (void)manager.UserLogin(any_text(), any_text());
      break;
    case 2:
      manager.UserLogout();
      break;
    case 3:
      (void)manager.CheckRights(static_cast<unsigned int>(input_.wild()));
      break;
    case 4:
      (void)manager.GetRights(input_.wild());
      manager.SetRights(static_cast<int>(input_.choice(4)), static_cast<unsigned int>(input_.wild()));
      break;
    case 5: {
      // Not the words of the paths, which the manager has in a place of its own, too.
      const int word = input_.wild();
      const auto value = static_cast<unsigned int>(input_.wild());
      if (word < -61 || word >= -13) manager.SetRights(word, value);
      break;
    }
    case 6:
      manager.SetSysUserName(input_.flag() ? any_text() : manager.GetSysUserName());
      break;
    default:
      manager.GetLoginUseTime(time);
      manager.SetLoginUseTime(time);
      manager.SetSysUserID(any_id());
      (void)manager.GetSysUserID();
  }
}

void HostileRun::change_directory(CRtdbManager &manager) {
  constexpr std::size_t kMostSlots = 200;
  _db_attr attr{};
  std::string(input_.pick(kNewNames)).copy(attr.DBName, sizeof attr.DBName);
  attr.DBID = any_id();
  attr.DBTableNum = input_.wild();
  attr.TableOffset = input_.wild();
  attr.DBSize = input_.wild();
  switch (input_.choice(5)) {
    case 0:
      (void)manager.UpdateDBInfo(any_text(), input_.choice(8) == 0 ? nullptr : &attr);
      break;
    case 1:
      (void)manager.UpdateDBInfo(any_id(), &attr);
      break;
    case 2: {
      auto database = std::make_unique<CRtDataBase>();
      database->SetDBID(any_id());
      database->SetDBName(input_.pick(kNewNames));
      database->SetDBTableNum(static_cast<int>(input_.choice(kMostSlots)));
      if (input_.flag()) (void)database->CreateTableMemory();
      if (manager.AddDataBase(database.get()) == 1) (void)database.release();
      break;
    }
    case 3: {
      CRtTable table;
      table.SetDataBaseID(any_id());
      table.SetTableID(any_id());
      table.SetIndexInDB(input_.number<std::int8_t>());
      table.SetRecordMaxCount(input_.number<std::int8_t>());
      table.SetTableFieldNum(static_cast<int>(input_.choice(kMostSlots)));
      (void)manager.AddTable(table);
      break;
    }
    default:
      (void)manager.AddField(any_field());
  }
}

void HostileRun::load_and_save(CRtdbManager &manager) {
  surroundings_.data.write(input_.text(255));
  const char *path = input_.choice(4) == 0 ? nullptr : surroundings_.data.path();
  const std::string folder = surroundings_.root.path("data");
  if (!all_are_cheap()) return;
  switch (input_.choice(9)) {
    case 0:
      (void)manager.LoadSystemDB();
      break;
    case 1:
      (void)manager.LoadAllCustomizedDB(input_.wild());
      break;
    case 2:
      (void)manager.SaveData(input_.wild());
      break;
    case 3:
      (void)manager.SaveDataTo(input_.flag());
      break;
    case 4:
      (void)manager.LoadSomeData(any_id(), any_id(), path, input_.flag(), input_.number<char>());
      break;
    case 5:
    case 6:
      (void)manager.LoadTableData(any_id(), any_id(), path);
      break;
    case 7:
      (void)manager.CommitProject();
      break;
    default:
      (void)manager.BuildIncludeFile(folder.c_str());
  }
}

void HostileRun::attach(CRtdbManager &manager) {
  switch (input_.choice(6)) {
    case 0:
      manager.DetachShareMemory();
      break;
    case 1:
      manager.DestroyMemory();
      break;
    case 2:
      (void)manager.RtdbManagerInit(false, surroundings_.schema.path());
      break;
    case 3: {
      CRtdbManager copy(manager);
      (void)copy.AttachShareMemory();
      find_databases(copy);
      break;
    }
    case 4:
      manager.SetRtdbStatus(static_cast<int>(input_.choice(4)) - 1);
      (void)manager.GetRtdbStatus();
      (void)manager.GetDataBaseMaxNum();
      break;
    default:
      (void)manager.AttachShareMemory();
  }
}

void HostileRun::call_manager(CRtdbManager &manager) {
  switch (input_.choice(8)) {
    case 0:
    case 1:
      return find_databases(manager);
    case 2:
      return use_identity(manager);
    case 3:
      return change_directory(manager);
    case 4:
    case 5:
      return load_and_save(manager);
    default:
      return attach(manager);
  }
}

}  // namespace quillanest::fuzz
