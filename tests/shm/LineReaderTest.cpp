#include <cstdio>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "quillanest/shm/LineReader.h"

namespace {

using quillanest::LineReader;

using Fetch = std::pair<std::string, bool>;  // a piece and whether the end is reached with it

// What the C library delivers from a file whose CR LF a text-mode stream has turned into LF.
std::vector<Fetch> fetched_by_stream(std::string text, std::size_t limit) {
  for (std::size_t at = 0; (at = text.find("\r\n", at)) != std::string::npos;) text.erase(at, 1);
  const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(std::tmpfile(), std::fclose);
  std::fwrite(text.data(), 1, text.size(), file.get());
  std::rewind(file.get());
  std::vector<Fetch> fetches;
  std::vector<char> buffer(limit + 1);
  while (std::fgets(buffer.data(), static_cast<int>(buffer.size()), file.get()) != nullptr) {
    fetches.push_back({buffer.data(), std::feof(file.get()) != 0});
  }
  return fetches;
}

std::vector<Fetch> fetched_by_reader(std::string text, std::size_t limit) {
  LineReader reader(text, limit);
  EXPECT_FALSE(reader.at_end());
  std::vector<Fetch> fetches;
  for (std::string_view piece; reader.next(piece);) fetches.push_back({std::string(piece), reader.at_end()});
  EXPECT_TRUE(reader.at_end());
  return fetches;
}

void expect_same(const std::string &text, std::size_t limit) {
  EXPECT_EQ(fetched_by_reader(text, limit), fetched_by_stream(text, limit))
      << testing::PrintToString(text) << " limit " << limit;
}

TEST(LineReader, DeliversWhatAStreamDelivers) {
  // Each text ends at a '|'.
  constexpr char kTexts[] =
      "|\n|\r\n|\r|a|ab\n|ab\r\n|ab\r|abc|abcd|abcd\n|abcd\r\n|abcd\r\r\n|abcdefgh|abcdefgh\n|abcdefgh\r\n|abc\r\ndef|"
      "abcd\r\n\r\nx|a\rb\n|\n\n\r\n\n|abc\r\n\r|\0|\0\n|a\0b\nc\n|a\0b\r\nc|\0\r\n\0|abcd\0\r\nx|abc\0\0\n|";
  std::string_view texts(kTexts, sizeof kTexts - 1);
  for (; !texts.empty(); texts.remove_prefix(texts.find('|') + 1)) {
    for (const std::size_t limit : {1u, 2u, 3u, 4u, 5u, 8u, 4095u}) {
      expect_same(std::string(texts.substr(0, texts.find('|'))), limit);
    }
  }
  const auto seed = std::random_device{}();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  constexpr char kCharacters[] = {'a', 'b', '\r', '\r', '\n', '\0'};
  for (int round = 0; round < 1000 && !testing::Test::HasFailure(); ++round) {
    std::string text(random() % 40, ' ');
    for (char &c : text) c = kCharacters[random() % (round % 2 == 0 ? 5 : 6)];
    expect_same(text, 1 + random() % 12);
  }
}

}  // namespace
