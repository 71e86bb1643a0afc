// Comparing texts without regard to the case of ASCII letters, the same in every locale.
#pragma once

#include <algorithm>
#include <string_view>

namespace quillanest {

[[nodiscard]] inline bool equal_ignoring_case(std::string_view left, std::string_view right) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
  return left.size() == right.size() &&
         std::equal(left.begin(), left.end(), right.begin(), [&](char a, char b) { return lower(a) == lower(b); });
}

}  // namespace quillanest
