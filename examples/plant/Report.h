// The report that one run leaves for the next: what the image held when it was saved.
//
// A text file with one line per table, one line per selected record, and a last line that shows that it is complete:
//
//     plant.alarms = 312 records, checksum af242b8398a20efc
//     plant.setpoints 171 = 171;17;S017-TSset;degC;...
//     end
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "quillanest/Quillanest.h"

namespace plant {

struct Entry {
  std::string subject;  // "database.table", or "database.table key" for a record
  std::string content;  // count and checksum, or the record as it is saved; "(none)" for a key that does not exist
};

using Report = std::vector<Entry>;

// Describes every table of every database, then the records that `records` names as subjects.
// The checksum of a table is the sum over its records, so their order does not count.
Report make_report(CRtdbManager &manager, const std::vector<std::string> &records);

// The subjects of a report that are records.
std::vector<std::string> records_of(const Report &report);

// Throw Failure when the file cannot be written, or is missing or incomplete.
void write_report(const std::filesystem::path &path, const Report &report);
Report read_report(const std::filesystem::path &path);

}  // namespace plant
