// Reads configuration files, which are INI files (base/Ini.h), and says where the kernel's own is.
//
// A byte order mark of UTF-8 before the first line is skipped. Every call reads its file anew, so an edit counts from
// the next call on. All functions may run on any thread.
#pragma once

#include <string>
#include <string_view>

namespace quillanest {

// The kernel's configuration file, relative to the installation root.
inline constexpr std::string_view kConfigurationFile = "conf/fix_Rtdb.ini";

// The section of the kernel's own keys in it.
inline constexpr std::string_view kConfigurationSection = "Quillanest";

// The key's value; `fallback` if the file, the section or the key is missing. Raises std::system_error if the file
// exists and cannot be read.
[[nodiscard]] std::string profile_text(const std::string &file, std::string_view section, std::string_view key,
                                       std::string_view fallback = {});

// The decimal number that the key's value starts with, 0 if it starts with none; `fallback` if the key is missing or
// its value is empty. Numbers wider than 32 bits keep their low 32 bits. Raises std::system_error as profile_text does.
[[nodiscard]] int profile_int(const std::string &file, std::string_view section, std::string_view key, int fallback);

// Whether starts, loads and saves refuse what they would otherwise lose in part: key Strict of section "Quillanest", 0
// if it is missing. Raises std::system_error as profile_text does.
[[nodiscard]] bool is_strict(const std::string &configuration_file);

// The full form of a path from the kernel's configuration file: unchanged if it is absolute, else below the
// installation root, which follows from the place of that file.
[[nodiscard]] std::string resolve_in_root(std::string_view configuration_file, const std::string &path);

}  // namespace quillanest
