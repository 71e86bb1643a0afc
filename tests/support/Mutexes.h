// Named mutexes of tests: names that nobody else uses, and the view of another thread.
#pragma once

#include <filesystem>
#include <string>
#include <system_error>
#include <thread>
#include <unistd.h>

// The name of a mutex that no other test uses, in this process or another, of letters and digits and short enough for a
// database. What the mutex leaves behind in the memory file system goes with the object.
class MutexName {
 public:
  MutexName() { remove(); }
  ~MutexName() { remove(); }
  MutexName(const MutexName &) = delete;
  MutexName &operator=(const MutexName &) = delete;

  [[nodiscard]] const std::string &text() const { return text_; }
  [[nodiscard]] const char *c_str() const { return text_.c_str(); }

 private:
  void remove() const {
    std::error_code error;
    std::filesystem::remove("/dev/shm/quillanest-" + std::to_string(geteuid()) + "/n" + text_, error);
  }

  static inline int count_ = 0;
  std::string text_ = "qt" + std::to_string(getpid()) + "n" + std::to_string(++count_);
};

// The result of `function` on a thread of its own, which has ended by then.
template <class Function>
auto on_other_thread(Function function) {
  decltype(function()) result{};
  std::thread([&] { result = function(); }).join();
  return result;
}
