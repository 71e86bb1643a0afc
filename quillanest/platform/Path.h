// What paths look like on this system. The functions look at the text alone, never at the file system.
#pragma once

#include <string>
#include <string_view>

namespace quillanest {

// Whether a path does not depend on a working folder.
[[nodiscard]] bool is_absolute(std::string_view path) noexcept;

// The path of a folder with a separator at its end; one that has a separator there, and the empty text, are unchanged.
[[nodiscard]] std::string with_separator(std::string path);

// The path of a file in a folder, with a separator between them in any case.
[[nodiscard]] std::string path_in(std::string_view folder, std::string_view name);

// The part of a path up to and with its last separator; empty if there is none.
[[nodiscard]] std::string folder_of(const std::string &path);

// Whether a name has no separator in it, so that it names a file of a folder and does not lead out of it.
[[nodiscard]] bool is_file_name(std::string_view name) noexcept;

}  // namespace quillanest
