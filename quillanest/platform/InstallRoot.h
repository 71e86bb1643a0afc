// The installation root: the folder that holds conf/ and, normally, the data.
#pragma once

#include <string>

namespace quillanest {

// The installation root with a trailing separator: the environment variable QUILLANEST_ROOT if it is set and not empty,
// unless the program was started with more rights than its user has; else the parent of the folder that holds the
// library's file; else, if this code was linked into a program or a library of another name, the parent of the folder
// that holds the executable. Empty if there is no such folder.
[[nodiscard]] std::string install_root();

}  // namespace quillanest
