// The text file of 1,000,000 records, read and written by hand.
//
// Records are the packed bytes of the kernel's table; files are byte for byte those of the library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <span>
#include <vector>

#include "bench/Image.h"

namespace bench {

// One record as values, in the order of its bytes.
struct TextRecord {
  std::uint32_t id;
  std::int32_t numbers[3];
  double values[2];
  char name[16];
  SYSTEMTIME taken;
};
static_assert(sizeof(TextRecord) == kTextRecordSize);

[[nodiscard]] TextRecord text_record(int number);

// More bytes than a line of the file has.
inline constexpr std::size_t kLineRoom = 256;
inline constexpr const char *kTextHeader = "ID;source;samples;state;value;high;name;taken\r\n";

// The file's text at `to`, formatted with std::to_chars; its size.
std::size_t format_text(std::span<const TextRecord> records, char *to);

// The same through fprintf.
void print_text(std::span<const TextRecord> records, std::FILE *to);

struct FileBytes {
  std::unique_ptr<char[]> bytes;
  std::size_t size = 0;
};
[[nodiscard]] FileBytes read_whole(const std::filesystem::path &path);

// Reads the file and finds every separator and line end; their number.
std::size_t find_separators(const std::filesystem::path &path);

// Fill `records` from the file: with std::from_chars, and with fgets, strtol and strtod. The number of records.
std::size_t parse_text(const std::filesystem::path &path, std::span<TextRecord> records);
std::size_t scan_text(const std::filesystem::path &path, std::span<TextRecord> records);

}  // namespace bench
