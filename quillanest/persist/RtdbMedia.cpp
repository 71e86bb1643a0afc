// Saving tables into the relational store, and the walks over databases.
#include "quillanest/persist/RtdbMedia.h"

#include <exception>

#include "quillanest/kernel/RtdbManager.h"
#include "quillanest/kernel/ValueText.h"
#include "quillanest/persist/ModifiedMarks.h"
#include "quillanest/persist/Passwords.h"
#include "quillanest/persist/Store.h"
#include "quillanest/platform/qrvutil/TzFileSystem.h"
#include "quillanest/shm/FieldType.h"

namespace quillanest {

CRtdbMedia::CRtdbMedia(CRtdbManager *manager)
    : manager_(manager),
      cipher_(
          PasswordCipher::from_configuration(manager == nullptr ? std::string() : configuration_file_of(*manager))) {
  if (manager != nullptr) SetIniFile(configuration_file_of(*manager).c_str());
  SetSection("RtdbMedia");
  wait_once();
}

std::optional<std::string> CRtdbMedia::GetDataSource(int slot) {
  std::optional<std::string> name = CDbConnection::GetDataSource(slot);
  if (slot_type(slot) != DB_TYPE_JET || manager_ == nullptr) return name;
  const TzFileSystem folders(configuration_file_of(*manager_), data_path_of(*manager_));
  const std::optional<std::string> folder = bSystemDB ? folders.GetSystemDataFolder() : folders.GetHalmoreFolder();
  if (!folder || !name || name->empty()) return std::nullopt;
  return *folder + *name;
}

void CRtdbMedia::open_for(CRtDataBase &database, bool first_only) {
  bSystemDB = database.GetDBID() == kSystemDatabaseID;
  // By design [OpenNeverFails]: what Open returns is a mask, never the -1 of a failure, so no operation ends here.
  (void)Open(first_only);
}

void CRtdbMedia::append_value(std::string &statement, const _field_attr &field, std::span<std::byte> value) {
  const int type = GetCurrentType();
  std::string text;
  append_value_text(field.FieldType, value, cipher_, text);
  if (is_text_type(field.FieldType)) {
    has_plain_texts_ = has_plain_texts_ && text.find_first_of("'\\") == std::string::npos;
    // By design [QuotesNotEscaped]: a text with a quote breaks its statement, and its row is missing then.
    statement += '\'';
    statement += text.empty() && type == DB_TYPE_JET ? " " : text;
    statement += '\'';
  } else if (field.FieldType != kTime) {
    statement += text;
  } else if (type == DB_TYPE_ORACLE) {
    statement += "to_date('" + text + "','YYYY-MM-DD HH24:MI:SS')";
  } else {
    const char quote = type == DB_TYPE_JET ? '#' : '\'';
    statement += quote + text + quote;
  }
}

std::string CRtdbMedia::insert_statement(const std::string &store_table, std::span<std::byte> record,
                                         const _field_attr *fields, int count) {
  std::string statement = "INSERT INTO " + store_table + " VALUES(";
  for (int i = 0; i < count; ++i) {
    const _field_attr &field = fields[i];
    const bool inside = field.FieldOffset >= 0 && static_cast<std::size_t>(field.FieldOffset) < record.size();
    append_value(statement, field,
                 inside ? record.subspan(static_cast<std::size_t>(field.FieldOffset)) : std::span<std::byte>());
    statement += i + 1 < count ? ',' : ')';
  }
  return statement;
}

bool CRtdbMedia::InsertRecord(const std::string &store_table, std::span<std::byte> record, const _field_attr *fields,
                              int count) {
  return Execute(insert_statement(store_table, record, fields, count).c_str(), TARGET_BOTH) == 1;
}

void CRtdbMedia::insert_record(const TableView &view, const std::string &store_table, std::int32_t position,
                               ModifiedMarks &marks) {
  std::byte *record = view.record(position);
  marks.remember(position);
  marks.clear(record);
  const std::span<std::byte> bytes = view.segment.subspan(static_cast<std::size_t>(record - view.segment.data()));
  has_plain_texts_ = true;
  // By design [RejectedInsertIgnored]: a row that the store does not take is missing there, and the save goes on.
  const std::string statement = insert_statement(store_table, bytes, view.field(0), view.field_count());
  run_unseen(statement, has_plain_texts_);
}

bool CRtdbMedia::save_all_rows(const TableView &view, const std::string &store_table, const VersionFields &fields,
                               ModifiedMarks &marks) {
  std::string statement = "DELETE FROM " + store_table;
  if (fields.project != nullptr) statement += " WHERE iProjectID = 0";
  // The count of rows may be a negative number in 16 bits; only an error ends the save.
  if (!run(statement.c_str(), TARGET_BOTH)) return false;
  const std::int32_t count = view.count();
  for (std::int32_t i = 0; i < count; ++i) insert_record(view, store_table, i, marks);
  return true;
}

bool CRtdbMedia::save_project_rows(const TableView &view, const std::string &store_table, const VersionFields &fields,
                                   int project, std::int32_t &end, ModifiedMarks &marks) {
  if (fields.modified == nullptr) return true;
  for (std::int32_t i = 0; i < end; ++i) {
    std::byte *record = view.record(i);
    const std::uint32_t key = view.key_of(record);
    if (key == 0 || version_value(view, record, *fields.modified) == 0) continue;
    const std::string statement = "DELETE FROM " + store_table +
                                  " WHERE ID = " + std::to_string(static_cast<std::int32_t>(key)) +
                                  " AND iProjectID = " + std::to_string(project);
    if (!run(statement.c_str(), TARGET_BOTH)) {
      end = i;
      return false;
    }
    insert_record(view, store_table, i, marks);
  }
  return true;
}

// Runs save(marks) in a transaction, which is kept when it is true. Otherwise the former rows stand and the records are
// marked as before.
template <class Save>
bool CRtdbMedia::keep(const TableView &view, const VersionFields &fields, Save save) {
  if (!begin_transaction()) return false;
  ModifiedMarks marks(view, fields.modified);
  bool kept = false;
  try {
    kept = save(marks) && commit_transaction();
  } catch (const std::exception &) {
    kept = false;
  }
  if (kept) return true;
  rollback_transaction();
  marks.restore();
  return false;
}

bool CRtdbMedia::SaveTable(CRtDataBase &database, CRtTable &table, int project) {
  open_for(database, false);
  const TableView view = TableView::of(table);
  if (!view || !passwords_are_whole(view, cipher_)) return false;
  const std::string store_table = store_table_name(database, table);
  const VersionFields fields = find_version_fields(view);
  if (project == 0 || fields.project == nullptr) {
    return keep(view, fields, [&](ModifiedMarks &marks) { return save_all_rows(view, store_table, fields, marks); });
  }
  const std::int32_t count = view.count();
  std::int32_t end = count;
  const auto save = [&](ModifiedMarks &marks) {
    return save_project_rows(view, store_table, fields, project, end, marks);
  };
  if (keep(view, fields, save)) return true;
  // A rejected DELETE ends the save and keeps the records before it. They are saved anew, because the database that did
  // run it would otherwise lose that row.
  if (end < count) (void)keep(view, fields, save);
  return false;
}

bool CRtdbMedia::SaveDataBase(CRtDataBase &database, int project) {
  open_for(database, false);
  return for_each_table(database, [&](CRtTable &table) { return SaveTable(database, table, project); });
}

bool CRtdbMedia::SaveAll(CRtdbManager &manager, int project) {
  return for_each_database(manager, [&](CRtDataBase &database) {
    if (database.AttachShareMemory() == 0) return;
    open_for(database, false);
    (void)SaveDataBase(database, project);
    (void)Close();  // the next database may lie in another file
    (void)database.DetachShareMemory();
  });
}

}  // namespace quillanest
