// The rows of a query that a statement of ODBC has run, fetched whole.
//
// Every function raises _com_error when the server or the driver fails, with the driver's text.
#pragma once

#include <optional>

#include "quillanest/platform/dataaccess/RowSet.h"
#include "quillanest/platform/posix/OdbcHandle.h"

namespace quillanest {

// Fetches many rows at a time. Nothing when a value is too long for that or the driver does not do it: some rows are
// fetched then, and the query has to be run again to be read one by one.
[[nodiscard]] std::optional<RowSet> read_rows_in_blocks(const OdbcHandle &statement);

// Fetches value by value, of any length.
[[nodiscard]] RowSet read_rows_one_by_one(const OdbcHandle &statement);

}  // namespace quillanest
