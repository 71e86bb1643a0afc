#include "tests/model/TableModel.h"

#include <cstring>
#include <iterator>
#include <string_view>

namespace quillanest::model {
namespace {

enum Action { kInsertAction = 2, kUpdateAction = 3, kDeleteAction = 4 };

std::int32_t number_at(const std::string &record, std::size_t offset) {
  std::int32_t value = 0;
  std::memcpy(&value, record.data() + offset, sizeof value);
  return value;
}

}  // namespace

std::uint32_t TableModel::key_of(const std::string &record) { return static_cast<std::uint32_t>(number_at(record, 0)); }

void TableModel::set_number(std::string &record, const char *field, std::int32_t value) const {
  if (const RandomField *found = table_->find(field)) std::memcpy(record.data() + found->offset, &value, sizeof value);
}

void TableModel::stamp(std::string &record, int project, int action) const {
  set_number(record, "bModified", 1);
  if (project == 0) return;
  set_number(record, "iProjectID", project);
  const RandomField *status = table_->find("iEditStatus");
  if (status == nullptr) return;
  const bool was_committed = number_at(record, status->offset) == EDIT_STATUS_COMMITTED;
  if (action == kInsertAction) set_number(record, "iEditStatus", EDIT_STATUS_INSERTED);
  if (action == kDeleteAction) set_number(record, "iEditStatus", EDIT_STATUS_DELETED);
  if (action == kUpdateAction && was_committed) set_number(record, "iEditStatus", EDIT_STATUS_UPDATED);
}

int TableModel::insert(std::string &record, int project) {
  if (count() >= table_->capacity) return -1;
  std::uint32_t key = key_of(record);
  if (key == 0) {
    if (next_key_ == 0) return -1;
    key = next_key_++;
    std::memcpy(record.data(), &key, sizeof key);
  } else if (records_.contains(key)) {
    return -2;
  } else if (place_of(key) == count()) {
    next_key_ = key + 1;
  }
  std::string stored = record;
  stamp(stored, project, kInsertAction);
  records_[key] = stored;
  return position_of(key);
}

int TableModel::update(const std::string &record, int project) {
  const auto found = records_.find(key_of(record));
  if (found == records_.end()) return -1;
  found->second = record;
  stamp(found->second, project, kUpdateAction);
  return position_of(found->first);
}

int TableModel::remove(std::uint32_t key, int hint, int project) {
  const bool by_place = key == 0;
  if (by_place && (hint < 0 || hint >= count())) return 0;
  if (by_place) key = key_at(hint);
  const auto found = records_.find(key);
  if (found == records_.end()) return 0;
  if (project != 0) {
    stamp(found->second, project, kDeleteAction);
    return 1;
  }
  records_.erase(found);
  if (key == next_key_ - 1) next_key_ = records_.empty() ? 1 : records_.rbegin()->first + 1;
  return 1;
}

bool TableModel::stamp_at(int position, int project, int action) {
  if (position < 0 || position >= count()) return false;
  stamp(records_[key_at(position)], project, action);
  return true;
}

void TableModel::clear() {
  records_.clear();
  next_key_ = 1;
}

void TableModel::write(int position, std::size_t offset, std::string_view bytes) {
  bytes.copy(records_[key_at(position)].data() + offset, bytes.size());
}

int TableModel::place_of(std::uint32_t key) const {
  return static_cast<int>(std::distance(records_.begin(), records_.lower_bound(key)));
}

int TableModel::position_of(std::uint32_t key) const { return records_.contains(key) ? place_of(key) : -1; }

std::uint32_t TableModel::key_at(int position) const { return std::next(records_.begin(), position)->first; }

const std::string &TableModel::record_at(int position) const { return std::next(records_.begin(), position)->second; }

bool TableModel::is_modified() const {
  const RandomField *field = table_->find("bModified");
  if (field == nullptr) return false;
  for (const auto &[key, record] : records_) {
    if (number_at(record, field->offset) == 1) return true;
  }
  return false;
}

bool TableModel::matches(const CRtTable &table) const {
  if (table.GetRecordCount() != count()) return false;
  int position = 0;
  for (const auto &[key, record] : records_) {
    const char *stored = table.GetAt(position++);
    if (stored == nullptr || std::memcmp(stored, record.data(), record.size()) != 0) return false;
  }
  return table.GetAt(position) == nullptr;
}

bool TableModel::adopt(CRtTable &table) {
  clear();
  next_key_ = table.GetTableInfo()->IDExclusive;
  std::uint32_t last = 0;
  for (int position = 0; position < table.GetRecordCount(); ++position) {
    const std::string record(table.GetAt(position), table_->record_size);
    if (key_of(record) <= last) {
      clear();
      return false;
    }
    last = key_of(record);
    records_[last] = record;
  }
  // 0 means that no key is left.
  return next_key_ == 0 || next_key_ > last;
}

}  // namespace quillanest::model
