// Texts in the form of INI files.
//
// Lines are `[section]`, `key=value` and comments (first character ';'). Section and key names compare without regard
// to ASCII case and surrounding blanks; the first section of a name and the first key in it count. Values lose
// surrounding blanks and one pair of enclosing quotes. Lines may end in LF or CR LF.
#pragma once

#include <optional>
#include <string_view>

namespace quillanest {

// The value of a key, a part of `text`; nothing if there is no such section or key.
[[nodiscard]] std::optional<std::string_view> ini_value(std::string_view text, std::string_view section,
                                                        std::string_view key);

// The decimal number at the start of a value, with an optional sign; 0 if it does not start with one. Numbers wider
// than 32 bits keep their low 32 bits.
[[nodiscard]] int ini_number(std::string_view value);

}  // namespace quillanest
