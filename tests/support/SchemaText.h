// Schema files of tests and benchmarks.
#pragma once

#include <string>
#include <vector>

// A field as "NAME TYPE SIZE" or "NAME TYPE SIZE default", with blanks in the default only.
struct TableSpec {
  int id;
  std::string name;
  int capacity;
  std::vector<std::string> fields;
};

struct DatabaseSpec {
  std::string name;
  int type = 0;
  std::vector<TableSpec> tables = {};
};

// The schema of databases whose IDs count from 1. Captions are the names with a "C" before them.
[[nodiscard]] std::string schema_of(const std::vector<DatabaseSpec> &databases);

// The same of one system database (ID 1) and, if there are other tables, a database "plant" of type 7 (ID 2).
[[nodiscard]] std::string schema_text(const std::vector<TableSpec> &system_tables,
                                      const std::vector<TableSpec> &plant_tables = {});

// The table that most tests use: 10 Account(ID UINT 4, Name STRING 8, Level INT 4, Value DOUBLE 8, Since TIME 16,
// bModified INT 4, iProjectID INT 4, iEditStatus INT 4), record size 52, capacity 5.
[[nodiscard]] TableSpec account_table(int capacity = 5);
