// What the targets share: claims about results, files in memory, and an image that a process keeps.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tests/kernel/TableFixture.h"

namespace quillanest::model {

// Ends the process with the claim as its message when it does not hold.
void require(bool holds, const char *claim);

// A file that exists in memory only, under a path that this process can open.
class MemoryFile {
 public:
  MemoryFile();
  ~MemoryFile();
  MemoryFile(const MemoryFile &) = delete;
  MemoryFile &operator=(const MemoryFile &) = delete;

  // Replaces the content.
  void write(std::string_view bytes) const;
  [[nodiscard]] const char *path() const noexcept { return path_.c_str(); }

 private:
  int descriptor_;
  std::string path_;
};

// Makes the bytes between the end of a segment and the end of its last page forbidden for the life of the object, so
// that a step out of the segment is noticed. The segment must stay mapped as long.
class SegmentEnd {
 public:
  SegmentEnd(const char *start, std::size_t size);
  ~SegmentEnd();
  SegmentEnd(const SegmentEnd &) = delete;
  SegmentEnd &operator=(const SegmentEnd &) = delete;

 private:
  const char *end_;
  std::size_t forbidden_;
};

// Puts the installation roots that are made from now on into the memory file system, where a flush to the disk costs
// nothing, unless TMPDIR says otherwise.
struct RootsInMemory {
  RootsInMemory();
};

// An image that serves all inputs of a process, with a database after the system database that no input may change.
struct LastingImage : RootsInMemory, Image {
  explicit LastingImage(const std::vector<TableSpec> &tables);

  // Empties a table and fills the bytes of its record area.
  static void clear(CRtTable &table, int byte);
  [[nodiscard]] bool is_guard_whole() const;

  MemoryFile file;

 private:
  std::string guard_;
  SegmentEnd system_end_;
};

// The bytes of a table's records in use.
[[nodiscard]] std::string records_of(const CRtTable &table);

// A text with its terminator in a block of its own size, so that a step beyond it is noticed.
[[nodiscard]] std::unique_ptr<char[]> exact_copy(std::string_view text);

}  // namespace quillanest::model
