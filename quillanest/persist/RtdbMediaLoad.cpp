// Loading tables from the relational store.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>

#include "quillanest/base/Report.h"
#include "quillanest/base/Text.h"
#include "quillanest/kernel/KeySearch.h"
#include "quillanest/kernel/RtdbManager.h"
#include "quillanest/persist/Exact.h"
#include "quillanest/persist/Misfits.h"
#include "quillanest/persist/Passwords.h"
#include "quillanest/persist/RtdbMedia.h"
#include "quillanest/persist/StoreNames.h"
#include "quillanest/persist/StrictStore.h"
#include "quillanest/persist/Walks.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/FieldType.h"

namespace quillanest {
namespace {

// Stores as much of a text as the field holds with a terminator.
void store_text(const _field_attr &field, std::span<std::byte> value, std::string_view text) {
  const auto size = static_cast<std::size_t>(std::max(field.FieldSize, 0));
  const std::span<std::byte> room = value.first(std::min(value.size(), size));
  if (!room.empty()) copy_text(room, text.substr(0, room.size() - 1));
}

void convert_value(const _field_attr &field, std::span<std::byte> value, const Variant &column,
                   const PasswordCipher &cipher) {
  const FieldTypeInfo &type = field_type(field.FieldType);
  switch (type.kind) {
    case Kind::kCharacter:
      // By design [CharIsNumber]: the column holds a number, so a digit that was saved comes back as its value.
      return store_part(value, static_cast<std::uint8_t>(integer_content(column)));
    case Kind::kInteger:
      if (type.bytes == 2) return store_part(value, static_cast<std::uint16_t>(integer_content(column)));
      return store_part(value, integer_content(column));
    case Kind::kReal:
      if (type.bytes == 4) return store_part(value, to_float(column));
      return store_part(value, to_double(column));
    case Kind::kText:
      return store_text(field, value, to_text(column));
    case Kind::kTime:
      return store_part(value, to_date(column));
    case Kind::kPassword: {
      const std::string text = to_text(column);
      return store_text(field, value, text.empty() ? text : cipher.decrypt(text));
    }
    case Kind::kNone:
      return;
  }
}

// Whether a value of a store is in its field as a whole: a text that is not cut, an integer without a fraction.
bool is_kept(const _field_attr &field, const Variant &column) {
  if (const auto *text = std::get_if<std::string_view>(&column)) {
    return kind_of(field.FieldType) != Kind::kText || static_cast<std::int64_t>(text->size()) < field.FieldSize;
  }
  const auto *number = std::get_if<double>(&column);
  return number == nullptr || kind_of(field.FieldType) != Kind::kInteger || std::trunc(*number) == *number;
}

// An error names the field.
void store_value(const _field_attr &field, std::span<std::byte> value, const Variant &column,
                 const PasswordCipher &cipher) {
  try {
    convert_value(field, value, column, cipher);
  } catch (const _com_error &error) {
    const std::string name(block_text(field, offsetof(_field_attr, FieldName)));
    throw _com_error(error.Error(), "column " + name + ": " + error.ErrorMessage());
  }
}

// A table's fields, each with the column of a row set that has its name.
class ColumnMap {
 public:
  ColumnMap(const TableView &view, const RowSet &rows) : rows_(rows) {
    for (const _field_attr &field : fields_of(view)) {
      columns_.push_back({field, rows.column(block_text(field, offsetof(_field_attr, FieldName)))});
    }
  }

  // Fields without a column, whose values are empty from now on, and columns without a field, with which every INSERT
  // is rejected.
  void warn(std::string_view place) const noexcept {
    Misfits misfits(place, false);
    for (const Column &column : columns_) {
      if (column.index >= 0) continue;
      misfits.report_misfit("store.column", 0, "the store's table has no column ",
                            Quoted{block_text(column.field, offsetof(_field_attr, FieldName))},
                            ", so the next save loses rows or values");
    }
    if (rows_.column_count() > columns_.size()) {
      misfits.report_misfit("store.column", 0, "the store's table has ", rows_.column_count(), " columns, the table ",
                            columns_.size(), " fields, so the next save loses rows or values");
    }
  }

