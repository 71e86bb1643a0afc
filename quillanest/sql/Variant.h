// One value of a row, and its conversions.
//
// The conversions follow the rules of automation variants for the types that the engines deliver. A value that does not
// convert raises _com_error, unless the comment of a function says "Never raises".
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

#include "quillanest/platform/SystemTime.h"

namespace quillanest {

// NULL, a truth value, an integer, a number, a date, or a text. A text points into the row set that delivered it and is
// valid as long as that row set. Exact decimal numbers are delivered as texts.
using Variant = std::variant<std::monostate, bool, std::int64_t, double, SYSTEMTIME, std::string_view>;

// Result codes of conversions.
inline constexpr std::int32_t kTypeMismatch = static_cast<std::int32_t>(0x80020005);
inline constexpr std::int32_t kOverflow = static_cast<std::int32_t>(0x8002000A);

// The low 32 bits of the value's integer content; 0 for NULL and for a value without one. Never raises.
[[nodiscard]] std::uint32_t integer_content(const Variant &value);

// A 32-bit integer. Integers of 2^31 to 2^32 - 1 keep their bits.
[[nodiscard]] std::uint32_t to_int32(const Variant &value);

// A floating-point number. A text must be a number from its first character to its last.
[[nodiscard]] double to_double(const Variant &value);

// The same as 4 bytes; a finite number that would become infinite does not convert.
[[nodiscard]] float to_float(const Variant &value);

// The text form; empty for NULL. Never raises.
[[nodiscard]] std::string to_text(const Variant &value);

// A date and time of whole seconds, milliseconds 0; all zero if the value is not a date. Never raises.
[[nodiscard]] SYSTEMTIME to_date(const Variant &value);

// Reads "year-month-day" with an optional " hour:minute:second" or "Thour:minute:second", padded or not; fractions of a
// second and a zone after it are dropped. False if the text is not a date or there is no such day.
[[nodiscard]] bool parse_date(std::string_view text, SYSTEMTIME &date);

// Makes a date of year, month, day, hour, minute and second, with its day of the week. False, with `date` unchanged, if
// there is no such day in the years 1 to 9999 or no such time of day.
[[nodiscard]] bool make_date(const std::array<int, 6> &parts, SYSTEMTIME &date);

}  // namespace quillanest
