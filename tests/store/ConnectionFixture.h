// A connection whose configuration lies in a root of its own, and the settings of slots.
#pragma once

#include <chrono>
#include <string>

#include "quillanest/persist/DbConnection.h"
#include "tests/store/StoreFixture.h"

inline constexpr const char *kNoBackup = "BackDBType=-1\n";

// A connection with a configuration of its own.
struct ConnectionFixture {
  explicit ConnectionFixture(const std::string &lines = {}) {
    connection.SetIniFile(root.path("conf/fix_Rtdb.ini").c_str());
    connection.SetSection("RtdbMedia");
    configure(lines);
  }
  void configure(const std::string &lines) const { root.configure("[RtdbMedia]\n" + lines); }
  // Seconds that an Open takes; what it returns is in `mask`.
  double open(bool first_only) {
    const auto start = std::chrono::steady_clock::now();
    mask = connection.Open(first_only);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }
  // Closes what is open; the slots that then open by a configuration without a backup.
  int reopen(const std::string &lines) {
    (void)connection.Close();
    configure(lines + kNoBackup);
    return connection.Open(false);
  }
  [[nodiscard]] std::string file(const std::string &slot, const std::string &below) const {
    return slot_lines(slot, {{"Type", "1"}, {"Name", root.path(below)}});
  }

  [[nodiscard]] std::string text(const char *column) const {
    return quillanest::to_text(connection.GetFieldValue(column));
  }

  TestRoot root;
  quillanest::CDbConnection connection;
  int mask = -1;
};

inline constexpr double kAtOnce = 1.9;  // seconds; a time-out would be 2
