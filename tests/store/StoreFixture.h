// Stores of a test's own, looked at with clients other than the library, and an image that is kept in them.
#pragma once

#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <sqlite3.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "quillanest/Quillanest.h"
#include "tests/support/PostgresServer.h"
#include "tests/support/Records.h"
#include "tests/support/TestRoot.h"

// The server of this test program, started by the first test that needs it.
inline PostgresServer &postgres() {
  static PostgresServer server;
  return server;
}

class Store {
 public:
  Store() = default;
  virtual ~Store() = default;
  Store(const Store &) = delete;
  Store &operator=(const Store &) = delete;

  // The lines that configure this store for the slot with that prefix, "MainDB" or "BackDB".
  [[nodiscard]] virtual std::string settings(const std::string &slot) const = 0;
  // Runs statements. The rows, values separated by '|', each row ended by '\n'; NULL is empty. Throws when one fails.
  virtual std::string run(const std::string &statements) = 0;
};

// A database file "store.db" in the data folder of a root.
class FileStore : public Store {
 public:
  explicit FileStore(const TestRoot &root) : path_(root.path("data/store.db")) { (void)run("PRAGMA user_version = 1"); }

  [[nodiscard]] std::string settings(const std::string &slot) const override {
    return slot + "Type=1\n" + slot + "Name=store.db\n";
  }

  std::string run(const std::string &statements) override {
    sqlite3 *database = nullptr;
    const auto add = [](void *rows, int count, char **values, char **) {
      std::string &text = *static_cast<std::string *>(rows);
      for (int i = 0; i < count; ++i) {
        if (i > 0) text += '|';
        if (values[i] != nullptr) text += values[i];
      }
      text += '\n';
      return 0;
    };
    std::string rows;
    const bool done = sqlite3_open(path_.c_str(), &database) == SQLITE_OK &&
                      sqlite3_exec(database, statements.c_str(), add, &rows, nullptr) == SQLITE_OK;
    const std::string error = sqlite3_errmsg(database);
    sqlite3_close(database);
    if (!done) throw std::runtime_error(error);
    return rows;
  }

  [[nodiscard]] const std::string &path() const { return path_; }

 private:
  std::string path_;
};

// The server's database, emptied.
class ServerStore : public Store {
 public:
  ServerStore() { (void)run("SET client_min_messages = error; DROP SCHEMA public CASCADE; CREATE SCHEMA public"); }

  [[nodiscard]] std::string settings(const std::string &slot) const override {
    return slot + "Type=7\n" + slot + "Name=127.0.0.1:" + std::to_string(postgres().port()) + '\n' + slot +
           "User=" + PostgresServer::kUser + '\n' + slot + "Passwd=" + PostgresServer::kPassword + '\n' + slot +
           "InitDB=postgres\n";
  }

  std::string run(const std::string &statements) override { return postgres().run(statements); }
};

inline constexpr const char *kItemColumns =
    "(ID bigint, Name varchar(100), Level integer CHECK (Level < 1000), Value double precision, Pass varchar(200), "
    "bModified integer, iProjectID integer, iEditStatus integer);";

// Offsets in a record of Item, whose size is 60.
enum ItemOffset : std::size_t { kName = 4, kLevel = 20, kPass = 32, kModified = 48, kProject = 52, kStatus = 56 };

// A started image: database "plant" with table 20 Item, table 10 Account of the system database, and the further tables
// given. It starts from no data; `slots` then names the stores that it is kept in: 'F' a file, 'S' the server, the
// first one main and the second one backup. Every store has an empty table for Item.
struct StoreImage {
  explicit StoreImage(std::string_view slots = "F", const std::vector<TableSpec> &others = {}, int capacity = 5) {
    std::vector<TableSpec> tables{{20,
                                   "Item",
                                   capacity,
                                   {"ID UINT 4", "Name STRING 16", "Level INT 4", "Value DOUBLE 8", "Pass PASSWD 16",
                                    "bModified INT 4", "iProjectID INT 4", "iEditStatus INT 4"}}};
    tables.insert(tables.end(), others.begin(), others.end());
    root.write("schema.txt", schema_text({account_table()}, tables));
    CRtdbManager &made = *manager;
    started = made.RtdbManagerInit(false, root.path("schema.txt").c_str()) && made.FindTable(20, plant, item) == 1;
    for (const char slot : slots) {
      if (slot == 'F') stores.push_back(std::make_unique<FileStore>(root));
      if (slot == 'S') stores.push_back(std::make_unique<ServerStore>());
      (void)stores.back()->run("CREATE TABLE plant_Item" + std::string(kItemColumns));
    }
    configure(settings());
  }

  [[nodiscard]] std::string settings() const {
    std::string lines = stores[0]->settings("MainDB");
    return lines + (stores.size() > 1 ? stores[1]->settings("BackDB") : "BackDBType=-1\n");
  }
  // Selects the relational store with these lines in its section.
  void configure(const std::string &lines) const {
    root.configure("DataInFile=0\nRtdbDataPath=data/\n[RtdbMedia]\n" + lines);
  }

  // Runs statements on every store.
  void run(const std::string &statements) const {
    for (const auto &store : stores) (void)store->run(statements);
  }
  // The rows that every store gives; when they differ, those of each store.
  [[nodiscard]] std::string rows(const std::string &query) const {
    const std::string main = stores[0]->run(query);
    if (stores.size() == 1) return main;
    const std::string backup = stores[1]->run(query);
    return main == backup ? main : "main: " + main + "backup: " + backup;
  }
  // "ID|Name|Level|bModified|iProjectID|iEditStatus" of every row of Item.
  [[nodiscard]] std::string item_rows() const {
    return rows("SELECT ID, Name, Level, bModified, iProjectID, iEditStatus FROM plant_Item ORDER BY iProjectID, ID");
  }

  // A view on a table of database "plant", for which every store gets a table with these columns.
  [[nodiscard]] CRtTable table(unsigned int id, const std::string &columns) {
    CRtTable found;
    if (plant.GetDBTableFromID(found, id) == 0) throw std::runtime_error("no table");
    run("CREATE TABLE plant_" + std::string(found.GetTableName()) + '(' + columns + ')');
    return found;
  }

  // Appends a record to Item with a password "pass<key>" and returns its address.
  char *add(std::uint32_t key, std::string_view name, std::int32_t level) {
    char *record = item.GetAt(item.Insert(key, 0, 0));
    std::memcpy(record + kName, name.data(), name.size());
    poke(record, kLevel, level);
    const std::string password = "pass" + std::to_string(key);
    std::memcpy(record + kPass, password.data(), password.size());
    return record;
  }

  // "key name level password bModified iProjectID iEditStatus\n" of every record of Item.
  [[nodiscard]] std::string items() const {
    std::string text;
    for (int i = 0; i < item.GetRecordCount(); ++i) {
      const char *record = item.GetAt(i);
      text += std::to_string(static_cast<std::uint32_t>(peek(record, 0))) + ' ' + (record + kName) + ' ' +
              std::to_string(peek(record, kLevel)) + ' ' + (record + kPass);
      for (const std::size_t offset : {kModified, kProject, kStatus})
        text += ' ' + std::to_string(peek(record, offset));
      text += '\n';
    }
    return text;
  }

  TestRoot root;
  std::unique_ptr<CRtdbManager> manager = std::make_unique<CRtdbManager>();
  CRtDataBase plant;
  CRtTable item;
  bool started = false;
  std::vector<std::unique_ptr<Store>> stores;
};
