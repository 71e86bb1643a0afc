// The two kinds of edits that the example makes: many small ones from several threads, and a few within a project.
#pragma once

#include <array>
#include <cstdint>

#include "quillanest/Quillanest.h"

namespace plant {

struct EditCount {
  int updated = 0;   // measurements that got a new value
  int inserted = 0;  // measurements added
  int deleted = 0;   // measurements removed
  int alarms = 0;    // alarms raised
};

inline constexpr int kScanThreads = 4;

// One scan of the whole plant. Each of kScanThreads threads takes every fourth station: it writes a new value into each
// of the station's measurements, raises an alarm for a value that has risen above its limit, adds a measurement for
// the station's electric power, and removes the pump speed of circuit 5 at every fifth station, whose pump is retired.
// Returns what each thread did.
std::array<EditCount, kScanThreads> scan_plant(CRtdbManager &manager);

inline constexpr int kProject = 5;

// The setpoints that edit_project() touches: those of one station.
inline constexpr std::uint32_t kChangedSetpoint = 171;
inline constexpr std::uint32_t kDeletedSetpoint = 172;
inline constexpr std::uint32_t kAddedSetpoint = 173;

// Changes one setpoint, deletes one and adds one within project kProject.
void edit_project(CRtdbManager &manager);

}  // namespace plant
