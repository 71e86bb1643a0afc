// ODBC on this system: its declarations, and the files of its drivers.
//
// Included by sources only. If the declarations need those of the system first, this header includes them.
#pragma once

#include <sql.h>
#include <sqlext.h>
#include <string_view>

namespace quillanest {

// Drivers named by their file need no registration.
inline constexpr std::string_view kFreeTdsDriver = "libtdsodbc.so";
inline constexpr std::string_view kPostgresqlDriver = "psqlodbcw.so";

}  // namespace quillanest
