// What the kernel needs of a CShareMemory beyond its published operations.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

#include "quillanest/shm/ShareMemory.h"

namespace quillanest {

struct SegmentAccess {
  // The bytes of the whole mapped segment; empty without a mapping.
  static std::span<std::byte> bytes(const CShareMemory &segment) noexcept { return segment.mapping_.bytes(); }

  // The notes of the process about the segment; empty without a mapping.
  static std::span<std::atomic<std::uint64_t>> notes(const CShareMemory &segment) noexcept {
    std::atomic<std::uint64_t> *const first = segment.mapping_.notes();
    return {first, first == nullptr ? 0 : NamedRegion::kNoteWords};
  }

  // Records the size that a descriptor gives for the segment.
  static void set_size(CShareMemory &segment, int size) noexcept { segment.size_ = size; }

  // Gives the mapping up without closing it: the segment stays for the life of the process.
  static void keep_for_process_life(CShareMemory &segment) noexcept { segment.mapping_.keep_for_process_life(); }
};

}  // namespace quillanest
