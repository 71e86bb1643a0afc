#include <bit>
#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>
#include <limits>
#include <sstream>
#include <string>

#include "quillanest/shm/NumberText.h"

namespace {

using quillanest::parse_double;
using quillanest::parse_int;

void expect_int(const std::string &text) {
  EXPECT_EQ(parse_int(text), static_cast<std::uint32_t>(std::strtoll(text.c_str(), nullptr, 10)))
      << testing::PrintToString(text);
}

// The bits of a number; of one that is none only the sign counts.
std::uint64_t bits(double number) {
  const double any = std::copysign(std::numeric_limits<double>::quiet_NaN(), number);
  return std::bit_cast<std::uint64_t>(std::isnan(number) ? any : number);
}

void expect_double(const std::string &text) {
  const double expected = std::strtod(text.c_str(), nullptr);
  const double result = parse_double(text);
  EXPECT_EQ(bits(result), bits(expected)) << testing::PrintToString(text) << " gives " << result;
}

// The texts between the '|' of a list.
template <class Expect>
void for_each_text(const char *list, Expect expect) {
  std::istringstream texts(list);
  for (std::string text; std::getline(texts, text, '|');) expect(text);
}

TEST(NumberText, IntegerIsTheLow32BitsOfAWideOne) {
  for_each_text(
      "|0|-0|7|-7|+7| \t\n\v\f\r42|007|12ab|ab12|-|+|+-1|- "
      "1|0x10|1e3|1.9|2147483647|2147483648|-2147483648|-2147483649|"
      "4294967295|4294967296|4294967297|9223372036854775807|-9223372036854775807|\240"
      "1",
      expect_int);
}

// Catches: a text without a number was a negative 0 when a minus sign was in it; "0x" without digits after it was
// skipped, and what followed was taken for the number.
TEST(NumberText, FloatingPointIsTheCLibrarys) {
  for_each_text("|-|-abc|-+5|--5|-.|- 5|-e5|+-5|0x|0xg|0x-5|0xinf|0xnan|-0x-5|0xp5|0x.|0x+1|0x 1", expect_double);
  for_each_text(
      "0|-0|+0|1.5|-1.5|+1.5|1,5|.5|5.|.|1e3|1E+3|1e-3|1e|1e+|1e400|-1e400|1e-400|-1e-400|1e99999999999999999999|"
      "1e-99999999999999999999|0e99999999999999999999|2.5e-324|2.4e-324|4.9406564584124654e-324|"
      "2.2250738585072011e-308|2.2250738585072014e-308|1.7976931348623157e308|1.7976931348623159e308|9007199254740993|"
      "123456789012345678901234567890|0.1000000000000000055511151231257827021181583404541015625|8.5899345920000005e9|"
      " \t\n\v\f\r1|inf|-INF|infinity|-Infinit|nan|-nan|NaNx|in|0x1|0X1.8p1|0x.8|0x1p|0x1p-1074|0x1p-1075|0x1.8p-1075|"
      "0x1p1024|0x1.fffffffffffff8p1023|0x1.fffffffffffff7p1023|0x1.00000000000008p0|0x1.00000000000018p0|"
      "0x1p+-1|0x1P+-1|0x1p-+1|0x1p++1|1e+-1|1x|1 2|1e5e5",
      expect_double);
}

}  // namespace
