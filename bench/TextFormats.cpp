#include "bench/TextFormats.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <random>
#include <string_view>
#include <unistd.h>

namespace bench {
namespace {

namespace fs = std::filesystem;

// Takes the values of a text from left to right, each with the character after it.
class Values {
 public:
  Values(const char *from, const char *end) : at_(from), end_(end) {}

  [[nodiscard]] bool more() const { return at_ < end_; }

  template <class Number>
  void number(Number &to) {
    at_ = std::from_chars(at_, end_, to).ptr + 1;
  }
  void text(char *to, std::size_t room) {
    const auto *end = static_cast<const char *>(std::memchr(at_, ';', static_cast<std::size_t>(end_ - at_)));
    if (end == nullptr) end = end_;
    const auto size = static_cast<std::size_t>(end - at_);
    std::memcpy(to, at_, std::min(size, room));
    if (size < room) to[size] = '\0';
    at_ = end + 1;
  }
  void line_end() { ++at_; }  // the LF after the CR that the last value took

 private:
  const char *at_;
  const char *end_;
};

void take_record(Values &values, TextRecord &record) {
  values.number(record.id);
  for (std::int32_t &number : record.numbers) values.number(number);
  for (double &value : record.values) values.number(value);
  values.text(record.name, sizeof record.name);
  values.number(record.taken.wYear);
  values.number(record.taken.wMonth);
  values.number(record.taken.wDay);
  values.number(record.taken.wHour);
  values.number(record.taken.wMinute);
  values.number(record.taken.wSecond);
  values.line_end();
}

void scan_record(char *line, TextRecord &record) {
  char *at = line;
  const auto whole = [&at] {
    const long value = std::strtol(at, &at, 10);
    ++at;
    return value;
  };
  record.id = static_cast<std::uint32_t>(whole());
  for (std::int32_t &number : record.numbers) number = static_cast<std::int32_t>(whole());
  for (double &value : record.values) {
    value = std::strtod(at, &at);
    ++at;
  }
  const std::size_t size = std::strcspn(at, ";");
  std::memcpy(record.name, at, std::min(size, sizeof record.name));
  if (size < sizeof record.name) record.name[size] = '\0';
  at += size + 1;
  for (std::uint16_t *part : {&record.taken.wYear, &record.taken.wMonth, &record.taken.wDay, &record.taken.wHour,
                              &record.taken.wMinute, &record.taken.wSecond}) {
    *part = static_cast<std::uint16_t>(whole());
  }
}

template <class Number>
char *put(char *to, Number value, char after) {
  to = std::to_chars(to, to + kLineRoom, value).ptr;
  *to = after;
  return to + 1;
}

char *format_record(char *to, const TextRecord &record) {
  to = put(to, record.id, ';');
  for (const std::int32_t number : record.numbers) to = put(to, number, ';');
  for (const double value : record.values) {
    to = std::to_chars(to, to + kLineRoom, value, std::chars_format::fixed, 6).ptr;
    *to++ = ';';
  }
  const std::size_t size = strnlen(record.name, sizeof record.name);
  std::memcpy(to, record.name, size);
  to += size;
  *to++ = ';';
  to = put(to, record.taken.wYear, '-');
  to = put(to, record.taken.wMonth, '-');
  to = put(to, record.taken.wDay, ' ');
  to = put(to, record.taken.wHour, ':');
  to = put(to, record.taken.wMinute, ':');
  to = put(to, record.taken.wSecond, '\r');
  *to++ = '\n';
  return to;
}

}  // namespace

TextRecord text_record(int number) {
  std::minstd_rand random(static_cast<std::uint32_t>(number) + 1);
  std::uniform_real_distribution<double> measured(-5'000, 50'000);
  TextRecord record{};
  record.id = static_cast<std::uint32_t>(number + 1);
  record.numbers[0] = number / 40;
  record.numbers[1] = static_cast<std::int32_t>(random() % 100'000);
  record.numbers[2] = number % 4 - 1;
  // As exact as the file is, so that a load brings what was saved.
  for (double &value : record.values) value = std::round(measured(random) * 1e6) / 1e6;
  std::snprintf(record.name, sizeof record.name, "S%05d-%d", number / 40, number % 40);
  const auto part = [](int value) { return static_cast<std::uint16_t>(value); };
  record.taken.wYear = 2024;
  record.taken.wMonth = part(1 + number % 12);
  record.taken.wDay = part(1 + number % 28);
  record.taken.wHour = part(number % 24);
  record.taken.wMinute = part(number % 60);
  record.taken.wSecond = part(number % 59);
  return record;
}

std::size_t format_text(std::span<const TextRecord> records, char *to) {
  const std::string_view header = kTextHeader;
  char *end = std::copy(header.begin(), header.end(), to);
  for (const TextRecord &record : records) end = format_record(end, record);
  return static_cast<std::size_t>(end - to);
}

void print_text(std::span<const TextRecord> records, std::FILE *to) {
  std::fputs(kTextHeader, to);
  for (const TextRecord &record : records) {
    std::fprintf(to, "%u;%d;%d;%d;%f;%f;%.16s;%hu-%hu-%hu %hu:%hu:%hu\r\n", record.id, record.numbers[0],
                 record.numbers[1], record.numbers[2], record.values[0], record.values[1], record.name,
                 record.taken.wYear, record.taken.wMonth, record.taken.wDay, record.taken.wHour, record.taken.wMinute,
                 record.taken.wSecond);
  }
}

FileBytes read_whole(const fs::path &path) {
  FileBytes file;
  file.size = fs::file_size(path);
  file.bytes = std::make_unique_for_overwrite<char[]>(file.size);
  const int descriptor = open(path.c_str(), O_RDONLY);
  const ssize_t count = read(descriptor, file.bytes.get(), file.size);
  close(descriptor);
  expect(count == static_cast<ssize_t>(file.size), "a file is not read to its end");
  return file;
}

std::size_t find_separators(const fs::path &path) {
  const FileBytes file = read_whole(path);
  const char *end = file.bytes.get() + file.size;
  std::size_t count = 0;
  for (const char *line = file.bytes.get(); line < end;) {
    const auto *line_end = static_cast<const char *>(std::memchr(line, '\n', static_cast<std::size_t>(end - line)));
    if (line_end == nullptr) break;
    for (const char *at = line; at != nullptr; ++count) {
      at = static_cast<const char *>(std::memchr(at, ';', static_cast<std::size_t>(line_end - at)));
      if (at != nullptr) ++at;
    }
    line = line_end + 1;
  }
  return count;
}

std::size_t parse_text(const fs::path &path, std::span<TextRecord> records) {
  const FileBytes file = read_whole(path);
  const char *end = file.bytes.get() + file.size;
  Values values(file.bytes.get() + std::strlen(kTextHeader), end);
  std::size_t count = 0;
  for (; values.more() && count < records.size(); ++count) take_record(values, records[count]);
  return count;
}

std::size_t scan_text(const fs::path &path, std::span<TextRecord> records) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(std::fopen(path.c_str(), "r"), std::fclose);
  expect(file != nullptr, "no text file");
  char line[4096];
  expect(std::fgets(line, sizeof line, file.get()) != nullptr, "no header");
  std::size_t count = 0;
  while (count < records.size() && std::fgets(line, sizeof line, file.get()) != nullptr) {
    scan_record(line, records[count]);
    ++count;
  }
  return count;
}

}  // namespace bench
