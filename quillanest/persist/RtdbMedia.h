// The relational store.
//
// This version has no engine to connect with, so no slot of the store ever opens, and every operation answers as it
// does then: loads fail and change nothing; saves run every statement into no slot, clear "bModified" of the records
// that they would have written, and are true.
// Lifetime: an object is built for one call. Threads: one object belongs to one thread.
#pragma once

class CRtDataBase;
class CRtTable;
class CRtdbManager;

namespace quillanest {

class CRtdbMedia {
 public:
  explicit CRtdbMedia(CRtdbManager *manager);

  // By design [ClosedStoreSaves]: a save into a store that is not open cannot be told from one that wrote everything.
  // False only for a table without descriptors in the image.
  bool SaveTable(CRtDataBase &database, CRtTable &table, int projectID);
  bool SaveDataBase(CRtDataBase &database, int projectID);
  bool SaveAll(CRtdbManager &manager, int projectID);

  // False.
  bool LoadTable(CRtDataBase &database, CRtTable &table, int projectID);
  // False, but true for a database without tables.
  bool LoadDataBase(CRtDataBase &database, int projectID);
  // False, but true when there is no table outside the system database.
  bool LoadAllCustomized(CRtdbManager &manager, int projectID);
  bool LoadSystem(CRtdbManager &manager);
};

}  // namespace quillanest
