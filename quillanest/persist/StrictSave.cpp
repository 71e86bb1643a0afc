// Saving in the strict mode.
#include <algorithm>
#include <set>

#include "quillanest/base/Neutral.h"
#include "quillanest/base/Report.h"
#include "quillanest/persist/StoreNames.h"
#include "quillanest/persist/StrictRows.h"
#include "quillanest/persist/StrictStore.h"
#include "quillanest/shm/Bytes.h"

namespace quillanest {

StrictStore::StrictStore(CDbConnection &connection, const PasswordCipher &cipher, const TableView &view,
                         std::string store_table)
    : connection_(connection),
      cipher_(cipher),
      view_(view),
      name_(std::move(store_table)),
      fields_(fields_of(view)),
      versions_(find_version_fields(view)) {}

std::int32_t StrictStore::project_of(std::span<std::byte> record) const noexcept {
  if (versions_.project == nullptr) return 0;
  return load_part<std::int32_t>(field_bytes(record, *versions_.project));
}

// " WHERE iProjectID = 5", or nothing for a table without projects.
std::string StrictStore::rows_of_project(std::int32_t project) const {
  std::string condition;
  if (versions_.project != nullptr) condition.append(" WHERE iProjectID = ").append(std::to_string(project));
  return condition;
}

RowSet StrictStore::select(int slot, const std::string &condition, std::size_t most_rows) {
  return connection_.connection(slot)->query("SELECT * FROM " + name_ + condition + " ORDER BY ID", most_rows);
}

// Both or none: a database that misses a save would come back with older rows.
bool StrictStore::all_slots_are_open() {
  bool open = connection_.is_open();
  for (int slot = SLOT_MAIN; slot <= SLOT_BACKUP; ++slot) {
    open = open && (connection_.connection(slot) != nullptr || !connection_.is_wanted(slot));
  }
  if (!open) {
    report_error("store.closed", {name_}, "a database that the configuration names is not open: nothing is saved");
  }
  return open;
}

// Runs work(slot) for every open slot until one fails. An error of the data-access layer is a failure.
template <class Work>
bool StrictStore::each_slot(Work work) {
  for (int slot = SLOT_MAIN; slot <= SLOT_BACKUP; ++slot) {
    if (connection_.connection(slot) == nullptr) continue;
    try {
      if (!work(slot)) return false;
    } catch (const _com_error &error) {
      report_error("store.statement", {name_}, slot_name(slot), ": ", reason_of(error.ErrorMessage()).view());
      return false;
    }
  }
  return true;
}

// The records to save; their marks are remembered and cleared, in the image and in the copy.
StrictStore::Batches StrictStore::choose(RecordCopy &records, int project, ModifiedMarks &marks) {
  Batches batches;
  if (project == 0) batches[0] = {};  // base rows are looked at also if none is written
  for (std::int32_t i = 0; i < records.count(); ++i) {
    const std::span<std::byte> record = records.record(i);
    const std::int32_t owner = project_of(record);
    std::span<std::byte> mark;
    if (versions_.modified != nullptr) mark = field_bytes(record, *versions_.modified);
    const bool is_marked = versions_.modified == nullptr || load_part<std::int32_t>(mark) != 0;
    if (project != 0 && (owner != project || !is_marked)) continue;
    marks.remember(i);
    marks.clear(view_.record(i));
    std::fill(mark.begin(), mark.end(), std::byte{0});
    batches[owner].push_back(i);
  }
  return batches;
}

void StrictStore::delete_former(Connection &store, RecordCopy &records, const Batches &batches, bool whole) {
  std::string edited;
  for (const auto &[project, positions] : batches) {
    if (project == 0) continue;
    for (const std::int32_t position : positions) {
      const std::string key = std::to_string(records.key_at(position));
      if (!edited.empty()) edited += ',';
      edited += key;
      (void)store.execute("DELETE FROM " + name_ + rows_of_project(project) + " AND ID = " + key);
    }
  }
  if (!whole) return;
  std::string statement = "DELETE FROM " + name_ + rows_of_project(0);
  // What the base row of an edited record holds is not in the image.
  if (!edited.empty()) statement.append(" AND ID NOT IN (").append(edited).append(")");
  (void)store.execute(statement);
}

// Names the columns as the store does.
bool StrictStore::begin_inserts(int slot) {
  Misfits misfits(name_, true);
  const RowSet none = connection_.connection(slot)->query("SELECT * FROM " + name_ + " WHERE 1 = 0", 1);
  const StrictColumns columns(fields_, none, misfits);
  if (!misfits.allow_all()) return false;
  const Dialect &dialect = connection_.dialect(slot);
  InsertForm form{name_, columns.names(), dialect.date_start, dialect.date_end};
  if (dialect.engine == EngineKind::kSqlite) form.date_start = form.date_end = "'";
  form.escapes_backslashes = connection_.reads_escapes(slot);
  connection_.connection(slot)->begin_inserts(form);
  return true;
}

bool StrictStore::write(int slot, RecordCopy &records, const Batches &batches, bool whole) {
  if (!begin_inserts(slot)) return false;
  Connection &store = *connection_.connection(slot);
  delete_former(store, records, batches, whole);
  RowValues values(fields_, cipher_);
  for (const auto &[project, positions] : batches) {
    for (const std::int32_t position : positions) {
      store.insert_row(values.of(records.record(position)), records.key_at(position));
    }
  }
  const bool comes = comes_back(slot, records, batches);
  report_refused(Severity::kError, name_, store.refusals(), records.count());
  return comes && store.refusals().count() == 0;
}

// Reads in the same transaction what was written.
bool StrictStore::comes_back(int slot, RecordCopy &records, const Batches &batches) {
  for (const auto &[project, positions] : batches) {
    const RowSet rows = select(slot, rows_of_project(project), kAllRows);
    if (connection_.connection(slot)->refusals().count() > 0) return false;  // which are reported instead
    std::optional<RecordCopy> found = records_of(view_, fields_, rows, rows.row_count(), cipher_, name_);
    if (!found || !is_stored(*found, records, positions)) return false;
    if (project == 0) warn_of_edits(*found, records, batches);
  }
  return true;
}

// Records with the edits of a project whose base row the store does not have, which a load of project 0 will not show.
void StrictStore::warn_of_edits(RecordCopy &base, RecordCopy &records, const Batches &batches) {
  std::set<std::uint32_t> keys;
  for (const auto &[project, positions] : batches) {
    for (const std::int32_t position : positions) keys.insert(records.key_at(position));
  }
  for (std::int32_t i = 0; i < base.count(); ++i) keys.erase(base.key_at(i));
  if (keys.empty()) return;
  report_warning("store.edits", {name_}, keys.size(),
                 " records carry edits of projects and have no base row: a load of project 0 does not have them");
}

// Whether the records at these positions are among those found, which ascend.
bool StrictStore::is_stored(RecordCopy &found, RecordCopy &records, const std::vector<std::int32_t> &positions) {
  Misfits misfits(name_, true);
  std::int32_t at = 0;
  for (const std::int32_t position : positions) {
    const std::uint32_t key = records.key_at(position);
    while (at < found.count() && found.key_at(at) < key) ++at;
    const bool is_there = at < found.count() && found.key_at(at) == key;
    const _field_attr *different =
        is_there ? first_difference(fields_, records.record(position), found.record(at)) : nullptr;
    if (is_there && different == nullptr) continue;
    misfits.report_misfit(
        "store.not_exact", 0, "the record with the ID ", key,
        is_there ? ": the store changes the value of " : " does not come back: keys have to ascend",
        different == nullptr ? std::string_view() : block_text(*different, offsetof(_field_attr, FieldName)));
  }
  return misfits.allow_all();
}

bool StrictStore::save(int project) {
  if (!all_slots_are_open()) return false;
  if (!view_.was_loaded()) return report_not_loaded(name_);
  const bool whole = project == 0 || versions_.project == nullptr;
  ModifiedMarks marks(view_, versions_.modified);
  bool written = true;  // or the reason is reported
  const bool saved = neutral_on_failure(false, [&] {
    RecordCopy records(view_, 0);
    Batches batches;
    const bool copied = with_records_held(view_, name_, [&] {
      records = RecordCopy::of(view_);
      batches = choose(records, whole ? 0 : project, marks);
    });
    if (!copied) return written = false;
    if (!whole && batches.empty()) return true;
    if (!connection_.begin_transaction()) return false;
    written = each_slot([&](int slot) { return write(slot, records, batches, whole); });
    return written && connection_.commit_transaction();
  });
  if (saved) return true;
  if (written) {
    report_error("store.lost", {name_},
                 "the changes could not be kept, and the former rows are in the store: ", connection_.failure());
  }
  connection_.rollback_transaction();
  marks.restore();
  return false;
}

}  // namespace quillanest
