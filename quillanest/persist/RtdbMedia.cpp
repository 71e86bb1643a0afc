// Saving tables into the relational store, and the walks over databases.
#include "quillanest/persist/RtdbMedia.h"

#include "quillanest/base/Neutral.h"
#include "quillanest/base/Report.h"
#include "quillanest/kernel/RtdbManager.h"
#include "quillanest/kernel/ValueText.h"
#include "quillanest/persist/ModifiedMarks.h"
#include "quillanest/persist/Passwords.h"
#include "quillanest/persist/StoreNames.h"
#include "quillanest/persist/StrictStore.h"
#include "quillanest/settings/DataFolders.h"
#include "quillanest/shm/FieldType.h"

namespace quillanest {
namespace {

// Whether a text between quotes ends at the closing one, which it does if its own quotes come in pairs. `escapes`: a
// backslash escapes the next character.
bool has_pairs_of_quotes(std::string_view text, bool escapes) {
  for (std::size_t i = 0; i < text.size(); i += 2) {
    i = text.find_first_of(escapes ? "'\\" : "'", i);
    if (i == std::string_view::npos) return true;
    const bool is_pair = i + 1 < text.size() && (text[i] == '\\' || text[i + 1] == '\'');
    if (!is_pair) return false;
  }
  return true;
}

bool is_digit(std::string_view text) { return text.size() == 1 && text[0] >= '0' && text[0] <= '9'; }

bool report_rejected_delete(std::string_view store_table, std::string_view reason) noexcept {
  report_error("store.delete", {store_table},
               "a database rejects the DELETE of the former rows, which ends the save: ", reason);
  return false;
}

// Records that carry the edits of projects are no base rows, so a full save leaves their keys without one.
void warn_of_edits(const TableView &view, const VersionFields &versions, std::string_view store_table) {
  if (versions.project == nullptr) return;
  std::int32_t edited = 0;
  const std::int32_t count = view.count();
  for (std::int32_t i = 0; i < count; ++i) {
    edited += version_value(view, view.record(i), *versions.project) != 0 ? 1 : 0;
  }
  if (edited == 0) return;
  report_warning("store.edits", {store_table}, edited,
                 " records carry edits of projects: they are saved as rows of those projects, and have no base row");
}

// Whether a project save writes the record.
bool is_changed(const TableView &view, std::byte *record, const _field_attr &modified) {
  return view.key_of(record) != 0 && version_value(view, record, modified) != 0;
}

}  // namespace

// A table that is being saved.
struct CRtdbMedia::Source {
  TableView view;
  std::string store_table;
  FieldList fields;
  VersionFields versions;
  mutable Refusals left_out = {};  // records whose statements were not sent
};

// A statement that inserts a record.
struct CRtdbMedia::Insert {
  Statement statement;
  bool is_whole = true;  // no value ends early or runs on into the next one
};

bool CRtdbMedia::has_changes(const Source &source) {
  const std::int32_t count = source.versions.modified == nullptr ? 0 : source.view.count();
  for (std::int32_t i = 0; i < count; ++i) {
    if (is_changed(source.view, source.view.record(i), *source.versions.modified)) return true;
  }
  return false;
}

FieldList fields_of(const TableView &view) {
  const std::span<const _field_attr> fields = view.all_fields();
  return {fields.begin(), fields.end()};
}

// Whether every open database, by its own rules, reads a quoted text to its end and not further.
bool CRtdbMedia::stays_in_quotes(std::string_view text) {
  if (text.find('\\') == std::string_view::npos) return has_pairs_of_quotes(text, false);
  const CDbConnection::Backslashes found = connection_.backslashes();
  return (!found.plain || has_pairs_of_quotes(text, false)) && (!found.escapes || has_pairs_of_quotes(text, true));
}

CRtdbMedia::CRtdbMedia(CRtdbManager &manager)
    : TableStore(manager), cipher_(PasswordCipher::from_configuration(configuration_file_of(manager))) {
  connection_.SetIniFile(configuration_file_of(manager).c_str());
  connection_.SetSection("RtdbMedia");
  connection_.wait_once();
}

// A file database is in the folder of the system database or of the baseline.
int CRtdbMedia::open(Folder folder, bool first_only) {
  const auto data_source = [&](int type, const std::string &name) -> std::optional<std::string> {
    if (type != DB_TYPE_JET) return name;
    const DataFolders folders(configuration_file_of(manager()), data_path_of(manager()));
    const std::optional<std::string> path =
        folder == Folder::kSystem ? folders.system_folder() : folders.baseline_folder();
    if (!path || name.empty()) return std::nullopt;
    return *path + name;
  };
  // By design [OpenNeverFails]: this is a mask, never the -1 of a failure, so no operation ends with it.
  return connection_.Open(first_only, data_source);
}

int CRtdbMedia::open_for(CRtDataBase &database, bool first_only) {
  return open(database.GetDBID() == kSystemDatabaseID ? Folder::kSystem : Folder::kBaseline, first_only);
}

void CRtdbMedia::append_value(Insert &insert, const _field_attr &field, std::span<std::byte> value) {
  const Dialect &dialect = dialect_of_type(connection_.GetCurrentType());
  Statement &statement = insert.statement;
  std::string text;
  append_value_text(field.FieldType, value, cipher_, text);
  switch (kind_of(field.FieldType)) {
    case Kind::kText:
    case Kind::kPassword:
      statement.is_plain = statement.is_plain && text.find_first_of("'\\") == std::string::npos;
      // By design [QuotesNotEscaped]: a text goes into its quotes as it is. One that would end them early breaks its
      // statement.
      insert.is_whole = insert.is_whole && stays_in_quotes(text);
      statement.text.append("'").append(text.empty() ? dialect.empty_text : std::string_view(text)).append("'");
      return;
    case Kind::kTime:
      statement.text.append(dialect.date_start).append(text).append(dialect.date_end);
      return;
    case Kind::kCharacter:
      // A text other than a digit would not be a value, or would begin something else.
      insert.is_whole = insert.is_whole && is_digit(text);
      statement.text += text;
      return;
    case Kind::kInteger:
    case Kind::kReal:
    case Kind::kNone:
      statement.text += text;
      return;
  }
}

CRtdbMedia::Insert CRtdbMedia::insert_statement(const std::string &store_table, std::span<std::byte> record,
                                                const FieldList &fields) {
  Insert insert{{"INSERT INTO " + store_table + " VALUES("}};
  for (std::size_t i = 0; i < fields.size(); ++i) {
    const std::int32_t offset = fields[i].FieldOffset;
    const bool inside = offset >= 0 && static_cast<std::size_t>(offset) < record.size();
    append_value(insert, fields[i], inside ? record.subspan(static_cast<std::size_t>(offset)) : std::span<std::byte>());
    insert.statement.text += i + 1 < fields.size() ? ',' : ')';
  }
  return insert;
}

bool CRtdbMedia::InsertRecord(const std::string &store_table, std::span<std::byte> record, const FieldList &fields) {
  const Insert insert = insert_statement(store_table, record, fields);
  return insert.is_whole && connection_.Execute(insert.statement.text.c_str(), TARGET_BOTH) == 1;
}

bool CRtdbMedia::DeleteRows(const std::string &store_table, const std::string &condition) {
  const std::string statement = "DELETE FROM " + store_table + " WHERE " + condition;
  return connection_.Execute(statement.c_str(), TARGET_BOTH) >= 0;
}

void CRtdbMedia::insert_record(const Source &source, std::int32_t position, ModifiedMarks &marks) {
  const TableView &view = source.view;
  std::byte *record = view.record(position);
  marks.remember(position);
  marks.clear(record);
  const std::span<std::byte> bytes = view.segment.subspan(static_cast<std::size_t>(record - view.segment.data()));
  // By design [RejectedInsertIgnored]: a row that the store rejects is missing there, and the save goes on. A broken
  // statement is not even sent, because a store might read something else in it that changes other rows.
  const Insert insert = insert_statement(source.store_table, bytes, source.fields);
  const std::uint32_t key = view.key_of(bytes.data());
  if (insert.is_whole) return connection_.run_deferred(insert.statement, key);
  Reason reason;
  reason.add("a text in it would end its quotes early, or a character is not a digit");
  source.left_out.add(key, reason);
}

bool CRtdbMedia::save_all_rows(const Source &source, ModifiedMarks &marks) {
  std::string statement = "DELETE FROM " + source.store_table;
  if (source.versions.project != nullptr) statement += " WHERE iProjectID = 0";
  // Not Execute: its 16-bit count can be negative without an error, and only an error ends the save.
  if (!connection_.run(statement.c_str(), TARGET_BOTH)) {
    return report_rejected_delete(source.store_table, connection_.failure());
  }
  warn_of_edits(source.view, source.versions, source.store_table);
  const std::int32_t count = source.view.count();
  for (std::int32_t i = 0; i < count; ++i) insert_record(source, i, marks);
  return true;
}

bool CRtdbMedia::save_project_rows(const Source &source, int project, ModifiedMarks &marks) {
  const TableView &view = source.view;
  const std::int32_t count = view.count();
  for (std::int32_t i = 0; i < count; ++i) {
    if (!is_changed(view, view.record(i), *source.versions.modified)) continue;
    const auto key = static_cast<std::int32_t>(view.key_at(i));
    const std::string statement = "DELETE FROM " + source.store_table + " WHERE ID = " + std::to_string(key) +
                                  " AND iProjectID = " + std::to_string(project);
    if (!connection_.run(statement.c_str(), TARGET_BOTH)) {
      return report_rejected_delete(source.store_table, connection_.failure());
    }
    insert_record(source, i, marks);
  }
  return true;
}

// Runs save(marks) in a transaction. Its changes are kept, also if it ends early; if they cannot be kept, the store has
// the former rows and the records are marked as before.
template <class Save>
bool CRtdbMedia::keep(const Source &source, Save save) {
  if (!connection_.begin_transaction()) {
    report_error("store.begin", {source.store_table},
                 "a database refuses a transaction, and nothing is changed: ", connection_.failure());
    return false;
  }
  ModifiedMarks marks(source.view, source.versions.modified);
  bool saved = false;
  const bool kept = neutral_on_failure(false, [&] {
    try {
      saved = save(marks);
      return connection_.commit_transaction();
    } catch (const _com_error &) {
      return false;
    }
  });
  if (!kept) {
    report_error("store.lost", {source.store_table},
                 "the changes could not be kept, and the former rows are in the store: ", connection_.failure());
    connection_.rollback_transaction();
    marks.restore();
  }
  Refusals refused = source.left_out;
  refused.add(connection_.refusals());
  report_refused(Severity::kWarning, source.store_table, refused, source.view.count());
  return saved && kept;
}

bool CRtdbMedia::SaveTable(CRtDataBase &database, CRtTable &table, int project) {
  (void)open_for(database, false);
  const TableView view = TableView::of(table);
  const std::string place = place_of(database, table);
  if (!view) return report_not_attached(place);
  if (!allow_passwords(view, configuration_file_of(manager()), place, strict())) return false;
  if (!passwords_are_whole(view, cipher_)) return report_cut_password(place);
  if (strict()) return StrictStore(connection_, cipher_, view, store_table_name(database, table)).save(project);
  if (!connection_.is_open()) {
    report_warning("store.closed", {place}, "no database is open: nothing is saved, and the marks are cleared");
  }
  const Source source{view, store_table_name(database, table), fields_of(view), find_version_fields(view)};
  if (project == 0 || source.versions.project == nullptr) {
    return keep(source, [&](ModifiedMarks &marks) { return save_all_rows(source, marks); });
  }
  // Without changes nothing is asked of the store, not even the right to write.
  if (!has_changes(source)) return true;
  return keep(source, [&](ModifiedMarks &marks) { return save_project_rows(source, project, marks); });
}

bool CRtdbMedia::SaveDataBase(CRtDataBase &database, int project) {
  (void)open_for(database, false);
  return TableStore::SaveDataBase(database, project);
}

// The next database may be in another file.
void CRtdbMedia::leave_database() { (void)connection_.Close(); }

}  // namespace quillanest
