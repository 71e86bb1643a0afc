// Conditions on descriptors, for searches by name, caption name and ID.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "quillanest/base/Text.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/TextAt.h"

namespace quillanest {

// True if the text at an offset of the descriptor equals `text` without regard to case; `text` must outlive the
// condition.
template <class Attr>
auto text_is(std::size_t offset, const char *text) {
  return [offset, wanted = text_at(text)](const Attr &attr) {
    return equal_ignoring_case(block_text(attr, offset), wanted);
  };
}

// True if a number of the descriptor equals `id`.
template <class Attr>
auto id_is(std::uint32_t Attr::*member, std::uint32_t id) {
  return [member, id](const Attr &attr) { return attr.*member == id; };
}

}  // namespace quillanest
