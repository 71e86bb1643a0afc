#include <array>
#include <cmath>
#include <cstdio>
#include <gtest/gtest.h>
#include <limits>
#include <string>

#include "quillanest/sql/ComError.h"
#include "quillanest/sql/Variant.h"
#include "tests/support/Records.h"

namespace quillanest {
namespace {

using namespace std::string_view_literals;

constexpr SYSTEMTIME kNoon{2008, 5, 6, 3, 12, 0, 0, 500};
constexpr SYSTEMTIME kBeforeZero{1899, 12, 5, 29, 6, 0, 0, 0};

// What a conversion gives: its value, or the code of its error as a text.
template <class Convert>
std::string outcome(Convert convert) {
  try {
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%.17g", static_cast<double>(convert()));
    return text.data();
  } catch (const _com_error &error) {
    return error.Error() == kTypeMismatch ? "mismatch" : error.Error() == kOverflow ? "overflow" : "another error";
  }
}

const struct {
  Variant value;
  const char *as_double, *as_float, *as_int32;
  std::uint32_t content;
} kNumbers[] = {
    {Variant(), "mismatch", "mismatch", "mismatch", 0},
    {true, "-1", "-1", "4294967295", 4294967295U},
    {false, "0", "0", "0", 0},
    {std::int64_t{-1}, "-1", "-1", "4294967295", 4294967295U},
    {std::int64_t{4294967295}, "4294967295", "4294967296", "4294967295", 4294967295U},
    {std::int64_t{4294967296}, "4294967296", "4294967296", "overflow", 0},
    {std::int64_t{-2147483648}, "-2147483648", "-2147483648", "2147483648", 2147483648U},
    {std::int64_t{-2147483649}, "-2147483649", "-2147483648", "overflow", 2147483647U},
    {2.5, "2.5", "2.5", "2", 2},
    {3.5, "3.5", "3.5", "4", 3},
    {-2147483648.5, "-2147483648.5", "-2147483648", "2147483648", 2147483648U},
    {4294967295.5, "4294967295.5", "4294967296", "overflow", 4294967295U},
    {3.4028234663852886e38, "3.4028234663852886e+38", "3.4028234663852886e+38", "overflow", 0},
    {-3.4028235e38, "-3.4028234999999999e+38", "-3.4028234663852886e+38", "overflow", 0},
    {-1e39, "-9.9999999999999994e+38", "overflow", "overflow", 0},
    {std::numeric_limits<double>::infinity(), "inf", "inf", "overflow", 0},
    {std::nan(""), "nan", "nan", "overflow", 0},
    {kNoon, "39571.5", "39571.5", "39572", 39571},
    {kBeforeZero, "-1.25", "-1.25", "4294967295", 4294967295U},
    {" \t-4.5e2 \n"sv, "-450", "-450", "4294966846", 4294966846U},
    {"+7"sv, "7", "7", "7", 7},
    {"0.10"sv, "0.10000000000000001", "0.10000000149011612", "0", 0},
    {".5"sv, "0.5", "0.5", "0", 0},
    {"4294967295"sv, "4294967295", "4294967296", "4294967295", 4294967295U},
    {"123456789012345678901234567890.12"sv, "1.2345678901234568e+29", "1.2345678918272927e+29", "overflow", 0},
    {"1e400"sv, "overflow", "overflow", "overflow", 0},
    {"1e-400"sv, "0", "0", "0", 0},
    {"0.5e400"sv, "overflow", "overflow", "overflow", 0},
};

// Catches: a conversion that rounds in another way, wraps instead of failing, or reads half of a text.
TEST(Variant, Numbers) {
  for (const auto &row : kNumbers) {
    SCOPED_TRACE(to_text(row.value) + " of kind " + std::to_string(row.value.index()));
    EXPECT_EQ(outcome([&] { return to_double(row.value); }), row.as_double);
    EXPECT_EQ(outcome([&] { return to_float(row.value); }), row.as_float);
    EXPECT_EQ(outcome([&] { return to_int32(row.value); }), row.as_int32);
    EXPECT_EQ(integer_content(row.value), row.content);
  }
  for (const std::string_view text :
       {"", " ", "abc", "1.5x", "1,5", "0x10", "--1", "+-1", "nan", "inf", "-infinity", "2008-05-03"}) {
    EXPECT_EQ(outcome([&] { return to_double(text); }), "mismatch") << text;
    EXPECT_EQ(outcome([&] { return to_int32(text); }), "mismatch") << text;
    EXPECT_EQ(integer_content(text), 0U) << text;
  }
}

constexpr const char *kNone = "0-0-0 0:0:0.0 day 0";
const struct {
  Variant value;
  const char *expected;
} kDates[] = {
    {"2008-05-03 14:07:09"sv, "2008-5-3 14:7:9.0 day 6"},
    {" 2008-5-3  14:7:9 "sv, "2008-5-3 14:7:9.0 day 6"},
    {"2008-05-03T14:07:09.999Z"sv, "2008-5-3 14:7:9.0 day 6"},
    {"2008-05-03 14:07:09.5+02:00"sv, "2008-5-3 14:7:9.0 day 6"},
    {"2008-05-03 14:07"sv, "2008-5-3 14:7:0.0 day 6"},
    {"2008-05-03"sv, "2008-5-3 0:0:0.0 day 6"},
    {"2000-02-29"sv, "2000-2-29 0:0:0.0 day 2"},
    {Variant(), kNone},
    {"39571.75"sv, "2008-5-3 18:0:0.0 day 6"},
    {39571.5, "2008-5-3 12:0:0.0 day 6"},
    {std::int64_t{39571}, "2008-5-3 0:0:0.0 day 6"},
    {39571.999999, "2008-5-4 0:0:0.0 day 0"},
    {0.0, "1899-12-30 0:0:0.0 day 6"},
    {-1.25, "1899-12-29 6:0:0.0 day 5"},
    {std::int64_t{61}, "1900-3-1 0:0:0.0 day 4"},
    {std::int64_t{-657434}, "100-1-1 0:0:0.0 day 5"},
    {std::int64_t{-657435}, kNone},
    {2958465.25, "9999-12-31 6:0:0.0 day 5"},
    {std::int64_t{2958466}, kNone},
    {2958465.999999, kNone},
    {std::nan(""), kNone},
    {1e300, kNone},
    {kNoon, "2008-5-3 12:0:0.0 day 6"},
};

// Catches: a form of dates that is not read, or a date that does not exist and is.
TEST(Variant, Dates) {
  for (const auto &row : kDates) {
    SCOPED_TRACE(to_text(row.value) + " of kind " + std::to_string(row.value.index()));
    EXPECT_EQ(time_text(to_date(row.value)), row.expected);
  }
  for (const std::string_view text :
       {"1900-02-29", "2008-04-31", "2008-13-01", "2008-00-01", "2008-05-00", "0-05-03", "10000-01-01",
        "2008-05-03 24:00:00", "2008-05-03 00:60:00", "2008-05-03 00:00:60", "2008-05-03 noon", "2008-05", "-5-03-03",
        "99999999999-01-01", "soon", ""}) {
    EXPECT_EQ(time_text(to_date(text)), kNone) << text;
  }
}

// Catches: a text with digits that its value does not have.
TEST(Variant, Texts) {
  const struct {
    Variant value;
    const char *expected;
  } rows[] = {{Variant(), ""},
              {true, "-1"},
              {false, "0"},
              {std::int64_t{-9007199254740993}, "-9007199254740993"},
              {0.1, "0.1"},
              {1234567.890625, "1234567.890625"},
              {-2.0, "-2"},
              {SYSTEMTIME{2008, 5, 6, 3, 4, 7, 9, 0}, "2008-05-03 04:07:09"},
              {" as it is "sv, " as it is "}};
  for (const auto &row : rows) EXPECT_EQ(to_text(row.value), row.expected);
}

}  // namespace
}  // namespace quillanest
