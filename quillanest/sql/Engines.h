// The engines that Connection::open chooses from.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "quillanest/sql/Connection.h"

namespace quillanest {

// How long a statement may run in an SQLite file.
inline constexpr std::chrono::milliseconds kStatementLimit{30'000};

// Opens an SQLite file. Raises _com_error if there is no such file or it is not a database that can be written. A file
// that another process has locked opens, and its statements fail.
[[nodiscard]] std::unique_ptr<Connection> open_sqlite(const std::string &path,
                                                      std::chrono::milliseconds limit = kStatementLimit);

// Connects to an ODBC source. Raises _com_error if it cannot be reached or refuses.
[[nodiscard]] std::unique_ptr<Connection> open_odbc(const std::string &connection_string);

}  // namespace quillanest
