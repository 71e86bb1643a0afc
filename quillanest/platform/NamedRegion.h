// A named block of memory that all mappings of the same name in this process share.
//
//   NamedRegion region = NamedRegion::open_or_create("pumps", 4096);
//   if (region.bytes().empty()) return;                          // the system refuses
//   region.bytes()[0] = std::byte{1};                            // seen by every mapping of "pumps"
//
// The header is installed because CShareMemory has a member of this type; none of its functions is exported.
// Lifetime: a region lives as long as one mapping of it does. Its bytes go with the last mapping, or with the process,
// however the process ends: an anonymous region has no name outside the process that would have to be removed.
// Threads: the functions may run on any thread; one object belongs to one thread at a time.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace quillanest {

class NamedRegion {
 public:
  NamedRegion() = default;  // no mapping
  NamedRegion(NamedRegion &&other) noexcept;
  NamedRegion &operator=(NamedRegion &&other) noexcept;
  NamedRegion(const NamedRegion &) = delete;
  NamedRegion &operator=(const NamedRegion &) = delete;
  ~NamedRegion();

  // Opens the region called `name` as it is, smaller than `size` or larger, or makes it with `size` bytes, all zero.
  // No mapping if `size` is 0 or the system refuses.
  [[nodiscard]] static NamedRegion open_or_create(std::string_view name, std::size_t size);

  // The same, but a region that does not exist yet is backed by the file at `path`, which is created for its owner
  // alone or grown to `size` bytes as needed and keeps its former bytes and, afterwards, those of the region. There is
  // no mapping if the path names a link, a file with another name, another user's file or anything but a file, or if
  // the file was opened but cannot be grown; if it cannot be opened for another reason the region is anonymous. A
  // region that exists is opened as it is, and the file is not touched then. The file is never removed.
  [[nodiscard]] static NamedRegion open_or_create_file(std::string_view name, const std::string &path,
                                                       std::size_t size);

  // Opens the existing region called `name`. No mapping if there is no such region.
  [[nodiscard]] static NamedRegion open(std::string_view name);

  // The bytes of the whole region, valid until this object is destroyed or moved from; empty without a mapping.
  [[nodiscard]] std::span<std::byte> bytes() const noexcept { return bytes_; }

  // Words for what this process wants to remember about the region, 0 in a new one, shared by its mappings; null
  // without a mapping. They are no part of the bytes.
  static constexpr std::size_t kNoteWords = 17;
  [[nodiscard]] std::atomic<std::uint64_t> *notes() const noexcept { return notes_; }

  // True if the call that opened this mapping made the region anew, so that its bytes are known to be zero.
  [[nodiscard]] bool is_fresh() const noexcept { return fresh_; }

  // Gives this mapping up without closing it: the region stays for the life of the process. The object has none then.
  void keep_for_process_life() noexcept;

  // The bytes from `address` to the end of the region of this process that contains it; empty if no region does.
  [[nodiscard]] static std::span<std::byte> bytes_from(const void *address);

 private:
  struct Entry;
  friend struct RegionRegistry;
  explicit NamedRegion(Entry &entry, bool fresh) noexcept;
  void close() noexcept;

  Entry *entry_ = nullptr;
  std::span<std::byte> bytes_;
  std::atomic<std::uint64_t> *notes_ = nullptr;
  bool fresh_ = false;
};

}  // namespace quillanest
