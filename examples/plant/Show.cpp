#include "Show.h"

#include <cstdio>
#include <string>

#include "Access.h"
#include "Edits.h"

namespace plant {
namespace {

constexpr std::uint32_t kStation = 17;
constexpr std::uint32_t kFirstShown = 17021;  // measurements 1 to 8 of its circuit 2
constexpr std::uint32_t kLastShown = 17028;

const char *status_name(std::int32_t status) {
  switch (status) {
    case EDIT_STATUS_COMMITTED:
      return "committed";
    case EDIT_STATUS_INSERTED:
      return "inserted";
    case EDIT_STATUS_UPDATED:
      return "updated";
    case EDIT_STATUS_DELETED:
      return "deleted";
    default:
      return "never set";
  }
}

}  // namespace

void show_tables(CRtdbManager &manager) {
  std::printf("\n  %5s  %-19s %8s %9s %13s %12s\n", "ID", "table", "records", "capacity", "bytes/record", "memory");
  for_each_table(manager, [](const std::string &name, CRtTable &table) {
    const double kib = static_cast<double>(table.GetRecordMaxCount()) * table.GetTableSize() / 1024.0;
    std::printf("  %5u  %-19s %8d %9d %13d %8.1f KiB\n", table.GetTableID(), name.c_str(), table.GetRecordCount(),
                table.GetRecordMaxCount(), table.GetTableSize(), kib);
  });
}

void show_lookups(CRtdbManager &manager) {
  std::printf("\nFinding\n");
  CRtDataBase by_id;
  if (manager.GetDataBaseFromID(by_id, 2) != 1) throw Failure("no database with ID 2");
  std::printf("  database with ID 2           %s\n", by_id.GetDBName());

  CRtDataBase owner;  // FindTable searches all databases and maps the one that has the table
  CRtTable alarms;
  if (manager.FindTable(203, owner, alarms) != 1) throw Failure("no table with ID 203");
  std::printf("  table with ID 203            %s of database %s\n", alarms.GetTableName(), owner.GetDBName());

  CRtDataBase plant;
  open_database(manager, "plant", plant);
  CRtTable stations = open_table(plant, "stations");
  const TextField code(stations, "code");
  const TextField street(stations, "street");
  const TextField district(stations, "district");
  std::printf("  table named stations         ID %u\n", stations.GetTableID());

  const char *station = stations.FindIDExclusive(kStation);
  if (station == nullptr) throw Failure("no station " + std::to_string(kStation));
  std::printf("  station with ID %-2u           %s, %s, %s\n", kStation, code.get(station).c_str(),
              street.get(station).c_str(), district.get(station).c_str());

  station = stations.FindRecordbyStringField(stations.FindFieldFromName("code", false), "s250");
  if (station == nullptr) throw Failure("no station with the code s250");
  std::printf("  station with code s250       ID %u, %s, %s\n", Field<std::uint32_t>(stations, "ID").get(station),
              street.get(station).c_str(), district.get(station).c_str());
}

void show_measurements(CRtdbManager &manager, const char *title) {
  CRtDataBase plant;
  open_database(manager, "plant", plant);
  CRtTable measurements = open_table(plant, "measurements");
  const TextField name(measurements, "name");
  const TextField unit(measurements, "unit");
  const Field<double> value(measurements, "value");
  const Field<float> low(measurements, "low");
  const Field<float> high(measurements, "high");
  const TextField quality(measurements, "quality");
  const Field<SYSTEMTIME> time(measurements, "time");

  std::printf("\n%s\n  %5s  %-10s %9s %-5s %7s %7s  %-7s  %s\n", title, "ID", "name", "value", "unit", "low", "high",
              "quality", "time");
  for (std::uint32_t key = kFirstShown; key <= kLastShown; ++key) {
    const char *record = measurements.FindIDExclusive(key);
    if (record == nullptr) throw Failure("no measurement " + std::to_string(key));
    const SYSTEMTIME at = time.get(record);
    std::printf("  %5u  %-10s %9.2f %-5s %7.1f %7.1f  %-7s  %04d-%02d-%02d %02d:%02d:%02d\n", key,
                name.get(record).c_str(), value.get(record), unit.get(record).c_str(),
                static_cast<double>(low.get(record)), static_cast<double>(high.get(record)),
                quality.get(record).c_str(), at.wYear, at.wMonth, at.wDay, at.wHour, at.wMinute, at.wSecond);
  }
}

void show_setpoints(CRtdbManager &manager, const char *title) {
  CRtDataBase plant;
  open_database(manager, "plant", plant);
  CRtTable setpoints = open_table(plant, "setpoints");
  const TextField name(setpoints, "name");
  const TextField unit(setpoints, "unit");
  const Field<double> value(setpoints, "value");
  const Field<std::int32_t> modified(setpoints, "bModified");
  const Field<std::int32_t> project(setpoints, "iProjectID");
  const Field<std::int32_t> status(setpoints, "iEditStatus");

  std::printf("  %-7s %5s  %-12s %7s %-5s %9s %10s  %s\n", title, "ID", "name", "value", "unit", "bModified",
              "iProjectID", "iEditStatus");
  for (const std::uint32_t key : {kChangedSetpoint, kDeletedSetpoint, kAddedSetpoint}) {
    const char *record = setpoints.FindIDExclusive(key);
    if (record == nullptr) {
      std::printf("  %-7s %5u  (none)\n", "", key);
      continue;
    }
    std::printf("  %-7s %5u  %-12s %7.2f %-5s %9d %10d  %d %s\n", "", key, name.get(record).c_str(), value.get(record),
                unit.get(record).c_str(), modified.get(record), project.get(record), status.get(record),
                status_name(status.get(record)));
  }
}

}  // namespace plant
