#include "quillanest/base/Ini.h"

#include <cstdint>

#include "quillanest/base/Text.h"

namespace quillanest {
namespace {

constexpr std::string_view kBlanks = " \t\r\v\f";

std::string_view unquoted(std::string_view text) {
  const bool quoted = text.size() >= 2 && (text.front() == '"' || text.front() == '\'') && text.back() == text.front();
  return quoted ? text.substr(1, text.size() - 2) : text;
}

std::string_view take_line(std::string_view &text) {
  const std::size_t end = text.find('\n');
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return trimmed(line, kBlanks);
}

// Moves `text` after the line that opens the section; false if there is no such line.
bool find_section(std::string_view &text, std::string_view section) {
  while (!text.empty()) {
    const std::string_view line = take_line(text);
    if (line.size() < 2 || line.front() != '[') continue;
    const std::size_t end = line.find(']');
    if (end == std::string_view::npos) continue;
    if (equal_ignoring_case(trimmed(line.substr(1, end - 1), kBlanks), section)) return true;
  }
  return false;
}

}  // namespace

std::optional<std::string_view> ini_value(std::string_view text, std::string_view section, std::string_view key) {
  if (!find_section(text, section)) return std::nullopt;
  while (!text.empty()) {
    const std::string_view line = take_line(text);
    if (line.empty() || line.front() == ';') continue;
    if (line.front() == '[') return std::nullopt;
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) continue;
    if (!equal_ignoring_case(trimmed(line.substr(0, equals), kBlanks), key)) continue;
    return unquoted(trimmed(line.substr(equals + 1), kBlanks));
  }
  return std::nullopt;
}

int ini_number(std::string_view value) {
  const bool negative = value.starts_with('-');
  if (negative || value.starts_with('+')) value.remove_prefix(1);
  std::uint32_t number = 0;
  for (const char c : value) {
    if (c < '0' || c > '9') break;
    number = number * 10 + static_cast<std::uint32_t>(c - '0');
  }
  return static_cast<int>(negative ? 0 - number : number);
}

}  // namespace quillanest
