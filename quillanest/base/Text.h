// Comparing and trimming texts, the same in every locale.
#pragma once

#include <algorithm>
#include <string_view>

namespace quillanest {

// Whether two texts are equal without regard to the case of ASCII letters.
[[nodiscard]] inline bool equal_ignoring_case(std::string_view left, std::string_view right) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
  return left.size() == right.size() &&
         std::equal(left.begin(), left.end(), right.begin(), [&](char a, char b) { return lower(a) == lower(b); });
}

// The text without the given characters at its ends; a part of `text`.
[[nodiscard]] inline std::string_view trimmed(std::string_view text, std::string_view blanks) {
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

}  // namespace quillanest
