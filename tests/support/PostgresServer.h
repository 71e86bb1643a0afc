// A PostgreSQL server of a test's own: its data, its socket and a port of 127.0.0.1 that was free.
//
// Lifetime: the server runs as long as the object; its folder goes with it. When the test program dies, the server
// shuts down too. The thread that starts it must live as long as the server.
#pragma once

#include <string>
#include <sys/types.h>

class PostgresServer {
 public:
  // Throws std::runtime_error with what the server said when it does not start.
  PostgresServer();
  ~PostgresServer();
  PostgresServer(const PostgresServer &) = delete;
  PostgresServer &operator=(const PostgresServer &) = delete;

  // Logins through the port need this name and password.
  static constexpr const char *kUser = "keeper";
  static constexpr const char *kPassword = "pa{ss w}ord";

  [[nodiscard]] int port() const { return port_; }
  // The folder of everything that is the server's, with a trailing separator.
  [[nodiscard]] const std::string &folder() const { return folder_; }

  // Runs statements in database "postgres" with the server's own client. The rows, values separated by '|', each row
  // ended by '\n'; NULL is empty. Throws when a statement fails.
  [[nodiscard]] std::string run(const std::string &statements) const;

  // Waits until the server, told from elsewhere, has ended without any order.
  void wait_for_death();
  // Starts it again on the same data and port.
  void start();

 private:
  pid_t spawn(const std::string &program, const std::string &arguments, int &output) const;
  void stop() noexcept;

  std::string folder_;
  std::string binaries_;
  int port_ = 0;
  pid_t server_ = -1;
  int log_ = -1;
};
