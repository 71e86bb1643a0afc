// What a program loads that meets the library late: an image with a password, and its save.
#include <cstring>

#include "quillanest/Quillanest.h"

namespace {

CRtdbManager &image() {
  static CRtdbManager &manager = *new CRtdbManager;
  return manager;
}

}  // namespace

extern "C" QUILLANEST_API bool start(const char *schema) {
  CRtTable table;
  char record[20] = {1};
  std::strcpy(record + 4, "secret");
  return image().RtdbManagerInit(false, schema) && image().GetSystemTable(table, 10) == 1 &&
         table.Insert(record, 0) == 0;
}

extern "C" QUILLANEST_API bool save() { return image().GetSystemDB()->SaveData(0); }
