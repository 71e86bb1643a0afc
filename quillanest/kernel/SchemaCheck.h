// The check that a start in the strict mode makes.
#pragma once

#include "quillanest/kernel/Check.h"

namespace quillanest {

// Whether check_schema() finds no error; each one is reported.
[[nodiscard]] bool schema_is_sound(const char *path);

}  // namespace quillanest
