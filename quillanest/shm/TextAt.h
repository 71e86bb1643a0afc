// Texts that callers give by address.
#pragma once

#include <cstring>
#include <span>
#include <string_view>

#include "quillanest/platform/NamedRegion.h"
#include "quillanest/shm/Bytes.h"

namespace quillanest {

// The text at an address: inside a segment of this process up to its terminator or the end of the segment, elsewhere up
// to the terminator that the caller answers for.
[[nodiscard]] inline std::string_view text_at(const char *address) {
  const std::span<std::byte> bytes = NamedRegion::bytes_from(address);
  return bytes.empty() ? std::string_view(address) : text_in(bytes);
}

}  // namespace quillanest
