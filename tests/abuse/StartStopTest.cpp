// An image that is started and stopped again and again leaves nothing in its process.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <unistd.h>

#include "quillanest/Quillanest.h"
#include "tests/abuse/Length.h"
#include "tests/support/TestRoot.h"

namespace {

// What the allocator may take besides, for any number of starts.
constexpr long kKilobytesAllowed = 512;
constexpr long kMappingsAllowed = 4;
constexpr int kSaves = 20;  // one save in so many starts
constexpr int kLevelField = 2;

// KiB of memory, descriptors, threads, mappings.
using Footprint = std::array<long, 4>;

Footprint footprint() {
  using Folder = std::filesystem::directory_iterator;
  long size = 0;
  long pages = 0;
  std::ifstream("/proc/self/statm") >> size >> pages;
  std::ifstream maps("/proc/self/maps");
  return {pages * sysconf(_SC_PAGESIZE) / 1024, std::distance(Folder("/proc/self/fd"), Folder()),
          std::distance(Folder("/proc/self/task"), Folder()),
          std::count(std::istreambuf_iterator<char>(maps), {}, '\n')};
}

// Starts an image, compares its record with the last one saved, edits it, saves it at times and stops.
bool start_and_stop(const std::string &schema, int number, int &saved) {
  CRtdbManager manager;
  CRtDataBase plant;
  CRtTable table;
  if (!manager.RtdbManagerInit(false, schema.c_str()) || manager.LoadAllCustomizedDB(0) != 1) return false;
  int level = 0;
  char *bytes = reinterpret_cast<char *>(&level);
  if (manager.FindTable(11U, plant, table) != 1 || table.Insert(1U, 0, 0) != (saved == 0 ? 0 : -2)) return false;
  if (table.GetFieldData(1U, kLevelField, bytes) != 1 || level != saved) return false;
  level = number + 1;
  if (table.SetFieldData(1U, kLevelField, bytes) != 1) return false;
  if (number % kSaves != 0) return true;
  saved = level;
  return plant.SaveData(0);
}

// Catches: memory, a descriptor, a thread or a mapping that a start or a stop leaves.
TEST(StartStop, LeavesNothingInTheProcess) {
  const TestRoot root;
  TableSpec table = account_table();
  table.id = 11;
  const std::string schema = root.write("schema.txt", schema_text({account_table()}, {table}));
  const int starts = length(300, 10'000);
  const auto began = std::chrono::steady_clock::now();
  Footprint growth{};
  Footprint before{};
  for (int number = 0, saved = 0; number < starts; ++number) {
    if (number == starts / 3) before = footprint();
    ASSERT_TRUE(start_and_stop(schema, number, saved)) << "start " << number;
  }
  const Footprint after = footprint();
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - began;
  std::transform(after.begin(), after.end(), before.begin(), growth.begin(), std::minus<>());
  EXPECT_LE(growth[0], kKilobytesAllowed);
  EXPECT_EQ(growth[1], 0) << "descriptors";
  EXPECT_EQ(growth[2], 0) << "threads";
  EXPECT_LE(growth[3], kMappingsAllowed);
  std::printf(
      "abuse: starts and stops: %d, %.0f a second; growth in the last two thirds: %ld KiB of memory (%ld in all), %ld "
      "descriptors, %ld threads, %ld mappings\n",
      starts, starts / time.count(), growth[0], after[0], growth[1], growth[2], growth[3]);
}

}  // namespace
