// The only place where bytes become values and values bytes.
//
// Record bytes are unaligned and may end anywhere, so every access is a copy. The bounded forms read or write only
// inside the bytes that they are given: missing bytes count as zero when read, and are dropped when written.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <type_traits>

namespace quillanest {

inline std::byte *as_bytes(void *address) { return static_cast<std::byte *>(address); }
inline const std::byte *as_bytes(const void *address) { return static_cast<const std::byte *>(address); }
inline char *as_chars(std::byte *bytes) { return reinterpret_cast<char *>(bytes); }
inline const char *as_chars(const std::byte *bytes) { return reinterpret_cast<const char *>(bytes); }

// A value at an address that holds all of its bytes.
template <class T>
T load(const std::byte *from) {
  static_assert(std::is_trivially_copyable_v<T>);
  T value;
  std::memcpy(&value, from, sizeof(T));
  return value;
}

template <class T>
void store(std::byte *to, const T &value) {
  static_assert(std::is_trivially_copyable_v<T>);
  std::memcpy(to, &value, sizeof(T));
}

// A value of which only a leading part may be there.
template <class T>
T load_part(std::span<const std::byte> from) {
  if (from.size() >= sizeof(T)) return load<T>(from.data());
  T value{};
  if (!from.empty()) std::memcpy(&value, from.data(), from.size());
  return value;
}

template <class T>
void store_part(std::span<std::byte> to, const T &value) {
  static_assert(std::is_trivially_copyable_v<T>);
  if (to.size() >= sizeof(T)) return store(to.data(), value);
  if (!to.empty()) std::memcpy(to.data(), &value, to.size());
}

// The zero-terminated text at the start of `bytes`, without its terminator; all of them if there is none.
inline std::string_view text_in(std::span<const std::byte> bytes) {
  if (bytes.empty()) return {};
  const void *end = std::memchr(bytes.data(), 0, bytes.size());
  const std::size_t length = end == nullptr ? bytes.size() : static_cast<std::size_t>(as_bytes(end) - bytes.data());
  return {as_chars(bytes.data()), length};
}

// Copies a text and its terminator to the start of `to`, as far as it goes. The source may overlap.
inline void copy_text(std::span<std::byte> to, std::string_view text) {
  const std::size_t length = std::min(to.size(), text.size());
  if (length > 0) std::memmove(to.data(), text.data(), length);
  if (length < to.size()) to[length] = std::byte{0};
}

// Counters and flags of the image that one thread reads while another writes. A reader may get a stale value, never a
// torn one, and sees everything that was written before the value that it gets.
template <class T>
T load_shared(const T &counter) {
  return std::atomic_ref<T>(const_cast<T &>(counter)).load(std::memory_order_acquire);
}

template <class T>
void store_shared(T &counter, T value) {
  std::atomic_ref<T>(counter).store(value, std::memory_order_release);
}

// A number of the image that another thread may change, read once: the value that is tested is the value that is used.
template <class T>
T read_once(const T &number) {
  return std::atomic_ref<T>(const_cast<T &>(number)).load(std::memory_order_relaxed);
}

// Texts of descriptors.
//
// A descriptor is a block of bytes with texts of fixed width in it. A text of exactly its width is accepted, and its
// terminator then lands in what follows in the block, so that reading starts at the text and may run on into it.

// The text that starts at `offset` of the block.
template <class Block>
std::string_view block_text(const Block &block, std::size_t offset) {
  return text_in({as_bytes(static_cast<const void *>(&block)) + offset, sizeof(Block) - offset});
}

// Copies the text at `offset` from one block to another of its kind, terminator included; the bytes after the
// terminator stay as they are.
template <class Block>
void copy_block_text(Block &to, const Block &from, std::size_t offset) {
  const std::string_view text = block_text(from, offset);
  copy_text({as_bytes(static_cast<void *>(&to)) + offset, sizeof(Block) - offset}, text);
}

}  // namespace quillanest
