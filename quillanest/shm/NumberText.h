// Numbers in text, the same in every locale.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace quillanest {

// Removes leading white space from a text.
inline void skip_blanks(std::string_view &text) {
  const auto is_blank = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
  std::size_t blanks = 0;
  while (blanks < text.size() && is_blank(text[blanks])) ++blanks;
  text.remove_prefix(blanks);
}

// Removes the decimal number at the start of a text, with white space and a sign before it, and returns it. Returns
// nothing, with only the white space removed, if no number follows. The value is kept modulo 2^32, so that unsigned
// keys of 2^31 and above can be written and read back.
[[nodiscard]] inline std::optional<std::uint32_t> scan_int(std::string_view &text) {
  skip_blanks(text);
  const char *at = text.data();
  const char *const end = at + text.size();
  const bool negative = at != end && *at == '-';
  if (negative || (at != end && *at == '+')) ++at;
  const char *const digits = at;
  std::uint32_t number = 0;
  for (; at != end && *at >= '0' && *at <= '9'; ++at) number = number * 10 + static_cast<std::uint32_t>(*at - '0');
  if (at == digits) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(at - text.data()));
  return negative ? 0 - number : number;
}

// The number that scan_int() would return; 0 if there is none.
[[nodiscard]] inline std::uint32_t parse_int(std::string_view text) { return scan_int(text).value_or(0); }

// The floating-point number at the start of a text, by the rules of the C library's atof in the "C" locale: decimal,
// hexadecimal, "inf" or "nan"; infinity if it is too large, 0 if there is none.
[[nodiscard]] double parse_double(std::string_view text);

// The same number, and how many characters it takes up with the white space before it; 0 of them if there is none.
struct ScannedDouble {
  double value = 0;
  std::size_t size = 0;
};
[[nodiscard]] ScannedDouble scan_double(std::string_view text);

}  // namespace quillanest
