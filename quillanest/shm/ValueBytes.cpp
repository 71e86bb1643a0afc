#include "quillanest/shm/ValueBytes.h"

#include <array>
#include <optional>

#include "quillanest/platform/SystemTime.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/FieldType.h"
#include "quillanest/shm/NumberText.h"

namespace quillanest {

bool store_value_of_text(std::int32_t type, std::span<std::byte> to, std::string_view text) {
  switch (type) {
    case kShort:
    case kUshort:
      store_part(to, static_cast<std::uint16_t>(parse_int(text)));
      return true;
    case kInt:
    case kUint:
    case kLong:
    case kUlong:
      store_part(to, parse_int(text));
      return true;
    case kFloat:
      store_part(to, static_cast<float>(parse_double(text)));
      return true;
    case kDouble:
      store_part(to, parse_double(text));
      return true;
    case kTime:
      read_time(text, to);
      return true;
    default:
      return false;
  }
}

void read_time(std::string_view text, std::span<std::byte> time) {
  struct Part {
    std::size_t place;
    char before;  // what stands in front of the number; a blank stands for any white space, none included
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
  // By design [DefaultRunsOn]: a CHAR takes the whole default text as well, into what follows it.
  const bool characters = type == kChar || type == kUchar || is_text_type(type);
  if (characters) return copy_text(to, text);
  (void)store_value_of_text(type, to, text);
}

}  // namespace quillanest
