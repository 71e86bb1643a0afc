// Conversion of numbers and times from text into bytes, which every conversion of a text into a field uses.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace quillanest {

// Stores the value of a text as type code `type` at the start of `to`, as far as `to` goes: integers by their own
// width, FLOAT and DOUBLE, TIME with read_time. False, with nothing stored, for the types of characters and texts and
// for codes that are not a type.
bool store_value_of_text(std::int32_t type, std::span<std::byte> to, std::string_view text);

// Does the same and returns whether the text is a value that the type holds, from its first character to its last.
// Blanks around it do not count, and an empty text is a zero. True for codes that are not a type.
[[nodiscard]] bool store_whole_value(std::int32_t type, std::span<std::byte> to, std::string_view text);

// Stores a field's default text as SetDefaultField does, as far as `to` goes. Nothing for an empty text.
void store_default(std::int32_t type, std::span<std::byte> to, std::string_view text);

// Reads "year-month-day hour:minute:second" into a time of 16 bytes, of which only the first ones may exist.
// By design [TimeScanOverlap]: each number is stored as 32 bits at its 16-bit place, so its high half lands in the next
// one, until the next number is stored there. A text that stops early leaves the rest of the time as it was.
// True if the text is a whole time whose numbers fit, or empty.
bool read_time(std::string_view text, std::span<std::byte> time);

}  // namespace quillanest
