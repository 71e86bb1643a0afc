// Reading the schema file: a text of databases, tables and fields that becomes the catalogue.
#pragma once

class CRtdbManager;

namespace quillanest {

// Adds everything in the file to the manager's catalogue. False if the path is null or empty, the file cannot be read,
// a line does not have its section's form, or the manager refuses a database, table or field; what was added before
// stays in the catalogue.
[[nodiscard]] bool read_schema(const char *path, CRtdbManager &manager);

}  // namespace quillanest
