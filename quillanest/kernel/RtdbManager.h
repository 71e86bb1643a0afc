// CRtdbManager: configuration, start-up, the directory of databases, load and save.
//
//   CRtdbManager manager;
//   if (!manager.RtdbManagerInit(false, "plant.schema")) return 1;  // the system database is loaded now
//   manager.LoadAllCustomizedDB(0);                                 // and all others
//   CRtDataBase plant;
//   if (manager.GetDataBaseFromName(plant, "plant") == 0 || plant.AttachShareMemory() == 0) return 1;
//   manager.SaveData(0);
//
// A client program constructs one manager first, starts it, and keeps it for its whole run. The manager that builds the
// image keeps it mapped: when the last manager that shares its catalogue is destroyed, every database segment that no
// other object has mapped is gone. Another manager of the same process attaches to the image.
//
// With Strict=1 in the configuration, starts, loads, saves, merges and commits that would lose something in part are
// false and change nothing, instead of what the comments below say: docs/strict.md. quillanest::last_failure() says
// why.
//
// Every attribute of the image exists twice, in this object and, while the manager segment is mapped, in the image:
// getters read the image's if it is mapped, setters write both.
// Threads: a manager is used by one thread at a time.
#pragma once

#include <array>
#include <cstddef>
#include <memory>

#include "quillanest/System.h"
#include "quillanest/kernel/RtDataBase.h"
#include "quillanest/shm/ImageLayout.h"
#include "quillanest/shm/ShareMemory.h"

namespace quillanest {
struct ManagerView;
struct Parts;
}  // namespace quillanest

class QUILLANEST_API CRtdbManager {
 public:
  // Reads the configuration file conf/fix_Rtdb.ini below the installation root; if there is none, defaults apply. If it
  // cannot be read for lack of memory or descriptors, RtdbManagerInit tries again. If a path does not fit
  // RTDB_PATH_SIZE, every start-up fails.
  CRtdbManager();
  ~CRtdbManager();

  // Takes over attributes, system database descriptor and the segment's key, and shares the catalogue; mappings are not
  // taken over, so the copy attaches before it sees the image.
  CRtdbManager(const CRtdbManager &other);
  CRtdbManager &operator=(const CRtdbManager &other);

  // --- Start-up -----------------------------------------------------------------------------------------------------
  // Attaches to an image that this process has already. Otherwise builds one: from the schema file and loading the
  // system database (`bReopen` false), or re-opening the segments of an existing directory (`bReopen` true, the file is
  // not used and no data is loaded). False if a step fails; the state reached by then stays, so that a second call may
  // attach to an image whose data was never loaded: check GetRtdbStatus. May throw _com_error if a relational store
  // delivers a value that does not convert.
  bool RtdbManagerInit(bool bReopen, const char *pszSchemaFile);
  // Maps an existing manager segment and the system database in it; 1 or 0.
  int AttachShareMemory();
  // Unmaps the manager segment and the system database; the catalogue's databases stay mapped.
  void DetachShareMemory();
  // Unmaps the manager segment.
  void DestroyMemory();

  // --- Attributes ---------------------------------------------------------------------------------------------------
  // RTDB_STATUS_BUILDING, _LAID_OUT or _LOADED.
  int GetRtdbStatus() const;
  void SetRtdbStatus(int status);
  int GetDataBaseMaxNum() const;
  char *GetHostName();
  char *GetSysIniFile();  // full path of the configuration file
  char *GetDataPath();    // folder of the data files, as configured

  // --- Directory ----------------------------------------------------------------------------------------------------
  // The lookups deliver the first match in slot order: `database` bound to it, not mapped. 1, or 0 if there is none or
  // the image is not laid out yet. `database` must not be mapped when it is passed in: matching reads the name in the
  // segment that the object has mapped. Names compare without regard to ASCII case.
  int GetDataBaseFromName(CRtDataBase &database, const char *name);
  int GetDataBaseFromCName(CRtDataBase &database, const char *name);
  int GetDataBaseFromID(CRtDataBase &database, unsigned int id);
  // Databases in slot order: if GetFirstDataBasePostion is 1, call GetNext until it is 0. It delivers the database at
  // `position` or the next one after it, not mapped, and moves on; 0, with `position` -1, after the last one.
  int GetFirstDataBasePostion(int &position);
  int GetNext(CRtDataBase &database, int &position);
  // The first table with that ID in any database; `database` is delivered mapped.
  int FindTable(unsigned int tableID, CRtDataBase &database, CRtTable &table);
  // Overwrites the directory record of the database with that name or ID. 1, or 0 if there is no such database.
  int UpdateDBInfo(const char *name, const _db_attr *attr);
  int UpdateDBInfo(unsigned int id, const _db_attr *attr);

  // The manager's own object for the system database; never null.
  CRtDataBase *GetSystemDB();
  // A table of the system database; 1, or 0 if it has no such table or is not mapped.
  int GetSystemTable(CRtTable &table, unsigned int tableID);
  int GetSystemTable(CRtTable &table, const char *name);
  bool IsSysTableModified();

