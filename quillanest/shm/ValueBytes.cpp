#include "quillanest/shm/ValueBytes.h"

#include <array>
#include <charconv>
#include <optional>

#include "quillanest/platform/SystemTime.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/FieldType.h"
#include "quillanest/shm/NumberText.h"

namespace quillanest {

bool store_value_of_text(std::int32_t type, std::span<std::byte> to, std::string_view text) {
  const FieldTypeInfo &info = field_type(type);
  switch (info.kind) {
    case Kind::kInteger:
      info.bytes == 2 ? store_part(to, static_cast<std::uint16_t>(parse_int(text))) : store_part(to, parse_int(text));
      return true;
    case Kind::kReal:
      info.bytes == 4 ? store_part(to, static_cast<float>(parse_double(text))) : store_part(to, parse_double(text));
      return true;
    case Kind::kTime:
      (void)read_time(text, to);
      return true;
    case Kind::kNone:
    case Kind::kCharacter:
    case Kind::kText:
    case Kind::kPassword:
      return false;
  }
  return false;
}

namespace {

// The number that up to 4 digits form; 10,000, larger than any of them, if a character is not a digit.
std::uint32_t digits_at(const char *text, int count) {
  std::uint32_t number = 0;
  std::uint32_t wrong = 0;
  for (int i = 0; i < count; ++i) {
    const std::uint32_t digit = static_cast<std::uint32_t>(text[i]) - '0';
    wrong |= static_cast<std::uint32_t>(digit > 9);
    number = number * 10 + digit;
  }
  return wrong == 0 ? number : 10'000;
}

// A time in the form in which times are saved, "YYYY-MM-DD hh:mm:ss", which nearly every text has. Nothing for other
// texts.
std::optional<SYSTEMTIME> saved_time(std::string_view text) {
  if (text.size() != 19) return std::nullopt;
  const char *const at = text.data();
  if (at[4] != '-' || at[7] != '-' || at[10] != ' ' || at[13] != ':' || at[16] != ':') return std::nullopt;
  const std::array<std::uint32_t, 6> parts{digits_at(at, 4),      digits_at(at + 5, 2),  digits_at(at + 8, 2),
                                           digits_at(at + 11, 2), digits_at(at + 14, 2), digits_at(at + 17, 2)};
  for (const std::uint32_t part : parts) {
    if (part >= 10'000) return std::nullopt;
  }
  SYSTEMTIME time{};
  time.wYear = static_cast<std::uint16_t>(parts[0]);
  time.wMonth = static_cast<std::uint16_t>(parts[1]);
  time.wDay = static_cast<std::uint16_t>(parts[2]);
  time.wHour = static_cast<std::uint16_t>(parts[3]);
  time.wMinute = static_cast<std::uint16_t>(parts[4]);
  time.wSecond = static_cast<std::uint16_t>(parts[5]);
  return time;
}

}  // namespace

bool read_time(std::string_view text, std::span<std::byte> time) {
  if (const std::optional<SYSTEMTIME> saved = saved_time(text); saved && time.size() >= sizeof *saved) {
    store(time.data(), *saved);
    return true;
  }
  skip_blanks(text);
  if (text.empty()) return true;
  bool fits = true;
  struct Part {
    std::size_t place;
    char before;  // what precedes the number; a blank matches any white space, also none
  };
  constexpr std::array<Part, 6> kParts{{{offsetof(SYSTEMTIME, wYear), 0},
                                        {offsetof(SYSTEMTIME, wMonth), '-'},
                                        {offsetof(SYSTEMTIME, wDay), '-'},
                                        {offsetof(SYSTEMTIME, wHour), ' '},
                                        {offsetof(SYSTEMTIME, wMinute), ':'},
                                        {offsetof(SYSTEMTIME, wSecond), ':'}}};
  for (const Part &part : kParts) {
    if (part.before == ' ') {
      skip_blanks(text);
    } else if (part.before != 0) {
      if (!text.starts_with(part.before)) return false;
      text.remove_prefix(1);
    }
    const std::optional<std::uint32_t> number = scan_int(text);
    if (!number) return false;
    fits = fits && *number <= 0xFFFF;
    if (part.place < time.size()) store_part(time.subspan(part.place), *number);
  }
  skip_blanks(text);
  return fits && text.empty();
}

namespace {

// Whether an integer's text names a number that the type holds.
bool holds_integer(const FieldTypeInfo &type, std::string_view text) {
  constexpr std::size_t kAlwaysFits = 9;  // digits
  if (type.bytes == 4 && text.size() <= kAlwaysFits && !text.starts_with('-')) return true;
  if (text.starts_with('+')) text.remove_prefix(1);
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return false;
  const std::int64_t range = std::int64_t{1} << (8 * type.bytes);
  return type.is_signed ? number >= -range / 2 && number < range / 2 : number >= 0 && number < range;
}

// Takes a number from the start of the text; the text that it was.
template <class Scan>
std::string_view taken(std::string_view &text, Scan scan) {
  skip_blanks(text);
  const std::string_view before = text;
  scan();
  const std::string_view number = before.substr(0, before.size() - text.size());
  skip_blanks(text);
  return number;
}

}  // namespace

bool store_whole_value(std::int32_t type, std::span<std::byte> to, std::string_view text) {
  const FieldTypeInfo &info = field_type(type);
  switch (info.kind) {
    case Kind::kInteger: {
      std::uint32_t value = 0;
      const std::string_view number = taken(text, [&] { value = scan_int(text).value_or(0); });
      info.bytes == 2 ? store_part(to, static_cast<std::uint16_t>(value)) : store_part(to, value);
      return text.empty() && (number.empty() || holds_integer(info, number));
    }
    case Kind::kReal: {
      double value = 0;
      (void)taken(text, [&] { value = scan_double(text); });
      info.bytes == 4 ? store_part(to, static_cast<float>(value)) : store_part(to, value);
      return text.empty();
    }
    case Kind::kTime:
      return read_time(text, to);
    case Kind::kNone:
    case Kind::kCharacter:
    case Kind::kText:
    case Kind::kPassword:
      return true;
  }
  return true;
}

void store_default(std::int32_t type, std::span<std::byte> to, std::string_view text) {
  if (text.empty()) return;
  switch (kind_of(type)) {
    case Kind::kCharacter:  // By design [DefaultRunsOn]: the whole default text as well, into what follows the
                            // character.
    case Kind::kText:
    case Kind::kPassword:
      return copy_text(to, text);
    case Kind::kInteger:
    case Kind::kReal:
    case Kind::kTime:
    case Kind::kNone:
      (void)store_value_of_text(type, to, text);
  }
}

}  // namespace quillanest
