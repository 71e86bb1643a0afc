#include "Edits.h"

#include <cmath>
#include <cstdio>
#include <future>
#include <string>
#include <vector>

#include "Access.h"

namespace plant {
namespace {

constexpr int kNoProject = 0;

// The fields of the measurements that a scan uses.
struct MeasurementFields {
  explicit MeasurementFields(CRtTable &table)
      : id(table, "ID"),
        station(table, "stationID"),
        name(table, "name"),
        unit(table, "unit"),
        value(table, "value"),
        low(table, "low"),
        high(table, "high"),
        time(table, "time") {}

  Field<std::uint32_t> id, station;
  TextField name, unit;
  Field<double> value;
  Field<float> low, high;
  Field<SYSTEMTIME> time;
};

struct AlarmFields {
  explicit AlarmFields(CRtTable &table)
      : id(table, "ID"), measurement(table, "measurementID"), text(table, "text"), raised(table, "raised") {}

  Field<std::uint32_t> id, measurement;
  TextField text;
  Field<SYSTEMTIME> raised;
};

// What one thread works with: views of its own on the database and its tables.
class Scanner {
 public:
  Scanner(CRtDataBase &database, const SYSTEMTIME &now)
      : database_(database),
        measurements_(open_table(database, "measurements")),
        alarms_(open_table(database, "alarms")),
        measurement_(measurements_),
        alarm_(alarms_),
        now_(now) {}

  void scan_station(std::uint32_t station) {
    for (std::uint32_t circuit = 1; circuit <= 5; ++circuit) {
      for (std::uint32_t kind = 1; kind <= 8; ++kind) update(station * 1000 + circuit * 10 + kind);
    }
    add_electric_power(station);
    if (station % 5 == 0) remove(station * 1000 + 58);
  }

  const EditCount &count() const { return count_; }

 private:
  void update(std::uint32_t key) {
    const DatabaseLock lock(database_);
    std::vector<char> record = record_buffer(measurements_);
    if (measurements_.FindIDExclusive(key, record.data()) != 1) throw Failure("no measurement " + std::to_string(key));
    const double old_value = measurement_.value.get(record.data());
    const auto high = static_cast<double>(measurement_.high.get(record.data()));
    const double range = high - static_cast<double>(measurement_.low.get(record.data()));
    // A stand-in for reading an instrument: a step of up to 5 % of the range, by the key.
    const double step = range * 0.05 * (static_cast<double>(key * 7919 % 201) / 100.0 - 1.0);
    const double value = std::round((old_value + step) * 100.0) / 100.0;
    measurement_.value.set(record.data(), value);
    measurement_.time.set(record.data(), now_);
    if (measurements_.Update(record.data(), -1, kNoProject) < 0) throw Failure("cannot update " + std::to_string(key));
    ++count_.updated;
    if (value > high && old_value <= high) raise_alarm(record.data());
  }

  // A record with key 0 gets the table's next key and goes to the end.
  void raise_alarm(const char *measurement) {
    std::vector<char> record = record_buffer(alarms_);
    alarms_.InitRecordDefault(record.data());
    alarm_.id.set(record.data(), 0);
    alarm_.measurement.set(record.data(), measurement_.id.get(measurement));
    char limit[32];
    std::snprintf(limit, sizeof limit, "%g", static_cast<double>(measurement_.high.get(measurement)));
    alarm_.text.set(record.data(),
                    measurement_.name.get(measurement) + " above " + limit + " " + measurement_.unit.get(measurement));
    alarm_.raised.set(record.data(), now_);
    const DatabaseLock lock(database_);  // held by update() already; the same thread may take it again
    if (alarms_.Insert(record.data(), kNoProject) < 0) throw Failure("cannot insert an alarm");
    ++count_.alarms;
  }

