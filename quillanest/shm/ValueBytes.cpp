#include "quillanest/shm/ValueBytes.h"

#include <array>
#include <charconv>
#include <optional>

#include "quillanest/base/Text.h"
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
  std::uint32_t wide = 0;
  for (const Part &part : kParts) {
    if (part.before == ' ') {
      skip_blanks(text);
    } else if (part.before != 0) {
      if (!text.starts_with(part.before)) return false;
      text.remove_prefix(1);
    }
    const std::optional<std::uint32_t> number = scan_int(text);
    if (!number) return part.before == 0 && text.empty();
    wide |= *number >> 16;
    if (part.place < time.size()) store_part(time.subspan(part.place), *number);
  }
  skip_blanks(text);
  return wide == 0 && text.empty();
}

namespace {

// The number that up to 9 digits form, as nearly all integers are written; nothing for other texts.
std::optional<std::uint32_t> plain_integer(std::string_view text) {
  constexpr std::size_t kAlwaysFits = 9;
  if (text.size() - 1 >= kAlwaysFits) return std::nullopt;  // an empty one too
  std::uint32_t number = 0;
  for (const char c : text) {
    const std::uint32_t digit = static_cast<std::uint32_t>(c) - '0';
    if (digit > 9) return std::nullopt;
    number = number * 10 + digit;
  }
  return number;
}

// Whether a text is an integer that the type holds, or empty.
bool holds_integer(const FieldTypeInfo &type, std::string_view text) {
  text = trimmed(text, " \t\n\v\f\r");
  if (text.empty()) return true;
  if (text.starts_with('+')) text.remove_prefix(1);
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return false;
  const std::int64_t range = std::int64_t{1} << (8 * type.bytes);
  return type.is_signed ? number >= -range / 2 && number < range / 2 : number >= 0 && number < range;
}

bool store_whole_integer(const FieldTypeInfo &type, std::span<std::byte> to, std::string_view text) {
  if (type.bytes == 2) {
    store_part(to, static_cast<std::uint16_t>(parse_int(text)));
    return holds_integer(type, text);
  }
  const std::optional<std::uint32_t> plain = plain_integer(text);
  store_part(to, plain ? *plain : parse_int(text));
  return plain || holds_integer(type, text);
}

bool store_whole_real(const FieldTypeInfo &type, std::span<std::byte> to, std::string_view text) {
  const ScannedDouble number = scan_double(text);
  type.bytes == 4 ? store_part(to, static_cast<float>(number.value)) : store_part(to, number.value);
  if (number.size == text.size()) return true;
  text.remove_prefix(number.size);
  skip_blanks(text);
  return text.empty();
}

}  // namespace

bool store_whole_value(std::int32_t type, std::span<std::byte> to, std::string_view text) {
  const FieldTypeInfo &info = field_type(type);
  switch (info.kind) {
    case Kind::kInteger:
      return store_whole_integer(info, to, text);
    case Kind::kReal:
      return store_whole_real(info, to, text);
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
