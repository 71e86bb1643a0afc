#include "Store.h"

#include <cstdio>
#include <string>
#include <vector>

#include "Access.h"
#include "Edits.h"
#include "Plant.h"
#include "Report.h"
#include "Show.h"

namespace plant {
namespace {

const std::vector<std::string> kRecords = {"system.users 1", "system.rights 1", "plant.measurements 17021",
                                           "plant.setpoints 171"};

const std::string &content_of(const Report &report, const std::string &subject) {
  for (const Entry &entry : report) {
    if (entry.subject == subject) return entry.content;
  }
  throw Failure("no entry about " + subject);
}

// Fails when an entry of `expected` is another one in `actual`.
void expect_equal(const Report &expected, const Report &actual, const std::string &what) {
  for (const Entry &entry : expected) {
    const std::string &content = content_of(actual, entry.subject);
    if (content == entry.content) continue;
    throw Failure(what + ": " + entry.subject + " should be\n         " + entry.content + "\n       and is\n         " +
                  content);
  }
}

// Loads the databases from the store, which must give what the report says, and shows the setpoints.
void load(CRtdbManager &manager, int project, const Report &expected, const char *title) {
  const Stopwatch stopwatch;
  if (manager.LoadAllCustomizedDB(project) != 1) throw Failure("cannot load with project " + std::to_string(project));
  const double milliseconds = stopwatch.milliseconds();
  expect_equal(expected, make_report(manager, {}), "after the load with project " + std::to_string(project));
  std::printf("LoadAllCustomizedDB(%d): %d setpoints, as expected, in %.2f ms\n", project,
              count_records(manager).at("plant.setpoints"), milliseconds);
  show_setpoints(manager, title);
}

// Saves every database for the project. CRtdbManager::SaveData(project) would do the same in one call and be true
// also if tables failed.
void save(CRtdbManager &manager, int project) {
  for_each_database(manager, [&](CRtDataBase &database) {
    if (!database.SaveData(project)) throw Failure(std::string("cannot save the database ") + database.GetDBName());
  });
}

// Removes the setpoints that are marked as deleted and returns how many they were.
//
// A commit removes, for a marked record, the record at the mirrored place of the table, so a program that deletes
// within projects takes the marked ones out itself before it commits. With project 0 a deletion is one at once.
int remove_marked(CRtdbManager &manager) {
  CRtDataBase database;
  open_database(manager, "plant", database);
  CRtTable setpoints = open_table(database, "setpoints");
  const Field<std::int32_t> status(setpoints, "iEditStatus");
  const DatabaseLock lock(database);
  int removed = 0;
  for (int position = setpoints.GetRecordCount() - 1; position >= 0; --position) {
    if (status.get(setpoints.GetAt(position)) != EDIT_STATUS_DELETED) continue;
    if (setpoints.Delete(0, position, kBaseData) != 1) throw Failure("cannot remove a setpoint");
    ++removed;
  }
  return removed;
}

void expect_setpoints(CRtdbManager &manager, int count) {
  const int records = count_records(manager).at("plant.setpoints");
  if (records != count) {
    throw Failure("there should be " + std::to_string(count) + " setpoints, and there are " + std::to_string(records));
  }
}

}  // namespace

void move_to_store(CRtdbManager &manager) {
  if (!loads_from_files(manager)) throw Failure("the plant is loaded from the relational store already");
  const Report report = make_report(manager, kRecords);
  const Stopwatch save_time;
  // 1 also when no store could be opened or rows were refused: only a load shows it.
  if (manager.SaveDataTo(false) != 1) throw Failure("cannot save to the relational store");
  std::printf("\nSaveDataTo(false), in %.2f ms; then DataInFile=0 and everything loaded from the store\n",
              save_time.milliseconds());
  load_from_files(manager, false);
  try {
    const std::string source = data_source(manager);
    const Stopwatch load_time;
    if (manager.LoadSystemDB() != 1) throw Failure("the system database does not load from " + source);
    if (manager.LoadAllCustomizedDB(kBaseData) != 1) throw Failure("the database plant does not load from " + source);
    const double milliseconds = load_time.milliseconds();
    compare(manager, report);
    std::printf("Loaded in %.2f ms, and nothing is missing.\n", milliseconds);
  } catch (...) {
    load_from_files(manager, true);
    throw;
  }
  write_report(report_file(manager), report);
}

void edit_in_store(CRtdbManager &manager) {
  if (loads_from_files(manager)) throw Failure("the plant is loaded from text files; \"plant store\" moves it");
  const Report base = make_report(manager, {});
  const int base_count = count_records(manager).at("plant.setpoints");

  std::printf("\nEditing three setpoints within project %d: one changed, one deleted, one added\n", kProject);
  show_setpoints(manager, "before");
  edit_project(manager);
  expect_setpoints(manager, base_count + 1);
  show_setpoints(manager, "after");

  save(manager, kProject);
  const Report edited = make_report(manager, {});  // after the save, which clears bModified
  std::printf("\nSaveData(%d), then the same store loaded without and with the project\n", kProject);
  load(manager, kBaseData, base, "base");
  load(manager, kProject, edited, "merged");

  const int removed = remove_marked(manager);
  if (!manager.CommitProject()) throw Failure("cannot commit");
  expect_setpoints(manager, base_count + 1 - removed);
  const Report committed = make_report(manager, {});
  std::printf("\nCommitProject(), then the base data again\n");
  load(manager, kBaseData, committed, "base");
  expect_setpoints(manager, base_count + 1 - removed);
  write_report(report_file(manager), make_report(manager, kRecords));
}

}  // namespace plant
