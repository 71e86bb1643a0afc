// What one call needs of a mapped database, checked against the segment once.
//
// Descriptors are bytes in memory that clients may change at any moment, so nothing read from them is trusted and no
// number is read twice: an address that leaves this header lies inside the segment, with the bytes that are said to lie
// there.
// Lifetime: a view is made per call and used before the database object changes.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

#include "quillanest/kernel/RtDataBase.h"
#include "quillanest/shm/ImageLayout.h"
#include "quillanest/shm/SegmentAccess.h"

namespace quillanest {

// The descriptor at an offset; null if it would not be aligned or not lie in the segment.
template <class Attr>
Attr *attr_at(std::span<std::byte> segment, std::int64_t offset) {
  const auto size = static_cast<std::int64_t>(segment.size());
  if (offset < 0 || offset > size - static_cast<std::int64_t>(sizeof(Attr)) ||
      offset % std::int64_t{alignof(Attr)} != 0) {
    return nullptr;
  }
  return reinterpret_cast<Attr *>(segment.data() + offset);
}

// The address of an array of descriptors, which may be empty and then lie at the end of the segment; null as above.
template <class Attr>
Attr *attrs_at(std::span<std::byte> segment, std::int64_t offset) {
  const bool inside = offset >= 0 && !segment.empty() && offset <= static_cast<std::int64_t>(segment.size());
  return inside && offset % std::int64_t{alignof(Attr)} == 0 ? reinterpret_cast<Attr *>(segment.data() + offset)
                                                             : nullptr;
}

struct DatabaseView {
  // The segment while the object is mapped, else empty. A flag without a mapping, as a copy of a mapped object has it,
  // counts as not mapped.
  static std::span<std::byte> segment(const CRtDataBase &database) noexcept {
    if (database.mapped_ == 0) return {};
    return SegmentAccess::bytes(database.segment_);
  }

  // The notes of the process about the segment, which the object must have mapped.
  static std::atomic<std::uint64_t> *notes(const CRtDataBase &database) noexcept {
    return SegmentAccess::notes(database.segment_).data();
  }

  static bool is_mapped(const CRtDataBase &database) noexcept { return segment(database).size() >= sizeof(_db_attr); }

  // The descriptor in force: the segment's while the object is mapped, else the object's own.
  static const _db_attr &attr(const CRtDataBase &database) noexcept {
    return is_mapped(database) ? *attr_at<_db_attr>(segment(database), 0) : database.attr_;
  }
  static _db_attr &attr(CRtDataBase &database) noexcept {
    return is_mapped(database) ? *attr_at<_db_attr>(segment(database), 0) : database.attr_;
  }

  // The table descriptor in a slot, by the object's own table offset.
  static _table_attr *table(const CRtDataBase &database, int slot) noexcept {
    return attr_at<_table_attr>(segment(database),
                                database.attr_.TableOffset + std::int64_t{slot} * std::int64_t{sizeof(_table_attr)});
  }
};

}  // namespace quillanest
