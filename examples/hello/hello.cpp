#include <cstdio>
#include <cstring>

#include "quillanest/Quillanest.h"

int main() {
  CRtdbManager manager;  // reads conf/fix_Rtdb.ini
  if (!manager.RtdbManagerInit(false, "stations.schema")) return 1;

  CRtTable stations;  // a handle of a table of the system database
  if (manager.GetSystemTable(stations, "Station") == 0) return 1;

  char record[28] = {};                          // GetTableSize() bytes
  stations.InitRecordDefault(record);            // the default values of the schema
  if (stations.Insert(record, 0) < 0) return 1;  // key 0: the table hands out the next key

  for (int position = stations.GetFirstPosition(); position != -1;) {
    const char *found = stations.GetNextPosition(position);
    unsigned int id;
    std::memcpy(&id, found, sizeof id);  // records are packed: copy values, never point to them
    std::printf("%u %s\n", id, found + 4);
  }
  return manager.GetSystemDB()->SaveData(0) ? 0 : 1;
}
