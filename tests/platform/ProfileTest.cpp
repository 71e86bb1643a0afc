#include <gtest/gtest.h>

#include "quillanest/platform/Profile.h"
#include "tests/support/TestRoot.h"

namespace {

using quillanest::profile_int;
using quillanest::profile_text;

TEST(Profile, FindsTheValueOfAKey) {
  struct Row {
    const char *file;
    const char *value;
  };
  constexpr Row kRows[] = {
      {"[Quillanest]\nKey=value\n", "value"},
      {"[Quillanest]\r\nKey=value\r\nNext=1\r\n", "value"},
      {"[Quillanest]\nKey=value", "value"},
      {" [ qUILLANEST ] \n\t kEY \t=  two words \t\r\n", "two words"},
      {"[Quillanest]\nKey=\"  kept \"\n", "  kept "},
      {"[Quillanest]\nKey='it''s'\n", "it''s"},
      {"[Quillanest]\nKey=\"half\n", "\"half"},
      {"[Quillanest]\nKey=\"\n", "\""},
      {"[Quillanest]\nKey=\n", ""},
      {"[Quillanest]\nKey=\"\"\n", ""},
      {"[Quillanest]\nKey=a=b;c\n", "a=b;c"},
      {"[Quillanest]\n;Key=1\n\nKey\n KeyMore=2\nKe=3\nKey=4\nKey=5\n", "4"},
      {"Key=1\n[Other]\nKey=2\n[Quillanest]\nKey=3\n", "3"},
      {"[Quillanest]\nKey=1\n[Quillanest]\nKey=2\n", "1"},
      {"[Quillanest]\n[Other]\nKey=2\n", "none"},
      {"[Quillanestx]\nKey=1\n", "none"},
      {"", "none"},
  };
  const TestRoot root;
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.file);
    EXPECT_EQ(profile_text(root.write("file.ini", row.file), "Quillanest", "Key", "none"), row.value);
  }
  EXPECT_EQ(profile_text(root.path("missing.ini"), "Quillanest", "Key", "none"), "none");
  EXPECT_EQ(profile_text(root.path("conf"), "Quillanest", "Key", "none"), "none");
}

TEST(Profile, ReadsTheNumberAValueStartsWith) {
  struct Row {
    const char *line;
    int number;
  };
  constexpr Row kRows[] = {{"Key=333", 333},
                           {"Key=-3", -3},
                           {"Key=+4", 4},
                           {"Key= 12ab", 12},
                           {"Key=ab", 0},
                           {"Key=0", 0},
                           {"Key=\"5\"", 5},
                           {"Key=1 2", 1},
                           {"Key=4294967295", -1},
                           {"Key=1e3", 1},
                           {"Key=", 7},
                           {"Other=1", 7},
                           {"Key=2147483648", -2147483647 - 1}};
  const TestRoot root;
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.line);
    const std::string file = root.write("file.ini", std::string("[Quillanest]\n") + row.line + "\n");
    EXPECT_EQ(profile_int(file, "Quillanest", "Key", 7), row.number);
  }
}

}  // namespace
