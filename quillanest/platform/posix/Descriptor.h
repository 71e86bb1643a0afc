// An open file of the system, and reading it to its end.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <utility>

namespace quillanest {

// Closes a descriptor at the end of its scope.
class Descriptor {
 public:
  explicit Descriptor(int descriptor) noexcept : descriptor_(descriptor) {}
  ~Descriptor();
  Descriptor(Descriptor &&other) noexcept : descriptor_(other.release()) {}
  Descriptor &operator=(Descriptor &&other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }

  [[nodiscard]] int get() const noexcept { return descriptor_; }
  [[nodiscard]] int release() noexcept {
    const int descriptor = descriptor_;
    descriptor_ = -1;
    return descriptor;
  }

 private:
  int descriptor_;
};

// Opens the file with the flags and, for a new file, the permissions of open(). A program that the process starts does
// not inherit it. Negative, with the error number set, on failure; an interrupted call is repeated.
[[nodiscard]] Descriptor open_file(const std::string &path, int flags, unsigned int mode = 0);

// Reads up to `bytes.size()` bytes. Returns the number read, less only at the end of the file; nothing on an error.
[[nodiscard]] std::optional<std::size_t> read_all(int descriptor, std::span<char> bytes);

}  // namespace quillanest
