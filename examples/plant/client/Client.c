/* A C client: it gets addresses of records and reads them through the generated structures. */
#include "Client.h"

#include <stdio.h>

#include "plant.h"

void print_alarm(const void *record) {
  const plant_alarms *alarm = record;
  printf("  alarm %u on measurement %u, priority %u, %.*s, raised %04u-%02u-%02u: %.*s\n", alarm->ID,
         alarm->measurementID, alarm->priority, (int)sizeof alarm->state, alarm->state, alarm->raised.wYear,
         alarm->raised.wMonth, alarm->raised.wDay, (int)sizeof alarm->text, alarm->text);
}
