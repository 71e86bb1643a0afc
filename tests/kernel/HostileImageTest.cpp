// Descriptors with absurd values: with anything that a client writes into the image, no operation crashes or leaves the
// segment.
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iostream>
#include <iterator>
#include <random>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

#include "tests/model/ImageRun.h"

namespace {

// A system database of one page, whose last table's area ends with the segment: 96 + 3 * 104 + 18 * 128 + 1384.
const std::vector<TableSpec> kTables{
    account_table(3),
    {11, "Short", 2, {"ID UCHAR 1", "Empty STRING 0", "Flag CHAR 1", "Pass PASSWD 0", "Late TIME 0"}},
    {12, "Last", 9, {"ID UINT 4", "Text STRING 8", "bModified INT 4", "When TIME 16", "Tail PASSWD 104"}}};

struct Hostile : Image {
  Hostile() : Image(kTables, {{7, "Guard", 9, {"ID UINT 4"}}}), last(table(12)) {
    // Texts without a terminator, up to the last byte of the segment.
    start = manager.GetSystemDB()->GetStartAddress();
    char *tail = last.GetDataAddress() + 4;
    std::memset(tail, 'T', static_cast<std::size_t>(start + kPage - tail));
    for (std::uint32_t i = 0; i < 9; ++i) put(last.GetDataAddress(), i * 136, i + 1);
    last.SetRecordCount(9);
  }

  static constexpr std::size_t kPage = 4096;
  CRtTable last;
  char *start;
};

// Holes of one page each, with a page after each that may not be touched; the next small mappings land in them. They
// stay for the life of the process, as some of those mappings do.
class Walls {
 public:
  Walls() {
    constexpr std::size_t kPages = 32;
    char *first = block(kPages);
    // Fills the holes elsewhere, until the system turns to these.
    for (std::size_t page = 0; page < kPages; page += 2) munmap(first + page * Hostile::kPage, Hostile::kPage);
    for (int tries = 0; tries < 10000; ++tries) {
      char *at = block(1);
      if (at < first || at >= first + kPages * Hostile::kPage) continue;
      munmap(at, Hostile::kPage);
      break;
    }
  }

