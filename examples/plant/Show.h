// What the example prints about the image: tables for people, to stdout.
#pragma once

#include "quillanest/Quillanest.h"

namespace plant {

// All tables with their sizes.
void show_tables(CRtdbManager &manager);

// Databases, tables and records found by name, by ID and by a text in a field.
void show_lookups(CRtdbManager &manager);

// Eight measurements of one station.
void show_measurements(CRtdbManager &manager, const char *title);

// The setpoints that Edits.h names, with the project and the edit status they are stamped with.
void show_setpoints(CRtdbManager &manager, const char *title);

}  // namespace plant
