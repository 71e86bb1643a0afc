#include <algorithm>
#include <bit>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <random>
#include <string>
#include <string_view>

#include "quillanest/shm/NumberText.h"
#include "tests/support/TestRoot.h"

namespace {

using quillanest::parse_double;
using quillanest::parse_int;

void expect_int(const std::string &text) {
  EXPECT_EQ(parse_int(text), static_cast<std::uint32_t>(std::strtoll(text.c_str(), nullptr, 10)))
      << testing::PrintToString(text);
}

// Bit for bit; of numbers that are none only the sign counts.
void expect_double(const std::string &text) {
  const double expected = std::strtod(text.c_str(), nullptr);
  const double result = parse_double(text);
  if (std::isnan(expected)) {
    EXPECT_TRUE(std::isnan(result) && std::signbit(result) == std::signbit(expected)) << testing::PrintToString(text);
  } else {
    EXPECT_EQ(std::bit_cast<std::uint64_t>(result), std::bit_cast<std::uint64_t>(expected))
        << testing::PrintToString(text) << " gives " << result << " instead of " << expected;
  }
}

// The texts between the '|' of a list, the empty one in front included.
template <class Expect>
void for_each_text(std::string_view list, Expect expect) {
  expect("");
  for (; !list.empty(); list.remove_prefix(std::min(list.find('|') + 1, list.size()))) {
    expect(std::string(list.substr(0, list.find('|'))));
    if (list.find('|') == std::string_view::npos) break;
  }
}

// Numbers of up to 18 digits, which fit 64 bits, with all that may stand around them.
std::string random_int(std::mt19937 &random) {
  const auto pick = [&](std::initializer_list<const char *> texts) { return texts.begin()[random() % texts.size()]; };
  std::string text = pick({"", "-", "+", " ", "\t\n\v\f\r ", " -", "- ", "+-", "--", "x", "0x"});
  for (auto digits = random() % 19; digits > 0; --digits) text += static_cast<char>('0' + random() % 10);
  return text + pick({"", " ", ".5", "e3", "x1", "-1", "\xC4"});
}

std::string random_double(std::mt19937 &random) {
  const auto pick = [&](std::initializer_list<const char *> texts) { return texts.begin()[random() % texts.size()]; };
  const bool hexadecimal = random() % 4 == 0;
  const auto digits = [&] {
    std::string run(random() % (random() % 8 == 0 ? 400 : 10), '0');
    for (char &c : run) c = "0123456789abcdefABCDEF"[random() % (hexadecimal ? 22 : 10)];
    return run;
  };
  std::string text = pick({"", "", "", "-", "+", " ", "\t-", "- ", "--", "-+", "+-"});
  if (hexadecimal) text += pick({"0x", "0X", "0x-", "x", "0x0x", "0x."});
  if (random() % 16 == 0) text += pick({"inf", "INFinity", "infini", "nan", "NaN", "in", "e", "."});
  text += digits() + pick({"", ".", ".", "..", ","}) + digits();
  if (random() % 2 == 0) {
    text += hexadecimal ? pick({"p", "P", "p-", "p+", "p--"}) : pick({"e", "E", "e-", "e+", "e--"});
    text += std::to_string(random() % (random() % 2 == 0 ? 30 : 1200));
  }
  return text + pick({"", " ", "x", ";"});
}

template <class Make, class Expect>
void for_random_texts(Make make, Expect expect) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  for (int round = 0; round < 5000 && !testing::Test::HasFailure(); ++round) expect(make(random));
}

TEST(NumberText, IntegerIsTheLow32BitsOfAWideOne) {
  for_each_text(
      "0|-0|7|-7|+7| \t\n\v\f\r42|007|12ab|ab12|-|+|+-1|- 1|0x10|1e3|1.9|2147483647|2147483648|-2147483648|-2147483649|"
      "4294967295|4294967296|4294967297|9223372036854775807|-9223372036854775807|\240"
      "1",
      expect_int);
  EXPECT_EQ(parse_int("4000000000"), 4000000000u);
  for_random_texts(random_int, expect_int);
}

TEST(NumberText, FloatingPointIsTheCLibrarys) {
  for_each_text(
      "0|-0|+0|1.5|-1.5|+1.5|1,5|.5|5.|.|1e3|1E+3|1e-3|1e|1e+|1e400|-1e400|1e-400|-1e-400|1e99999999999999999999|"
      "1e-99999999999999999999|0e99999999999999999999|2.5e-324|2.4e-324|4.9406564584124654e-324|"
      "2.2250738585072011e-308|2.2250738585072014e-308|1.7976931348623157e308|1.7976931348623159e308|9007199254740993|"
      "123456789012345678901234567890|0.1000000000000000055511151231257827021181583404541015625|8.5899345920000005e9|"
      " \t\n\v\f\r1|inf|-INF|infinity|-Infinit|nan|-nan|NaNx|in|0x1|0X1.8p1|0x.8|0x1p|0x1p-1074|0x1p-1075|0x1.8p-1075|"
      "0x1p1024|0x1.fffffffffffff8p1023|0x1.fffffffffffff7p1023|0x1.00000000000008p0|0x1.00000000000018p0|1x|1 2|1e5e5",
      expect_double);
  for (const int zeros : {100, 400, 1000}) {
    const std::string run(static_cast<std::size_t>(zeros), '0');
    for (const std::string &text : {"1" + run, "0." + run + "1", "0." + run + "1e" + std::to_string(zeros),
                                    "1" + run + "e-" + std::to_string(zeros), "0x1" + run + "p-4000"}) {
      expect_double(text);
    }
  }
  for_random_texts(random_double, expect_double);
}

// A text without a number was a negative 0 when a minus sign stood in it.
TEST(NumberText, TextWithoutANumberIsPositiveZero) { for_each_text("-|-abc|-+5|--5|-.|- 5|-e5|+-5", expect_double); }

// "0x" without digits behind it was skipped, and what followed was taken for the number.
TEST(NumberText, HexadecimalPrefixWithoutDigitsIsZero) {
  for_each_text("0x|0xg|0x-5|0xinf|0xnan|-0x-5|0xp5|0x.|0x+1|0x 1", expect_double);
}

// Puts a locale with a decimal comma in force: the C library's form of C.utf8 with a comma for the point. False when
// this system has none to start from.
bool set_comma_locale(const TestRoot &root) {
  std::ifstream original("/usr/lib/locale/C.utf8/LC_NUMERIC", std::ios::binary);
  std::string form{std::istreambuf_iterator<char>(original), {}};
  std::replace(form.begin(), form.end(), '.', ',');
  std::filesystem::create_directory(root.path("comma"));
  root.write("comma/LC_NUMERIC", form);
  setenv("LOCPATH", root.folder().c_str(), 1);
  const bool set = std::setlocale(LC_NUMERIC, "comma") != nullptr;
  unsetenv("LOCPATH");
  return set;
}

TEST(NumberText, LocaleDoesNotCount) {
  const TestRoot root;
  if (!set_comma_locale(root)) GTEST_SKIP() << "no locale with a decimal comma can be made on this system";
  EXPECT_EQ(std::strtod("1,5", nullptr), 1.5) << "the locale is not in force";
  for (const auto &[text, number] : {std::pair("1.5", 1.5), std::pair("1,5", 1.0), std::pair("-25.0e-1x", -2.5),
                                     std::pair(".5", 0.5), std::pair("0x1.8p1", 3.0), std::pair("0x1,8p1", 1.0)}) {
    EXPECT_EQ(parse_double(text), number) << text;
  }
  std::setlocale(LC_NUMERIC, "C");
}

}  // namespace
