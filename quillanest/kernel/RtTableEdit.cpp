// Inserting, updating and deleting records under the database's mutex, and their version stamps.
#include <algorithm>
#include <cstring>
#include <new>
#include <span>
#include <string_view>
#include <vector>

#include "quillanest/kernel/KeySearch.h"
#include "quillanest/kernel/RtTable.h"
#include "quillanest/kernel/VersionFields.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/HeldMutex.h"

using quillanest::as_bytes;
using quillanest::find_key_near;
using quillanest::KeyPlace;
using quillanest::TableView;

namespace quillanest {
namespace {

bool stamp_at(const TableView &view, std::int32_t position, int project, int action) {
  std::byte *record = view.at(position);
  if (record == nullptr) return false;
  stamp(view, record, project, action);
  return true;
}

// Removes the record from the area: later records move down, the freed slot is zeroed. False if there is no such
// record.
bool remove_record(const TableView &view, std::int32_t position) {
  const std::int32_t last = view.count() - 1;
  if (position < 0 || position > last) return false;  // another thread was faster
  std::byte *record = view.record(position);
  const std::uint32_t key = view.key_of(record);
  std::memmove(record, view.record(position + 1), static_cast<std::size_t>(last - position) * view.record_bytes());
  std::memset(view.record(last), 0, view.record_bytes());
  view.set_count(last);
  if (last <= 1) view.note_order(true);
  if (key == load_shared(view.attr->IDExclusive) - 1) {
    store_shared(view.attr->IDExclusive, last > 0 ? view.key_at(last - 1) + 1 : std::uint32_t{1});
  }
  return true;
}

// The next key, which the table counts up; 0 if all keys are used up.
std::uint32_t issue_key(const TableView &view) {
  const std::uint32_t key = load_shared(view.attr->IDExclusive);
  if (key != 0) store_shared(view.attr->IDExclusive, key + 1);
  return key;
}

// Inlined, so that the view need not be in memory.
[[gnu::always_inline]] inline int insert(const TableView &view, char *record, int project) {
  if (!view.is_record(record)) return -1;
  // By design [CountBeforeLock]: the insert uses a count that is read before the mutex is taken.
  const std::int32_t count = view.count();
  if (count >= view.capacity() || load_shared(view.attr->RecordCount) < 0) return -1;
  const HeldMutex lock(mutex_name(view));
  if (!lock.is_open()) return -1;

  std::byte *buffer = as_bytes(record);
  std::uint32_t key = view.key_of(buffer);
  std::int32_t position = count;
  const bool issued = key == 0;
  if (issued) {
    key = issue_key(view);
    if (key == 0) return -1;
    view.set_key(buffer, key);
    if (count > 0 && key <= view.key_at(count - 1)) view.note_order(false);  // the counter was set below the last key
  } else {
    const KeyPlace place = find_key(view, key);
    if (place.found) return -2;
    position = place.position;
  }
  if (position < 0 || position > count) return -1;

  std::byte *slot = view.record(position);
  if (position < count) {
    std::memmove(slot + view.record_size, slot, static_cast<std::size_t>(count - position) * view.record_bytes());
  } else if (!issued) {
    // By design [ExplicitKeyMovesCounter]: a key placed at the end sets the counter to key + 1, also downwards.
    store_shared(view.attr->IDExclusive, key + 1);
  }
  std::memmove(slot, buffer, view.record_bytes());
  view.set_count(count + 1);
  (void)stamp_at(view, position, project, kInsertAction);
  return position;
}

}  // namespace

}  // namespace quillanest

using quillanest::insert;

int CRtTable::Insert(char *record, int projectID) { return insert(TableView::of(*this), record, projectID); }

int CRtTable::Insert(unsigned int key, int projectID, int fillDefaults) {
  const TableView view = TableView::of(*this);
  if (!view || !view.holds(1)) return -1;
  try {
    // At least one byte, so that the buffer has an address.
    std::vector<std::byte> record(std::max<std::size_t>(view.record_bytes(), 1));
    view.set_key(record.data(), key);
    // By design [DefaultReplacesKey]: defaults come after the key, so a default text on the key field replaces it.
    if (fillDefaults != 0) set_defaults(view, {record.data(), view.record_bytes()});
    return insert(view, quillanest::as_chars(record.data()), projectID);
  } catch (const std::bad_alloc &) {
    return -1;
  }
}

int CRtTable::Update(const char *record, int hint, int projectID) {
  const TableView view = TableView::of(*this);
  if (!view.is_record(record)) return -1;
  const std::byte *buffer = as_bytes(record);
  const KeyPlace place = find_key_near(view, view.key_of(buffer), hint);
  if (!place.found) return -1;
  const quillanest::HeldMutex lock(quillanest::mutex_name(view));
  if (!lock.is_open()) return -1;
  // By design [PositionNotRechecked]: the record is written at the position that was found before the mutex was taken.
  std::memmove(view.record(place.position), buffer, view.record_bytes());
  (void)quillanest::stamp_at(view, place.position, projectID, quillanest::kUpdateAction);
  return place.position;
}

int CRtTable::Delete(unsigned int key, int hint, int projectID) {
  const TableView view = TableView::of(*this);
  if (!view) return 0;
  // By design [KeyZeroDeletesByPosition]: with key 0 the hint is the position; the key of the record there does not
  // matter.
  const KeyPlace place = key != 0 ? find_key_near(view, key, hint) : KeyPlace{view.at(hint) != nullptr, hint};
  if (!place.found) return 0;
  const quillanest::HeldMutex lock(quillanest::mutex_name(view));
  if (!lock.is_open()) return 0;
  if (projectID == 0) return quillanest::remove_record(view, place.position) ? 1 : 0;
  (void)quillanest::stamp_at(view, place.position, projectID, quillanest::kDeleteAction);
  return 1;
}

int CRtTable::SetRecordVersionInfo(int position, int projectID, int action) {
  const TableView view = TableView::of(*this);
  return view && quillanest::stamp_at(view, position, projectID, action) ? 1 : 0;
}
