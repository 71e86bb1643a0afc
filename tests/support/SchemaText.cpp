#include "tests/support/SchemaText.h"

#include <sstream>

namespace {

void add_field(std::ostream &out, std::size_t database, int table, std::size_t slot, const std::string &field) {
  std::istringstream words(field);
  std::string name, type, size, value;
  words >> name >> type >> size >> std::ws;
  std::getline(words, value);
  out << "#DBID=" << database << " TABLEID=" << table << " NAME=" << name << " CNAME=C" << name << " ID=" << slot + 1
      << " INDEX=" << slot << " TYPE=" << type << " SIZE=" << size << " Default=" << value << '\n';
}

}  // namespace

std::string schema_of(const std::vector<DatabaseSpec> &databases) {
  std::ostringstream database_lines, table_lines, field_lines;
  std::size_t id = 0;
  for (const DatabaseSpec &database : databases) {
    database_lines << "#Name=" << database.name << " Describe=C" << database.name << " ID=" << ++id
                   << " Type=" << database.type << " TableCount=" << database.tables.size() << '\n';
    for (std::size_t i = 0; i < database.tables.size(); ++i) {
      const TableSpec &table = database.tables[i];
      table_lines << "#DBID=" << id << " NAME=" << table.name << " CNAME=C" << table.name << " ID=" << table.id
                  << " INDEX=" << i << " MAX=" << table.capacity << " FIELDNUM=" << table.fields.size() << '\n';
      for (std::size_t j = 0; j < table.fields.size(); ++j) add_field(field_lines, id, table.id, j, table.fields[j]);
    }
  }
  return "#Database_Start\n" + database_lines.str() + "#Database_Finish\n#Table_Start\n" + table_lines.str() +
         "#Table_Finish\n#Field_Start\n" + field_lines.str() + "#Field_Finish\n";
}

std::string schema_text(const std::vector<TableSpec> &system_tables, const std::vector<TableSpec> &plant_tables) {
  std::vector<DatabaseSpec> databases{{"system", 0, system_tables}};
  if (!plant_tables.empty()) databases.push_back({"plant", 7, plant_tables});
  return schema_of(databases);
}

TableSpec account_table(int capacity) {
  return {10,
          "Account",
          capacity,
          {"ID UINT 4", "Name STRING 8", "Level INT 4", "Value DOUBLE 8", "Since TIME 16", "bModified INT 4",
           "iProjectID INT 4", "iEditStatus INT 4"}};
}
