// The engines that Connection::open chooses from.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "quillanest/sql/Connection.h"

namespace quillanest {

// The time that a statement has in a file of SQLite.
inline constexpr std::chrono::milliseconds kStatementLimit{30'000};

// A file of SQLite, which must exist. One that another process has locked opens too, and refuses statements.
[[nodiscard]] std::unique_ptr<Connection> open_sqlite(const std::string &path,
                                                      std::chrono::milliseconds limit = kStatementLimit);

// An ODBC source.
[[nodiscard]] std::unique_ptr<Connection> open_odbc(const std::string &connection_string);

}  // namespace quillanest
