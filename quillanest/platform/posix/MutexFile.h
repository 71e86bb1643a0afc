// The file in which a named mutex lives, open and locked while the object lives.
//
// Threads: an object belongs to one thread. Objects of one name, in any thread and process of a user, wait for one
// another.
#pragma once

#include <string_view>

namespace quillanest {

class MutexFile {
 public:
  // Opens the file of the mutex called `name`, which is created if it does not exist, and waits for its lock. `layout`
  // is a number for what the file holds; files of different layouts are different files. Not open if the system
  // refuses. Raises std::system_error if there is no folder for mutexes, std::bad_alloc if memory is short, and
  // ServiceFailure if a long name has no digest.
  MutexFile(std::string_view name, unsigned int layout);
  // Releases the lock, also of a file that stays mapped, and closes the file.
  ~MutexFile();
  MutexFile(const MutexFile &) = delete;
  MutexFile &operator=(const MutexFile &) = delete;

  // The open file as the system names it; -1 if it is not open.
  [[nodiscard]] int descriptor() const noexcept { return descriptor_; }

 private:
  void close() noexcept;

  int descriptor_ = -1;
};

}  // namespace quillanest
