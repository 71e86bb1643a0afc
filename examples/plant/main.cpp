// A small, complete client of Quillanest: a district heating plant with 250 stations and 10,000 measured values.
//
//   plant run      loads the plant, reads it, edits it from several threads and within a project, and saves it
//   plant verify   in a process of its own: loads what was saved and compares it with the report of the run before
//   plant store    loads the plant from text files and moves it into the relational store
//   plant project  loads the plant from the relational store, edits it there within a project and commits the project
//
// Configuration, schema and data lie in the folder that the environment variable QUILLANEST_ROOT names. Exit code 0
// when all is well, 1 after a failure, which is told on stderr, 2 for a wrong command line.
#include <algorithm>
#include <array>
#include <cstdio>
#include <exception>
#include <map>
#include <string>
#include <string_view>

#include "Access.h"
#include "Edits.h"
#include "Plant.h"
#include "Report.h"
#include "Show.h"
#include "Store.h"
#include "quillanest/Quillanest.h"

namespace plant {
namespace {

// Scans the plant; returns what all threads did together.
EditCount scan(CRtdbManager &manager) {
  std::printf("\nEditing from %d threads, each edit under the mutex of the database\n", kScanThreads);
  const Stopwatch stopwatch;
  const std::array<EditCount, kScanThreads> counts = scan_plant(manager);
  const double milliseconds = stopwatch.milliseconds();

  EditCount all;
  std::printf("  %-6s %9s %9s %9s %9s\n", "thread", "updated", "inserted", "deleted", "alarms");
  for (std::size_t i = 0; i < counts.size(); ++i) {
    const EditCount &one = counts[i];
    std::printf("  %-6zu %9d %9d %9d %9d\n", i + 1, one.updated, one.inserted, one.deleted, one.alarms);
    all.updated += one.updated;
    all.inserted += one.inserted;
    all.deleted += one.deleted;
    all.alarms += one.alarms;
  }
  std::printf("  %-6s %9d %9d %9d %9d   in %.2f ms\n", "all", all.updated, all.inserted, all.deleted, all.alarms,
              milliseconds);
  return all;
}

// Saves one database after the other: CRtdbManager::SaveData(0) does the same in one call, but is true also when a
// table could not be saved.
void save(CRtdbManager &manager) {
  const Stopwatch stopwatch;
  for_each_database(manager, [&](CRtDataBase &database) {
    if (database.SaveData(kBaseData)) return;
    throw Failure(std::string("cannot save the database ") + database.GetDBName() + " to " +
                  data_folder(manager).string());
  });
  std::printf("\nSaved in %.2f ms\n", stopwatch.milliseconds());
}

void show_changes(const RecordCounts &before, const RecordCounts &after, const EditCount &edits) {
  const std::map<std::string, std::string> notes = {
      {"plant.measurements", std::to_string(edits.updated) + " updated, " + std::to_string(edits.inserted) +
                                 " inserted, " + std::to_string(edits.deleted) + " deleted"},
      {"plant.alarms", std::to_string(edits.alarms) + " raised"},
      {"plant.setpoints", "project " + std::to_string(kProject) + ": 1 updated, 1 inserted, 1 marked as deleted"},
  };
  std::printf("  %-19s %7s %7s\n", "table", "before", "after");
  for (const auto &[table, records] : after) {
    const auto note = notes.find(table);
    std::printf("  %-19s %7d %7d  %s\n", table.c_str(), before.at(table), records,
                note == notes.end() ? "unchanged" : note->second.c_str());
  }
}

// The counts after the edits must be those before them and what the threads say they did.
void check_counts(const RecordCounts &before, const RecordCounts &after, const EditCount &edits) {
  RecordCounts expected = before;
  expected["plant.measurements"] += edits.inserted - edits.deleted;
  expected["plant.alarms"] += edits.alarms;
  expected["plant.setpoints"] += 1;
  for (const auto &[table, records] : expected) {
    if (after.at(table) == records) continue;
    throw Failure(table + " should have " + std::to_string(records) + " records after the edits and has " +
                  std::to_string(after.at(table)));
  }
}

void run() {
  CRtdbManager manager;
  start(manager);
  const RecordCounts before = count_records(manager);
  show_lookups(manager);
  show_measurements(manager, "Station 17, circuit 2, as loaded");

  const EditCount edits = scan(manager);
  show_measurements(manager, "Station 17, circuit 2, after the edits");
  std::printf("\nEditing setpoints within project %d\n", kProject);
  show_setpoints(manager, "before");
  edit_project(manager);
  show_setpoints(manager, "after");
  const RecordCounts after = count_records(manager);
  check_counts(before, after, edits);

  save(manager);
  show_changes(before, after, edits);
  const Report report = make_report(manager, {
                                                 "system.rights 1",
                                                 "plant.measurements 17021",   // updated
                                                 "plant.measurements 17001",   // inserted
                                                 "plant.measurements 250058",  // deleted
                                                 "plant.setpoints 171",        // updated within a project
                                                 "plant.setpoints 172",        // deleted within a project
                                                 "plant.setpoints 173",        // inserted within a project
                                             });
  write_report(report_file(manager), report);
  std::printf("  data    %s\n  report  %s\n", data_folder(manager).c_str(), report_file(manager).c_str());
}

void verify() {
  CRtdbManager manager;
  start(manager);
  std::printf("\nComparing with %s\n", report_file(manager).c_str());
  compare(manager, read_report(report_file(manager)));
  std::printf("Nothing is missing.\n");
}

void store() {
  CRtdbManager manager;
  start(manager);
  move_to_store(manager);
}

void project() {
  CRtdbManager manager;
  start(manager);
  edit_in_store(manager);
}

struct Verb {
  std::string_view name;
  void (*act)();
};
constexpr std::array<Verb, 4> kVerbs{{{"run", run}, {"verify", verify}, {"store", store}, {"project", project}}};

}  // namespace
}  // namespace plant

int main(int argc, char **argv) {
  const std::string_view name = argc == 2 ? argv[1] : "";
  const auto verb = std::find_if(plant::kVerbs.begin(), plant::kVerbs.end(),
                                 [&](const plant::Verb &candidate) { return candidate.name == name; });
  if (verb == plant::kVerbs.end()) {
    std::fprintf(stderr, "usage: plant run | verify | store | project\n");
    return 2;
  }
  try {
    verb->act();
    return 0;
  } catch (const std::exception &failure) {
    std::fflush(stdout);
    std::fprintf(stderr, "plant: %s\n", failure.what());
    return 1;
  }
}
