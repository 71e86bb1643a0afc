// The database types: one row for each, with everything that differs between them.
//
// To add a type, add a row to the table in Dialects.cpp. All functions may run on any thread.
#pragma once

#include <cstdint>
#include <string_view>

namespace quillanest {

// The type codes of the configuration.
inline constexpr int DB_TYPE_SQLSERVER = 0;
inline constexpr int DB_TYPE_JET = 1;
inline constexpr int DB_TYPE_ORACLE = 2;
inline constexpr int DB_TYPE_SYBASE = 3;
inline constexpr int DB_TYPE_POSTGRESQL = 7;
inline constexpr int DB_TYPE_INI_CONNSTR = 100;  // a connection string of the user's own

enum class EngineKind : std::uint8_t { kNone, kSqlite, kOdbc };

// How a statement of a transaction is undone if it fails.
enum class Undo : std::uint8_t {
  kByServer,              // the server undoes it, and nothing else
  kBySavepoint,           // the server refuses everything after it until the transaction goes back to a savepoint
  kByServerIfItStaysOpen  // the server undoes it, and for some errors the whole transaction: ask @@TRANCOUNT
};

struct Dialect {
  int type = -1;
  EngineKind engine = EngineKind::kNone;

  // The provider's connection string.
  std::string_view provider = {};        // the start of its name
  std::string_view provider_words = {};  // what its string starts with
  std::string_view catalogue_word = {};  // its key for the database; empty: it has no such key

  // The ODBC connection string that it becomes.
  std::string_view driver = {};   // a file, which needs no registration, or the name it is registered under
  std::string_view options = {};  // of the driver
  std::string_view server_key = {};
  std::string_view default_port = {};  // empty: the driver takes host and port in one word
  std::string_view catalogue_key = {};
  std::string_view libpq = {};  // options of the client library under psqlodbc; empty: another driver

  // Statements.
  std::string_view date_start = "'";
  std::string_view date_end = "'";
  std::string_view empty_text = {};  // what is written for an empty text
  std::string_view server = {};      // a part of the name that the server reports; empty: `undo` is the default
  Undo undo = Undo::kByServer;
};

// The row of a type. For any other number a row without an engine, with the forms of standard SQL.
[[nodiscard]] const Dialect &dialect_of_type(int type) noexcept;

// The row of a provider, whose name may end with a version; null if there is no such provider.
[[nodiscard]] const Dialect *dialect_of_provider(std::string_view name) noexcept;

// How a statement is undone that fails on the server of that name; kByServer for an unknown name.
[[nodiscard]] Undo undo_of_server(std::string_view name) noexcept;

}  // namespace quillanest
