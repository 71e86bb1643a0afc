#include "tests/support/TestRoot.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <stdlib.h>

namespace fs = std::filesystem;

TestRoot::TestRoot(std::string_view more) {
  std::string name = (fs::temp_directory_path() / "qn-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
  folder_ = name + "/";
  fs::create_directories(folder_ + "conf");
  fs::create_directories(folder_ + "data");
  configure("DataInFile=1\nRtdbDataPath=data/\n" + std::string(more));
  setenv("QUILLANEST_ROOT", folder_.c_str(), 1);
}

TestRoot::~TestRoot() {
  unsetenv("QUILLANEST_ROOT");
  std::error_code error;
  fs::remove_all(folder_, error);
}

std::string TestRoot::write(std::string_view below, std::string_view bytes) const {
  std::ofstream file(path(below), std::ios::binary);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!file.flush()) throw std::runtime_error("cannot write " + path(below));
  return path(below);
}

std::string TestRoot::read(std::string_view below) const {
  std::ifstream file(path(below), std::ios::binary);
  if (!file) return "<missing>";
  return {std::istreambuf_iterator<char>(file), {}};
}

bool TestRoot::exists(std::string_view below) const { return fs::exists(path(below)); }

std::vector<std::string> TestRoot::files(std::string_view below) const {
  std::vector<std::string> names;
  for (const auto &entry : fs::directory_iterator(path(below))) names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

void TestRoot::configure(std::string_view lines) const {
  write("conf/fix_Rtdb.ini", "[Quillanest]\n" + std::string(lines));
}

namespace {

void add_tables(std::ostream &out, int database, const std::vector<TableSpec> &tables) {
  for (std::size_t slot = 0; slot < tables.size(); ++slot) {
    const TableSpec &table = tables[slot];
    out << "#DBID=" << database << " NAME=" << table.name << " CNAME=C" << table.name << " ID=" << table.id
        << " INDEX=" << slot << " MAX=" << table.capacity << " FIELDNUM=" << table.fields.size() << '\n';
  }
}

void add_fields(std::ostream &out, int database, const TableSpec &table) {
  for (std::size_t slot = 0; slot < table.fields.size(); ++slot) {
    std::istringstream words(table.fields[slot]);
    std::string name, type, size, value;
    words >> name >> type >> size >> value;
    out << "#DBID=" << database << " TABLEID=" << table.id << " NAME=" << name << " CNAME=C" << name
        << " ID=" << slot + 1 << " INDEX=" << slot << " TYPE=" << type << " SIZE=" << size << " Default=" << value
        << '\n';
  }
}

}  // namespace

std::string schema_text(const std::vector<TableSpec> &system_tables, const std::vector<TableSpec> &plant_tables) {
  std::ostringstream out;
  out << "#Database_Start\n#Name=system Describe=SystemData ID=1 Type=0 TableCount=" << system_tables.size() << '\n';
  if (!plant_tables.empty()) {
    out << "#Name=plant Describe=PlantData ID=2 Type=7 TableCount=" << plant_tables.size() << '\n';
  }
  out << "#Database_Finish\n#Table_Start\n";
  add_tables(out, 1, system_tables);
  add_tables(out, 2, plant_tables);
  out << "#Table_Finish\n#Field_Start\n";
  for (const TableSpec &table : system_tables) add_fields(out, 1, table);
  for (const TableSpec &table : plant_tables) add_fields(out, 2, table);
  out << "#Field_Finish\n";
  return out.str();
}

TableSpec account_table(int capacity) {
  return {10,
          "Account",
          capacity,
          {"ID UINT 4", "Name STRING 8", "Level INT 4", "Value DOUBLE 8", "Since TIME 16", "bModified INT 4",
           "iProjectID INT 4", "iEditStatus INT 4"}};
}
