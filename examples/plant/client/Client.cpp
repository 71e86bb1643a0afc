// A C++ client: it finds records through the library, reads them through the generated structures, and prints some.
//
// Schema, configuration and data are in the folder that QUILLANEST_ROOT names. Returns 0 if every record was there.
#include "Client.h"

#include <cstdio>

#include "quillanest/Quillanest.h"

// The library has a SYSTEMTIME of its own.
namespace records {
#include "plant.h"
}  // namespace records

namespace {

// Opens a table of the plant. False, with a message, if the image does not have it.
bool open(CRtdbManager &manager, unsigned int table_id, CRtDataBase &plant, CRtTable &table) {
  if (manager.GetDataBaseFromID(plant, DB_ID_OF_plant) != 0 && plant.AttachShareMemory() != 0 &&
      plant.GetDBTableFromID(table, table_id) != 0) {
    return true;
  }
  std::fprintf(stderr, "plant_client: no table %u in the plant\n", table_id);
  return false;
}

bool show_alarms(CRtdbManager &manager) {
  std::printf("\nA C client, through the generated structures\n");
  CRtDataBase plant;
  CRtTable alarms;
  if (!open(manager, plant_TAB_alarms_ID, plant, alarms)) return false;
  int position = alarms.GetFirstPosition();
  for (int shown = 0; shown < 3 && position != -1; ++shown) print_alarm(alarms.GetNextPosition(position));
  return true;
}

// A value that the structure has in the wrong place is read by its field number, which the header has too.
bool show_measurement(CRtdbManager &manager, unsigned int id) {
  std::printf("\nA C++ client\n");
  CRtDataBase plant;
  CRtTable table;
  if (!open(manager, plant_TAB_measurements_ID, plant, table)) return false;
  const auto *record = reinterpret_cast<const records::plant_measurements *>(table.FindIDExclusive(id));
  double value = 0;
  if (record == nullptr ||
      table.GetFieldData(id, plant_TAB_measurements_FIELD_value_INDEX, reinterpret_cast<char *>(&value)) == 0) {
    std::printf("  no measurement %u\n", id);
    return false;
  }
  std::printf("  measurement %u of station %u, %s: %.2f %s\n", record->ID, record->stationID, record->name, value,
              record->unit);
  return true;
}

}  // namespace

int main() {
  CRtdbManager manager;
  if (!manager.RtdbManagerInit(false, "plant.schema")) {
    std::fprintf(stderr, "plant_client: cannot start; is plant.schema in the working folder?\n");
    return 1;
  }
  manager.LoadAllCustomizedDB(0);
  return show_alarms(manager) && show_measurement(manager, 17021) ? 0 : 1;
}
