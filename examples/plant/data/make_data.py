#!/usr/bin/env python3
"""Writes the data files of the example plant into this folder.

    make_data.py           writes the six files
    make_data.py --check   compares them with what would be written; exit code 1 on a difference

The result is the same on every run. Field names, their order and their types come from the schema, and every value has
the form in which the library saves it, so that saving an unchanged table gives the same bytes. Only passwords differ:
here they are typed in clear, and the first save enciphers them.
"""

import datetime
import pathlib
import random
import struct
import sys

HERE = pathlib.Path(__file__).resolve().parent
SCHEMA = HERE.parent / "plant.schema"

STATIONS = 250
CIRCUITS = 5  # heating circuits per station, eight measurements each
OUT_OF_LIMIT = 60  # measurements above their limit, each with an open alarm
CLEARED_ALARMS = 240
SCAN_TIME = datetime.datetime(2024, 3, 7, 9, 5, 0)

# Code, unit, low limit, high limit, mean, spread. The power follows from flow and temperatures.
KINDS = [
    ("TS", "degC", 60, 95, 82, 14),  # supply temperature
    ("TR", "degC", 30, 60, 47, 14),  # return temperature
    ("PS", "bar", 3, 9, 6.2, 3),  # supply pressure
    ("PR", "bar", 1.5, 4, 2.8, 1.3),  # return pressure
    ("FL", "m3/h", 0, 32, 18, 12),  # flow
    ("QT", "kW", 0, 1900, None, None),  # thermal power
    ("YV", "%", 0, 100, 55, 40),  # valve position
    ("PM", "rpm", 0, 2900, 1900, 800),  # pump speed
]
KW_PER_M3H_AND_KELVIN = 1.163

STREETS = ["Mill Lane", "Harbour Road", "Church Street", "Station Road", "Brewery Yard",
           "Orchard Way", "Castle Street", "Canal Side", "School Lane", "Foundry Street"]
DISTRICTS = ["North", "East", "South", "West", "Old Town"]

random_source = random.Random(20240307)


def bell(mean, spread):
    """A number within `spread` of `mean`, most often near it, with two decimals."""
    return round(mean + spread * (random_source.random() + random_source.random() - 1), 2)


def pick(count):
    return int(random_source.random() * count)


def time_text(moment):
    return (f"{moment.year}-{moment.month}-{moment.day} "
            f"{moment.hour}:{moment.minute}:{moment.second}")


def users():
    yield 1, "admin", "copper-kettle", "Ada Winter", 1, "+00 555 0101", 0
    yield 2, "otto", "blue-valve-17", "Otto Brand", 2, "+00 555 0102", 1
    yield 3, "mira", "steam-and-iron", "Mira Sanders", 2, "+00 555 0103", 2
    yield 4, "jonas", "north-wind-4", "Jonas Peters", 2, "+00 555 0104", 3
    yield 5, "petra", "spare-gasket", "Petra Lindqvist", 3, "+00 555 0105", 1
    yield 6, "guest", "look-only", "Visitor", 4, "+00 555 0106", 0


def rights():
    yield 1, "administrator", 4294967295, 4294967295, 4294967295, 4294967295
    yield 2, "operator", 65535, 255, 0, 0
    yield 3, "maintenance", 4026531855, 1, 0, 0
    yield 4, "visitor", 1, 0, 0, 0


def stations():
    for station in range(1, STATIONS + 1):
        commissioned = datetime.datetime(1985 + pick(38), 1 + pick(12), 1 + pick(28), 8 + pick(9), pick(60), 0)
        yield (station, f"S{station:03}", f"{STREETS[pick(len(STREETS))]} {1 + pick(120)}",
               DISTRICTS[pick(len(DISTRICTS))], bell(4200, 3800), time_text(commissioned))


def measurements():
    out_of_limit = set()
    while len(out_of_limit) < OUT_OF_LIMIT:
        out_of_limit.add((1 + pick(STATIONS), 1 + pick(CIRCUITS), pick(4)))
    for station in range(1, STATIONS + 1):
        moment = SCAN_TIME + datetime.timedelta(seconds=station % 60)
        for circuit in range(1, CIRCUITS + 1):
            values = {}
            for number, (code, unit, low, high, mean, spread) in enumerate(KINDS):
                if code == "QT":
                    value = round(values["FL"] * (values["TS"] - values["TR"]) * KW_PER_M3H_AND_KELVIN, 2)
                elif (station, circuit, number) in out_of_limit:
                    value = round(high * (1.01 + 0.03 * random_source.random()), 2)
                else:
                    value = bell(mean, spread)
                    value = round(min(value, 2 * high - value), 2)  # folded back where it lies above the limit
                values[code] = value
                quality = "GGGGGGGGGGGGGGGGGGGGGGGGGGGGGGGGGGGGGGGGGGGGGGGGGGSB"[pick(52)]
                yield (station * 1000 + circuit * 10 + number + 1, station, f"S{station:03}-{circuit}-{code}", unit,
                       value, low, high, quality, time_text(moment))


