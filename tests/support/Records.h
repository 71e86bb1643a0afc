// Records as bytes: reading values from them, writing values into them, and copies to compare with later.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "quillanest/shm/Utility.h"

template <class T>
T value_at(const void *bytes, std::size_t offset) {
  T value;
  std::memcpy(&value, static_cast<const char *>(bytes) + offset, sizeof value);
  return value;
}

template <class T>
void put(void *bytes, std::size_t offset, T value) {
  std::memcpy(static_cast<char *>(bytes) + offset, &value, sizeof value);
}

// The same of the integers that most fields are.
inline std::int32_t peek(const char *record, std::size_t offset) { return value_at<std::int32_t>(record, offset); }
inline void poke(char *record, std::size_t offset, std::int32_t value) { put(record, offset, value); }

// "YEAR-MONTH-DAY HOUR:MINUTE:SECOND.MILLISECONDS day DAY_OF_WEEK", without padding.
inline std::string time_text(const SYSTEMTIME &time) {
  std::array<char, 80> text{};
  std::snprintf(text.data(), text.size(), "%d-%d-%d %d:%d:%d.%d day %d", time.wYear, time.wMonth, time.wDay, time.wHour,
                time.wMinute, time.wSecond, time.wMilliseconds, time.wDayOfWeek);
  return text.data();
}

// A copy of `size` bytes, to compare with later.
inline std::string bytes_at(const void *address, std::size_t size) {
  return {static_cast<const char *>(address), size};
}
