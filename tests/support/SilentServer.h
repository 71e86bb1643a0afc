// A server that does not answer.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

// A socket that takes connections and never says a word.
class SilentServer {
 public:
  SilentServer() : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto *any = reinterpret_cast<sockaddr *>(&address);
    if (bind(socket_, any, size) != 0 || listen(socket_, 16) != 0 || getsockname(socket_, any, &size) != 0) {
      throw std::runtime_error("no silent server");
    }
    port_ = ntohs(address.sin_port);
  }
  ~SilentServer() {
    while (connections() > 0) {
    }
    for (const int taken : taken_) close(taken);
    close(socket_);
  }
  SilentServer(const SilentServer &) = delete;
  SilentServer &operator=(const SilentServer &) = delete;

  [[nodiscard]] int port() const { return port_; }
  // How many connections have come since the last call.
  int connections() {
    int count = 0;
    for (int taken = accept(socket_, nullptr, nullptr); taken >= 0; taken = accept(socket_, nullptr, nullptr)) {
      taken_.push_back(taken);
      ++count;
    }
    return count;
  }
  // The first byte that the last connection has sent; -1 when none came.
  [[nodiscard]] int first_byte() const {
    unsigned char byte = 0;
    return recv(taken_.back(), &byte, 1, MSG_DONTWAIT) == 1 ? byte : -1;
  }

 private:
  int socket_;
  int port_ = 0;
  std::vector<int> taken_;
};
