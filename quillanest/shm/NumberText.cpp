#include "quillanest/shm/NumberText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

namespace quillanest {
namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }

bool take_sign(std::string_view &text) {
  const bool negative = text.starts_with('-');
  if (negative || text.starts_with('+')) text.remove_prefix(1);
  return negative;
}

// The value of a number that does not fit a double: infinity if it is too large, 0 if it is too small. The magnitude
// decides: the exponent of the first digit that is not 0.
double out_of_range_value(std::string_view text, char exponent_letter) {
  const std::size_t exponent_at =
      text.find_first_of(exponent_letter == 'p' ? std::string_view("pP") : std::string_view("eE"));
  const std::string_view mantissa = text.substr(0, exponent_at);
  const std::size_t first = mantissa.find_first_not_of("0.");
  const std::size_t point = std::min(mantissa.find('.'), mantissa.size());
  double magnitude = first < point ? static_cast<double>(point - first) : -static_cast<double>(first - point);
  if (exponent_letter == 'p') magnitude *= 4;
  if (exponent_at != std::string_view::npos) {
    std::string_view exponent = text.substr(exponent_at + 1);
    const bool negative = take_sign(exponent);
    double value = 0;
    for (const char c : exponent) {
      if (!is_digit(c)) break;
      value = value * 10 + (c - '0');
    }
    magnitude += negative ? -value : value;
  }
  return magnitude > 0 ? std::numeric_limits<double>::infinity() : 0.0;
}

bool is_hex_digit(char c) { return is_digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

// Whether the text starts with "0x" and a digit, which may follow a point. Otherwise the number ends after the 0.
bool is_hexadecimal(std::string_view text) {
  if (!text.starts_with("0x") && !text.starts_with("0X")) return false;
  text.remove_prefix(2);
  if (text.starts_with('.')) text.remove_prefix(1);
  return !text.empty() && is_hex_digit(text.front());
}

// Nothing, of size 0, if there is no number.
ScannedDouble scan_magnitude(std::string_view text, std::chars_format format) {
  if (format == std::chars_format::hex) {
    // libstdc++ 12 takes the second sign of "1p+-2" for that of the exponent; C sees no exponent there.
    const std::size_t exponent = text.find_first_of("pP");
    if (exponent != std::string_view::npos && text.substr(exponent + 1).starts_with("+-")) {
      text = text.substr(0, exponent);
    }
  }
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, format);
  if (error == std::errc::invalid_argument) return {};
  const std::string_view number(text.data(), static_cast<std::size_t>(end - text.data()));
  if (error == std::errc()) return {value, number.size()};
  return {out_of_range_value(number, format == std::chars_format::hex ? 'p' : 'e'), number.size()};
}

// A plain decimal number whose digits are exact in a double, as most are: one division rounds it correctly. Nothing, of
// size 0, for every other text.
ScannedDouble scan_exact_decimal(std::string_view text) {
  constexpr std::size_t kDigitsMax = 15;  // 10^15 is below 2^53, and 10^15 itself exact
  constexpr std::array<double, kDigitsMax + 1> kPowers{1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                       1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
  std::uint64_t mantissa = 0;
  std::size_t digits = 0;
  std::size_t decimals = 0;
  bool behind_point = false;
  std::size_t at = 0;
  for (; at < text.size(); ++at) {
    const char c = text[at];
    if (is_digit(c)) {
      mantissa = mantissa * 10 + static_cast<std::uint64_t>(c - '0');
      if (++digits > kDigitsMax) return {};
      decimals += behind_point ? 1 : 0;
    } else if (c == '.' && !behind_point) {
      behind_point = true;
    } else {
      break;
    }
  }
  const bool goes_on = at < text.size() && (text[at] == 'e' || text[at] == 'E' || text[at] == 'x' || text[at] == 'X');
  if (digits == 0 || goes_on) return {};
  return {static_cast<double>(mantissa) / kPowers[decimals], at};
}

ScannedDouble scan_unsigned(std::string_view text) {
  if (text.starts_with('-')) return {};  // from_chars would take a second sign
  if (const ScannedDouble exact = scan_exact_decimal(text); exact.size > 0) return exact;
  if (!is_hexadecimal(text)) return scan_magnitude(text, std::chars_format::general);
  const ScannedDouble number = scan_magnitude(text.substr(2), std::chars_format::hex);
  return {number.value, number.size > 0 ? number.size + 2 : 0};
}

}  // namespace

ScannedDouble scan_double(std::string_view text) {
  const std::size_t whole = text.size();
  skip_blanks(text);
  const bool negative = take_sign(text);
  const ScannedDouble number = scan_unsigned(text);
  if (number.size == 0) return {};  // a sign without a number does not count
  return {negative ? -number.value : number.value, whole - text.size() + number.size};
}

double parse_double(std::string_view text) { return scan_double(text).value; }

}  // namespace quillanest