  // Stores a row in the record at an address of the table.
  void store_row(const TableView &view, std::byte *record, std::size_t row, const PasswordCipher &cipher,
                 Misfits &misfits) const {
    for (const Column &column : columns_) {
      const Variant content = value(row, column);
      store_value(column.field, view.value(record, column.field), content, cipher);
      if (is_kept(column.field, content)) [[likely]]
        continue;
      misfits.report_misfit("store.value", 0, "the row with the ID ", view.key_of(record), ": the value of ",
                            Quoted{block_text(column.field, offsetof(_field_attr, FieldName))},
                            " is not kept as a whole");
    }
  }

  struct Column {
    _field_attr field;
    int index;
  };
  [[nodiscard]] const std::vector<Column> &columns() const noexcept { return columns_; }
  [[nodiscard]] Variant value(std::size_t row, const Column &column) const {
    return column.index < 0 ? Variant() : rows_.value(row, column.index);
  }

 private:
  const RowSet &rows_;
  std::vector<Column> columns_;
};

std::string select_base(const std::string &store_table, const VersionFields &fields) {
  std::string query = "SELECT * FROM " + store_table;
  if (fields.project != nullptr) query += " WHERE iProjectID = 0";
  return query + " ORDER BY ID";
}

// The record that a project row changes: the one with its key, else a new one; null if the table is full.
std::byte *record_to_merge(CRtTable &table, const TableView &view, const Variant &id) {
  const std::uint32_t key = to_int32(id);
  // Key 0 names no record; a row that has it gets the next key.
  const KeyPlace place = key == 0 ? KeyPlace{false, 0} : find_key(view, key);
  return view.at(place.found ? place.position : table.Insert(key, 0, 0));
}

// Runs store(), which stores the values of a row. The error of one that does not convert is raised again with the names
// of table and column and the ID.
template <class Store>
auto named(CRtTable &table, const RowSet &rows, std::size_t row, Store store) {
  try {
    return store();
  } catch (const _com_error &error) {
    const int key = rows.column("ID");
    FixedText<400> text;
    text.add(place_of(*TableView::database(table), table));
    text.add(", ID ");
    text.add(key < 0 ? 0U : integer_content(rows.value(row, key)));
    text.add(": ");
    text.add(std::string_view(error.ErrorMessage()));
    report_error("store.value", {}, text.view());
    throw _com_error(error.Error(), text.c_str());
  }
}

// Applies one row of a project. The field "ID", which is the first one, selects the record. False if there is no room
// for a new one.
bool merge_row(CRtTable &table, const TableView &view, const ColumnMap &map, std::size_t row,
               const PasswordCipher &cipher) {
  std::byte *record = nullptr;
  for (const auto &column : map.columns()) {
    const Variant value = map.value(row, column);
    if (equal_ignoring_case(block_text(column.field, offsetof(_field_attr, FieldName)), "ID")) {
      record = record_to_merge(table, view, value);
    } else if (record != nullptr && kind_of(column.field.FieldType) != Kind::kPassword) {
      // By design [MergeKeepsPasswords]: the rows of a project never change a password.
      store_value(column.field, view.value(record, column.field), value, cipher);
    }
  }
  return record != nullptr;
}

}  // namespace

// Stores the reader's next `count` rows as the first records of the table.
void CRtdbMedia::store_rows(CRtTable &table, const TableView &view, int count) {
  connection_.MoveFirst();
  const RowSet *set = connection_.rows();
  if (set == nullptr) return view.note_order(true);
  const ColumnMap map(view, *set);
  const std::string place = place_of(*TableView::database(table), table);
  map.warn(place);
  Misfits misfits(place, false);
  KeyOrder order(view);  // the store orders, but perhaps not by unsigned numbers
  for (int i = 0; i < count; ++i, connection_.MoveNext()) {
    std::byte *record = view.record(i);
    const std::size_t row = connection_.row();
    named(table, *set, row, [&] { map.store_row(view, record, row, cipher_, misfits); });
    order.add(view.key_of(record));
  }
  order.complete();
  (void)misfits.allow_all();
}

bool CRtdbMedia::LoadTable(CRtDataBase &database, CRtTable &table, int project) {
  (void)open_for(database, !strict());
  const TableView view = TableView::of(table);
  if (!view) return report_not_attached(place_of(database, table));
  const std::string store_table = store_table_name(database, table);
  if (!allow_passwords(view, configuration_file_of(manager()), store_table, strict())) return false;
  if (strict()) return StrictStore(connection_, cipher_, view, store_table).load(table, project);
  return load_rows(table, view, store_table, project);
}

bool CRtdbMedia::load_rows(CRtTable &table, const TableView &view, const std::string &store_table, int project) {
  const VersionFields fields = find_version_fields(view);
  // One row more than the table holds shows that there are too many.
  const std::int32_t capacity = view.capacity();
  const std::size_t most_rows = static_cast<std::size_t>(capacity) + 1;
  if (!connection_.OpenRecordset(select_base(store_table, fields).c_str(), most_rows)) {
    if (connection_.is_open()) {
      report_error("store.query", {store_table}, "the rows cannot be read: ", connection_.failure());
    } else {
      report_error("store.query", {store_table}, "no database is open to read from");
    }
    return false;
  }

  const int found = connection_.GetRecordCount();
  const int count = std::min(found, capacity);
  store_rows(table, view, count);
  view.set_count(count);
  count_on_after(view, count);
  view.note_loaded();
  if (fields.project != nullptr && project > 0) {
    const std::string query = "SELECT * FROM " + store_table + " WHERE iProjectID = " + std::to_string(project);
    // By design [MergeFailureIgnored]: if the project's rows cannot be read, the load has the base rows and succeeds.
    if (!MergeProjectRows(table, (query + " ORDER BY ID").c_str())) {
      report_warning("store.project", {store_table}, "the rows of project ", project,
                     " cannot be read, so the table has its base rows alone: ", connection_.failure());
    }
  }
  if (count < found) {
    report_error("store.capacity", {store_table}, "the table is full with ", count, " records, and the store has more");
  }
  return count == found;
}

bool CRtdbMedia::MergeProjectRows(CRtTable &table, const char *query) {
  if (!connection_.OpenRecordset(query)) return false;
  const TableView view = TableView::of(table);
  connection_.MoveFirst();
  const RowSet *set = connection_.rows();
  if (!view || set == nullptr) return true;
  const ColumnMap map(view, *set);
  std::size_t lost = 0;
  for (; !connection_.IsEOF(); connection_.MoveNext()) {
    const std::size_t row = connection_.row();
    lost += named(table, *set, row, [&] { return merge_row(table, view, map, row, cipher_); }) ? 0U : 1U;
  }
  if (lost > 0) {
    report_warning("store.merge", {place_of(*TableView::database(table), table)}, lost,
                   " rows of the project are not merged, because the table is full");
  }
  return true;
}

bool CRtdbMedia::LoadDataBase(CRtDataBase &database, int project) {
  (void)open_for(database, !strict());
  return TableStore::LoadDataBase(database, project);
}

// All databases through one connection; the results of their tables are combined by "and".
bool CRtdbMedia::LoadAllCustomized(int project) {
  (void)open(Folder::kBaseline, !strict());
  bool result = true;
  const bool walked = for_each_database(manager(), [&](CRtDataBase &database) {
    if (database.GetDBID() == kSystemDatabaseID || database.AttachShareMemory() == 0) return;
    result = TableStore::LoadDataBase(database, project) && result;
    (void)database.DetachShareMemory();
  });
  return walked && result;
}

}  // namespace quillanest
