// A named mutex taken for the life of an object.
#pragma once

#include "quillanest/shm/MutexEx.h"

namespace quillanest {

class HeldMutex {
 public:
  // Takes the mutex, without limit of time. is_open() tells whether there is one to take.
  // By design [WaitNotExamined]: whatever the wait returns, an abandoned mutex included, the work goes on.
  explicit HeldMutex(const char *name) : open_(mutex_.Create(name)) {
    if (open_) (void)mutex_.Wait(-1);
  }
  ~HeldMutex() {
    if (open_) (void)mutex_.Release();
  }
  HeldMutex(const HeldMutex &) = delete;
  HeldMutex &operator=(const HeldMutex &) = delete;

  [[nodiscard]] bool is_open() const noexcept { return open_; }

 private:
  CMutexEx mutex_;
  bool open_;
};

}  // namespace quillanest
