// Connection strings of any bytes are translated; nothing is ever connected. What a value says can never become an
// option of its own: the translation is taken apart again by the rules of ODBC.
#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "quillanest/sql/Provider.h"
#include "tests/model/Support.h"

namespace {

using quillanest::engine_call;
using quillanest::EngineCall;
using quillanest::EngineKind;
using quillanest::server_address;
using quillanest::ServerAddress;
using quillanest::model::require;

using Attributes = std::vector<std::pair<std::string, std::string>>;

// The value at the front of `text`, in braces or up to the next semicolon, which it is taken off with.
std::string take_value(std::string_view &text) {
  std::string value;
  if (text.starts_with('{')) {
    text.remove_prefix(1);
    while (!text.empty()) {
      const char c = text.front();
      text.remove_prefix(1);
      if (c == '}' && !text.starts_with('}')) break;
      if (c == '}') text.remove_prefix(1);
      value += c;
    }
    require(text.empty() || text.starts_with(';'), "a value in braces ends with them");
  } else {
    value = text.substr(0, text.find(';'));
    text.remove_prefix(value.size());
  }
  text.remove_prefix(std::min<std::size_t>(text.size(), 1));
  return value;
}

Attributes attributes_of(std::string_view text) {
  Attributes attributes;
  while (!text.empty()) {
    const std::size_t equals = text.find('=');
    require(equals != std::string_view::npos, "every attribute has a value");
    std::string key(text.substr(0, equals));
    text.remove_prefix(equals + 1);
    attributes.emplace_back(std::move(key), take_value(text));
  }
  return attributes;
}

// The values of the provider's string, each of which may only come back as a value.
bool is_part_of(std::string_view value, std::string_view input) { return input.find(value) != std::string_view::npos; }

// What psqlodbc makes of a value: "%xx" is a byte, and nothing else means anything.
std::string decoded(std::string_view value) {
  require(value.find_first_of("+{}") == std::string::npos, "what the driver decodes is written out");
  std::string text;
  for (std::size_t i = 0; i < value.size(); ++i) {
    const bool is_code = value[i] == '%';
    text += is_code ? static_cast<char>(std::stoi(std::string(value.substr(i + 1, 2)), nullptr, 16)) : value[i];
    if (is_code) i += 2;
  }
  return text;
}

// The options of the client library, "key=word key='text'", of which user and database are the caller's.
void check_options(std::string_view options, const std::string &input) {
  std::string last;
  while (!options.empty()) {
    const std::size_t equals = options.find("='");
    if (equals == std::string::npos) break;
    const std::string_view keys = options.substr(0, equals);
    const std::string key(keys.substr(keys.rfind(' ') + 1));
    require((key == "dbname" && last.empty()) || (key == "user" && last != key), "each option comes once");
    last = key;
    std::string value;
    for (options.remove_prefix(equals + 2); !options.starts_with('\''); options.remove_prefix(1)) {
      require(!options.empty(), "a quoted value ends");
      if (options.starts_with('\\')) options.remove_prefix(1);
      value += options.front();
    }
    options.remove_prefix(1);
    require(is_part_of(value, input), "an option is the caller's");
  }
  require(options.find('\'') == std::string::npos, "what follows is no option of the caller's");
}

void check_odbc(const std::string &target, const std::string &input) {
  constexpr std::array<std::string_view, 3> kFixed{"TDS_Version", "ClientCharset", "BoolsAsChar"};
  constexpr std::array<std::string_view, 6> kFromInput{"Server", "Port", "Database", "DBQ", "UID", "PWD"};
  const Attributes attributes = attributes_of(target);
  require(attributes.front().first == "Driver", "the driver comes first");
  const bool decodes = attributes.front().second == "psqlodbcw.so";
  for (std::size_t i = 1; i < attributes.size(); ++i) {
    const std::string &key = attributes[i].first;
    const bool is_coded = decodes && (key == "PWD" || key == "pqopt");
    const std::string value = is_coded ? decoded(attributes[i].second) : attributes[i].second;
    if (decodes && key == "pqopt") {
      check_options(value, input);
      continue;
    }
    const bool from_input = std::find(kFromInput.begin(), kFromInput.end(), key) != kFromInput.end();
    const bool fixed = std::find(kFixed.begin(), kFixed.end(), key) != kFixed.end() || key == "Protocol";
    require(from_input || fixed, "there are no other attributes");
    require(!from_input || key == "Port" || is_part_of(value, input), "a value is the caller's");
    require(key != "Port" || value.find_first_not_of("0123456789") == std::string::npos, "a port is a number");
    const auto same = [&key](const auto &other) { return other.first == key; };
    require(std::count_if(attributes.begin(), attributes.end(), same) == 1, "no attribute comes twice");
  }
  const EngineCall again = engine_call(target);
  require(again.engine == EngineKind::kOdbc && again.target == target, "a string with a driver stays as it is");
}

void check_call(const std::string &input) {
  const EngineCall call = engine_call(input);
  switch (call.engine) {
    case EngineKind::kNone:
      require(call.target.empty(), "what nothing serves has no target");
      break;
    case EngineKind::kSqlite:
      require(is_part_of(call.target, input), "a file is the caller's");
      require(call.target.find_first_not_of(" \t") != std::string::npos, "a file has a name");
      break;
    case EngineKind::kOdbc:
      if (!call.target.starts_with(input) || input.empty()) check_odbc(call.target, input);
      break;
  }
}

void check_address(const std::string &input) {
  const ServerAddress address = server_address(input);
  require(address.port.find_first_not_of("0123456789") == std::string::npos, "a port is a number");
  require(is_part_of(address.host, input) && is_part_of(address.port, input), "host and port are the caller's");
  if (address.port.empty()) return;
  require(input.ends_with(address.port), "the port is the end");
  require(address.host.size() < input.size() - address.port.size(), "the host ends before the port");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  const std::string input(bytes, bytes + size);
  check_call(input);
  check_address(input);
  // The same with a driver named is never translated.
  const EngineCall call = engine_call("Driver=psqlodbcw.so;" + input);
  require(call.engine == EngineKind::kOdbc, "a driver is served by ODBC");
  require(call.target.starts_with("Driver=psqlodbcw.so;" + input), "a string with a driver passes through");
  return 0;
}
