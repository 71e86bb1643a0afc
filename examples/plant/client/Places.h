/* Where the generated structures have their members, as the C and the C++ compiler see it. */
#ifndef PLANT_CLIENT_PLACES_H
#define PLANT_CLIENT_PLACES_H

#include <stddef.h>

/* A member, and the numbers that the generated headers give to its database, table and field. */
struct FieldPlace {
  const char *name;
  unsigned int database;
  unsigned int table;
  int index;
  size_t offset;
  size_t size;
};

/* A structure. */
struct TablePlace {
  const char *name;
  unsigned int database;
  unsigned int table;
  int slot;
  size_t size;
};

struct Places {
  const struct TablePlace *tables;
  size_t table_count;
  const struct FieldPlace *fields;
  size_t field_count;
};

/* The tables whose structures are used as a whole: those without FLOAT and DOUBLE. */
#define FOR_EACH_TABLE(X) X(system, users) X(system, rights) X(plant, alarms)

/* Their members, and those of the other tables up to the first FLOAT or DOUBLE. */
/* clang-format off */
#define FOR_EACH_FIELD(X) \
  X(system, users, ID) \
  X(system, users, name) \
  X(system, users, password) \
  X(system, users, fullName) \
  X(system, users, rightsID) \
  X(system, users, phone) \
  X(system, users, shift) \
  X(system, rights, ID) \
  X(system, rights, role) \
  X(system, rights, rights0) \
  X(system, rights, rights1) \
  X(system, rights, rights2) \
  X(system, rights, rights3) \
  X(plant, stations, ID) \
  X(plant, stations, code) \
  X(plant, stations, street) \
  X(plant, stations, district) \
  X(plant, measurements, ID) \
  X(plant, measurements, stationID) \
  X(plant, measurements, name) \
  X(plant, measurements, unit) \
  X(plant, alarms, ID) \
  X(plant, alarms, measurementID) \
  X(plant, alarms, priority) \
  X(plant, alarms, state) \
  X(plant, alarms, text) \
  X(plant, alarms, raised) \
  X(plant, setpoints, ID) \
  X(plant, setpoints, stationID) \
  X(plant, setpoints, name) \
  X(plant, setpoints, unit)
/* clang-format on */

#ifdef __cplusplus
extern "C" {
#endif

struct Places places_in_c(void);
struct Places places_in_cpp(void);

/* Prints one record of the table alarms on a line; `record` is its address in the image. */
void print_alarm(const void *record);

#ifdef __cplusplus
}
#endif

#endif
