// The clock that fills calendar times as records hold them.
#pragma once

#include <cstddef>
#include <type_traits>

#include "quillanest/System.h"

static_assert(sizeof(SYSTEMTIME) == 16 && offsetof(SYSTEMTIME, wDay) == 6 && offsetof(SYSTEMTIME, wMilliseconds) == 14);
static_assert(std::is_trivially_copyable_v<SYSTEMTIME> && std::is_standard_layout_v<SYSTEMTIME>);

namespace quillanest {

// Fills `time` with the current local time, whole seconds, milliseconds 0. False, with `time` untouched, if the system
// cannot break the time down. May be called on any thread.
bool read_local_time(SYSTEMTIME &time);

}  // namespace quillanest
