#include "quillanest/sql/Variant.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>
#include <optional>

#include "quillanest/base/Text.h"
#include "quillanest/sql/ComError.h"

namespace quillanest {
namespace {

constexpr std::string_view kBlanks = " \t\r\n\v\f";

template <class... Functions>
struct Overloaded : Functions... {
  using Functions::operator()...;
};
template <class... Functions>
Overloaded(Functions...) -> Overloaded<Functions...>;

// Takes a plus sign off a number; what is left of one with two signs is not a number.
std::string_view without_plus(std::string_view text) {
  if (!text.starts_with('+')) return text;
  return text.starts_with("+-") ? std::string_view() : text.substr(1);
}

// The number that the whole text is; infinite if it is too large. The words "nan" and "inf" are not accepted.
std::optional<double> number_of(std::string_view text) {
  text = without_plus(trimmed(text, kBlanks));
  const std::size_t first = text.starts_with('-') ? 1 : 0;
  if (first >= text.size() || (text[first] != '.' && (text[first] < '0' || text[first] > '9'))) return std::nullopt;
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (end != text.data() + text.size()) return std::nullopt;
  if (error == std::errc()) return value;
  if (error != std::errc::result_out_of_range) return std::nullopt;
  // Too small or too large: a wider type shows which, and beyond it the sign of the exponent.
  long double wide = 0;
  if (std::from_chars(text.data(), text.data() + text.size(), wide).ec == std::errc()) {
    return std::fabs(wide) < 1 ? 0 : std::numeric_limits<double>::infinity();
  }
  const bool small = text.find("e-") != std::string_view::npos || text.find("E-") != std::string_view::npos;
  return small ? 0 : std::numeric_limits<double>::infinity();
}

std::optional<std::int64_t> integer_of(std::string_view text) {
  text = without_plus(trimmed(text, kBlanks));
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

std::uint32_t low_bits(double value) {
  if (!std::isfinite(value)) return 0;
  return static_cast<std::uint32_t>(static_cast<std::int64_t>(std::fmod(std::trunc(value), 4294967296.0)));
}

bool is_leap(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int days_in(int year, int month) {
  constexpr std::array<int, 12> kDays{31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && is_leap(year) ? 29 : kDays[static_cast<std::size_t>(month - 1)];
}

// Days since the first of March of the year 0, with today's calendar extended to the past.
std::int64_t day_number(int year, int month, int day) {
  const std::int64_t y = month > 2 ? year : year - 1;
  const std::int64_t m = month > 2 ? month - 3 : month + 9;
  return 365 * y + y / 4 - y / 100 + y / 400 + (153 * m + 2) / 5 + day - 1;
}

}  // namespace

bool make_date(const std::array<int, 6> &parts, SYSTEMTIME &date) {
  const auto [year, month, day, hour, minute, second] = parts;
  if (year < 1 || year > 9999 || month < 1 || month > 12 || day < 1 || day > days_in(year, month)) return false;
  if (hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 59) return false;
  const auto narrow = [](std::int64_t value) { return static_cast<std::uint16_t>(value); };
  constexpr int kFirstOfMarchOfYearZero = 3;  // a Wednesday
  date = {narrow(year),
          narrow(month),
          narrow((day_number(year, month, day) + kFirstOfMarchOfYearZero) % 7),
          narrow(day),
          narrow(hour),
          narrow(minute),
          narrow(second),
          0};
  return true;
}

namespace {

// Days since the thirtieth of December 1899, the form of dates as numbers. The time of day is the fraction, also of a
// negative number.
double serial_of(const SYSTEMTIME &date) {
  const auto days = static_cast<double>(day_number(date.wYear, date.wMonth, date.wDay) - day_number(1899, 12, 30));
  const double time = (date.wHour * 3600.0 + date.wMinute * 60.0 + date.wSecond) / 86400.0;
  return days < 0 ? days - time : days + time;
}

SYSTEMTIME date_of_serial(double serial) {
  constexpr double kBeforeFirst = -657435;  // the last day of the year 99
  constexpr double kAfterLast = 2958466;    // the first day of the year 10000
  SYSTEMTIME date{};
  if (!(serial > kBeforeFirst && serial < kAfterLast)) return date;
  const double whole = std::trunc(serial);
  auto seconds = static_cast<int>(std::lround(std::fabs(serial - whole) * 86400.0));
  std::int64_t days = static_cast<std::int64_t>(whole) + day_number(1899, 12, 30) + seconds / 86400;
  seconds %= 86400;
  // Walking month by month from the nearest year keeps the arithmetic in one place.
  int year = static_cast<int>(days / 366);
  while (day_number(year + 1, 1, 1) <= days) ++year;
  while (day_number(year, 1, 1) > days) --year;
  int month = 1;
  while (month < 12 && day_number(year, month + 1, 1) <= days) ++month;
  const auto day = static_cast<int>(days - day_number(year, month, 1)) + 1;
  (void)make_date({year, month, day, seconds / 3600, seconds / 60 % 60, seconds % 60}, date);
  return date;
}

bool take_number(std::string_view &text, int &number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || number < 0) return false;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return true;
}

bool take(std::string_view &text, char c) {
  if (!text.starts_with(c)) return false;
  text.remove_prefix(1);
  return true;
}

// What may follow the seconds: a fraction and a zone.
bool is_tail(std::string_view text) {
  return text.empty() || text.find_first_not_of("0123456789.,:+-Z ") == std::string_view::npos;
}

std::string format_number(double value) {
  std::array<char, 64> text;
  const auto [end, error] =
      std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::general, 15);
  if (error != std::errc()) return {};
  std::replace(text.data(), end, 'e', 'E');
  return {text.data(), end};
}

std::string format_date(const SYSTEMTIME &date) {
  std::array<char, 32> text;
  const int length = std::snprintf(text.data(), text.size(), "%04d-%02d-%02d %02d:%02d:%02d", date.wYear, date.wMonth,
                                   date.wDay, date.wHour, date.wMinute, date.wSecond);
  return {text.data(), static_cast<std::size_t>(length)};
}

[[noreturn]] void raise_overflow() { throw _com_error(kOverflow, "a number is out of range"); }

[[noreturn]] void raise_mismatch() { throw _com_error(kTypeMismatch, "a column value is not of its field's type"); }

}  // namespace

std::uint32_t integer_content(const Variant &value) {
  return std::visit(Overloaded{[](std::monostate) { return 0U; }, [](bool truth) { return truth ? 0xFFFFFFFFU : 0U; },
                               [](std::int64_t number) { return static_cast<std::uint32_t>(number); },
                               [](double number) { return low_bits(number); },
                               [](const SYSTEMTIME &date) { return low_bits(serial_of(date)); },
                               [](std::string_view text) {
                                 if (const auto number = integer_of(text)) return static_cast<std::uint32_t>(*number);
                                 return low_bits(number_of(text).value_or(0));
                               }},
                    value);
}

std::uint32_t to_int32(const Variant &value) {
  const auto checked = [](double number) {
    if (!(number >= -2147483648.5 && number < 4294967295.5)) raise_overflow();
    return static_cast<std::uint32_t>(static_cast<std::int64_t>(std::nearbyint(number)));
  };
  if (const auto *number = std::get_if<std::int64_t>(&value)) {
    if (*number < INT32_MIN || *number > UINT32_MAX) raise_overflow();
    return static_cast<std::uint32_t>(*number);
  }
  if (const auto *truth = std::get_if<bool>(&value)) return *truth ? 0xFFFFFFFFU : 0U;
  return checked(to_double(value));
}

double to_double(const Variant &value) {
  return std::visit(
      Overloaded{[](std::monostate) -> double { raise_mismatch(); }, [](bool truth) { return truth ? -1.0 : 0.0; },
                 [](std::int64_t number) { return static_cast<double>(number); }, [](double number) { return number; },
                 [](const SYSTEMTIME &date) { return serial_of(date); },
                 [](std::string_view text) {
                   const std::optional<double> number = number_of(text);
                   if (!number) raise_mismatch();
                   if (std::isinf(*number)) raise_overflow();
                   return *number;
                 }},
      value);
}

float to_float(const Variant &value) {
  constexpr double kBeyond = 0x1.ffffffp127;  // the first that is nearer to infinity than to the largest float
  const double number = to_double(value);
  if (std::isfinite(number) && std::fabs(number) >= kBeyond) raise_overflow();
  return static_cast<float>(number);
}

std::string to_text(const Variant &value) {
  return std::visit(Overloaded{[](std::monostate) { return std::string(); },
                               [](bool truth) { return std::string(truth ? "-1" : "0"); },
                               [](std::int64_t number) { return std::to_string(number); },
                               [](double number) { return format_number(number); },
                               [](const SYSTEMTIME &date) { return format_date(date); },
                               [](std::string_view text) { return std::string(text); }},
                    value);
}

bool parse_date(std::string_view text, SYSTEMTIME &date) {
  text = trimmed(text, kBlanks);
  std::array<int, 6> parts{};
  if (!take_number(text, parts[0]) || !take(text, '-') || !take_number(text, parts[1]) || !take(text, '-') ||
      !take_number(text, parts[2])) {
    return false;
  }
  if (!text.empty()) {
    if (!take(text, ' ') && !take(text, 'T')) return false;
    while (take(text, ' ')) {
    }
    if (!take_number(text, parts[3]) || !take(text, ':') || !take_number(text, parts[4])) return false;
    if (take(text, ':') && !take_number(text, parts[5])) return false;
    if (!is_tail(text)) return false;
  }
  return make_date(parts, date);
}

SYSTEMTIME to_date(const Variant &value) {
  SYSTEMTIME date{};
  if (const auto *held = std::get_if<SYSTEMTIME>(&value)) {
    date = *held;
    date.wMilliseconds = 0;
  } else if (const auto *text = std::get_if<std::string_view>(&value)) {
    if (!parse_date(*text, date)) {
      const std::optional<double> serial = number_of(*text);
      date = serial ? date_of_serial(*serial) : SYSTEMTIME{};
    }
  } else if (!std::holds_alternative<std::monostate>(value)) {
    date = date_of_serial(to_double(value));
  }
  return date;
}

}  // namespace quillanest
