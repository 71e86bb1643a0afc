#include "tests/model/Support.h"

#include <cstdio>
#include <cstdlib>
#include <sanitizer/asan_interface.h>
#include <stdexcept>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

namespace quillanest::model {
namespace {

const std::vector<TableSpec> kGuardTables{{7, "Guard", 9, {"ID UINT 4", "Text STRING 400"}}};

std::string bytes_of(const CRtDataBase &database) {
  return bytes_at(database.GetStartAddress(), static_cast<std::size_t>(database.GetDBSize()));
}

}  // namespace

void require(bool holds, const char *claim) {
  if (holds) return;
  (void)std::fprintf(stderr, "A claim does not hold: %s\n", claim);
  std::abort();
}

MemoryFile::MemoryFile() : descriptor_(memfd_create("input", MFD_CLOEXEC)) {
  if (descriptor_ < 0) throw std::runtime_error("no file in memory");
  path_ = "/proc/self/fd/" + std::to_string(descriptor_);
}

MemoryFile::~MemoryFile() { close(descriptor_); }

void MemoryFile::write(std::string_view bytes) const {
  const bool written = ftruncate(descriptor_, 0) == 0 &&
                       pwrite(descriptor_, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size());
  if (!written) throw std::runtime_error("a file in memory cannot be written");
}

SegmentEnd::SegmentEnd(const char *start, std::size_t size) : end_(start + size) {
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  forbidden_ = (page - size % page) % page;
  ASAN_POISON_MEMORY_REGION(end_, forbidden_);
}

SegmentEnd::~SegmentEnd() { ASAN_UNPOISON_MEMORY_REGION(end_, forbidden_); }

RootsInMemory::RootsInMemory() { setenv("TMPDIR", "/dev/shm", 0); }

LastingImage::LastingImage(const std::vector<TableSpec> &tables)
    : Image(tables, kGuardTables),
      system_end_(manager.GetSystemDB()->GetStartAddress(),
                  static_cast<std::size_t>(manager.GetSystemDB()->GetDBSize())) {
  CRtTable table;
  if (plant.GetDBTableFromIndex(table, 0) == 0) throw std::runtime_error("no guard");
  clear(table, 'G');
  guard_ = bytes_of(plant);
}

void LastingImage::clear(CRtTable &table, int byte) {
  (void)table.DeleteAllRecord();
  std::memset(table.GetDataAddress(), byte,
              static_cast<std::size_t>(table.GetRecordMaxCount()) * static_cast<std::size_t>(table.GetTableSize()));
}

bool LastingImage::is_guard_whole() const { return bytes_of(plant) == guard_; }

std::string records_of(const CRtTable &table) {
  return bytes_at(table.GetDataAddress(),
                  static_cast<std::size_t>(table.GetRecordCount()) * static_cast<std::size_t>(table.GetTableSize()));
}

std::unique_ptr<char[]> exact_copy(std::string_view text) {
  auto copy = std::make_unique<char[]>(text.size() + 1);
  text.copy(copy.get(), text.size());
  return copy;
}

}  // namespace quillanest::model