  // --- Users and rights ---------------------------------------------------------------------------------------------
  // The identity and 128 right bits of one user, shared by every manager of the image: the last login wins. The users
  // are the records of table 104 of the system database, 92 bytes each: ID at byte 0, name at 4 (up to 16 bytes),
  // password at 20, key of the rights record at 64. That record, in table 106, has the four right words at byte 20.
  // Threads: no lock is taken; see docs/users.md.
  //
  // 1: logged in; the identity and the login time are set. 0: the password is wrong, or a table is missing, the users'
  // records are not 92 bytes or those of the rights shorter than 36. -1: no user has that name. Nothing changes unless
  // it is 1. Names compare without regard to ASCII case, the first match in storage order counts; a name of 16
  // characters is kept cut to 15. Passwords compare byte for byte; an enciphered text that no key opened never matches.
  // The rights are set in this object only: while the image is mapped, CheckRights and GetRights go on reading the
  // image's. A program that wants them there hands them on with SetRights.
  int UserLogin(const char *name, const char *password);
  // Clears the user's identity and all rights; the login time stays.
  void UserLogout();
  // Whether the user has right `n`: 0 to 32 are in word 0, 33 to 64 in word 1, 65 to 96 in word 2, 97 to 127 in word 3,
  // each in bit `n` modulo 32. So 32 is the same bit as 0. False from 128 on.
  bool CheckRights(unsigned int n) const;
  // Right word 0 to 3. Other words are other bytes of the attributes, 4 x `word` from the rights on; of those outside
  // the attributes the getter gives 0 and the setter sets none.
  unsigned int GetRights(int word) const;
  void SetRights(int word, unsigned int value);
  // The ID of the logged-in user, 0 if there is none.
  unsigned int GetSysUserID() const;
  void SetSysUserID(unsigned int id);
  // At most 15 characters fit; a longer name runs on into the rights and the login time and is cut at 47. Null is
  // ignored. The getter returns the address in the attributes in force.
  char *GetSysUserName();
  void SetSysUserName(const char *name);
  // The local time of the last login, all zero before the first.
  void GetLoginUseTime(SYSTEMTIME &time) const;
  void SetLoginUseTime(SYSTEMTIME &time);

  // --- Catalogue ----------------------------------------------------------------------------------------------------
  // Takes ownership of `database`, which has no other owner, and returns 1; 0, without ownership, if no slot is free,
  // and for null and this manager's own GetSystemDB(). An object that two managers own is freed twice.
  int AddDataBase(CRtDataBase *database);
  // Puts the table into the slot IndexInDB of the database DataBaseID; 0 if there is no such database or slot.
  int AddTable(const CRtTable &table);
  // Puts the field into the slot IndexInTable of the table TableID of the database DataBaseID; 0 if there is no such
  // table or the slot is negative. A slot past the table's field number is accepted and ignored.
  int AddField(const CRtField &field);

  // --- Load and save ------------------------------------------------------------------------------------------------
  // Text data files or the relational store, as key DataInFile of the configuration says at the time of the call.
  // Loads write records without a lock: call them while no thread edits. Project 0 is the base data.
  int LoadSystemDB();                      // 1 and status "loaded", or 0
  int LoadAllCustomizedDB(int projectID);  // all databases but the system database; 1 and status "loaded", or 0
  // True although single tables may have failed; false if there is no database, and with Strict=1 if a table failed.
  bool SaveData(int projectID);
  // Saves everything to text data files (`bToFile`) or to the relational store, regardless of DataInFile: 1, or 0 as
  // SaveData is false.
  int SaveDataTo(bool bToFile);
  // Merges a partial-update file into existing records: columns are found by name (by caption name if `bUseCName`), the
  // first one selects the record, `separator` separates values. True also if the file does not exist; false if database
  // or table do not, if the file is not text, or if it is not known whether there is a file.
  bool LoadSomeData(unsigned int databaseID, unsigned int tableID, const char *path, bool bUseCName, char separator);
  // Replaces a table's records by those of a text data file. True, with the table unchanged, if the file does not
  // exist; false if database or table do not exist, if the file has no header or is not text, or if it is not known
  // whether there is a file.
  bool LoadTableData(unsigned int databaseID, unsigned int tableID, const char *path);
  // Commits all projects of all tables. False if there is no database, and with Strict=1 if a save failed.
  bool CommitProject();

  // --- C headers ----------------------------------------------------------------------------------------------------
  // Writes `directory`/NAME.h for every database; docs/c-headers.md shows what is in it. True if the directory of
  // databases could be walked, also if no file could be written; a file that cannot be created shows a message.
  // Afterwards this manager is attached neither to the image nor to the system database. A manager that built the
  // image, and whose mapping of it is the only one, thereby gives it up: write headers last, or from a second manager.
  // False if there is no image, or no system or other database in it.
  bool BuildIncludeFile(const char *directory);

 private:
  friend struct quillanest::ManagerView;
  friend struct quillanest::Parts;

  int CreateMem(int bReopen);
  int CreateDBMem();
  int ReadConfigInfo();
  _rtdb_attr *GetRealRtdbInfo() const;
  _db_attr *GetDbInfoAddr() const;
  int *GetDbInfoIndexAddr() const;

  _rtdb_attr attr_;
  std::array<std::shared_ptr<CRtDataBase>, RTDB_DATABASE_MAX> catalogue_;
  CRtDataBase system_;
  CShareMemory segment_;
};
