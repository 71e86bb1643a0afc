-- The store tables of the example, for PostgreSQL:
--
--     psql -h 127.0.0.1 -p 54329 -U plant -d plant -f create_postgresql.sql
--
-- One table per table of plant.schema, called <database>_<table>; one column per field, in the order of the fields, and
-- no others, because rows are inserted without a list of columns. Names are folded to lower case here, which does not
-- matter: columns are found without regard to case. Unsigned numbers need bigint.

CREATE TABLE system_users (
  ID        bigint PRIMARY KEY,
  name      text,
  password  text,                -- enciphered, longer than the field
  fullName  text,
  rightsID  bigint,
  phone     text,
  shift     bigint
);

CREATE TABLE system_rights (
  ID       bigint PRIMARY KEY,
  role     text,
  rights0  bigint,
  rights1  bigint,
  rights2  bigint,
  rights3  bigint
);

CREATE TABLE plant_stations (
  ID            bigint PRIMARY KEY,
  code          text,
  street        text,
  district      text,
  heatedArea    real,
  commissioned  timestamp
);

CREATE TABLE plant_measurements (
  ID         bigint PRIMARY KEY,
  stationID  bigint,
  name       text,
  unit       text,
  value      double precision,
  low        real,
  high       real,
  quality    text,
  time       timestamp
);

CREATE TABLE plant_alarms (
  ID             bigint PRIMARY KEY,
  measurementID  bigint,
  priority       integer,
  state          text,
  text           text,
  raised         timestamp
);

-- A base row and the rows of projects share an ID, so ID alone is no key here.
CREATE TABLE plant_setpoints (
  ID           bigint,
  stationID    bigint,
  name         text,
  unit         text,
  value        double precision,
  minimum      real,
  maximum      real,
  changed      timestamp,
  bModified    integer,
  iProjectID   integer,
  iEditStatus  integer
);
CREATE INDEX plant_setpoints_rows ON plant_setpoints (iProjectID, ID);
