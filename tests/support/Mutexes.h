// Named mutexes of tests: names that no other program uses, and what another thread sees.
#pragma once

#include <filesystem>
#include <string>
#include <system_error>
#include <thread>
#include <unistd.h>

// The name of a mutex that no other test uses, in this process or another, of letters and digits and short enough for a
// database. What the mutex leaves in the memory file system goes with the object.
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
    namespace fs = std::filesystem;
    std::error_code error;
    const std::string folders = "/dev/shm/quillanest-" + std::to_string(geteuid());
    for (const fs::directory_entry &folder : fs::directory_iterator("/dev/shm", error)) {
      if (!folder.path().string().starts_with(folders)) continue;
      for (const fs::directory_entry &file : fs::directory_iterator(folder, error)) {
        if (file.path().stem() == 'n' + text_) fs::remove(file, error);
      }
    }
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
