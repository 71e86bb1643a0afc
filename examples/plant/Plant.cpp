#include "Plant.h"

#include <cstdio>
#include <fstream>
#include <string_view>

#include "Access.h"
#include "Show.h"

namespace plant {
namespace {

namespace fs = std::filesystem;

fs::path full_path(const fs::path &path) { return fs::absolute(path).lexically_normal(); }

// The manager knows where it looks for its configuration file.
fs::path configuration_file(CRtdbManager &manager) {
  const fs::path configuration = manager.GetSysIniFile();
  if (configuration.empty()) throw Failure("the path that QUILLANEST_ROOT gives is too long");
  if (fs::is_regular_file(configuration)) return full_path(configuration);
  throw Failure("no configuration file " + full_path(configuration).string() +
                "; QUILLANEST_ROOT must name the folder that holds conf/, data/ and plant.schema");
}

// The folder that holds conf/.
fs::path installation_root(CRtdbManager &manager) { return configuration_file(manager).parent_path().parent_path(); }

constexpr std::string_view kStoreKey = "DataInFile=";

}  // namespace

fs::path data_folder(CRtdbManager &manager) { return full_path(manager.GetDataPath()); }

fs::path report_file(CRtdbManager &manager) { return installation_root(manager) / "report.txt"; }

bool loads_from_files(CRtdbManager &manager) {
  std::ifstream file(configuration_file(manager));
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(kStoreKey)) return line.substr(kStoreKey.size(), 1) != "0";
  }
  return false;
}

void load_from_files(CRtdbManager &manager, bool files) {
  const fs::path path = configuration_file(manager);
  std::ifstream file(path);
  std::string text;
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(kStoreKey)) line = std::string(kStoreKey) + (files ? '1' : '0');
    text += line + '\n';
  }
  std::ofstream changed(path, std::ios::trunc);
  changed << text;
  changed.close();
  if (!changed || loads_from_files(manager) != files) throw Failure("cannot change " + path.string());
}

std::string data_source(CRtdbManager &manager) {
  if (loads_from_files(manager)) return data_folder(manager).string();
  return "the relational store that " + configuration_file(manager).string() + " names";
}

RecordCounts count_records(CRtdbManager &manager) {
  RecordCounts counts;
  for_each_table(manager,
                 [&](const std::string &name, const CRtTable &table) { counts[name] = table.GetRecordCount(); });
  return counts;
}

void start(CRtdbManager &manager) {
  const fs::path schema = installation_root(manager) / "plant.schema";
  if (!fs::is_regular_file(schema)) throw Failure("no schema file " + schema.string());
  const std::string source = data_source(manager);
  std::printf("Loading %s\n", source.c_str());

  const Stopwatch start_up;
  if (!manager.RtdbManagerInit(false, schema.c_str())) {
    throw Failure("cannot start: " + schema.string() + " is faulty, or the system database does not load from " +
                  source);
  }
  std::printf("  start-up and database system %8.2f ms\n", start_up.milliseconds());

  const Stopwatch load;
  if (manager.LoadAllCustomizedDB(kBaseData) != 1) throw Failure("cannot load the database plant from " + source);
  std::printf("  database plant               %8.2f ms\n", load.milliseconds());
  show_tables(manager);

  // A data file that does not exist and a store table without rows are no failures to the library.
  for (const auto &[table, records] : count_records(manager)) {
    if (records == 0) throw Failure("no records in " + table + "; are they in " + source + "?");
  }
}

void compare(CRtdbManager &manager, const Report &saved) {
  const Report loaded = make_report(manager, records_of(saved));
  if (loaded.size() != saved.size()) throw Failure("the report is not about the tables of this plant");
  bool same = true;
  for (std::size_t i = 0; i < saved.size(); ++i) {
    const Entry &was = saved[i];
    const Entry &is = loaded[i];
    const bool equal = is.subject == was.subject && is.content == was.content;
    std::printf("  %-9s  %-25s  %s\n", equal ? "as saved" : "DIFFERENT", is.subject.c_str(), is.content.c_str());
    if (!equal) std::printf("  %-9s  %-25s  %s\n", "  saved", was.subject.c_str(), was.content.c_str());
    same = same && equal;
  }
  if (!same) throw Failure("what was loaded differs from what was saved; see the lines marked DIFFERENT");
}

}  // namespace plant