  // A record with a key goes to its key's place, and the records after it move up.
  void add_electric_power(std::uint32_t station) {
    std::vector<char> record = record_buffer(measurements_);
    measurements_.InitRecordDefault(record.data());
    char name[16];
    std::snprintf(name, sizeof name, "S%03u-0-EP", station);
    measurement_.id.set(record.data(), station * 1000 + 1);
    measurement_.station.set(record.data(), station);
    measurement_.name.set(record.data(), name);
    measurement_.value.set(record.data(), 12.5 + station % 7);
    measurement_.time.set(record.data(), now_);
    const DatabaseLock lock(database_);
    const int position = measurements_.Insert(record.data(), kNoProject);
    if (position == -2) throw Failure(std::string(name) + " is there already; this run has been made on these data");
    if (position < 0) throw Failure(std::string("cannot insert ") + name);
    ++count_.inserted;
  }

  void remove(std::uint32_t key) {
    const DatabaseLock lock(database_);
    if (measurements_.Delete(key, -1, kNoProject) != 1) throw Failure("cannot delete " + std::to_string(key));
    ++count_.deleted;
  }

  CRtDataBase &database_;
  CRtTable measurements_;
  CRtTable alarms_;
  MeasurementFields measurement_;
  AlarmFields alarm_;
  SYSTEMTIME now_;
  EditCount count_;
};

// The work of one thread. `database` is this thread's own, bound and not yet mapped.
EditCount scan(CRtDataBase database, const std::vector<std::uint32_t> &stations, SYSTEMTIME now) {
  if (database.AttachShareMemory() != 1) throw Failure("a thread cannot map the database");
  Scanner scanner(database, now);
  for (const std::uint32_t station : stations) scanner.scan_station(station);
  return scanner.count();
}

}  // namespace

std::array<EditCount, kScanThreads> scan_plant(CRtdbManager &manager) {
  std::array<std::vector<std::uint32_t>, kScanThreads> shares;
  {
    CRtDataBase database;
    open_database(manager, "plant", database);
    CRtTable stations = open_table(database, "stations");
    const Field<std::uint32_t> id(stations, "ID");
    for (int position = stations.GetFirstPosition(); position != -1;) {
      const std::uint32_t station = id.get(stations.GetNextPosition(position));
      shares[station % kScanThreads].push_back(station);
    }
  }
  SYSTEMTIME now{};
  GetLocalTime(now);
  // The manager is asked from this thread only; every thread gets a database object of its own from it.
  std::vector<std::future<EditCount>> threads;
  for (const std::vector<std::uint32_t> &share : shares) {
    CRtDataBase database;
    if (manager.GetDataBaseFromName(database, "plant") != 1) throw Failure("no database named plant");
    threads.push_back(std::async(std::launch::async, scan, database, share, now));
  }
  std::array<EditCount, kScanThreads> counts;
  for (std::size_t i = 0; i < counts.size(); ++i) counts[i] = threads[i].get();
  return counts;
}

void edit_project(CRtdbManager &manager) {
  CRtDataBase database;
  open_database(manager, "plant", database);
  CRtTable setpoints = open_table(database, "setpoints");
  const Field<double> value(setpoints, "value");
  std::vector<char> record = record_buffer(setpoints);
  const DatabaseLock lock(database);

  if (setpoints.FindIDExclusive(kChangedSetpoint, record.data()) != 1) throw Failure("no setpoint to change");
  value.set(record.data(), value.get(record.data()) - 2.5);
  if (setpoints.Update(record.data(), -1, kProject) < 0) throw Failure("cannot change a setpoint");

  // A deleted record stays, marked, until the projects are committed.
  if (setpoints.Delete(kDeletedSetpoint, -1, kProject) != 1) throw Failure("cannot delete a setpoint");

  record = record_buffer(setpoints);
  setpoints.InitRecordDefault(record.data());
  Field<std::uint32_t>(setpoints, "ID").set(record.data(), kAddedSetpoint);
  Field<std::uint32_t>(setpoints, "stationID").set(record.data(), kAddedSetpoint / 10);
  TextField(setpoints, "name").set(record.data(), "S017-TSnight");
  value.set(record.data(), 68.0);
  if (setpoints.Insert(record.data(), kProject) < 0) throw Failure("cannot add a setpoint");
}

}  // namespace plant
