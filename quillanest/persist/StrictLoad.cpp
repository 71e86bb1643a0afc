// Loading in the strict mode.
#include <algorithm>
#include <utility>

#include "quillanest/base/Report.h"
#include "quillanest/kernel/KeySearch.h"
#include "quillanest/persist/StoreNames.h"
#include "quillanest/persist/StrictRows.h"
#include "quillanest/persist/StrictStore.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/FieldType.h"

namespace quillanest {

std::optional<RecordCopy> StrictStore::read(int slot, std::int32_t project, std::size_t most_rows) {
  try {
    // One row more than there is room for shows that there are too many.
    const RowSet rows = select(slot, rows_of_project(project), most_rows + 1);
    return records_of(view_, fields_, rows, most_rows, cipher_, name_);
  } catch (const _com_error &error) {
    report_error("store.query", {name_}, "the rows cannot be read: ", slot_name(slot), ": ",
                 reason_of(error.ErrorMessage()).view());
    return std::nullopt;
  }
}

// A backup without rows is a new one, which the next save fills: it has nothing that could be lost.
bool StrictStore::is_same(RecordCopy &main, RecordCopy &backup) {
  if (backup.count() == 0 && main.count() > 0) {
    report_warning("store.differs", {name_}, "main has ", main.count(),
                   " rows and backup none: the next save fills it");
    return true;
  }
  const std::int32_t both = std::min(main.count(), backup.count());
  std::int32_t at = 0;
  while (at < both && first_difference(fields_, main.record(at), backup.record(at)) == nullptr) ++at;
  if (at == main.count() && at == backup.count()) return true;
  report_error("store.differs", {name_}, "main has ", main.count(), " rows and backup ", backup.count(),
               ", and they differ from row ", at + 1,
               " on: say which one counts by BackDBType=-1, or by naming the "
               "other one as main");
  return false;
}

// The rows of the main database, or of the backup if it alone is open.
std::optional<RecordCopy> StrictStore::read_all(std::int32_t project, std::size_t most_rows) {
  std::optional<RecordCopy> rows;
  for (int slot = SLOT_MAIN; slot <= SLOT_BACKUP; ++slot) {
    if (connection_.connection(slot) == nullptr) continue;
    std::optional<RecordCopy> others = read(slot, project, most_rows);
    if (!others) return std::nullopt;
    if (!rows) {
      rows = std::move(others);
    } else if (!is_same(*rows, *others)) {
      return std::nullopt;
    }
  }
  return rows;
}

// Applies the rows of a project by key, except for passwords.
bool StrictStore::merge(CRtTable &table, RecordCopy &base, RecordCopy &rows) {
  std::int32_t added = 0;
  std::int32_t at = 0;
  for (std::int32_t row = 0; row < rows.count(); ++row) {
    while (at < base.count() && base.key_at(at) < rows.key_at(row)) ++at;
    added += at < base.count() && base.key_at(at) == rows.key_at(row) ? 0 : 1;
  }
  if (base.count() + added > view_.capacity()) {
    report_error("store.capacity", {name_}, "the table has room for ", view_.capacity(),
                 " records, and with those of the project the store has ", base.count() + added);
    return false;
  }
  if (!with_records_held(view_, name_, [&] { base.put_into(view_); })) return false;
  for (std::int32_t row = 0; row < rows.count(); ++row) {
    const std::span<std::byte> from = rows.record(row);
    const KeyPlace place = find_key(view_, rows.key_at(row));
    std::byte *record = view_.at(place.found ? place.position : table.Insert(rows.key_at(row), 0, 0));
    if (record == nullptr) return false;
    for (const _field_attr &field : fields_) {
      if (kind_of(field.FieldType) == Kind::kPassword) continue;
      const std::span<std::byte> value = field_bytes({record, view_.record_bytes()}, field);
      const std::span<std::byte> bytes = field_bytes(from, field);
      std::copy(bytes.begin(), bytes.end(), value.begin());
    }
  }
  return true;
}

bool StrictStore::load(CRtTable &table, int project) {
  if (!connection_.is_open()) {
    report_error("store.query", {name_}, "no database is open to read from");
    return false;
  }
  std::optional<RecordCopy> base = read_all(0, static_cast<std::size_t>(view_.capacity()));
  if (!base) return false;
  if (versions_.project == nullptr || project <= 0) {
    if (!with_records_held(view_, name_, [&] { base->put_into(view_); })) return false;
  } else {
    std::optional<RecordCopy> rows = read_all(project, static_cast<std::size_t>(view_.capacity()));
    if (!rows || !merge(table, *base, *rows)) return false;
  }
  view_.note_loaded();
  return true;
}

}  // namespace quillanest
