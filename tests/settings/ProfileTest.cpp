#include <gtest/gtest.h>

#include "quillanest/settings/Configuration.h"
#include "tests/support/TestRoot.h"

namespace {

// Catches: a section, key or value that is recognised in other forms than those of the format.
TEST(Profile, FindsTheValueOfAKeyAndTheNumberItStartsWith) {
  constexpr struct {
    const char *file, *text;
    int number;
  } kRows[] = {
      {"[Quillanest]\nKey=333\n", "333", 333},
      {"[Quillanest]\r\nKey=-3\r\nNext=1\r\n", "-3", -3},
      {"[Quillanest]\nKey=12ab", "12ab", 12},
      {" [ qUILLANEST ] \n\t kEY \t=  two words \t\r\n", "two words", 0},
      {"[Quillanest]\nKey=\"  kept \"\n", "  kept ", 0},
      {"[Quillanest]\nKey=\"5\"\n", "5", 5},
      {"[Quillanest]\nKey='it''s'\n", "it''s", 0},
      {"[Quillanest]\nKey=\"half\n", "\"half", 0},
      {"[Quillanest]\nKey=\"\n", "\"", 0},
      {"[Quillanest]\nKey=\n", "", 7},
      {"[Quillanest]\nKey=\"\"\n", "", 7},
      {"[Quillanest]\nKey=+4=b;c\n", "+4=b;c", 4},
      {"[Quillanest]\nKey=4294967295\n", "4294967295", -1},
      {"[Quillanest]\n;Key=1\n\nKey\n KeyMore=2\nKe=3\nKey=4\nKey=5\n", "4", 4},
      {"Key=1\n[Other]\nKey=2\n[Quillanest]\nKey=3\n", "3", 3},
      {"[Quillanest]\nKey=1\n[Quillanest]\nKey=2\n", "1", 1},
      {"[Quillanest]\n[Other]\nKey=2\n", "none", 7},
      {"[Quillanestx]\nKey=1\n", "none", 7},
      {"\xEF\xBB\xBF[Quillanest]\nKey=8\n", "8", 8},
      {"", "none", 7},
  };
  const TestRoot root;
  for (const auto &row : kRows) {
    SCOPED_TRACE(row.file);
    const std::string path = root.write("file.ini", row.file);
    EXPECT_EQ(quillanest::profile_text(path, "Quillanest", "Key", "none"), row.text);
    EXPECT_EQ(quillanest::profile_int(path, "Quillanest", "Key", 7), row.number);
  }
  for (const char *name : {"missing.ini", "conf"}) {
    EXPECT_EQ(quillanest::profile_text(root.path(name), "Quillanest", "Key", "none"), "none") << name;
  }
}

}  // namespace
