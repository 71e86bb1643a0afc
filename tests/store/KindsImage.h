// An image with a table that has a field of every type.
#pragma once

#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <string_view>

#include "tests/store/StoreFixture.h"

inline constexpr SYSTEMTIME kTime{2008, 5, 6, 3, 14, 7, 9, 0};  // a Saturday

inline const TableSpec kKinds{21,
                              "Kinds",
                              4,
                              {"ID UINT 4", "aChar CHAR 1", "aUchar UCHAR 1", "aShort SHORT 2", "aUshort USHORT 2",
                               "anInt INT 4", "aUint UINT 4", "aLong LONG 4", "aUlong ULONG 4", "aFloat FLOAT 4",
                               "aDouble DOUBLE 8", "aText STRING 24", "aTime TIME 16", "aPass PASSWD 16"}};
inline constexpr const char *kKindsColumns =
    "ID bigint, aChar integer, aUchar integer, aShort integer, aUshort integer, anInt integer, aUint bigint, aLong "
    "integer, aUlong bigint, aFloat real, aDouble double precision, aText varchar(100), aTime timestamp, aPass "
    "varchar(100)";

#pragma pack(push, 1)
struct Kinds {
  std::uint32_t id = 0;
  char a_char = 0;
  unsigned char a_uchar = 0;
  std::int16_t a_short = 0;
  std::uint16_t a_ushort = 0;
  std::int32_t an_int = 0;
  std::uint32_t a_uint = 0;
  std::int32_t a_long = 0;
  std::uint32_t a_ulong = 0;
  float a_float = 0;
  double a_double = 0;
  char a_text[24] = {};
  SYSTEMTIME a_time = {};
  char a_pass[16] = {};
};
#pragma pack(pop)

struct KindsImage : StoreImage {
  explicit KindsImage(std::string_view slots, const std::string &columns = kKindsColumns)
      : StoreImage(slots, {kKinds}), kinds(table(21, columns)) {}

  void add(Kinds record) { EXPECT_GE(kinds.Insert(reinterpret_cast<char *>(&record), 0), 0); }
  void expect(int position, const Kinds &expected) const {
    SCOPED_TRACE("record " + std::to_string(position));
    const auto found = value_at<Kinds>(kinds.GetAt(position), 0);
    EXPECT_EQ(std::memcmp(&found, &expected, offsetof(Kinds, a_text)), 0) << +found.a_float << ' ' << +found.a_double;
    EXPECT_STREQ(found.a_text, expected.a_text);
    EXPECT_EQ(std::memcmp(&found.a_time, &expected.a_time, sizeof(SYSTEMTIME)), 0) << +found.a_time.wYear;
    EXPECT_STREQ(found.a_pass, expected.a_pass);
  }
  CRtTable kinds;
};

// The ends of every type's range.
// clang-format off
inline const Kinds kEnds[] = {
    {.id = 1, .a_char = '0', .a_uchar = '9', .a_short = -32768, .a_ushort = 65535, .an_int = INT32_MIN,
     .a_uint = 4294967295U, .a_long = INT32_MIN, .a_ulong = 2147483648U, .a_float = -3.4028234663852886e38F,
     .a_double = -1e300, .a_text = "Gr\xC3\xB6\xC3\x9F" "e \xE2\x82\xAC\xF0\x9F\x98\x80", .a_time = kTime,
     .a_pass = "p\xC3\xA4ss;word"},
    {.id = 2, .a_char = '1', .a_uchar = '2', .a_short = 32767, .a_ushort = 1, .an_int = INT32_MAX,
     .a_uint = 2147483648U, .a_long = INT32_MAX, .a_ulong = 1, .a_float = 0.1F, .a_double = 1234567.890625,
     .a_text = "100% {x} ?\\ #;--\"$1", .a_time = {1601, 1, 1, 1, 0, 0, 0, 0}},
    {.id = 2147483647, .a_char = '5', .a_uchar = '6', .a_float = 16777216.0F, .a_double = -0.000001, .a_text = "x",
     .a_time = {9999, 12, 5, 31, 23, 59, 59, 0}, .a_pass = "'"}};
// clang-format on
