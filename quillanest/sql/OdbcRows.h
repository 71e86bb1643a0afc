// The rows of a query that a statement of ODBC has run, fetched whole or up to a number of rows.
//
// Both functions raise _com_error with the driver's text if the columns cannot be described.
#pragma once

#include <cstddef>
#include <optional>

#include "quillanest/sql/OdbcHandle.h"
#include "quillanest/sql/RowSet.h"

namespace quillanest {

// Fetches many rows at a time. Nothing if a value is too long for that, if the driver cannot do it, or if a fetch
// fails. Some rows may be fetched by then, so the query must be run again and its rows read one by one, which reports
// the reason of a failure.
[[nodiscard]] std::optional<RowSet> read_rows_in_blocks(const OdbcHandle &statement, std::size_t most_rows);

// Fetches value by value, of any length. Raises _com_error if a fetch fails.
[[nodiscard]] RowSet read_rows_one_by_one(const OdbcHandle &statement, std::size_t most_rows);

}  // namespace quillanest
