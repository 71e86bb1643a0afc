// A connection to a server through ODBC, made and closed in the thread that calls.
#pragma once

#include <string>

#include "quillanest/sql/OdbcHandle.h"

namespace quillanest {

// An environment and a connection in it that is connected or not. It disconnects with its object.
// Threads: one object belongs to one thread at a time.
struct OdbcLink {
  OdbcHandle environment;
  OdbcHandle connection;
  bool connected = false;

  OdbcLink() = default;
  OdbcLink(const OdbcLink &) = delete;
  OdbcLink &operator=(const OdbcLink &) = delete;
  ~OdbcLink();

  // Connects with a connection string, once. False if the server refuses or is not there, at the latest when the
  // driver is tired of waiting, which may be never.
  [[nodiscard]] bool connect(const std::string &connection_string);
};

}  // namespace quillanest
