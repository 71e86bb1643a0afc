// Texts become values of every type and texts again; numbers are compared with what the C library reads.
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "quillanest/settings/PasswordCipher.h"
#include "quillanest/shm/FieldType.h"
#include "quillanest/shm/NumberText.h"
#include "quillanest/sql/ComError.h"
#include "quillanest/sql/Variant.h"
#include "tests/model/Input.h"
#include "tests/model/Support.h"

namespace {

using quillanest::Variant;
using quillanest::model::exact_copy;
using quillanest::model::Input;
using quillanest::model::LastingImage;
using quillanest::model::require;

constexpr unsigned int kTypes = 10;

// One field of each type, and texts of several sizes.
const std::vector<TableSpec> kTables{
    {kTypes,
     "Types",
     3,
     {"ID UINT 4", "Char CHAR 1", "Uchar UCHAR 1", "Short SHORT 2", "Ushort USHORT 2", "Int INT 4", "Uint UINT 4",
      "Long LONG 4", "Ulong ULONG 4", "Float FLOAT 4", "Double DOUBLE 8", "Text STRING 40", "Short1 STRING 1",
      "Time TIME 16", "Pass PASSWD 20", "Wide INT 12", "Tail STRING 3"}}};

// A text of at most 80 bytes shows any number but the largest of the floating-point ones.
constexpr std::size_t kShownMax = 400;

std::string shown(const CRtField &field, char *value) {
  const auto text = std::make_unique<char[]>(kShownMax);
  CRtField::GetDisplayText(field.GetFieldType(), value, text.get());
  return text.get();
}

// Stores a text in a field of the middle record, of which nothing else may change.
void store(CRtTable &table, const CRtField &field, const std::string &text) {
  const std::string before = quillanest::model::records_of(table);
  const std::unique_ptr<char[]> copy = exact_copy(text);
  require(table.SetFieldByText(1, field.GetIndexInTable(), copy.get()) == 1, "a text can be stored in any type");
  const std::string after = quillanest::model::records_of(table);
  const auto start = static_cast<std::size_t>(table.GetTableSize() + field.GetFieldOffset());
  const std::size_t end = start + static_cast<std::size_t>(field.GetFieldSize());
  require(before.substr(0, start) == after.substr(0, start), "nothing before the field changes");
  require(before.substr(end) == after.substr(end), "nothing after the field changes");
}

void check_field(CRtTable &table, int index, const std::string &text) {
  CRtField field;
  if (table.GetFieldFromIndex(field, index) == 0) return;
  char *value = table.GetAt(1) + field.GetFieldOffset();
  std::memset(value, 0, static_cast<std::size_t>(field.GetFieldSize()));
  store(table, field, text);
  const std::string first = shown(field, value);
  if (field.GetFieldType() == quillanest::kPasswd) {
    require(quillanest::TzDes::SimpleDecrypt(first.c_str()) == value, "a shown password can be read back");
    return;
  }
  store(table, field, first);
  require(shown(field, value) == first, "a value that is read from its own text is the same");
  if (quillanest::is_text_type(field.GetFieldType())) {
    const auto size = static_cast<std::size_t>(field.GetFieldSize());
    require(first == text.substr(0, std::min(text.size(), size - 1)), "a text is cut to its field");
  }
}

// A default text gives the same number as a text that is stored.
void check_default(CRtTable &table, int index, const std::string &text) {
  CRtField field;
  if (table.GetFieldFromIndex(field, index) == 0) return;
  const int type = field.GetFieldType();
  const bool characters = type == quillanest::kChar || type == quillanest::kUchar || quillanest::is_text_type(type);
  const auto element = static_cast<std::size_t>(field.GetFieldTypeSize());
  const std::size_t number = type == quillanest::kTime ? sizeof(SYSTEMTIME) : element;
  const std::size_t width = characters ? text.size() + 1 : number;
  const auto room = std::make_unique<char[]>(width);
  SetDefaultField(type, room.get(), text.c_str());
  if (text.empty()) return;
  if (characters) {
    require(text == room.get(), "a default text is copied whole");
    return;
  }
  char *value = table.GetAt(1) + field.GetFieldOffset();
  std::memset(value, 0, static_cast<std::size_t>(field.GetFieldSize()));
  store(table, field, text);
  require(std::memcmp(value, room.get(), width) == 0, "a default text is the same value");
}

void check_time(const std::string &text) {
  SYSTEMTIME time{};
  SYSTEMTIME by_default{};
  ReadTime(text.c_str(), &time);
  SetDefaultField(quillanest::kTime, reinterpret_cast<char *>(&by_default), text.c_str());
  require(std::memcmp(&time, &by_default, sizeof time) == 0, "a time is read in one way");
}

void check_number(const std::string &text) {
  const double number = quillanest::parse_double(text);
  const double expected = std::strtod(text.c_str(), nullptr);
  require(std::isnan(number) == std::isnan(expected), "what is no number is none in C either");
  require(std::isnan(number) || (number == expected && std::signbit(number) == std::signbit(expected)),
          "a floating-point number is that of C");
  std::string_view rest = text;
  const auto scanned = quillanest::scan_int(rest);
  char *end = nullptr;
  const long long whole = std::strtoll(text.c_str(), &end, 10);
  require(scanned.has_value() == (end != text.c_str()), "an integer is there when C finds one");
  if (!scanned) return;
  require(rest.data() == end, "both end in one place");
  const bool fits = whole > INT64_MIN && whole < INT64_MAX;
  require(!fits || *scanned == static_cast<std::uint32_t>(whole), "an integer is that of C, in its low bits");
}

// The result of a conversion; false when the value does not convert.
template <class Convert>
bool converts(Convert convert) {
  try {
    convert();
    return true;
  } catch (const _com_error &error) {
    require(error.Error() == quillanest::kTypeMismatch || error.Error() == quillanest::kOverflow,
            "an error has a code");
    return false;
  }
}

void check_double(double number) {
  constexpr double kLargest = 1.79769313486231e308;  // what rounds up in 15 digits is not read back
  if (!(std::fabs(number) < kLargest)) return;
  const std::string text = quillanest::to_text(Variant(number));
  double back = 0;
  require(converts([&] { back = quillanest::to_double(Variant(std::string_view(text))); }), "a shown number is one");
  require(quillanest::to_text(Variant(back)) == text, "a number that is read from its own text is the same");
}

void check_date(const SYSTEMTIME &date) {
  constexpr int kFirstYearWithNumber = 100;
  const std::string text = quillanest::to_text(Variant(date));
  SYSTEMTIME back{};
  require(quillanest::parse_date(text, back), "a shown date is one");
  require(std::memcmp(&back, &date, sizeof date) == 0, "a date that is read from its own text is the same");
  if (date.wYear < kFirstYearWithNumber) return;
  back = quillanest::to_date(Variant(quillanest::to_double(Variant(date))));
  require(std::memcmp(&back, &date, sizeof date) == 0, "a date comes back from its number");
}

void check_variant(const Variant &value) {
  (void)quillanest::integer_content(value);
  const SYSTEMTIME date = quillanest::to_date(value);
  if (date.wMonth != 0) check_date(date);
  std::uint32_t integer = 0;
  if (converts([&] { integer = quillanest::to_int32(value); }) && std::holds_alternative<std::int64_t>(value)) {
    require(integer == quillanest::integer_content(value), "an integer keeps its bits");
  }
  double number = 0;
  if (converts([&] { number = quillanest::to_double(value); })) {
    check_double(number);
    float single = 0;
    const bool is_single = converts([&] { single = quillanest::to_float(value); });
    require(!is_single || std::isfinite(single) || !std::isfinite(number), "a finite number stays finite");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  static LastingImage image(kTables);
  static CRtTable table = image.table(kTypes);
  Input input(bytes, size);
  const std::string whole = input.rest();
  const std::string text(whole.c_str());
  table.SetRecordCount(3);
  for (int index = 0; index < table.GetTableFieldNum(); ++index) {
    check_field(table, index, text);
    check_default(table, index, text);
  }
  check_time(text);
  check_number(text);
  check_variant(Variant(std::string_view(whole)));
  SYSTEMTIME date{};
  if (quillanest::parse_date(text, date)) check_date(date);
  Input raw(bytes, size);
  const auto integer = raw.number<std::int64_t>();
  check_variant(Variant(integer));
  double number = 0;
  std::memcpy(&number, &integer, sizeof number);
  check_double(number);
  check_variant(Variant(number));
  return 0;
}
