// What one call needs of the manager segment, checked against it once: the attributes in force and the directory of
// databases.
//
// As with DatabaseView.h, nothing that the segment says is trusted: every address lies inside it.
// Lifetime: a view is made per call and used before the manager changes.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

#include "quillanest/kernel/DatabaseView.h"
#include "quillanest/kernel/RtdbManager.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/SegmentAccess.h"

namespace quillanest {

// The directory's slots, as far as the segment holds them.
struct Directory {
  _db_attr *records = nullptr;
  int *flags = nullptr;
  int slots = 0;

  // False without a directory; no other member may be used then.
  explicit operator bool() const noexcept { return records != nullptr && flags != nullptr; }
  [[nodiscard]] bool is_present(int slot) const noexcept { return load_shared(flags[slot]) != 0; }

  // The first present slot at `slot` or after it, or -1.
  [[nodiscard]] int next_present(int slot) const noexcept {
    for (; slot < slots; ++slot) {
      if (is_present(slot)) return slot;
    }
    return -1;
  }
};

struct ManagerView {
  // The manager segment while it is mapped and large enough for one, else empty.
  static std::span<std::byte> segment(const CRtdbManager &manager) noexcept {
    const std::span<std::byte> bytes = SegmentAccess::bytes(manager.segment_);
    return bytes.size() >= static_cast<std::size_t>(kDirectoryOffset) ? bytes : std::span<std::byte>();
  }

  // The attributes in force: the image's while the segment is mapped, else the object's own.
  static _rtdb_attr &attr(CRtdbManager &manager) noexcept {
    _rtdb_attr *shared = manager.GetRealRtdbInfo();
    return shared != nullptr ? *shared : manager.attr_;
  }
  static const _rtdb_attr &attr(const CRtdbManager &manager) noexcept {
    const _rtdb_attr *shared = manager.GetRealRtdbInfo();
    return shared != nullptr ? *shared : manager.attr_;
  }

  // The first `slots` slots of the directory.
  static Directory directory(const CRtdbManager &manager, int slots) noexcept {
    Directory found;
    found.records = manager.GetDbInfoAddr();
    found.flags = manager.GetDbInfoIndexAddr();
    if (!found) return {};
    const std::span<std::byte> bytes = segment(manager);
    const auto room_from = [&](const void *address) {
      return static_cast<std::size_t>(bytes.data() + bytes.size() - as_bytes(address));
    };
    const std::size_t fitting =
        std::min(room_from(found.records) / sizeof(_db_attr), room_from(found.flags) / sizeof(int));
    found.slots = std::clamp(slots, 0, static_cast<int>(fitting));
    return found;
  }

  // The directory once the databases are laid out; none before.
  static Directory directory(const CRtdbManager &manager) noexcept {
    if (manager.GetRtdbStatus() < RTDB_STATUS_LAID_OUT) return {};
    return directory(manager, manager.GetDataBaseMaxNum());
  }
};

}  // namespace quillanest
