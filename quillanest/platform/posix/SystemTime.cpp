#include "quillanest/platform/SystemTime.h"

#include <ctime>
#include <time.h>

namespace quillanest {

bool read_local_time(SYSTEMTIME &time) {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  tzset();  // localtime_r alone may go on using a time zone that the environment no longer names
  if (localtime_r(&now, &parts) == nullptr) return false;
  const auto narrow = [](int value) { return static_cast<std::uint16_t>(value); };
  time.wYear = narrow(parts.tm_year + 1900);
  time.wMonth = narrow(parts.tm_mon + 1);
  time.wDayOfWeek = narrow(parts.tm_wday);
  time.wDay = narrow(parts.tm_mday);
  time.wHour = narrow(parts.tm_hour);
  time.wMinute = narrow(parts.tm_min);
  time.wSecond = narrow(parts.tm_sec);
  time.wMilliseconds = 0;
  return true;
}

}  // namespace quillanest
