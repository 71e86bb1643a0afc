// A named mutex taken for the life of an object.
#pragma once

#include <string_view>

#include "quillanest/platform/NamedMutex.h"

namespace quillanest {

class HeldMutex {
 public:
  // Takes the mutex, without limit of time. is_open() is false if it cannot be opened.
  // By design [WaitNotExamined]: the work continues after any result of the wait, also with an abandoned mutex.
  explicit HeldMutex(std::string_view name) : mutex_(find_mutex(name)) {
    if (mutex_ != nullptr) (void)wait_mutex(*mutex_, -1);
  }
  ~HeldMutex() {
    if (mutex_ != nullptr) (void)release_mutex(*mutex_);
  }
  HeldMutex(const HeldMutex &) = delete;
  HeldMutex &operator=(const HeldMutex &) = delete;

  [[nodiscard]] bool is_open() const noexcept { return mutex_ != nullptr; }

 private:
  MappedMutex *mutex_;
};

}  // namespace quillanest