 private:
  static char *block(std::size_t pages) {
    return static_cast<char *>(mmap(nullptr, pages * Hostile::kPage, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  }
};

using Bytes = std::vector<std::uint8_t>;

// The seed is told before, because a crash ends the program.
std::mt19937 told_random() {
  const unsigned int seed = std::random_device{}();
  std::cout << "seed " << seed << std::endl;
  return std::mt19937(seed);
}

// The committed inputs of the fuzz target "contention".
std::vector<Bytes> contention_inputs() {
  std::vector<Bytes> inputs;
  for (const auto &entry : std::filesystem::directory_iterator(QUILLANEST_CONTENTION_INPUTS)) {
    std::ifstream file(entry.path(), std::ios::binary);
    inputs.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  return inputs;
}

}  // namespace

// Catches: a record in the wrong place, a gap, a freed slot with old bytes, a hint that is trusted, a stamp that base
// edits leave or project edits miss, a counter that moves when it should stay, a refused edit that changes something.
TEST(RandomImage, EditsAgreeWithAModel) {
  std::mt19937 random = told_random();
  for (int run = 0; run < 1500; ++run) {
    Bytes bytes(random() % 6000);
    for (std::uint8_t &byte : bytes) byte = static_cast<std::uint8_t>(random());
    quillanest::model::run_image({bytes.data(), bytes.size()}, quillanest::model::run_with_model);
  }
}

// Catches: an offset, size, count or index of the image that is used without a check, a directory that is followed out
// of the manager segment, two wrong numbers that pass the checks together.
TEST(HostileImage, AnyCallOnAnyNumbers) {
  std::mt19937 random = told_random();
  for (int run = 0; run < 1500; ++run) {
    Bytes bytes(random() % 6000);
    for (std::uint8_t &byte : bytes) byte = static_cast<std::uint8_t>(random());
    quillanest::model::run_image({bytes.data(), bytes.size()}, quillanest::model::run_hostile);
  }
}

// Catches: a number of the image that is looked at twice, once for the check and once for the use. The committed inputs
// change the numbers that matter to their calls; some bytes of each are made others.
TEST(HostileImage, AnyCallWhileNumbersChange) {
  std::mt19937 random = told_random();
  const std::vector<Bytes> inputs = contention_inputs();
  ASSERT_FALSE(inputs.empty());
  for (std::size_t run = 0; run < 1500; ++run) {
    Bytes bytes = inputs[run % inputs.size()];
    for (auto changes = random() % 4; changes > 0; --changes) {
      bytes[random() % bytes.size()] = static_cast<std::uint8_t>(random());
    }
    quillanest::model::run_image({bytes.data(), bytes.size()}, quillanest::model::run_contended);
  }
}

// Catches: a text that is read beyond the segment's end, where nothing can be read.
TEST(HostileImage, UnterminatedTextEndsWithTheSegment) {
  const Walls walls;
  Hostile image;
  char *end = image.start + Hostile::kPage;
  int channel[2];
  ASSERT_EQ(pipe(channel), 0);
  EXPECT_EQ(write(channel[1], end, 1), -1) << "the byte after the segment can be read";
  close(channel[0]);
  close(channel[1]);
  CRtTable &table = image.last;
  std::string text(300, '?');
  EXPECT_EQ(table.GetFieldDataAt(8, 4, text.data()), 1);
  EXPECT_EQ(text.c_str(), std::string(104, 'T'));
  EXPECT_EQ(table.GetFieldData(9, 4, text.data()), 1);
  EXPECT_EQ(table.FindRecordbyStringField(4, std::string(105, 't').c_str()), nullptr);
  for (const int type : {12, 15, 13}) CRtField::GetDisplayText(type, end - 3, text.data());
  EXPECT_STREQ(text.c_str(), "TTT");
  CRtField::GetDisplayText(14, end - 3, text.data());
  EXPECT_EQ(table.SetFieldDataAt(8, 4, std::string(200, 'U').c_str()), 1);
  EXPECT_EQ(end[-1], 'U');
  EXPECT_TRUE(table.SaveData(0));
}

// Catches: a text or buffer of the caller in a segment that is read or written beyond its end.
TEST(HostileImage, ArgumentsEndWithTheSegment) {
  const Walls walls;
  Hostile image;
  char *end = image.start + Hostile::kPage;
  std::memset(end - 104, 'T', 104);
  CRtTable &last = image.last;
  CRtField field;
  SYSTEMTIME time{};
  std::string text(300, '?');
  char *tail = end - 5;
  ReadTime(tail, &time);
  ReadTime("1-2-3 4:5:6", reinterpret_cast<SYSTEMTIME *>(end - 4));
  std::memset(end - 104, 'T', 104);
  SetDefaultField(13, text.data(), tail);
  EXPECT_STREQ(text.c_str(), "TTTTT");
  SetDefaultField(13, end - 3, "longer than the room");
  SetDefaultField(14, end - 3, "2001-2-3");
  std::memset(end - 104, 'T', 104);
  EXPECT_TRUE(CMutexEx(tail).Create(nullptr));
  EXPECT_EQ(GetFileSize(tail), -1);
  field.SetFieldName(tail);
  EXPECT_STREQ(field.GetFieldName(), "TTTTT");
  field.SetDefaultValue(end - 40);
  EXPECT_STREQ(field.GetDefaultValue(), "");
  EXPECT_EQ(last.FindRecordbyStringField(4, end - 104), last.GetAt(8));
  EXPECT_EQ(last.Update(end - 135, 0, 0), -1);
  EXPECT_EQ(last.FindIDExclusive(1, end - 135), 0);
  EXPECT_FALSE(last.InsertRecordToDb(end - 135));
  EXPECT_FALSE(last.UpdateRecordToDb(end - 135));
  EXPECT_EQ(image.manager.UpdateDBInfo(1U, reinterpret_cast<_db_attr *>(end - 92)), 0);
  last.SetRecordCount(1);
  EXPECT_EQ(last.Insert(end - 135, 0), -1);
  EXPECT_EQ(last.GetRecordCount(), 1);
}
