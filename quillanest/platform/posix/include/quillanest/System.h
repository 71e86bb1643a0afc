// What the public headers take from this system: the attribute of exported names, and the calendar time.
//
// Each system has its own form of this header, because its own headers may declare the same names.
#pragma once

#include <cstdint>

// The attribute of everything that a client program may link against. Names without it are hidden, because the library
// is compiled with hidden visibility.
#define QUILLANEST_API [[gnu::visibility("default")]]

// Eight 16-bit members, 16 bytes, no padding. This is the stored form of a TIME value, so its layout is part of the
// image. The ranges are not checked; the comments give those of a valid time.
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
