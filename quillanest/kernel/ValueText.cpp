#include "quillanest/kernel/ValueText.h"

#include <bit>
#include <charconv>
#include <cmath>
#include <optional>

#include "quillanest/platform/SystemTime.h"
#include "quillanest/settings/PasswordCipher.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/FieldType.h"
#include "quillanest/shm/NumberText.h"

namespace quillanest {
namespace {

template <class Integer>
char *write_integer(char *to, Integer value) {
  return std::to_chars(to, to + kNumberTextMax, value).ptr;
}

// A double that is not negative in millionths, rounded to the nearest, and to the even one in a tie. Nothing if they do
// not fit 64 bits.
std::optional<std::uint64_t> millionths(double value) {
  constexpr int kMantissaBits = 52;
  constexpr int kExponentBias = 1075;  // of a mantissa that is an integer
  constexpr int kShiftMin = 10;        // 53 bits and the 20 bits of a million fit 63 bits after a shift of 10
  constexpr int kShiftMax = 74;        // nothing is left, and less than a half
  const auto bits = std::bit_cast<std::uint64_t>(value);
  const int shift = kExponentBias - static_cast<int>(bits >> kMantissaBits);
  if (shift < kShiftMin) return std::nullopt;
  if (shift > kShiftMax) return 0;
  constexpr std::uint64_t kImplied = std::uint64_t{1} << kMantissaBits;
  const std::uint64_t mantissa = (bits & (kImplied - 1)) | kImplied;
  // The product in two parts of 42 and 32 bits.
  const std::uint64_t low_product = (mantissa & 0xFFFFFFFF) * 1'000'000U;
  const std::uint64_t high = (mantissa >> 32) * 1'000'000U + (low_product >> 32);
  const std::uint64_t low = low_product & 0xFFFFFFFF;
  std::uint64_t whole = 0;
  std::uint64_t rest = 0;
  std::uint64_t half = 0;
  if (shift <= 32) {
    whole = high << (32 - shift) | low >> shift;
    half = std::uint64_t{1} << (shift - 1);
    rest = low & ((half << 1) - 1);
  } else {
    // Doubled, with a last bit that summarises the whole lower part.
    whole = high >> (shift - 32);
    half = std::uint64_t{1} << (shift - 32);
    rest = (high & (half - 1)) << 1 | (low != 0 ? 1U : 0U);
  }
  return whole + (rest > half || (rest == half && whole % 2 == 1) ? 1 : 0);
}

// The form of "%f": fixed notation, six decimals.
std::size_t write_fixed(char *to, double value) {
  constexpr int kDecimals = 6;
  char *at = to;
  if (std::signbit(value) && !std::isnan(value)) *at++ = '-';
  const std::optional<std::uint64_t> scaled = millionths(std::fabs(value));
  if (!scaled) {
    return static_cast<std::size_t>(
        std::to_chars(to, to + kNumberTextMax, value, std::chars_format::fixed, kDecimals).ptr - to);
  }
  at = write_integer(at, *scaled / 1'000'000U);
  *at = '.';
  auto decimals = static_cast<std::uint32_t>(*scaled % 1'000'000U);
  for (int i = kDecimals; i > 0; --i, decimals /= 10) at[i] = static_cast<char>('0' + decimals % 10);
  return static_cast<std::size_t>(at + 1 + kDecimals - to);
}

template <class Integer>
std::size_t format_integer(std::span<const std::byte> value, char *text) {
  return static_cast<std::size_t>(write_integer(text, load_part<Integer>(value)) - text);
}

std::size_t format_integer(const FieldTypeInfo &type, std::span<const std::byte> value, char *text) {
  if (type.bytes == 2)
    return type.is_signed ? format_integer<std::int16_t>(value, text) : format_integer<std::uint16_t>(value, text);
  return type.is_signed ? format_integer<std::int32_t>(value, text) : format_integer<std::uint32_t>(value, text);
}

double real_in(const FieldTypeInfo &type, std::span<std::byte> value) {
  return type.bytes == sizeof(float) ? static_cast<double>(load_part<float>(value)) : load_part<double>(value);
}

std::size_t format_character(std::span<const std::byte> value, char *text) {
  *text = load_part<char>(value);
  return *text == '\0' ? 0 : 1;
}

bool is_possible(const SYSTEMTIME &time) {
  return time.wDay >= 1 && time.wDay <= 31 && time.wMonth >= 1 && time.wMonth <= 12;
}

std::size_t write_time(const SYSTEMTIME &time, char *text) {
  char *end = write_integer(text, time.wYear);
  const struct {
    char before;
    std::uint16_t number;
  } parts[] = {{'-', time.wMonth}, {'-', time.wDay}, {' ', time.wHour}, {':', time.wMinute}, {':', time.wSecond}};
  for (const auto &part : parts) {
    *end++ = part.before;
    end = write_integer(end, part.number);
  }
  return static_cast<std::size_t>(end - text);
}

std::size_t format_time(std::span<std::byte> value, char *text) {
  auto time = load_part<SYSTEMTIME>(value);
  if (!is_possible(time)) {
    // By design [TimeStamped]: showing an empty or impossible time stamps it with the present.
    (void)read_local_time(time);
    store_part(value, time);
  }
  return write_time(time, text);
}

// The shortest decimal number that reads back as the same one.
std::size_t write_shortest(const FieldTypeInfo &type, std::span<const std::byte> value, char *text) {
  const double number =
      type.bytes == sizeof(float) ? static_cast<double>(load_part<float>(value)) : load_part<double>(value);
  if (type.bytes == sizeof(float)) {
    const auto narrow = static_cast<float>(number);
    const auto size = static_cast<std::size_t>(std::to_chars(text, text + kNumberTextMax, narrow).ptr - text);
    // Reading goes through the wider type, which now and then rounds to a neighbour.
    if (!std::isfinite(narrow) || static_cast<float>(parse_double({text, size})) == narrow) return size;
  }
  return static_cast<std::size_t>(std::to_chars(text, text + kNumberTextMax, number).ptr - text);
}

}  // namespace

std::size_t format_value(std::int32_t type, std::span<std::byte> value, char *text) {
  const FieldTypeInfo &info = field_type(type);
  switch (info.kind) {
    case Kind::kCharacter:
      return format_character(value, text);
    case Kind::kInteger:
      return format_integer(info, value, text);
    case Kind::kReal:
      return write_fixed(text, real_in(info, value));
    case Kind::kTime:
      return format_time(value, text);
    case Kind::kNone:
    case Kind::kText:
    case Kind::kPassword:
      return 0;
  }
  return 0;
}

std::size_t format_exactly(std::int32_t type, std::span<const std::byte> value, char *text) {
  const FieldTypeInfo &info = field_type(type);
  switch (info.kind) {
    case Kind::kCharacter:
      return format_character(value, text);
    case Kind::kInteger:
      return format_integer(info, value, text);
    case Kind::kReal:
      return write_shortest(info, value, text);
    case Kind::kTime:
      return write_time(load_part<SYSTEMTIME>(value), text);
    case Kind::kNone:
    case Kind::kText:
    case Kind::kPassword:
      return 0;
  }
  return 0;
}

void append_value_text(std::int32_t type, std::span<std::byte> value, const PasswordCipher &cipher, std::string &text) {
  switch (kind_of(type)) {
    case Kind::kText:
      text += text_in(value);
      return;
    case Kind::kPassword:
      text += cipher.encrypt(text_in(value));
      return;
    case Kind::kCharacter:
    case Kind::kInteger:
    case Kind::kReal:
    case Kind::kTime:
    case Kind::kNone: {
      const std::size_t before = text.size();
      text.resize(before + kNumberTextMax);
      text.resize(before + format_value(type, value, text.data() + before));
    }
  }
}

}  // namespace quillanest
