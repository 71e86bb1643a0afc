// Generation-checked handles: a stale handle is detected and never resolves to another object.
//
// A handle is the number of a slot and the slot's generation, which closing counts up. It has as many bits as an
// address: with only 32, a handle repeats after its slot has been used 256 times. Slots are reused, and opening
// allocates only if the table grows.
// Threads: all members may run on any thread at the same time; none takes a lock.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>

namespace quillanest {

template <class Thing>
class HandleTable {
 public:
  using Handle = std::uintptr_t;

  // A handle for `thing`, never 0; 0 if all of some four million slots are in use.
  [[nodiscard]] Handle open(Thing *thing) {
    const std::optional<std::uint32_t> index = take_slot();
    if (!index) return 0;
    Slot &slot = slot_at(*index);
    slot.thing.store(thing, std::memory_order_release);
    const std::uint32_t generation = slot.generation.load(std::memory_order_relaxed) + 1;  // odd: open
    slot.generation.store(generation, std::memory_order_release);
    return handle_of(*index, generation);
  }

  // The object of an open handle, else null. An object must outlive its handles' use.
  [[nodiscard]] Thing *find(Handle handle) const {
    const Slot *slot = slot_of(handle);
    if (slot == nullptr || short_form(slot->generation.load(std::memory_order_acquire)) != generation_of(handle)) {
      return nullptr;
    }
    Thing *thing = slot->thing.load(std::memory_order_acquire);
    // A thread that sees the object of a slot that was closed and opened again in between also sees its new generation.
    return short_form(slot->generation.load(std::memory_order_relaxed)) == generation_of(handle) ? thing : nullptr;
  }

  // Closes an open handle and returns its object; null, and nothing happens, for any other number.
  Thing *close(Handle handle) {
    Slot *slot = slot_of(handle);
    if (slot == nullptr) return nullptr;
    Thing *thing = slot->thing.load(std::memory_order_relaxed);
    std::uint32_t generation = slot->generation.load(std::memory_order_relaxed);
    if (short_form(generation) != generation_of(handle)) return nullptr;
    if (!slot->generation.compare_exchange_strong(generation, generation + 1, std::memory_order_acq_rel)) {
      return nullptr;
    }
    give_slot(index_of(handle));
    return thing;
  }

 private:
  static constexpr std::uint32_t kChunk = 1024;
  static constexpr std::uint32_t kChunks = 4096;
  static constexpr std::uint32_t kNone = 0xFFFFFFFF;
  static constexpr int kHandleBits = std::numeric_limits<Handle>::digits;
  static constexpr int kIndexBits = kHandleBits >= 64 ? 32 : 23;  // of the index + 1; the others are the generation's

  struct Slot {
    std::atomic<Thing *> thing{nullptr};
    std::atomic<std::uint32_t> generation{0};  // odd while the slot is open
    std::atomic<std::uint32_t> next_free{kNone};
  };
  struct Chunk {
    std::array<Slot, kChunk> slots;
  };

  static Handle handle_of(std::uint32_t index, std::uint32_t generation) {
    return (Handle{generation} << kIndexBits) | (index + 1);
  }
  static std::uint32_t index_of(Handle handle) {
    return static_cast<std::uint32_t>(handle & ((Handle{1} << kIndexBits) - 1)) - 1;
  }
  static std::uint32_t generation_of(Handle handle) { return static_cast<std::uint32_t>(handle >> kIndexBits); }
  // As much of a slot's generation as a handle has.
  static std::uint32_t short_form(std::uint32_t generation) { return generation_of(handle_of(0, generation)); }

  [[nodiscard]] Slot &slot_at(std::uint32_t index) const {
    return chunks_[index / kChunk].load(std::memory_order_acquire)->slots[index % kChunk];
  }

  [[nodiscard]] Slot *slot_of(Handle handle) const {
    const std::uint32_t index = index_of(handle);
    if (index >= kChunk * kChunks || generation_of(handle) % 2 == 0) return nullptr;
    Chunk *chunk = chunks_[index / kChunk].load(std::memory_order_acquire);
    return chunk == nullptr ? nullptr : &chunk->slots[index % kChunk];
  }

  // The free slots are a stack. Its head has a count of changes, so that a head that was taken and put back differs.
  std::optional<std::uint32_t> take_slot() {
    std::uint64_t head = free_.load(std::memory_order_acquire);
    while (static_cast<std::uint32_t>(head) != 0) {
      const std::uint32_t index = static_cast<std::uint32_t>(head) - 1;
      const std::uint32_t next = slot_at(index).next_free.load(std::memory_order_relaxed);
      const std::uint64_t changed = ((head >> 32) + 1) << 32;
      if (free_.compare_exchange_weak(head, changed | (next == kNone ? 0 : next + 1), std::memory_order_acq_rel)) {
        return index;
      }
    }
    return grow();
  }

  void give_slot(std::uint32_t index) {
    Slot &slot = slot_at(index);
    std::uint64_t head = free_.load(std::memory_order_relaxed);
    for (;;) {
      const auto top = static_cast<std::uint32_t>(head);
      slot.next_free.store(top == 0 ? kNone : top - 1, std::memory_order_relaxed);
      const std::uint64_t changed = ((head >> 32) + 1) << 32;
      if (free_.compare_exchange_weak(head, changed | (index + 1), std::memory_order_acq_rel)) return;
    }
  }

  std::optional<std::uint32_t> grow() {
    const std::uint32_t index = used_.fetch_add(1, std::memory_order_relaxed);
    if (index >= kChunk * kChunks) {
      used_.fetch_sub(1, std::memory_order_relaxed);
      return std::nullopt;
    }
    std::atomic<Chunk *> &place = chunks_[index / kChunk];
    if (place.load(std::memory_order_acquire) == nullptr) {
      auto fresh = std::make_unique<Chunk>();
      Chunk *expected = nullptr;
      if (place.compare_exchange_strong(expected, fresh.get(), std::memory_order_acq_rel)) {
        (void)fresh.release();  // a chunk lives as long as the process
      }
    }
    return index;
  }

  std::array<std::atomic<Chunk *>, kChunks> chunks_{};
  std::atomic<std::uint64_t> free_{0};  // changes << 32 | index + 1 of the top, 0 if the stack is empty
  std::atomic<std::uint32_t> used_{0};
};

}  // namespace quillanest
