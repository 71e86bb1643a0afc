// The directory of databases in the manager segment, as far as it lies inside.
#pragma once

#include <cstdint>

#include "quillanest/kernel/RtdbManager.h"
#include "quillanest/shm/Bytes.h"

struct CRtdbManager::Directory {
  _db_attr *records = nullptr;
  int *flags = nullptr;
  int slots = 0;

  explicit operator bool() const noexcept { return records != nullptr && flags != nullptr; }
  [[nodiscard]] bool is_present(int slot) const noexcept { return quillanest::load_shared(flags[slot]) != 0; }

  // The first present slot at `slot` or after it, or -1.
  [[nodiscard]] int next_present(int slot) const noexcept {
    for (; slot < slots; ++slot) {
      if (is_present(slot)) return slot;
    }
    return -1;
  }
};
