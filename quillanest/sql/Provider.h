// Which engine serves a connection string, and in which words it is told.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quillanest {

enum class EngineKind { kNone, kSqlite, kOdbc };

// What a connection string asks for. `target` is the file of SQLite or the connection string of ODBC.
struct EngineCall {
  EngineKind engine = EngineKind::kNone;
  std::string target;
};

// Translates a provider's connection string. kNone for an unknown provider and for an empty data source, which nothing
// can be reached under. A string with "Driver=" or "DSN=" passes through to ODBC as it stands,
// but for the protocol option that PostgreSQL's driver needs.
[[nodiscard]] EngineCall engine_call(std::string_view connection_string);

// The number of the server's port in "host:port" or "host,port" and the host before it; the port is empty when the
// text has none.
struct ServerAddress {
  std::string host;
  std::string port;
};
[[nodiscard]] ServerAddress server_address(std::string_view data_source);

}  // namespace quillanest
