// C headers for client programs: numbers of tables and fields, and a structure per table.
//
// The text is a contract with the programs that are compiled against it, byte for byte; docs/c-headers.md shows it.
#pragma once

#include <string>

#include "quillanest/kernel/RtDataBase.h"

namespace quillanest {

// The header of one database, with line ends CR LF. It lists no tables if the database is not mapped.
[[nodiscard]] std::string include_file_text(CRtDataBase &database);

}  // namespace quillanest
