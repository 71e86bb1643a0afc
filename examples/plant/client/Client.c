/* A C client: it gets addresses of records and reads them through the generated structures. */
#include <stdio.h>

#include "Places.h"
#include "plant.h"
#include "system.h"

#define NAMED(name) name
#define MEMBER_SIZE(type, member) sizeof(((type *)0)->member)
#include "Places.inc"

struct Places places_in_c(void) {
  return kPlaces;
}

void print_alarm(const void *record) {
  const plant_alarms *alarm = record;
  printf("  alarm %u on measurement %u, priority %u, %.*s, raised %04u-%02u-%02u: %.*s\n", alarm->ID,
         alarm->measurementID, alarm->priority, (int)sizeof alarm->state, alarm->state, alarm->raised.wYear,
         alarm->raised.wMonth, alarm->raised.wDay, (int)sizeof alarm->text, alarm->text);
}
