// Finding records by key, position and text.
#include <algorithm>
#include <cstring>

#include "quillanest/base/Text.h"
#include "quillanest/kernel/KeySearch.h"
#include "quillanest/kernel/RtTable.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/TextAt.h"

using quillanest::dense_position;
using quillanest::find_key;
using quillanest::KeyPlace;
using quillanest::TableView;

namespace quillanest {
namespace {

// The record with a key that has no dense_position(). Takes the table, not a view: the caller, through which most
// accesses run, then keeps nothing live across this call.
char *search_record(const CRtTable &table, std::uint32_t key) noexcept {
  const TableView view = TableView::of(table);
  if (!view) return nullptr;
  const KeyPlace place = search_key(view.keys(), key, view.count(), view.has_order());
  return place.found ? as_chars(view.record(place.position)) : nullptr;
}

}  // namespace

}  // namespace quillanest

int CRtTable::FindRecordIndex(unsigned int key) const {
  const TableView view = TableView::of(*this);
  if (!view) return -1;
  const KeyPlace place = find_key(view, key);
  return place.found ? place.position : -1;
}

int CRtTable::FindIDExclusive(unsigned int key, int &position) const {
  position = -1;
  const TableView view = TableView::of(*this);
  if (!view) return 0;
  const KeyPlace place = find_key(view, key);
  position = place.position;
  return place.found ? 1 : 0;
}

char *CRtTable::FindIDExclusive(unsigned int key) const {
  // By design [KeyZeroNamesNothing]: key 0 is not searched here, although the overload with a buffer finds it.
  if (key == 0) return nullptr;
  const TableView view = TableView::of(*this);
  if (!view) return nullptr;
  const std::int32_t position = dense_position(view, key);
  return position >= 0 ? quillanest::as_chars(view.record(position)) : quillanest::search_record(*this, key);
}

int CRtTable::FindIDExclusive(unsigned int key, char *buffer) const {
  const TableView view = TableView::of(*this);
  if (!view || buffer == nullptr) return 0;
  const KeyPlace place = find_key(view, key);
  if (!place.found || quillanest::room_at(buffer, view.record_bytes()) < view.record_bytes()) return 0;
  std::memmove(buffer, view.record(place.position), view.record_bytes());
  return 1;
}

char *CRtTable::GetAt(int position) const {
  const TableView view = TableView::of(*this);
  if (!view) return nullptr;
  std::byte *record = view.at(position);
  return record != nullptr ? quillanest::as_chars(record) : nullptr;
}

char *CRtTable::GetRecordAddr(unsigned int key, int hint) const {
  const TableView view = TableView::of(*this);
  // By design [HintPastEnd]: a hint that is not below the count is an error, even if the key is elsewhere.
  if (!view || hint >= view.count() || (hint < 0 && key == 0)) return nullptr;
  const KeyPlace place = find_key_near(view, key, hint);
  return place.found ? quillanest::as_chars(view.record(place.position)) : nullptr;
}

char *CRtTable::FindRecordbyStringField(int fieldIndex, const char *text) const {
  const TableView view = TableView::of(*this);
  if (!view || fieldIndex < 0 || text == nullptr) return nullptr;
  const _field_attr *field = view.field_unchecked(fieldIndex);
  if (field == nullptr) return nullptr;
  const std::string_view wanted = quillanest::text_at(text);
  const std::int32_t count = view.count();
  for (std::int32_t i = 0; i < count; ++i) {
    std::byte *record = view.record(i);
    // Longer texts than the wanted one need not be read to their end.
    const std::span<std::byte> value = view.value(record, *field);
    const std::string_view stored = quillanest::text_in(value.first(std::min(value.size(), wanted.size() + 1)));
    if (quillanest::equal_ignoring_case(stored, wanted)) return quillanest::as_chars(record);
  }
  return nullptr;
}

int CRtTable::GetFirstPosition() const { return IsInShareMemory() && !IsEmpty() ? 0 : -1; }

char *CRtTable::GetNextPosition(int &position) const {
  const TableView view = TableView::of(*this);
  const std::int32_t count = view ? view.count() : 0;
  if (position < 0 || position >= count) {
    position = -1;
    return nullptr;
  }
  std::byte *record = view.record(position);
  // By design [RecordsEndWithLast]: the last record comes together with the end mark.
  position = position == count - 1 ? -1 : position + 1;
  return quillanest::as_chars(record);
}

bool CRtTable::IsEmpty() const { return GetRecordCount() < 1; }
