// Where the installation lies: the folder that holds conf/ and, normally, the data.
#pragma once

#include <string>
#include <string_view>

namespace quillanest {

// The installation root with a trailing separator: the environment variable QUILLANEST_ROOT when it is set and not
// empty, unless the program was started with more rights than its user has; else the parent of the folder that holds
// libQuillanest.so; else, when this code was linked into a program or a library of another name, the parent of the
// folder that holds the executable. Empty when none can be found.
[[nodiscard]] std::string install_root();

// The configuration file below the installation root, relative to it.
inline constexpr std::string_view kConfigurationFile = "conf/fix_Rtdb.ini";

// The section of the kernel's own keys in it.
inline constexpr std::string_view kConfigurationSection = "Quillanest";

// A path that a configuration file gives: as it stands when absolute, else below the installation root that the place
// of that file shows.
[[nodiscard]] inline std::string resolve_in_root(std::string_view configuration_file, const std::string &path) {
  if (path.starts_with('/') || !configuration_file.ends_with(kConfigurationFile)) return path;
  configuration_file.remove_suffix(kConfigurationFile.size());
  return std::string(configuration_file) + path;
}

}  // namespace quillanest
