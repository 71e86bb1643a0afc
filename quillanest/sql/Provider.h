// Maps a provider's connection string to an engine and to that engine's own connection string.
#pragma once

#include <string>
#include <string_view>

#include "quillanest/sql/Dialects.h"

namespace quillanest {

// What a connection string asks for. `target` is the path of an SQLite file or a connection string of ODBC.
struct EngineCall {
  EngineKind engine = EngineKind::kNone;
  std::string target;
};

// Translates a provider's connection string. kNone for an unknown provider or an empty data source. A string with
// "Driver=" or "DSN=" goes to ODBC unchanged, apart from the protocol option that PostgreSQL's driver needs.
[[nodiscard]] EngineCall engine_call(std::string_view connection_string);

// A driver's text in which the values of PWD and Password of a connection string, and those of passwords among the
// options of psqlodbc, are replaced by "***".
[[nodiscard]] std::string without_passwords(std::string text, std::string_view connection_string);

// The host and the port of "host:port" or "host,port"; the port is empty if the text has none.
struct ServerAddress {
  std::string host;
  std::string port;
};
[[nodiscard]] ServerAddress server_address(std::string_view data_source);

}  // namespace quillanest
