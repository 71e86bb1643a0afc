// A disk without room: no file of this process grows beyond `bytes` while the object lives.
#pragma once

#include <csignal>
#include <stdexcept>
#include <sys/resource.h>

class FullDisk {
 public:
  explicit FullDisk(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &former_);
    const rlimit full{bytes, former_.rlim_max};
    if (setrlimit(RLIMIT_FSIZE, &full) != 0) throw std::runtime_error("no limit on the size of files");
  }
  ~FullDisk() {
    setrlimit(RLIMIT_FSIZE, &former_);
    (void)std::signal(SIGXFSZ, handler_);
  }
  FullDisk(const FullDisk &) = delete;
  FullDisk &operator=(const FullDisk &) = delete;

 private:
  rlimit former_{};
  void (*handler_)(int);
};
