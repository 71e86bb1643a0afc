// Anonymous regions are memory files, named after the region so that a tool which knows the process can find them among
// its descriptors; the descriptor stays open as long as the region. Their size is sealed: a process that opens one of
// them there cannot make it shorter than its mapping. A region is mapped once per process and its objects share the
// mapping.
#include "quillanest/platform/NamedRegion.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <errno.h>
#include <fcntl.h>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_map>
#include <utility>

#include "quillanest/base/Loading.h"
#include "quillanest/base/Neutral.h"
#include "quillanest/platform/FileSizeSignal.h"

namespace quillanest {

struct NamedRegion::Entry {
  std::string name;
  std::byte *start = nullptr;
  std::size_t size = 0;
  int descriptor = -1;
  std::size_t mappings = 0;
  std::array<std::atomic<std::uint64_t>, kNoteWords> notes{};

  Entry() = default;
  Entry(const Entry &) = delete;
  Entry &operator=(const Entry &) = delete;
  ~Entry() {
    if (start != nullptr) munmap(start, size);
    if (descriptor >= 0) ::close(descriptor);
  }

  // Maps the first `bytes` bytes of the open descriptor.
  bool map(std::size_t bytes) {
    void *address = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (address == MAP_FAILED) return false;
    start = static_cast<std::byte *>(address);
    size = bytes;
    return true;
  }
};

namespace {

struct NameHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view name) const { return std::hash<std::string_view>{}(name); }
};

// Whether it is a file of this user without another name. A file that others may have put there must not be shared with
// them, and one that has a name elsewhere must not be grown and written.
bool is_own_file(const struct stat &status) {
  return S_ISREG(status.st_mode) && status.st_uid == geteuid() && status.st_nlink == 1;
}

// Whether a file that could not be opened must not be opened: a link, or another user's file.
bool is_refused(const std::string &path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && (S_ISLNK(status.st_mode) || status.st_uid != geteuid());
}

// Makes an open file at least `size` bytes long, with disk space for every one of them: a mapping must not find out on
// a write that the disk is full.
bool grow_backing_file(int descriptor, std::size_t size) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0 || !is_own_file(status)) return false;
  if (static_cast<std::size_t>(status.st_size) >= size) return true;
  const FileSizeSignalBlock block;
  int result = EINTR;
  while (result == EINTR) result = posix_fallocate(descriptor, 0, static_cast<off_t>(size));
  return result == 0;
}

bool fix_size(int descriptor, std::size_t size) {
  const FileSizeSignalBlock block;
  return ftruncate(descriptor, static_cast<off_t>(size)) == 0 &&
         fcntl(descriptor, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) == 0;
}

int open_memory_file(const std::string &name, std::size_t size) {
  const int descriptor = memfd_create(name.c_str(), MFD_CLOEXEC | MFD_ALLOW_SEALING);
  if (descriptor < 0) return -1;
  if (fix_size(descriptor, size)) return descriptor;
  close(descriptor);
  return -1;
}

}  // namespace

// All regions of this process. It is never destroyed: mappings in static objects are closed after it would be gone.
//
// A forked child starts without regions: names carry the identifier of the process that made them, and one of the
// parent's could otherwise be taken for one of the child's. Mappings that the child inherits stay.
struct RegionRegistry {
  using Entry = NamedRegion::Entry;

  RegionRegistry() {
    const int result = pthread_atfork([] { instance().mutex_.lock(); }, [] { instance().mutex_.unlock(); },
                                      [] { instance().forget_names_of_parent(); });
    if (result != 0) throw std::bad_alloc();
  }

  static RegionRegistry &instance() {
    static RegionRegistry &registry = *std::make_unique<RegionRegistry>().release();
    return registry;
  }

  NamedRegion open(std::string_view name) {
    const std::lock_guard lock(mutex_);
    const auto found = by_name_.find(name);
    return found == by_name_.end() ? NamedRegion() : open_entry(*found->second, false);
  }

  NamedRegion open_or_create(std::string_view name, const std::string *path, std::size_t size) {
    if (size == 0) return {};
    const std::lock_guard lock(mutex_);
    const auto found = by_name_.find(name);
    if (found != by_name_.end()) return open_entry(*found->second, false);
    auto entry = std::make_unique<Entry>();
    entry->name = name;
    bool zero = false;
    if (path != nullptr) {
      entry->descriptor = ::open(path->c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW, 0600);
      // An anonymous region loses what is written to it, so it replaces only a file that cannot be opened.
      if (entry->descriptor < 0 ? is_refused(*path) : !grow_backing_file(entry->descriptor, size)) return {};
    }
    if (entry->descriptor < 0) {
      entry->descriptor = open_memory_file(entry->name, size);
      zero = true;
    }
    if (entry->descriptor < 0 || !entry->map(size)) return {};
    Entry &stored = *entry;
    const auto owned = entries_.emplace(&stored, std::move(entry)).first;
    try {
      by_name_.emplace(stored.name, &stored);
    } catch (...) {
      entries_.erase(owned);
      throw;
    }
    const auto start = reinterpret_cast<std::uintptr_t>(stored.start);
    lowest_ = std::min(lowest_.load(), start);
    highest_ = std::max(highest_.load(), start + stored.size);
    return open_entry(stored, zero);
  }

