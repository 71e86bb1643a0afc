// A connection to a server through ODBC, made and closed in the thread that calls.
#pragma once

#include <string>

#include "quillanest/sql/OdbcHandle.h"

namespace quillanest {

// An environment and a connection in it. The destructor disconnects.
// Threads: one object belongs to one thread at a time.
struct OdbcLink {
  OdbcHandle environment;
  OdbcHandle connection;
  bool connected = false;

  OdbcLink() = default;
  OdbcLink(const OdbcLink &) = delete;
  OdbcLink &operator=(const OdbcLink &) = delete;
  ~OdbcLink();

  // Connects with a connection string; may be called once. False if the server refuses or cannot be reached. Some
  // drivers wait for a silent server without end.
  [[nodiscard]] bool connect(const std::string &connection_string);
};

}  // namespace quillanest
