// Reading of INI files.
//
// A file is lines of `[section]`, `key=value` and comments (first character ';'). Section and key names compare without
// regard to ASCII case and surrounding blanks; the first section of a name and the first key in it count. Values lose
// surrounding blanks and one pair of enclosing quotes. Lines may end in LF or CR LF.
// A byte order mark of UTF-8 in front of the first line is passed over.
// The file is read anew at every call, so an edit counts from the next call on. May run on any thread.
#pragma once

#include <string>
#include <string_view>

namespace quillanest {

// The key's value; `fallback` when the file, the section or the key is missing.
[[nodiscard]] std::string profile_text(const std::string &file, std::string_view section, std::string_view key,
                                       std::string_view fallback = {});

// The decimal number that the key's value starts with, 0 when it starts with none; `fallback` when the key is missing
// or its value empty. Numbers wider than 32 bits keep their low 32 bits.
[[nodiscard]] int profile_int(const std::string &file, std::string_view section, std::string_view key, int fallback);

}  // namespace quillanest
