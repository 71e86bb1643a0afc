#include "quillanest/persist/DbConnection.h"

#include <string_view>
#include <utility>

#include "quillanest/base/Report.h"
#include "quillanest/platform/Path.h"
#include "quillanest/settings/Configuration.h"
#include "quillanest/sql/ComError.h"
#include "quillanest/sql/OdbcHandle.h"

namespace quillanest {
namespace {

// Widths of the settings, terminator included.
constexpr std::size_t kNameSize = 64;
constexpr std::size_t kTextSize = 24;
constexpr std::size_t kConnectionStringSize = 200;

std::string_view key_prefix(int slot_number) { return slot_number == SLOT_MAIN ? "MainDB" : "BackDB"; }

// Whether a backslash in a text of the store begins an escape.
bool asks_for_escapes(Connection &connection) {
  try {
    const RowSet answer = connection.query("SELECT '\\\\'", 1);  // two backslashes, or one that is escaped
    return answer.row_count() == 1 && to_text(answer.value(0, 0)) == "\\";
  } catch (const _com_error &) {
    return false;  // some databases without escapes refuse a query without a table
  }
}

}  // namespace

std::string_view slot_name(int slot) noexcept { return slot == SLOT_MAIN ? "main" : "backup"; }

CDbConnection::~CDbConnection() {
  if (open_mask_ != 0) (void)Close();
}

std::optional<std::string> CDbConnection::GetDataSource(int slot_number, const DataSource &data_source) const {
  const Slot &slot = slots_[static_cast<std::size_t>(slot_number)];
  return data_source ? data_source(slot.type, slot.name) : slot.name;
}

void CDbConnection::SetIniFile(const char *path) { ini_file_ = path; }

void CDbConnection::SetSection(const char *section) { section_ = section; }

// A text of a slot, whose key is `key` after the slot's prefix, cut to what `size` bytes hold with a terminator.
std::string CDbConnection::setting(int slot_number, std::string_view key, std::size_t size) const {
  std::string text = profile_text(ini_file_, section_, std::string(key_prefix(slot_number)) += key);
  if (text.size() >= size) {
    if (!has_opened_) {
      report_warning("store.settings", {slot_name(slot_number)}, "the value of ", key, " has more than ", size - 1,
                     " characters, and is cut");
    }
    text.resize(size - 1);
  }
  return text;
}

void CDbConnection::ReadConfig() {
  for (int number = SLOT_MAIN; number <= SLOT_BACKUP; ++number) {
    Slot &slot = slots_[static_cast<std::size_t>(number)];
    // By design [BackupByDefault]: a type that the file does not name is 0, so a configuration without a backup tries
    // one of type SQL Server at every open. The empty data source makes that fail at once.
    slot.type = profile_int(ini_file_, section_, std::string(key_prefix(number)) += "Type", 0);
    slot.name = setting(number, "Name", kNameSize);
    slot.user = setting(number, "User", kTextSize);
    slot.password = setting(number, "Passwd", kTextSize);
    slot.init_db = setting(number, "InitDB", kTextSize);
    slot.conn_group = setting(number, "ConnStrIniGroup", kTextSize);
    slot.conn_key = setting(number, "ConnStrIniKey", kTextSize);
  }
}

// The connection string of a slot; nothing for an unknown type, an unusable data source, or a string that is too long.
// Nothing in it is escaped.
std::optional<std::string> CDbConnection::connection_string(int slot_number, const DataSource &data_source) const {
  const Slot &slot = slots_[static_cast<std::size_t>(slot_number)];
  if (slot.type == DB_TYPE_INI_CONNSTR) {
    const std::string file = folder_of(ini_file_) + slot.name;
    return profile_text(file, slot.conn_group, slot.conn_key).substr(0, kConnectionStringSize - 1);
  }
  const Dialect &dialect = dialect_of_type(slot.type);
  if (dialect.engine == EngineKind::kNone) return std::nullopt;
  const std::optional<std::string> source = GetDataSource(slot_number, data_source);
  if (!source) return std::nullopt;
  std::string text(dialect.provider_words);
  text += "User ID=" + slot.user + ";Password=" + slot.password + ";Data Source=" + *source;
  if (!dialect.catalogue_word.empty()) text.append(";").append(dialect.catalogue_word).append("=" + slot.init_db);
  if (text.size() >= kConnectionStringSize) return std::nullopt;
  return text;
}

// A type of -1 says that there is no such database.
void CDbConnection::report_no_source(int slot_number) const noexcept {
  const Slot &slot = slots_[static_cast<std::size_t>(slot_number)];
  if (has_opened_ || !is_wanted(slot_number)) return;
  if (slot.type != DB_TYPE_INI_CONNSTR && dialect(slot_number).engine == EngineKind::kNone) {
    report_warning("store.settings", {slot_name(slot_number)}, "the type ", slot.type, " is not one of a database");
    return;
  }
  report_warning("store.settings", {slot_name(slot_number)},
                 "the database has no name, its folder does not exist, or its settings are longer than 199 characters");
}

bool CDbConnection::is_wanted(int slot_number) const noexcept {
  const Slot &slot = slots_[static_cast<std::size_t>(slot_number)];
  return slot.type >= 0 && (slot.type != DB_TYPE_SQLSERVER || !slot.name.empty());
}

// A backup that the configuration does not ask for is tried, but not missed.
void CDbConnection::report_failed_open(int slot_number, const _com_error &error) const noexcept {
  if (slot_number == SLOT_BACKUP && !is_wanted(slot_number)) return;
  Sentence sentence;
  sentence.add("the database cannot be opened: ");
  if (is_wanted(slot_number)) {
    sentence.add(reason_of(error.ErrorMessage()).view());
  } else {
    sentence.add("none is configured, and DataInFile is 0 or missing");
  }
  const bool repeats = error.Error() == kSourceStillHangs;
  report(Severity::kWarning, "store.open", {slot_name(slot_number)}, sentence, repeats ? To::kThread : To::kHandler);
}

void CDbConnection::note_failure(int slot_number, const _com_error &error) noexcept {
  failure_.clear();
  failure_.add(slot_name(slot_number));
  failure_.add(": ");
  failure_.add(reason_of(error.ErrorMessage()).view());
}

Connection *CDbConnection::connection(int slot_number) noexcept {
  return slots_[static_cast<std::size_t>(slot_number)].connection.get();
}

const Dialect &CDbConnection::dialect(int slot_number) const noexcept {
  return dialect_of_type(slots_[static_cast<std::size_t>(slot_number)].type);
}

bool CDbConnection::reads_escapes(int slot_number) {
  Slot &slot = slots_[static_cast<std::size_t>(slot_number)];
  if (!slot.reads_escapes) slot.reads_escapes = asks_for_escapes(*slot.connection);
  return *slot.reads_escapes;
}

bool CDbConnection::open_slot(int slot_number, const DataSource &data_source) {
  Slot &slot = slots_[static_cast<std::size_t>(slot_number)];
  slot.rows.reset();
  slot.connection.reset();
  const std::optional<std::string> text = connection_string(slot_number, data_source);
  if (!text) {
    report_no_source(slot_number);
    return false;
  }
  const bool again = waits_once_ && *text == slot.tried;
  if (again && slot.failed) return false;
  std::unique_ptr<Connection> locked = std::move(slot.locked);
  slot.tried = *text;
  slot.failed = false;
  try {
    slot.connection = again && locked != nullptr ? std::move(locked) : Connection::open(*text);
  } catch (const _com_error &error) {
    slot.failed = true;
    report_failed_open(slot_number, error);
  }
  return !slot.failed;
}

int CDbConnection::Open(bool firstOnly, const DataSource &data_source) {
  if (open_mask_ > 0) return open_mask_;
  ReadConfig();
  for (int slot = SLOT_MAIN; slot <= SLOT_BACKUP; ++slot) {
    if (!open_slot(slot, data_source)) continue;
    open_mask_ |= 1 << slot;
    if (firstOnly) break;
  }
  has_opened_ = true;
  current_slot_ = (open_mask_ & 1) != 0 ? SLOT_MAIN : (open_mask_ & 2) != 0 ? SLOT_BACKUP : -1;
  return open_mask_;
}

bool CDbConnection::Close() {
  for (Slot &slot : slots_) {
    slot.rows.reset();
    slot.reads_escapes.reset();
    const bool locked = slot.connection != nullptr && slot.connection->is_locked();
    if (locked && waits_once_) slot.locked = std::move(slot.connection);
    slot.connection.reset();
  }
  open_mask_ = 0;
  current_slot_ = -1;
  return true;
}

std::optional<std::int64_t> CDbConnection::run(const char *statement, int targets) {
  std::int64_t changed = 0;
  for (int slot = SLOT_MAIN; slot <= SLOT_BACKUP; ++slot) {
    if ((targets & open_mask_ & (1 << slot)) == 0) continue;
    try {
      changed = slots_[static_cast<std::size_t>(slot)].connection->execute(statement);
    } catch (const _com_error &error) {
      // By design [FirstErrorStops]: the slots after a failing one do not run the statement.
      note_failure(slot, error);
      return std::nullopt;
    }
  }
  return changed;
}

void CDbConnection::run_deferred(const Statement &statement, std::int64_t tag) {
  // With two slots the second one waits for the result of the first one.
  const bool alone = (open_mask_ & (open_mask_ - 1)) == 0;
  if (statement.is_plain && alone && current() != nullptr) {
    return current()->connection->execute_deferred(statement.text, tag);
  }
  if (run(statement.text.c_str(), TARGET_BOTH)) return;
  const std::string_view values = std::string_view(statement.text).substr(statement.text.find(" VALUES("));
  refusals_.add(tag, reason_of(failure_.view(), values));
}

Refusals CDbConnection::refusals() const {
  Refusals all = refusals_;
  for (const Slot &slot : slots_) {
    if (slot.connection != nullptr) all.add(slot.connection->refusals());
  }
  return all;
}

CDbConnection::Backslashes CDbConnection::backslashes() {
  Backslashes found;
  for (int slot = SLOT_MAIN; slot <= SLOT_BACKUP; ++slot) {
    if (connection(slot) != nullptr) (reads_escapes(slot) ? found.escapes : found.plain) = true;
  }
  return found;
}

int CDbConnection::Execute(const char *statement, int targets) {
  const std::optional<std::int64_t> changed = run(statement, targets);
  // By design [CountOfLastSlot]: only the last slot's count is reported, in 16 bits.
  return changed ? static_cast<std::int16_t>(*changed) : -1;
}

CDbConnection::Slot *CDbConnection::current() {
  return current_slot_ < 0 ? nullptr : &slots_[static_cast<std::size_t>(current_slot_)];
}

const CDbConnection::Slot *CDbConnection::current() const {
  return current_slot_ < 0 ? nullptr : &slots_[static_cast<std::size_t>(current_slot_)];
}

int CDbConnection::GetCurrentType() const {
  const Slot *slot = current();
  return slot == nullptr ? -1 : slot->type;
}

bool CDbConnection::begin_transaction() {
  refusals_.clear();
  for (int slot = SLOT_MAIN; slot <= SLOT_BACKUP; ++slot) {
    if (connection(slot) == nullptr) continue;
    connection(slot)->refusals().clear();
    try {
      connection(slot)->begin();
    } catch (const _com_error &error) {
      note_failure(slot, error);
      rollback_transaction();
      return false;
    }
  }
  return true;
}

bool CDbConnection::commit_transaction() {
  bool result = true;
  for (int slot = SLOT_MAIN; slot <= SLOT_BACKUP; ++slot) {
    if (connection(slot) == nullptr) continue;
    try {
      // A slot after one that failed is rolled back, or the backup would have rows that the main database lacks.
      if (result) connection(slot)->commit();
    } catch (const _com_error &error) {
      note_failure(slot, error);
      result = false;
    }
    if (!result) connection(slot)->rollback();
  }
  return result;
}

void CDbConnection::rollback_transaction() noexcept {
  for (const Slot &slot : slots_) {
    if (slot.connection != nullptr) slot.connection->rollback();
  }
}

}  // namespace quillanest
