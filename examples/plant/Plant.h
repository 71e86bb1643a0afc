// What every run of the example begins and ends with: start-up, load, counts, and the comparison with a report.
#pragma once

#include <filesystem>
#include <map>
#include <string>

#include "Report.h"
#include "quillanest/Quillanest.h"

namespace plant {

inline constexpr int kBaseData = 0;  // the project number that means no project

using RecordCounts = std::map<std::string, int>;  // by "database.table"

std::filesystem::path data_folder(CRtdbManager &manager);
std::filesystem::path report_file(CRtdbManager &manager);

// Key DataInFile of the configuration: whether loads and saves use text data files, or the relational store. The
// library reads it at every call, so a change counts from the next one.
bool loads_from_files(CRtdbManager &manager);
void load_from_files(CRtdbManager &manager, bool files);

// Where loads come from, for people: the data folder, or the relational store that the configuration names.
std::string data_source(CRtdbManager &manager);

RecordCounts count_records(CRtdbManager &manager);

// Builds the image from the schema, loads every database into it and shows the tables. A table without records is a
// failure: here every table has some.
void start(CRtdbManager &manager);

// Compares the image with a report, prints one line per entry, and fails on any difference.
void compare(CRtdbManager &manager, const Report &saved);

}  // namespace plant
