// A connection to a server through ODBC, made within a time.
#pragma once

#include <optional>
#include <string>

#include "quillanest/platform/posix/OdbcHandle.h"

namespace quillanest {

// An environment and a connection in it that is connected or not. It disconnects with its object.
struct OdbcLink {
  OdbcHandle environment;
  OdbcHandle connection;
  bool connected = false;

  OdbcLink() = default;
  OdbcLink(OdbcLink &&other) noexcept;
  OdbcLink(const OdbcLink &) = delete;
  OdbcLink &operator=(const OdbcLink &) = delete;
  OdbcLink &operator=(OdbcLink &&) = delete;
  ~OdbcLink();
};

// Connects with a connection string. A link that is not connected says that the server refuses or is not there; nothing
// is the result when the server is silent for about two seconds, or when too many attempts at it hang already.
// Raises std::system_error when no thread can be started, and std::bad_alloc.
[[nodiscard]] std::optional<OdbcLink> connect_in_time(const std::string &connection_string);

}  // namespace quillanest
