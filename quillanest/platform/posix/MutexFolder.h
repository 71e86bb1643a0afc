// The folder of the mutexes of one user.
#pragma once

#include <string>

namespace quillanest {

// The folder in which all processes of this user keep their mutexes: `plain`, made if there is none, or, if another
// user has taken that name, a folder of this user called `plain` and a random end. No other user can write there.
// Raises std::system_error if the system refuses.
[[nodiscard]] std::string mutex_folder(const std::string &plain);

}  // namespace quillanest
