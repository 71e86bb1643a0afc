// A disk without room: no file of this process grows beyond `bytes` while the object lives. What tries to gets an error
// from the system, and a signal that ends the program unless it is kept away.
#pragma once

#include <stdexcept>
#include <sys/resource.h>

class FullDisk {
 public:
  explicit FullDisk(rlim_t bytes) {
    getrlimit(RLIMIT_FSIZE, &former_);
    const rlimit full{bytes, former_.rlim_max};
    if (setrlimit(RLIMIT_FSIZE, &full) != 0) throw std::runtime_error("no limit on the size of files");
  }
  ~FullDisk() { setrlimit(RLIMIT_FSIZE, &former_); }
  FullDisk(const FullDisk &) = delete;
  FullDisk &operator=(const FullDisk &) = delete;

 private:
  rlimit former_{};
};