  void close(Entry &entry) {
    const std::lock_guard lock(mutex_);
    if (--entry.mappings > 0) return;
    const auto named = by_name_.find(std::string_view(entry.name));
    if (named != by_name_.end() && named->second == &entry) by_name_.erase(named);
    entries_.erase(&entry);
  }

  // Makes no instance: without one there are no regions, and every text that a caller gives is looked up here.
  static std::span<std::byte> bytes_from(const std::byte *address) {
    const std::less<> before;
    // Most addresses are those of the program's own data, on the stack or the heap. A region that holds the address
    // existed before the caller got it, so its bounds are known here.
    const auto place = reinterpret_cast<std::uintptr_t>(address);
    if (place < lowest_.load() || place >= highest_.load()) return {};
    const std::lock_guard lock(instance().mutex_);
    for (const auto &[entry, owner] : instance().entries_) {
      if (before(address, entry->start) || !before(address, entry->start + entry->size)) continue;
      const auto offset = static_cast<std::size_t>(address - entry->start);
      return {entry->start + offset, entry->size - offset};
    }
    return {};
  }

 private:
  static NamedRegion open_entry(Entry &entry, bool fresh) {
    ++entry.mappings;
    return NamedRegion(entry, fresh);
  }

  // Runs in the child, whose only thread holds the mutex from before the fork.
  void forget_names_of_parent() {
    by_name_.clear();
    mutex_.unlock();
  }

  std::mutex mutex_;
  std::unordered_map<std::string, Entry *, NameHash, std::equal_to<>> by_name_;
  std::unordered_map<Entry *, std::unique_ptr<Entry>> entries_;
  // Every region that was ever mapped lies between the two.
  static constinit inline std::atomic<std::uintptr_t> lowest_{std::numeric_limits<std::uintptr_t>::max()};
  static constinit inline std::atomic<std::uintptr_t> highest_{0};
};

namespace {

[[gnu::constructor(kWhenLoaded)]] void make_registry() {
  (void)neutral_on_failure(false, [] { return RegionRegistry::instance().open({}).bytes().empty(); });
}

}  // namespace

NamedRegion::NamedRegion(Entry &entry, bool fresh) noexcept
    : entry_(&entry), bytes_(entry.start, entry.size), notes_(entry.notes.data()), fresh_(fresh) {}

NamedRegion::NamedRegion(NamedRegion &&other) noexcept
    : entry_(std::exchange(other.entry_, nullptr)),
      bytes_(std::exchange(other.bytes_, {})),
      notes_(std::exchange(other.notes_, nullptr)),
      fresh_(std::exchange(other.fresh_, false)) {}

NamedRegion &NamedRegion::operator=(NamedRegion &&other) noexcept {
  if (this == &other) return *this;
  close();
  entry_ = std::exchange(other.entry_, nullptr);
  bytes_ = std::exchange(other.bytes_, {});
  notes_ = std::exchange(other.notes_, nullptr);
  fresh_ = std::exchange(other.fresh_, false);
  return *this;
}

NamedRegion::~NamedRegion() { close(); }

NamedRegion NamedRegion::open_or_create(std::string_view name, std::size_t size) {
  return neutral_on_failure(NamedRegion(),
                            [&] { return RegionRegistry::instance().open_or_create(name, nullptr, size); });
}

NamedRegion NamedRegion::open_or_create_file(std::string_view name, const std::string &path, std::size_t size) {
  return neutral_on_failure(NamedRegion(),
                            [&] { return RegionRegistry::instance().open_or_create(name, &path, size); });
}

NamedRegion NamedRegion::open(std::string_view name) { return RegionRegistry::instance().open(name); }

void NamedRegion::keep_for_process_life() noexcept {
  entry_ = nullptr;
  bytes_ = {};
  notes_ = nullptr;
  fresh_ = false;
}

std::span<std::byte> NamedRegion::bytes_from(const void *address) {
  return RegionRegistry::bytes_from(static_cast<const std::byte *>(address));
}

void NamedRegion::close() noexcept {
  if (entry_ != nullptr) RegionRegistry::instance().close(*entry_);
  keep_for_process_life();
}

}  // namespace quillanest
