#include "quillanest/shm/ValueBytes.h"

#include <array>
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
      read_time(text, to);
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

void read_time(std::string_view text, std::span<std::byte> time) {
  if (const std::optional<SYSTEMTIME> saved = saved_time(text); saved && time.size() >= sizeof *saved) {
    return store(time.data(), *saved);
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
  for (const Part &part : kParts) {
    if (part.before == ' ') {
      skip_blanks(text);
    } else if (part.before != 0) {
      if (!text.starts_with(part.before)) return;
      text.remove_prefix(1);
    }
    const std::optional<std::uint32_t> number = scan_int(text);
    if (!number) return;
    if (part.place < time.size()) store_part(time.subspan(part.place), *number);
  }
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
