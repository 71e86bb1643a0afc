// Numbers in text, the same in every locale.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace quillanest {

// Takes leading white space off a text.
inline void skip_blanks(std::string_view &text) {
  const auto is_blank = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
  std::size_t blanks = 0;
  while (blanks < text.size() && is_blank(text[blanks])) ++blanks;
  text.remove_prefix(blanks);
}

// Takes the decimal number that a text starts with, after optional white space and a sign, off its front. Nothing, with
// only white space taken, if `text` does not go on with a number. The value is kept modulo 2^32, so that unsigned
// keys of 2^31 and above survive being written and read back.
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

// The number that scan_int() would take off the text; 0 if there is none.
[[nodiscard]] inline std::uint32_t parse_int(std::string_view text) { return scan_int(text).value_or(0); }

// The floating-point number a text starts with, by the rules of the C library's atof in the "C" locale: decimal or
// hexadecimal, "inf" and "nan", too large gives infinity, none gives 0.
[[nodiscard]] double parse_double(std::string_view text);

}  // namespace quillanest
