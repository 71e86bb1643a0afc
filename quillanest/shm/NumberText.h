// Numbers in text, the same in every locale.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace quillanest {

// The decimal number a text starts with after optional white space and a sign; 0 when there is none. The value is kept
// modulo 2^32, so that unsigned keys of 2^31 and above survive being written and read back.
[[nodiscard]] std::uint32_t parse_int(std::string_view text);

// The same for a scanner: takes the number off the front of `text`. Nothing, with only white space taken, when `text`
// does not go on with a number.
[[nodiscard]] std::optional<std::uint32_t> scan_int(std::string_view &text);

// The floating-point number a text starts with, by the rules of the C library's atof in the "C" locale: decimal or
// hexadecimal, "inf" and "nan", too large gives infinity, none gives 0.
[[nodiscard]] double parse_double(std::string_view text);

// Takes leading white space off a text.
void skip_blanks(std::string_view &text);

}  // namespace quillanest
