#include "quillanest/sql/Provider.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "quillanest/base/Text.h"
#include "quillanest/sql/Dialects.h"

namespace quillanest {
namespace {

constexpr std::string_view kBlanks = " \t";

// The value of a key in "key=value;key=value", empty without such a key. Nothing is quoted in such a string.
std::string_view value_of(std::string_view text, std::string_view key) {
  while (!text.empty()) {
    const std::string_view part = text.substr(0, text.find(';'));
    text.remove_prefix(std::min(part.size() + 1, text.size()));
    const std::size_t equals = part.find('=');
    if (equals == std::string_view::npos) continue;
    if (equal_ignoring_case(trimmed(part.substr(0, equals), kBlanks), key)) return part.substr(equals + 1);
  }
  return {};
}

bool contains_ignoring_case(std::string_view text, std::string_view part) {
  for (std::size_t at = 0; at + part.size() <= text.size(); ++at) {
    if (equal_ignoring_case(text.substr(at, part.size()), part)) return true;
  }
  return false;
}

// Appends ";key=value". A value that begins with a brace is put between braces, or it would swallow what follows; other
// values are not, because FreeTDS 1.3 would keep the last brace of a password.
void append(std::string &text, std::string_view key, std::string_view value) {
  if (value.empty()) return;
  text += ';';
  text += key;
  text += '=';
  if (!value.starts_with('{')) {
    text += value;
    return;
  }
  text += '{';
  for (const char c : value) text.append(c == '}' ? 2 : 1, c);
  text += '}';
}

// A value in the form that psqlodbc 13.02 decodes in "PWD" and "pqopt". It does not decode "UID" and "Database", in
// which the driver manager misreads a leading brace.
std::string for_psqlodbc(std::string_view value) {
  constexpr std::string_view kHex = "0123456789ABCDEF";
  std::string text;
  for (const char c : value) {
    if (std::string_view("%+{}").find(c) == std::string_view::npos) {
      text += c;
    } else {
      text.append({'%', kHex[static_cast<std::size_t>(c / 16)], kHex[static_cast<std::size_t>(c % 16)]});
    }
  }
  return text;
}

// Appends " key='value'" as libpq reads it.
void append_option(std::string &options, std::string_view key, std::string_view value) {
  if (value.empty()) return;
  options += ' ';
  options += key;
  options += "='";
  for (const char c : value) {
    if (c == '\'' || c == '\\') options += '\\';
    options += c;
  }
  options += '\'';
}

std::string odbc_string(const Dialect &provider, std::string_view text, std::string_view source) {
  std::string odbc = "Driver=" + std::string(provider.driver);
  if (!provider.options.empty()) odbc.append(";").append(provider.options);
  const ServerAddress address = server_address(source);
  if (provider.default_port.empty()) {
    append(odbc, provider.server_key, source);
  } else {
    append(odbc, provider.server_key, address.host);
    // A named instance has a port of its own, which its server reports.
    const bool named = address.host.find('\\') != std::string::npos;
    const std::string_view usual = named ? std::string_view() : provider.default_port;
    append(odbc, "Port", address.port.empty() ? usual : std::string_view(address.port));
  }
  const std::string_view user = value_of(text, "User ID");
  const std::string_view password = value_of(text, "Password");
  const std::string_view catalogue = value_of(text, provider.catalogue_word);
  if (!provider.libpq.empty()) {
    std::string options(provider.libpq);
    append_option(options, provider.catalogue_key, catalogue);
    append_option(options, "user", user);
    odbc += ";pqopt=" + for_psqlodbc(options);
    return password.empty() ? odbc : odbc + ";PWD=" + for_psqlodbc(password);
  }
  if (!provider.catalogue_key.empty()) append(odbc, provider.catalogue_key, catalogue);
  append(odbc, "UID", user);
  append(odbc, "PWD", password);
  return odbc;
}

void replace_all(std::string &text, std::string_view what) {
  constexpr std::string_view kMask = "***";
  if (what.empty()) return;
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + kMask.size())) {
    text.replace(at, what.size(), kMask);
  }
}

// The texts that a driver may make of the value of a key: as it is, without braces, and with "%20" and the like read.
void hide_value(std::string &text, std::string_view value) {
  replace_all(text, value);
  if (value.starts_with('{') && value.ends_with('}')) replace_all(text, value.substr(1, value.size() - 2));
  std::string decoded;
  for (std::size_t i = 0; i < value.size(); ++i) {
    unsigned int byte = 0;
    const bool is_code =
        value[i] == '%' && i + 2 < value.size() &&
        std::from_chars(value.data() + i + 1, value.data() + i + 3, byte, 16).ptr == value.data() + i + 3;
    decoded += is_code ? static_cast<char>(byte) : value[i];
    if (is_code) i += 2;
  }
  if (decoded != value) replace_all(text, decoded);
}

}  // namespace

std::string without_passwords(std::string text, std::string_view connection_string) {
  hide_value(text, value_of(connection_string, "PWD"));
  hide_value(text, value_of(connection_string, "Password"));
  std::string_view options = value_of(connection_string, "pqopt");
  constexpr std::string_view kKey = "password=";
  if (const std::size_t at = options.find(kKey); at != std::string_view::npos) {
    options.remove_prefix(at + kKey.size());
    const bool is_quoted = options.starts_with('\'');
    if (is_quoted) options.remove_prefix(1);
    hide_value(text, options.substr(0, options.find(is_quoted ? '\'' : ' ')));
  }
  return text;
}

ServerAddress server_address(std::string_view data_source) {
  const std::size_t at = data_source.find_last_of(":,");
  const std::string_view port = at == std::string_view::npos ? std::string_view() : data_source.substr(at + 1);
  const bool is_port = !port.empty() && port.find_first_not_of("0123456789") == std::string_view::npos;
  // A further colon before the number: an IPv6 address without a port.
  const bool is_bare_address =
      is_port && data_source[at] == ':' && data_source.find(':') != at && !data_source.substr(0, at).ends_with(']');
  const bool has_port = is_port && !is_bare_address;
  std::string_view host = has_port ? data_source.substr(0, at) : data_source;
  if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
  return {std::string(host), std::string(has_port ? port : std::string_view())};
}

EngineCall engine_call(std::string_view connection_string) {
  const std::string_view driver = value_of(connection_string, "Driver");
  if (!driver.empty() || !value_of(connection_string, "DSN").empty()) {
    std::string text(connection_string);
    // Without this option psqlodbc 13.02 undoes a whole transaction for one statement that does not parse.
    const bool is_psqlodbc = contains_ignoring_case(driver, "psqlodbc") || contains_ignoring_case(driver, "postgresql");
    if (is_psqlodbc && value_of(text, "Protocol").empty()) text += ";Protocol=7.4-0";
    return {EngineKind::kOdbc, std::move(text)};
  }
  const Dialect *provider = dialect_of_provider(trimmed(value_of(connection_string, "Provider"), kBlanks));
  const std::string_view source = value_of(connection_string, "Data Source");
  if (provider == nullptr || trimmed(source, kBlanks).empty()) return {};
  if (provider->engine == EngineKind::kSqlite) return {EngineKind::kSqlite, std::string(source)};
  return {EngineKind::kOdbc, odbc_string(*provider, connection_string, source)};
}

}  // namespace quillanest
