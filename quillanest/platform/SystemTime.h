// A calendar time as records hold it, and the clock that fills it.
#pragma once

#include <cstdint>
#include <type_traits>

// Eight 16-bit members, 16 bytes, no padding. This is the stored form of a TIME value, so its layout is part of the
// image. Nothing checks the ranges; the comments give those of a valid time.
struct SYSTEMTIME {
  std::uint16_t wYear;
  std::uint16_t wMonth;      // 1 to 12
  std::uint16_t wDayOfWeek;  // 0 (Sunday) to 6
  std::uint16_t wDay;        // 1 to 31
  std::uint16_t wHour;
  std::uint16_t wMinute;
  std::uint16_t wSecond;
  std::uint16_t wMilliseconds;
};

static_assert(sizeof(SYSTEMTIME) == 16);
static_assert(std::is_trivially_copyable_v<SYSTEMTIME> && std::is_standard_layout_v<SYSTEMTIME>);

namespace quillanest {

// Fills `time` with the current local time, whole seconds, milliseconds 0. False, with `time` untouched, when the
// system cannot break the time down. May be called on any thread.
bool read_local_time(SYSTEMTIME &time);

}  // namespace quillanest
