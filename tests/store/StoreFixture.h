// Stores of a test's own, looked at with clients other than the library, and an image that is kept in them.
#pragma once

#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <initializer_list>
#include <memory>
#include <sqlite3.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
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

// The lines that configure a slot: "MainDB" or "BackDB", and the rest of each key with its value.
inline std::string slot_lines(const std::string &slot,
                              std::initializer_list<std::pair<const char *, std::string>> values) {
  std::string lines;
  for (const auto &[key, value] : values) lines += slot + key + '=' + value + '\n';
  return lines;
}

// The lines of a slot at a server: its type, address and password.
inline std::string server(const std::string &slot, int type, const std::string &source,
                          const std::string &password = PostgresServer::kPassword) {
  return slot_lines(slot, {{"Type", std::to_string(type)},
                           {"Name", source},
                           {"User", PostgresServer::kUser},
                           {"Passwd", password},
                           {"InitDB", "postgres"}});
}

inline std::string local(int port, char between = ':') {
  return std::string("127.0.0.1") + between + std::to_string(port);
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
    return slot_lines(slot, {{"Type", "1"}, {"Name", "store.db"}});
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

// Another program in the middle of its transaction on a database file.
class OtherProgram {
 public:
  OtherProgram(const TestRoot &root, const char *statements) {
    if (sqlite3_open(root.path("data/store.db").c_str(), &file_) != SQLITE_OK ||
        sqlite3_exec(file_, statements, nullptr, nullptr, nullptr) != SQLITE_OK) {
      throw std::runtime_error(sqlite3_errmsg(file_));
    }
  }
  ~OtherProgram() { end(); }
  OtherProgram(const OtherProgram &) = delete;
  OtherProgram &operator=(const OtherProgram &) = delete;
  void end() { (void)sqlite3_close(std::exchange(file_, nullptr)); }

 private:
  sqlite3 *file_ = nullptr;
};

// The server's database, emptied.
class ServerStore : public Store {
 public:
  ServerStore() { (void)run("SET client_min_messages = error; DROP SCHEMA public CASCADE; CREATE SCHEMA public"); }

  [[nodiscard]] std::string settings(const std::string &slot) const override {
    return server(slot, 7, local(postgres().port()));
  }

  std::string run(const std::string &statements) override { return postgres().run(statements); }
};

inline constexpr const char *kItemColumns =
    "(ID bigint, Name varchar(100), Level integer CHECK (Level < 1000), Value double precision, Pass varchar(200), "
    "bModified integer, iProjectID integer, iEditStatus integer);";

// A record of table Item, and the offsets of its fields.
struct Item {
  enum Offset : std::size_t {
    kName = 4,
    kLevel = 20,
    kPass = 32,
    kModified = 48,
    kProject = 52,
    kStatus = 56,
    kSize = 60
  };
  std::uint32_t key = 0;
  std::string name = {};
  std::int32_t level = 0;
  std::string pass = {};
  std::int32_t modified = 0, project = 0, status = 0;
};

// "ID|Name|Level|bModified|iProjectID|iEditStatus\n" of each, as a store gives its rows.
inline std::string row_text(const std::vector<Item> &items) {
  std::string text;
  for (const Item &item : items) {
    text += std::to_string(item.key) + '|' + item.name + '|' + std::to_string(item.level);
    for (const std::int32_t number : {item.modified, item.project, item.status}) text += '|' + std::to_string(number);
    text += '\n';
  }
  return text;
}
// The same of records in an image, after their passwords.
inline std::string record_text(const std::vector<Item> &items) {
  std::string text;
  for (const Item &item : items) text += item.pass + ": " + row_text({item});
  return text;
}

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
  // Puts rows of Item into every store.
  void store(const std::vector<Item> &items) const {
    for (const Item &row : items) {
      std::string numbers;
      for (const int number : {row.modified, row.project, row.status}) numbers += ',' + std::to_string(number);
      run("INSERT INTO plant_Item VALUES(" + std::to_string(row.key) + ",'" + row.name + "'," +
          std::to_string(row.level) + ",0,'" + row.pass + '\'' + numbers + ')');
    }
  }
  // Every row of Item, as row_text() gives it.
  [[nodiscard]] std::string stored() const {
    return rows("SELECT ID, Name, Level, bModified, iProjectID, iEditStatus FROM plant_Item ORDER BY iProjectID, ID");
  }

  // A view on a table of database "plant", for which every store gets a table with these columns.
  [[nodiscard]] CRtTable table(unsigned int id, const std::string &columns) {
    CRtTable found;
    if (plant.GetDBTableFromID(found, id) == 0) throw std::runtime_error("no table");
    run("CREATE TABLE plant_" + std::string(found.GetTableName()) + '(' + columns + ')');
    return found;
  }

  // Appends a record to Item, which is marked modified if `modified` is 0, and returns its address.
  char *add(const Item &values) {
    char *record = item.GetAt(item.Insert(values.key, 0, 0));
    std::memcpy(record + Item::kName, values.name.data(), values.name.size());
    std::memcpy(record + Item::kPass, values.pass.data(), values.pass.size());
    poke(record, Item::kLevel, values.level);
    if (values.modified != 0) poke(record, Item::kModified, values.modified);
    poke(record, Item::kProject, values.project);
    poke(record, Item::kStatus, values.status);
    return record;
  }
  // Every record of Item, as record_text() gives it.
  [[nodiscard]] std::string records() const {
    std::vector<Item> found;
    for (int i = 0; i < item.GetRecordCount(); ++i) {
      const char *at = item.GetAt(i);
      found.push_back({value_at<std::uint32_t>(at, 0), at + Item::kName, peek(at, Item::kLevel), at + Item::kPass,
                       peek(at, Item::kModified), peek(at, Item::kProject), peek(at, Item::kStatus)});
    }
    return record_text(found);
  }

  TestRoot root;
  std::unique_ptr<CRtdbManager> manager = std::make_unique<CRtdbManager>();
  CRtDataBase plant;
  CRtTable item;
  bool started = false;
  std::vector<std::unique_ptr<Store>> stores;
};
