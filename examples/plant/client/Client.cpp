// A C++ client: it finds records through the library and reads them through the generated structures.
//
//   plant_client check  compares the structures, as the C and the C++ compiler lay them out, with the image; prints
//                       nothing and returns 0 when they agree
//   plant_client show   prints some records
//
// Schema, configuration and data lie in the folder that QUILLANEST_ROOT names.
#include <cstdio>
#include <cstring>
#include <span>
#include <string>
#include <string_view>

#include "Places.h"
#include "quillanest/Quillanest.h"

// The library has a SYSTEMTIME of its own.
namespace records {
#include "plant.h"
#include "system.h"
}  // namespace records

#define NAMED(name) records::name
#define MEMBER_SIZE(type, member) sizeof(type::member)
#include "Places.inc"

extern "C" struct Places places_in_cpp() { return kPlaces; }

namespace {

bool g_agree = true;

void expect(const char *compiler, const char *name, const char *what, long long is, long long image) {
  if (is == image) return;
  std::fprintf(stderr, "plant_client: %s: %s of %s is %lld, %lld in the image\n", compiler, what, name, is, image);
  g_agree = false;
}

// Opens a table of a database. False, with a message, when the image does not have it.
bool open(CRtdbManager &manager, unsigned int database_id, unsigned int table_id, CRtDataBase &database,
          CRtTable &table) {
  database.DetachShareMemory();
  if (manager.GetDataBaseFromID(database, database_id) != 0 && database.AttachShareMemory() != 0 &&
      database.GetDBTableFromID(table, table_id) != 0) {
    return true;
  }
  std::fprintf(stderr, "plant_client: no table %u in a database %u\n", table_id, database_id);
  g_agree = false;
  return false;
}

void check_tables(CRtdbManager &manager, const char *compiler, std::span<const TablePlace> places) {
  for (const TablePlace &place : places) {
    CRtDataBase database;
    CRtTable table;
    if (!open(manager, place.database, place.table, database, table)) continue;
    expect(compiler, place.name, "the size", static_cast<long long>(place.size), table.GetTableSize());
    expect(compiler, place.name, "the slot", place.slot, table.GetIndexInDB());
  }
}

void check_fields(CRtdbManager &manager, const char *compiler, std::span<const FieldPlace> places) {
  for (const FieldPlace &place : places) {
    CRtDataBase database;
    CRtTable table;
    CRtField field;
    if (!open(manager, place.database, place.table, database, table)) continue;
    if (table.GetFieldFromIndex(field, place.index) == 0) {
      expect(compiler, place.name, "the slot", place.index, -1);
      continue;
    }
    const std::string_view name = place.name;
    expect(compiler, place.name, "the name", name.ends_with(std::string(".") + field.GetFieldName()), true);
    expect(compiler, place.name, "the offset", static_cast<long long>(place.offset), field.GetFieldOffset());
    expect(compiler, place.name, "the size", static_cast<long long>(place.size), field.GetFieldSize());
  }
}

// The fields of a table that its structure shows in the right place.
int usable_fields(const CRtTable &table) {
  int count = 0;
  CRtField field;
  for (int position = table.GetFirstFieldPostion(); table.GetNextField(field, position); ++count) {
    if (field.GetFieldType() == RTDB_TYPE_FLOAT || field.GetFieldType() == RTDB_TYPE_DOUBLE) break;
  }
  return count;
}

// Every usable field of every table must have been compared.
void check_completeness(CRtdbManager &manager, const Places &places) {
  int usable = 0;
  int position = -1;
  CRtDataBase database;
  if (manager.GetFirstDataBasePostion(position) == 0) return;
  while (manager.GetNext(database, position) != 0) {
    database.AttachShareMemory();
    CRtTable table;
    for (int slot = database.GetFirstTablePostion(); database.GetNextTable(table, slot);)
      usable += usable_fields(table);
    database.DetachShareMemory();
  }
  expect("Places.h", "all tables", "the number of usable fields", static_cast<long long>(places.field_count), usable);
}

void check(CRtdbManager &manager) {
  const struct {
    const char *compiler;
    Places places;
  } views[] = {{"C", places_in_c()}, {"C++", places_in_cpp()}};
  for (const auto &[compiler, places] : views) {
    check_tables(manager, compiler, {places.tables, places.table_count});
    check_fields(manager, compiler, {places.fields, places.field_count});
    check_completeness(manager, places);
  }
}

// A value that the structure has in the wrong place is read by its field number, which the header has too.
void show_measurement(CRtdbManager &manager, unsigned int id) {
  CRtDataBase database;
  CRtTable table;
  if (!open(manager, DB_ID_OF_plant, plant_TAB_measurements_ID, database, table)) return;
  const auto *record = reinterpret_cast<const records::plant_measurements *>(table.FindIDExclusive(id));
  double value = 0;
  if (record == nullptr ||
      table.GetFieldData(id, plant_TAB_measurements_FIELD_value_INDEX, reinterpret_cast<char *>(&value)) == 0) {
    std::printf("  no measurement %u\n", id);
    return;
  }
  std::printf("  measurement %u of station %u, %s: %.2f %s\n", record->ID, record->stationID, record->name, value,
              record->unit);
}

void show(CRtdbManager &manager) {
  manager.LoadAllCustomizedDB(0);
  std::printf("\nA C client, through the generated structures\n");
  CRtDataBase database;
  CRtTable alarms;
  if (!open(manager, DB_ID_OF_plant, plant_TAB_alarms_ID, database, alarms)) return;
  int position = alarms.GetFirstPosition();
  for (int shown = 0; shown < 3 && position != -1; ++shown) print_alarm(alarms.GetNextPosition(position));
  std::printf("\nA C++ client\n");
  show_measurement(manager, 17021);
}

}  // namespace

int main(int argc, char **argv) {
  const std::string_view verb = argc == 2 ? argv[1] : "";
  if (verb != "check" && verb != "show") {
    std::fprintf(stderr, "usage: plant_client check | show\n");
    return 2;
  }
  CRtdbManager manager;
  if (!manager.RtdbManagerInit(false, "plant.schema")) {
    std::fprintf(stderr, "plant_client: cannot start; is plant.schema in the working folder?\n");
    return 1;
  }
  verb == "check" ? check(manager) : show(manager);
  return g_agree ? 0 : 1;
}
