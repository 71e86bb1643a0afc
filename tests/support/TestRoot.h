// An installation root of a test's own, in a temporary folder.
//
// The root is named to the library through QUILLANEST_ROOT for the life of the object and removed afterwards.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tests/support/SchemaText.h"

class TestRoot {
 public:
  // A root whose configuration selects text data files in data/; `more` is added to section "Quillanest".
  explicit TestRoot(std::string_view more = {});
  ~TestRoot();
  TestRoot(const TestRoot &) = delete;
  TestRoot &operator=(const TestRoot &) = delete;

  // The folder, with a trailing separator.
  [[nodiscard]] const std::string &folder() const { return folder_; }
  [[nodiscard]] std::string path(std::string_view below) const { return folder_ + std::string(below); }

  // Writes a file below the root, byte for byte, and returns its path.
  std::string write(std::string_view below, std::string_view bytes) const;
  // The bytes of a file below the root; "<missing>" when there is none.
  [[nodiscard]] std::string read(std::string_view below) const;
  [[nodiscard]] bool exists(std::string_view below) const;
  // The names of the files in a folder below the root, sorted.
  [[nodiscard]] std::vector<std::string> files(std::string_view below) const;

  // Replaces the configuration: section "Quillanest" with these lines.
  void configure(std::string_view lines) const;

 private:
  std::string folder_;
};