def alarms(measured):
    """Open alarms for the values above their limit, cleared ones for a choice of the others; oldest first."""
    above = [row for row in measured if row[4] > row[6]]
    chosen = above + [measured[pick(len(measured))] for _ in range(CLEARED_ALARMS)]
    entries = []
    for index, row in enumerate(chosen):
        state = ("active" if pick(2) else "acked") if index < len(above) else "cleared"
        age = pick(3600) if index < len(above) else 3600 + pick(60 * 86400)
        raised = SCAN_TIME - datetime.timedelta(seconds=age)
        entries.append((raised, row[0], 1 + pick(3), state, f"{row[2]} above {row[6]} {row[3]}"))
    for number, (raised, *entry) in enumerate(sorted(entries), start=1):
        yield number, *entry, time_text(raised)


def setpoints():
    for station in range(1, STATIONS + 1):
        for number, (name, unit, mean, spread, low, high) in enumerate(
                [("TSset", "degC", 82, 8, 60, 95), ("dPset", "bar", 2.5, 1.2, 0.5, 5)], start=1):
            changed = SCAN_TIME - datetime.timedelta(seconds=86400 + pick(200 * 86400))
            yield (station * 10 + number, station, f"S{station:03}-{name}", unit, bell(mean, spread), low, high,
                   time_text(changed), 0, 0, 1)


def schema_fields():
    """The fields of every table, as (name, type, size), under the table's file name."""
    databases, tables, fields = {}, {}, {}
    for line in SCHEMA.read_text().splitlines():
        values = dict(word.split("=", 1) for word in line.lstrip("#").split() if "=" in word)
        if line.startswith("#Name="):
            databases[values["ID"]] = values["Name"]
        elif line.startswith("#DBID=") and "TABLEID" not in values:
            key = f"{databases[values['DBID']]}_{values['NAME']}.txt"
            tables[values["DBID"], values["ID"]] = key
            fields[key] = []
        elif line.startswith("#DBID="):
            key = tables[values["DBID"], values["TABLEID"]]
            fields[key].append((values["NAME"], values["TYPE"], int(values["SIZE"])))
    return fields


def value_text(value, kind, size):
    if kind == "FLOAT":
        return "%f" % struct.unpack("<f", struct.pack("<f", value))[0]
    if kind == "DOUBLE":
        return "%f" % value
    text = str(value)
    if kind in ("STRING", "PASSWD") and len(text) >= size:
        raise ValueError(f"{text!r} does not fit into {size} bytes")
    return text


def file_bytes(fields, rows):
    lines = [";".join(name for name, _, _ in fields)]
    for row in rows:
        if len(row) != len(fields):
            raise ValueError(f"{row} has not one value for each of {len(fields)} fields")
        lines.append(";".join(value_text(value, kind, size) for value, (_, kind, size) in zip(row, fields)))
    return "".join(line + "\r\n" for line in lines).encode("ascii")


def main():
    # All tables draw from one source of random numbers, so the order in which they are made counts.
    measured = list(measurements())
    tables = {
        "system_users.txt": list(users()),
        "system_rights.txt": list(rights()),
        "plant_stations.txt": list(stations()),
        "plant_measurements.txt": measured,
        "plant_alarms.txt": list(alarms(measured)),
        "plant_setpoints.txt": list(setpoints()),
    }
    fields = schema_fields()
    if fields.keys() != tables.keys():
        sys.exit(f"make_data.py: the schema has other tables: {', '.join(fields)}")
    contents = {name: file_bytes(fields[name], rows) for name, rows in tables.items()}
    if sys.argv[1:] == ["--check"]:
        stale = [name for name, content in contents.items()
                 if not (HERE / name).is_file() or (HERE / name).read_bytes() != content]
        if stale:
            sys.exit(f"make_data.py: not what this script writes: {', '.join(stale)}")
    elif sys.argv[1:]:
        sys.exit(__doc__)
    else:
        for name, content in contents.items():
            (HERE / name).write_bytes(content)


if __name__ == "__main__":
    main()
