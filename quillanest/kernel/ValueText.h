// The text form of stored values.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace quillanest {

class PasswordCipher;

// The number of bytes that hold the text of any number or time, without a terminator.
inline constexpr std::size_t kNumberTextMax = 330;

// Writes the text of a character, number or time at the start of `value` to `text` (kNumberTextMax bytes) and returns
// its length; 0 for texts and for codes that are not a type. A time with an impossible day or month is first
// overwritten in place with the current local time. Missing bytes count as zero.
std::size_t format_value(std::int32_t type, std::span<std::byte> value, char *text);

// The same for a value that is a field's bytes, in a form that comes back exactly: the shortest number, a time as it
// is.
std::size_t format_exactly(std::int32_t type, std::span<const std::byte> value, char *text);

// Appends the text form of any value; a password is enciphered.
void append_value_text(std::int32_t type, std::span<std::byte> value, const PasswordCipher &cipher, std::string &text);

}  // namespace quillanest
