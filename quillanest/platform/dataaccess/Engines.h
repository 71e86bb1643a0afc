// The engines behind Connection::open.
#pragma once

#include <memory>
#include <string>

#include "quillanest/platform/dataaccess/Connection.h"

namespace quillanest {

// A file of SQLite, which must exist.
[[nodiscard]] std::unique_ptr<Connection> open_sqlite(const std::string &path);

// An ODBC source.
[[nodiscard]] std::unique_ptr<Connection> open_odbc(const std::string &connection_string);

}  // namespace quillanest
