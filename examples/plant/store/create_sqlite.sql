-- The store tables of the example, for SQLite:
--
--     sqlite3 data/plant.db < create_sqlite.sql
--
-- One table per table of plant.schema, called <database>_<table>; one column per field, in the order of the fields, and
-- no others, because rows are inserted without a list of columns. Columns of times must have DATE or TIME in the name of
-- their type.

CREATE TABLE system_users (
  ID        INTEGER PRIMARY KEY,
  name      TEXT,
  password  TEXT,                -- enciphered, longer than the field
  fullName  TEXT,
  rightsID  INTEGER,
  phone     TEXT,
  shift     INTEGER
);

CREATE TABLE system_rights (
  ID       INTEGER PRIMARY KEY,
  role     TEXT,
  rights0  INTEGER,
  rights1  INTEGER,
  rights2  INTEGER,
  rights3  INTEGER
);

CREATE TABLE plant_stations (
  ID            INTEGER PRIMARY KEY,
  code          TEXT,
  street        TEXT,
  district      TEXT,
  heatedArea    REAL,
  commissioned  DATETIME
);

CREATE TABLE plant_measurements (
  ID         INTEGER PRIMARY KEY,
  stationID  INTEGER,
  name       TEXT,
  unit       TEXT,
  value      REAL,
  low        REAL,
  high       REAL,
  quality    TEXT,
  time       DATETIME
);

CREATE TABLE plant_alarms (
  ID             INTEGER PRIMARY KEY,
  measurementID  INTEGER,
  priority       INTEGER,
  state          TEXT,
  text           TEXT,
  raised         DATETIME
);

-- A base row and the rows of projects share an ID, so ID alone is no key here.
CREATE TABLE plant_setpoints (
  ID           INTEGER,
  stationID    INTEGER,
  name         TEXT,
  unit         TEXT,
  value        REAL,
  minimum      REAL,
  maximum      REAL,
  changed      DATETIME,
  bModified    INTEGER,
  iProjectID   INTEGER,
  iEditStatus  INTEGER
);
CREATE INDEX plant_setpoints_rows ON plant_setpoints (iProjectID, ID);
