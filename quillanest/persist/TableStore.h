// The stores that keep tables from run to run: text files or a relational store.
//
//     const std::unique_ptr<TableStore> store = open_store(manager, configured_store(configuration_file));
//     const bool saved = store->SaveTable(database, table, 0);
//
// To add a store, derive a class from TableStore, add a StoreKind and a row in TableStore.cpp, and say in
// configured_store() what selects it.
// Lifetime: a store is opened for one published call and reads the configuration in its constructor; the manager must
// outlive it. Threads: one object belongs to one thread.
// Errors: operations return false. If memory or another resource of the system is short, they may raise std::bad_alloc,
// std::system_error and the like, which the published operations turn into false. A load from the relational store may
// raise _com_error.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

class CRtDataBase;
class CRtTable;
class CRtdbManager;

namespace quillanest {

class TableStore {
 public:
  virtual ~TableStore() = default;
  TableStore(const TableStore &) = delete;
  TableStore &operator=(const TableStore &) = delete;

  // One table; the database must be mapped and the table bound to it.
  virtual bool SaveTable(CRtDataBase &database, CRtTable &table, int project) = 0;
  virtual bool LoadTable(CRtDataBase &database, CRtTable &table, int project) = 0;

  // Every table of a database; the results are combined by "and", and a failure does not end the walk.
  virtual bool SaveDataBase(CRtDataBase &database, int project);
  virtual bool LoadDataBase(CRtDataBase &database, int project);

  // Every database of the directory. False only if the directory is empty: a failed table counts in the strict mode
  // alone.
  bool SaveAll(int project);
  // The system database, through the manager's own mapping.
  bool LoadSystem();
  // Every database but the system database. Whether a failed table changes the result, and when the store is connected,
  // differs between the stores.
  virtual bool LoadAllCustomized(int project) = 0;

 protected:
  explicit TableStore(CRtdbManager &manager);
  [[nodiscard]] CRtdbManager &manager() const noexcept { return manager_; }
  // Whether the strict mode is configured.
  [[nodiscard]] bool strict() const noexcept { return strict_; }

 private:
  // After each database of SaveAll.
  virtual void leave_database() {}

  CRtdbManager &manager_;
  bool strict_;
};

enum class StoreKind : std::uint8_t { kRelational, kText };

// The store that a configuration file selects now: key DataInFile, 0 or missing for the relational store.
[[nodiscard]] StoreKind configured_store(std::string_view configuration_file);

[[nodiscard]] std::unique_ptr<TableStore> open_store(CRtdbManager &manager, StoreKind kind);

}  // namespace quillanest
