#include "quillanest/platform/Profile.h"

#include <cstdint>
#include <optional>

#include "quillanest/platform/AsciiCase.h"
#include "quillanest/platform/TextFile.h"

namespace quillanest {
namespace {

constexpr std::string_view kBlanks = " \t\r\v\f";

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string_view unquoted(std::string_view text) {
  const bool quoted = text.size() >= 2 && (text.front() == '"' || text.front() == '\'') && text.back() == text.front();
  return quoted ? text.substr(1, text.size() - 2) : text;
}

std::string_view take_line(std::string_view &text) {
  const std::size_t end = text.find('\n');
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return trimmed(line);
}

// Moves `text` after the line that opens the section; false when there is none.
bool find_section(std::string_view &text, std::string_view section) {
  while (!text.empty()) {
    const std::string_view line = take_line(text);
    if (line.size() < 2 || line.front() != '[') continue;
    const std::size_t end = line.find(']');
    if (end != std::string_view::npos && equal_ignoring_case(trimmed(line.substr(1, end - 1)), section)) return true;
  }
  return false;
}

std::optional<std::string_view> find_value(std::string_view text, std::string_view section, std::string_view key) {
  if (!find_section(text, section)) return std::nullopt;
  while (!text.empty()) {
    const std::string_view line = take_line(text);
    if (line.empty() || line.front() == ';') continue;
    if (line.front() == '[') return std::nullopt;
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos || !equal_ignoring_case(trimmed(line.substr(0, equals)), key)) continue;
    return unquoted(trimmed(line.substr(equals + 1)));
  }
  return std::nullopt;
}

}  // namespace

std::string profile_text(const std::string &file, std::string_view section, std::string_view key,
                         std::string_view fallback) {
  const std::optional<FileText> content = read_file(file);
  if (!content) return std::string(fallback);
  return std::string(find_value(without_byte_order_mark(content->view()), section, key).value_or(fallback));
}

int profile_int(const std::string &file, std::string_view section, std::string_view key, int fallback) {
  const std::string text = profile_text(file, section, key);
  if (text.empty()) return fallback;
  const bool negative = text.front() == '-';
  std::uint32_t number = 0;
  for (std::size_t i = negative || text.front() == '+' ? 1 : 0; i < text.size(); ++i) {
    if (text[i] < '0' || text[i] > '9') break;
    number = number * 10 + static_cast<std::uint32_t>(text[i] - '0');
  }
  return static_cast<int>(negative ? 0 - number : number);
}

}  // namespace quillanest
