// Texts and buffers that callers give by address.
//
// What lies in a segment of this process ends with the segment; any other address is trusted: the caller guarantees its
// terminator and size.
#pragma once

#include <algorithm>
#include <cstddef>
#include <span>
#include <string_view>

#include "quillanest/platform/NamedRegion.h"
#include "quillanest/shm/Bytes.h"

namespace quillanest {

// The text at an address: inside a segment of this process up to its terminator or the end of the segment, elsewhere up
// to the terminator that the caller guarantees.
[[nodiscard]] inline std::string_view text_at(const char *address) {
  const std::span<std::byte> bytes = NamedRegion::bytes_from(address);
  return bytes.empty() ? std::string_view(address) : text_in(bytes);
}

// How many of `size` bytes at an address may be read or written.
[[nodiscard]] inline std::size_t room_at(const void *address, std::size_t size) {
  const std::size_t room = NamedRegion::bytes_from(address).size();
  return room == 0 ? size : std::min(room, size);
}

// Stores a text of at most `width` characters and its terminator in a block. False, with nothing changed, for a longer
// text and for null.
// By design [FullWidthText]: a text of full width is accepted and its terminator falls on the byte after it.
// The one after the block's last byte is dropped.
template <class Block>
bool set_block_text(Block &block, std::size_t offset, std::size_t width, const char *text) {
  if (text == nullptr) return false;
  const std::string_view measured = text_at(text);
  if (measured.size() > width) return false;
  copy_text({as_bytes(static_cast<void *>(&block)) + offset, sizeof(Block) - offset}, measured);
  return true;
}

}  // namespace quillanest
